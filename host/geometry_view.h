#pragma once

// A geometry core as plain arrays: what statistics, audit and writers read.
//
//     runs       triangles 0..899 | lines 900..919         primitives over corners
//     corners    0 1 2 3 4 ...                             running number of a vertex in a
//     primitive indices    k numbers per corner, side by side, or none: the corner is the index
//     attributes positions, normals, ...: floats, and which of the k numbers addresses them
//
//     geometry_view view(geometry);
//     forEachTriangle(view, [&](std::uint32_t a, std::uint32_t b, std::uint32_t c) {
//         const float* first = view.positions.at(view.index(view.positions, a));
//     });
//
// Float properties are not copied: a view is valid as long as the core keeps its properties, and
// can be read by any thread. Everything is checked once, on building: afterwards each index of a
// corner below `corner_count` is inside its attribute.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_property_blocks.h>

namespace morva::host {

/// One vertex property. Absent: `components` is 0.
struct attribute_view {
    int components = 0;                  ///< floats per entry, 2 to 4
    std::uint32_t count = 0;             ///< entries
    std::uint32_t slot = 0;              ///< which of the numbers of a corner addresses it
    const float* values = nullptr;       ///< `components * count` floats
    std::shared_ptr<const void> storage; ///< keeps `values` alive

    bool present() const { return components != 0; }
    const float* at(std::uint32_t index) const {
        return values + static_cast<std::size_t>(index) * static_cast<std::size_t>(components);
    }
};

/// A primitive of the types list, over corners that exist.
struct primitive_run {
    std::uint32_t type = 0;   ///< OpenGL mode, 0 to 9
    std::uint32_t first = 0;  ///< first corner
    std::uint32_t length = 0; ///< corners
};

struct geometry_view {
    geometry_view() = default;
    explicit geometry_view(const ::osg::GeometryPtr& geometry);
    geometry_view(geometry_view&&) = default;
    geometry_view& operator=(geometry_view&&) = default;
    geometry_view(const geometry_view&) = delete;
    geometry_view& operator=(const geometry_view&) = delete;

    static constexpr std::size_t coordinate_sets = 8;

    attribute_view positions, normals, colors, secondary_colors;
    attribute_view coordinates[coordinate_sets];

    std::vector<primitive_run> runs;
    std::uint32_t corner_count = 0;
    std::uint32_t stride = 1;               ///< numbers per corner
    const std::uint32_t* indices = nullptr; ///< `stride * corner_count`, null without indices
    std::size_t index_entries = 0;          ///< entries of the indices property, used or not
    bool wide_indices = false;              ///< stored in 32 bits
    bool faulty = false;                    ///< indices point past the positions: no runs then

    std::uint32_t index(const attribute_view& attribute, std::uint32_t corner) const {
        return numberAt(attribute.slot, corner);
    }
    std::uint32_t numberAt(std::uint32_t slot, std::uint32_t corner) const {
        return indices == nullptr ? corner
                                  : indices[static_cast<std::size_t>(corner) * stride + slot];
    }
    /// Every present attribute follows the same number: an index is a vertex.
    bool oneIndexPerCorner() const { return one_index_; }

  private:
    void readIndices(const ::osg::GeometryPtr& geometry);
    void readRuns(const ::osg::GeometryPtr& geometry);
    void checkRanges();
    template <typename Visit> void forEachAttribute(Visit visit);

    morva::osg::property_block<::osg::UInt32> index_block_;
    bool one_index_ = true;
};

namespace detail {

/// The triangles of a strip: 0 1 2, 2 1 3, 2 3 4, ... without those after the first that use a
/// position twice.
template <typename Visit>
void visitStrip(const geometry_view& view, const primitive_run& run, Visit& visit) {
    for (std::uint32_t k = 0; k + 2 < run.length; ++k) {
        const std::uint32_t first = run.first + k;
        const std::uint32_t a = first + (k & 1), b = first + 1 - (k & 1), c = first + 2;
        const std::uint32_t pa = view.index(view.positions, a);
        const std::uint32_t pb = view.index(view.positions, b);
        const std::uint32_t pc = view.index(view.positions, c);
        if (k != 0 && (pa == pb || pb == pc || pa == pc))
            continue;
        visit(a, b, c);
    }
}

} // namespace detail

/// Calls `visit` with the three corners of each triangle, in the order of the core; quads are two
/// triangles, polygons fans. What does not fill a triangle is left out.
template <typename Visit> void forEachTriangle(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs) {
        const std::uint32_t end = run.first + run.length;
        switch (run.type) {
        case GL_TRIANGLES:
            for (std::uint32_t c = run.first; c + 2 < end; c += 3)
                visit(c, c + 1, c + 2);
            break;
        case GL_TRIANGLE_STRIP:
        case GL_QUAD_STRIP:
            detail::visitStrip(view, run, visit);
            break;
        case GL_TRIANGLE_FAN:
        case GL_POLYGON:
            for (std::uint32_t c = run.first + 1; c + 1 < end; ++c)
                visit(run.first, c, c + 1);
            break;
        case GL_QUADS:
            for (std::uint32_t c = run.first; c + 3 < end; c += 4) {
                visit(c, c + 1, c + 2);
                visit(c, c + 2, c + 3);
            }
            break;
        default:
            break;
        }
    }
}

/// Calls `visit` with the two corners of each line; loops close.
template <typename Visit> void forEachLine(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs) {
        const std::uint32_t end = run.first + run.length;
        if (run.type == GL_LINES) {
            for (std::uint32_t c = run.first; c + 1 < end; c += 2)
                visit(c, c + 1);
        } else if (run.type == GL_LINE_STRIP || run.type == GL_LINE_LOOP) {
            for (std::uint32_t c = run.first; c + 1 < end; ++c)
                visit(c, c + 1);
            if (run.type == GL_LINE_LOOP && run.length > 1)
                visit(end - 1, run.first);
        }
    }
}

/// Calls `visit` with each point's corner.
template <typename Visit> void forEachPoint(const geometry_view& view, Visit visit) {
    for (const primitive_run& run : view.runs) {
        if (run.type != GL_POINTS)
            continue;
        for (std::uint32_t c = run.first; c < run.first + run.length; ++c)
            visit(c);
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
