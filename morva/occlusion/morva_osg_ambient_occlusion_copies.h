#pragma once

// The elements of a geometry as hulls see them: points, lines and triangles, and their values.

#include <cstddef>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// An element: its corners, and the OpenGL mode that draws it alone.
struct hull_element {
    ::osg::UInt8 type;      ///< GL_POINTS, GL_LINES or GL_TRIANGLES
    unsigned count;         ///< 1, 2 or 3 corners
    std::size_t corners[3]; ///< `count` of them
};

/// Calls `use` with each element of a geometry, in the order of its primitives; what is left of a
/// length is dropped.
///
/// columns  with the positions
template <typename Use> void forEachElement(const geometry_columns& columns, const Use& use) {
    forEachPrimitive(columns.geometry(), columns.corners(), rest_rule::left_out,
                     [&](const primitive_run& run) {
                         for (std::size_t v = 0; run.type == GL_POINTS && v < run.length; ++v)
                             use(hull_element{GL_POINTS, 1, {run.first + v, 0, 0}});
                         forEachLine(run, [&](std::size_t a, std::size_t b) {
                             use(hull_element{GL_LINES, 2, {a, b, 0}});
                         });
                         forEachTriangle(run, columns.stripRows(run, rest_rule::left_out),
                                         [&](std::size_t a, std::size_t b, std::size_t c) {
                                             use(hull_element{GL_TRIANGLES, 3, {a, b, c}});
                                         });
                     });
}

/// How open the elements of a geometry are.
class element_values {
  public:
    /// Where the values stand.
    enum class source {
        slot6,  ///< first component of the texture coordinates 6, by the positions
        colors, ///< mean of the colours' components
    };
    element_values(const geometry_columns& read, source from);

    /// Mean over the corners; one that leads nowhere counts as 0.
    double of(const hull_element& element) const;
    /// Of a triangle, as the copy of a hull by colours asks: the sum of nine components over nine.
    double ofTriangleColors(const hull_element& element) const;

  private:
    double ofCorner(std::size_t corner) const;

    const geometry_columns& columns_;
    source source_;
};

} // namespace morva::osg
