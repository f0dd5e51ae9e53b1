#pragma once

// Triangles in a tree of boxes, which tells the nearest one to a point.
//
//     nearest_triangles triangles(mesh, nullptr);
//     nearest_hit near;                                // none yet
//     triangles.search(point, near);                   // near.squared, near.place
//
// A hit that is handed on from a point to its neighbour makes the next search short.
// Plain memory: any number of threads may search.

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <morva/core/morva_span.h>
#include <morva/tools/morva_osg_surface_distance.h>
#include <morva/trees/wide_tree.h>

namespace morva::osg {

using point3d = std::array<double, 3>;
using corners3d = std::array<point3d, 3>;

inline point3d widened(const ::osg::Pnt3f& p) { return {double{p[0]}, double{p[1]}, double{p[2]}}; }
inline point3d minus(const point3d& a, const point3d& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline double dot(const point3d& a, const point3d& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
inline point3d cross(const point3d& a, const point3d& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
/// The point that has so much of each corner; the shares' sum is 1.
inline point3d pointOf(const corners3d& t, double a, double b, double c) {
    point3d p;
    for (std::size_t i = 0; i < 3; ++i)
        p[i] = a * t[0][i] + b * t[1][i] + c * t[2][i];
    return p;
}

::osg::Pnt3f mapped(const ::osg::Pnt3f& p, const linear_map& space);

/// Square of the distance from a point to a triangle, a line or a point.
double squaredDistance(const point3d& p, const corners3d& triangle);

struct nearest_hit {
    double squared = std::numeric_limits<double>::infinity(); ///< distance
    std::uint32_t place = 0; ///< of the triangle; none if the distance is infinite
};

class nearest_triangles {
  public:
    /// errors  std::bad_alloc
    nearest_triangles(const simplified_triangles& mesh, const linear_map* space);

    std::size_t size() const { return corners_.size(); }
    /// The corners of a triangle by its place: neighbours follow each other.
    corners3d corners(std::size_t place) const {
        const auto& t = corners_[place];
        return {widened(t[0]), widened(t[1]), widened(t[2])};
    }
    /// Its number in the mesh.
    std::size_t number(std::size_t place) const { return numbers_[place]; }

    /// Sets a hit to the triangle nearest to a point. What it was before may be any triangle.
    void search(const point3d& p, nearest_hit& hit) const;
    double distance(const point3d& p, nearest_hit& hit) const;

  private:
    nearest_triangles(const simplified_triangles& mesh, const linear_map* space,
                      std::vector<wide_item> items);

    void searchLeaf(const wide_tree::leaf& leaf, const point3d& p, nearest_hit& hit) const;

    std::vector<std::array<::osg::Pnt3f, 3>> corners_; ///< in the order of the leaves
    std::vector<::osg::UInt32> numbers_;               ///< in the mesh
    wide_tree tree_;
};

/// Calls `use` with each sample of a triangle, which stands for a share of its area.
///
/// use   void(const point3d&, double share)
/// fine  the middles of the edges, too
template <typename Use> void forEachSample(const corners3d& t, bool fine, const Use& use) {
    const double corner = fine ? 1.0 / 20 : 1.0 / 12, middle = 2.0 / 15;
    for (std::size_t k = 0; k < 3; ++k) {
        use(t[k], corner);
        if (fine)
            use(pointOf({t[k], t[(k + 1) % 3], t[k]}, 0.5, 0.5, 0), middle);
    }
    use(pointOf(t, 1.0 / 3, 1.0 / 3, 1.0 / 3), fine ? 9.0 / 20 : 3.0 / 4);
}

} // namespace morva::osg
