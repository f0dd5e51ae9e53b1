#pragma once

// How far two triangle surfaces are from each other, both ways.
//
//     largest   of all samples on either surface the farthest from the other one
//     mean      of all samples on both, each for the area that it stands for
//
//     samples   per triangle of a surface that is measured against its source: corners, middles of
//               the edges and centre, with shares of 3, 8 and 27; per triangle of the source:
//               corners and centre, with shares of 1 and 9
//
// The distance of a sample is that to the nearest point of the other surface, which is exact but
// for rounding in double precision. Between the samples a surface can be farther away.
//
//     const measured_surface source(simplifiedTriangles(run, 0));
//     const measured_surface fewer(simplifiedTriangles(run, stop));
//     const surface_distance both = distanceToSource(fewer, source) + distanceToResult(source,
//     fewer);
//
// Plain memory: any number of threads may read a surface.
// Method: nearest points by branch and bound in a tree of boxes, "Metro: measuring error on
// simplified surfaces", P. Cignoni et al., 1998, for the measure.

#include <algorithm>
#include <array>
#include <memory>

#include <morva/core/morva_export.h>
#include <morva/tools/morva_osg_simplify.h>

namespace morva::osg {

class nearest_triangles;

/// Where the axes x, y and z go in the space in which distances count.
using linear_map = std::array<::osg::Vec3f, 3>;

/// Distances of the samples of one surface, or of two.
struct surface_distance {
    double largest = 0;  ///< infinite if there is nothing to be near to
    double integral = 0; ///< distances by area
    double area = 0;     ///< that was sampled

    double mean() const { return area > 0 ? integral / area : 0; }
};

inline surface_distance operator+(const surface_distance& a, const surface_distance& b) {
    return {std::max(a.largest, b.largest), a.integral + b.integral, a.area + b.area};
}

/// Triangles, sorted for questions about the nearest. Copies share the triangles.
class MORVA_API measured_surface {
  public:
    /// space   null: that of the triangles; else their places are mapped, in single precision
    /// errors  std::bad_alloc
    explicit measured_surface(const simplified_triangles& triangles,
                              const linear_map* space = nullptr);

    const nearest_triangles& triangles() const { return *triangles_; }

  private:
    std::shared_ptr<const nearest_triangles> triangles_;
};

/// Distances from the result of a simplification to its source.
/// cost  O(log n) for each of seven samples per triangle, unless the surfaces are far apart
MORVA_API surface_distance distanceToSource(const measured_surface& result,
                                            const measured_surface& source);

/// Distances from the source to the result.
MORVA_API surface_distance distanceToResult(const measured_surface& source,
                                            const measured_surface& result);

} // namespace morva::osg
