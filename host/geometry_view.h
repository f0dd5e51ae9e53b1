#pragma once

// A geometry core as statistics, audit and writers read it: the library's columns, checked.
//
//     runs       triangles 0..899 | lines 900..919         primitives over corners
//     columns    positions, normals, ...                   floats, and the row of each corner
//
//     geometry_view view(geometry);
//     forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
//         const float* first = view.positions.at(view.positions.row(a));
//     });
//
// Float properties are not copied: a view is valid as long as the core keeps its properties, and
// can be read by any thread. Everything is checked once, on building: afterwards each row of a
// corner of the runs is inside its column.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::host {

using morva::osg::primitive_run;
using morva::osg::property_column;

struct geometry_view {
    explicit geometry_view(const ::osg::GeometryPtr& geometry);

    static constexpr std::size_t coordinate_sets = 8;

    /// Not `present` without rows, or where no index leads to them.
    property_column positions, normals, colors, secondary_colors;
    property_column coordinates[coordinate_sets];

    morva::osg::geometry_columns columns; ///< all of them, unchecked
    std::vector<primitive_run> runs;      ///< none is empty
    bool wide_indices = false;            ///< stored in 32 bits
    bool faulty = false;                  ///< indices point past the positions: no runs then
    /// Every present column follows the same index: an index is a vertex.
    bool one_index_per_corner = true;
    bool equal_indices = false; ///< there are several per corner, and they are equal in each one

    /// Corners of the runs, all of them in front.
    std::size_t usedCorners() const {
        return runs.empty() ? 0 : runs.back().first + runs.back().length;
    }

  private:
    void checkRanges();
};

/// Calls `visit` with each column of a view, constant or not, `present` or not; in the order of
/// morva::osg::all_properties.
template <typename View, typename Visit> void forEachColumn(View& view, Visit visit) {
    for (auto* column : {&view.positions, &view.normals, &view.colors, &view.secondary_colors})
        visit(*column);
    for (auto& set : view.coordinates)
        visit(set);
}

/// Calls `visit` with the three corners of each triangle, in the order of the core; quads are two
/// triangles, polygons fans. What does not fill a triangle is left out.
template <typename Visit> void forEachTriangle(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs)
        morva::osg::forEachTriangle(run, view.positions, visit);
}

/// Calls `visit` with the two corners of each line; loops close.
template <typename Visit> void forEachLine(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs)
        morva::osg::forEachLine(run, visit);
}

/// Calls `visit` with each point's corner.
template <typename Visit> void forEachPoint(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs) {
        for (std::size_t v = 0; run.type == GL_POINTS && v < run.length; ++v)
            visit(run.first + v);
    }
}

/// One number per distinct set of indices, so that a number is a vertex with all its properties.
struct vertex_numbering {
    std::vector<std::uint32_t> of_corner;    ///< number of each corner, by first use
    std::vector<std::uint32_t> first_corner; ///< per number, a corner that has it
};

/// Numbers the vertices that the corners of `view` use. O(corners).
vertex_numbering numberVertices(const geometry_view& view);

} // namespace morva::host
