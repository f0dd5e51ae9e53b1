#pragma once

// The triangles or lines of a geometry as one table of indices, and the way back: a run of them
// as a geometry of its own.
//
//     const draw_elements elements = readElements<3>(geometry, true);
//     ... order them ...
//     writePiece(elements, order, 0, 100, target);
//
//     cells    | p n | p n | p n | p n | ...      width 2: an index per corner and property
//              '---- element 0 --'                those of property i at offset[i]
//
// The order of the properties is positions, normals, colours, coordinate sets 0 and 7. Where the
// geometry is one plain run already the table is its own index, and nothing is copied.

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// Elements of a geometry, each of `corners` corners.
struct draw_elements {
    static constexpr std::size_t properties = 5;
    static constexpr int absent = -1;

    geometry_columns columns; ///< what the cells lead into
    unsigned corners = 3;
    std::size_t count = 0;
    span<const std::uint32_t> cells{}; ///< `count * corners` times `width`
    std::size_t width = 1;
    std::array<int, properties> offset{absent, absent, absent, absent, absent};
    std::vector<std::uint32_t> numbers{}; ///< of the elements in the source; empty: their places

    std::vector<std::uint32_t> own_cells{}; ///< what `cells` points into, or else it is the index

    bool has(std::size_t property) const { return offset[property] != absent; }
    const property_column& column(std::size_t property) const {
        return columns[basic_properties[property]];
    }
    std::size_t sizeOf(std::size_t property) const { return column(property).rows; }
    /// Index of the corner in a property that there is. It may equal the size and is never greater:
    /// it then reads as zero.
    std::uint32_t index(std::size_t corner, std::size_t property) const {
        return cells[corner * width + static_cast<std::size_t>(offset[property])];
    }
};

/// Reads the triangles (3 corners) or lines (2) of all primitives.
///
/// drop_rogues  leaves out triangles that is_rogue() holds for
///
/// Elements with a position index that leads nowhere are left out. Lines have no coordinate set 0.
template <unsigned Corners>
draw_elements readElements(const ::osg::GeometryPtr& geometry, bool drop_rogues);

/// Numbers the distinct corners, equal in all indices, from 0 up.
///
/// distinct  out: how many there are
/// returns   per corner its number
/// cost      linear, by one pass per property
std::vector<std::uint32_t> numberCorners(const draw_elements& elements, std::size_t& distinct);

/// Writes runs of elements into geometries, each with only the values that it uses.
class piece_writer {
  public:
    piece_writer(const draw_elements& source, const std::vector<std::uint32_t>& draw_order);

    /// Fills a geometry that createGeo() or createLineGeo() has made with the elements
    /// [first, end) of the draw order: one length, the properties that the source has, and an
    /// index for each of them. Values come in order of first use.
    void write(std::size_t first, std::size_t end, const ::osg::GeometryPtr& geometry);

  private:
    std::array<std::vector<std::uint32_t>, draw_elements::properties>
    numberColumns(std::size_t first, std::size_t end, span<std::uint32_t> cells);
    std::vector<std::uint32_t> numberColumn(std::size_t property, std::size_t first,
                                            std::size_t end, std::uint32_t* cells);

    const draw_elements& source_;
    const std::vector<std::uint32_t>& order_;
    std::size_t width_ = 0; ///< properties that there are
    /// Per property and index: number of the value, counted over all pieces from 1 on.
    std::array<std::vector<std::uint32_t>, draw_elements::properties> number_of_;
    std::array<std::uint32_t, draw_elements::properties> numbered_{};
};

} // namespace morva::osg
