#pragma once

// The triangles of a model as a kd-tree sorts and cuts them. Include
// <morva/tools/morva_osg_model_cells.h>.
//
//     element   0 1 2 ... n-1 | n n+1 ...      the triangles of all parts, then what comes off them
//     origin    0 1 2 ... n-1 | 1 4   ...      the triangle that an element was cut from
//     outline   - * - ... * - | * *   ...      of what is whole no more: a convex polygon
//
// A triangle has one element, and so one polygon, in each cell: cuts leave nothing inside it that
// later ones could cut again, and it is fanned into triangles when all is done.
//
// Where a plane cuts an edge depends on the ends of the edge and the plane alone, so that all
// triangles at an edge, whichever way they run and in whatever order they are cut, get a cut point
// of the same bits: seams stay closed.

#include <cstdint>
#include <vector>

#include <OpenSG/OSGVector.h>

#include <morva/core/morva_math.h>
#include <morva/core/morva_span.h>
#include <morva/tools/morva_osg_model_cell_parts.h>
#include <morva/trees/geoset_access.h>

namespace morva::osg {

/// A corner of a piece.
struct piece_corner {
    ::osg::Pnt3f world; ///< where the tree has it
    ::osg::Pnt3f local; ///< in the part's own space
    float weight[3];    ///< of the corners of the triangle that it was cut from; their sum is 1
    int whole = -1;     ///< 0 to 2: it is that corner itself
};

/// A geoset that compile() takes.
struct cell_triangles {
    using scalar_type = float;

    cell_triangles(const std::vector<cell_part>& all_parts, bool cuts);

    std::uint64_t originOf(std::uint64_t element) const {
        return element < whole ? element : origin[static_cast<std::size_t>(element - whole)];
    }
    /// The corners of an element that was cut, in the order of its triangle; none of a whole one.
    span<const piece_corner> outlineOf(std::uint64_t element) const {
        if (outlines.empty())
            return {};
        const corner_range& range = outlines[static_cast<std::size_t>(element)];
        return {corners.data() + range.first, range.count};
    }
    /// Triangles that an element is fanned into.
    std::size_t trianglesOf(std::uint64_t element) const {
        const std::size_t count = outlineOf(element).size();
        return count == 0 ? 1 : count - 2;
    }

    /// Cuts an element at a plane that its extent crosses: it keeps what is above, what is below
    /// comes as a new one. Nothing happens where either would lose its shape, since two corners
    /// would coincide.
    /// errors  std::length_error: more than `most_corners`
    void splitElement(unsigned long element, double plane, int axis, int& added,
                      unsigned long& first_added);

    struct corner_range {
        std::uint32_t first = 0, count = 0;
    };

    const std::vector<cell_part>& parts;
    std::uint64_t whole = 0;            ///< triangles of the parts
    std::uint64_t size = 0;             ///< elements
    std::vector<float> low[3], high[3]; ///< extents, one per element
    float_box bbox{};
    std::vector<std::uint64_t> origin;  ///< of the elements from `whole` on
    std::vector<corner_range> outlines; ///< one per element, of `corners`; empty if nothing is cut
    std::vector<piece_corner> corners;
    std::uint64_t most_corners = 0;

  private:
    /// As many corners as a triangle that is cut by six planes can have, and more.
    struct polygon {
        piece_corner corners[16];
        std::size_t count = 0;
    };
    static void cutAt(double plane, ::osg::UInt32 axis, const polygon& shape, polygon (&sides)[2]);
    static bool hasShape(const polygon& shape);

    polygon shapeOf(std::uint64_t element) const;
    void setExtent(std::uint64_t element, const polygon& shape);
    void setOutline(std::uint64_t element, const polygon& shape);
};

inline array_extents<float> extents_on_axis(const cell_triangles& triangles, int axis) {
    const auto a = static_cast<std::size_t>(axis);
    return {triangles.low[a].data(), triangles.high[a].data()};
}

} // namespace morva::osg
