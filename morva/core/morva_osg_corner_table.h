#pragma once

// What index rebuilding works on: five properties in one fixed order, and for every corner of
// every triangle the row that it takes in each of those that are present.
//
//     corner   positions   normals   texcoords
//     0        7           7         2
//     1        3           3         0
//
// Properties that are absent have no column.

#include <cstddef>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// The properties that are rebuilt, in their one order: positions, normals, colours, coordinate
/// sets 0 and 7.
struct five_columns {
    explicit five_columns(const ::osg::GeometryPtr& geometry);

    bool present[5];
    std::size_t column[5] = {}; ///< of each property that is present
    std::size_t width = 0;      ///< number of those present
};

/// The table of corners: `width` columns, line after line.
struct corner_table {
    span<::osg::UInt32> cells;
    std::size_t width = 0;
    std::size_t corners = 0;
    bool running = false; ///< the rows are the corner numbers and are not in `cells`

    ::osg::UInt32& cell(std::size_t corner, std::size_t column) const {
        return cells[corner * width + column];
    }
    ::osg::UInt32 row(std::size_t corner, std::size_t column) const {
        return running ? static_cast<::osg::UInt32>(corner) : cell(corner, column);
    }
};

/// The size of a geometry's table, without cells.
corner_table tableOf(const ::osg::GeometryPtr& geometry, const five_columns& columns);

/// Fills the cells of a table with rows.
void readRows(const ::osg::GeometryPtr& geometry, const five_columns& columns,
              const corner_table& table);

/// A row that leads nowhere reads as zero.
template <typename Value> Value valueAt(const span<const Value>& values, ::osg::UInt32 row) {
    return row < values.size() ? values[row] : Value();
}

/// The five properties as a geometry has them now.
struct five_blocks {
    explicit five_blocks(const ::osg::GeometryPtr& geometry);

    property_block<::osg::Pnt3f> positions;
    property_block<::osg::Vec3f> normals;
    property_block<::osg::Color3f> colors;
    property_block<::osg::Vec2f> texcoords, texcoords7;
};

/// Values for new properties, in the usual forms.
struct five_results {
    std::vector<::osg::Pnt3f> positions;
    std::vector<::osg::Vec3f> normals;
    std::vector<::osg::Color3f> colors;
    std::vector<::osg::Vec2f> texcoords, texcoords7;
};

/// Makes a geometry one run of triangles with so many corners, these indices, this mapping, and new
/// properties in place of those that are present. All are made before the geometry changes: without
/// memory it stays as it was.
void replaceAll(const ::osg::GeometryPtr& geometry, const five_columns& columns,
                const five_results& results, const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr>& indices,
                const std::vector<::osg::UInt16>& mapping, std::size_t corners);

} // namespace morva::osg
