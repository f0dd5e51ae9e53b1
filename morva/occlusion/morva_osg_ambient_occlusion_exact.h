#pragma once

// Rays in double precision, for those that met nothing: whether single precision lost a hit.
//
// The same trees, by their planes and the boxes of the parts, a little widened, so that a triangle
// is never missed for a part of it that lies on the edge of a box. Front faces alone count.
// Any number of threads may ask.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <morva/core/morva_math.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>

namespace morva::osg {

/// Finds the first front face that a ray meets within a reach.
template <typename Tree, typename Scene> class exact_rays {
  public:
    /// reach  world units, beyond which hits do not matter
    exact_rays(const Tree& over_parts, const Scene& of_parts, double farthest)
        : tree_(over_parts), scene_(of_parts), reach_(farthest) {}

    bool operator()(const occlusion_ray& ray, float3& point) const {
        if (!ray.isFired() || tree_.nodes == nullptr)
            return false;
        walk on(ray, reach_);
        on.descend(tree_, 0, 0.0, on.best, [&](std::uint64_t part) {
            if (part < scene_.built_count && on.reaches(scene_.geosets[part].bbox) &&
                scene_.trees[part].nodes != nullptr)
                on.descend(scene_.trees[part], 0, 0.0, on.best, [&](std::uint64_t triangle) {
                    on.meet(scene_.geosets[part].simple_tris[triangle]);
                });
        });
        for (std::size_t k = 0; k < 3; ++k)
            point[k] = static_cast<float>(on.from[k] + on.way[k] * on.best);
        return on.hit;
    }

  private:
    using triple = std::array<double, 3>;

    /// One ray on its way.
    struct walk {
        walk(const occlusion_ray& ray, double farthest) {
            double length = 0.0;
            for (std::size_t k = 0; k < 3; ++k) {
                from[k] = static_cast<double>(ray.from[k]);
                way[k] = static_cast<double>(ray.direction[k]);
                length += way[k] * way[k];
            }
            best = farthest * widened / std::sqrt(length);
        }

        /// Calls `use` with the elements of the leaves that the ray may come to between `near` and
        /// `far` times its way. Nearer ones first, so that `best` soon cuts the rest off.
        template <typename Use>
        void descend(const Tree& tree, std::uint64_t node, double near, double far,
                     const Use& use) {
            far = std::min(far, best);
            if (near > far)
                return;
            const auto& here = tree.nodes[node];
            if (here.is_leaf()) {
                for (std::uint32_t k = 0; k < here.count; ++k)
                    use(tree.indices[here.first + std::uint64_t(k)]);
                return;
            }
            const auto axis = static_cast<std::size_t>(here.axis);
            const double left = static_cast<double>(here.left_plane) - from[axis];
            const double right = static_cast<double>(here.right_plane) - from[axis];
            const auto below = [&] { // as far as the ray is below the left plane
                double to = far, since = near;
                clip(left, way[axis], since, to);
                descend(tree, node + 1, since, to, use);
            };
            const auto above = [&] {
                double to = far, since = near;
                clip(-right, -way[axis], since, to);
                descend(tree, static_cast<std::uint64_t>(here.right), since, to, use);
            };
            if (way[axis] < 0.0) {
                above();
                below();
            } else {
                below();
                above();
            }
        }

        /// Narrows a range to where `t * slope` is at most `bound`, or a little above.
        static void clip(double bound, double slope, double& since, double& to) {
            const double t = bound / slope;
            const double spare = std::abs(t) * (widened - 1.0);
            if (slope > 0.0)
                to = std::min(to, t + spare);
            else if (slope < 0.0)
                since = std::max(since, t - spare);
            else if (bound < 0.0)
                to = -1.0;
        }

        template <typename Box> bool reaches(const Box& box) const {
            double since = 0.0, to = best;
            for (std::size_t k = 0; k < 3; ++k) {
                clip(static_cast<double>(box.max[k]) - from[k], way[k], since, to);
                clip(from[k] - static_cast<double>(box.min[k]), -way[k], since, to);
            }
            return since <= to;
        }

        /// Keeps the hit of a triangle if it is nearer than what there is. An edge says the same to
        /// both triangles that share it, to the last bit: nothing slips through between them.
        template <typename Triangle> void meet(const Triangle& triangle) {
            const triple a = seen(triangle.a), b = seen(triangle.b), c = seen(triangle.c);
            const triple sides[] = {detail::cross(c, b), detail::cross(a, c), detail::cross(b, a)};
            double d = 0.0; // way back times normal
            for (const triple& side : sides) {
                const double inside = detail::dot<double>(way, side);
                if (inside < 0.0)
                    return;
                d += inside;
            }
            const double s = detail::dot<double>(a, sides[0]); // start above its plane times normal
            if (!(d > 0.0) || s < 0.0 || s / d > best)
                return;
            best = s / d;
            hit = true;
        }

        /// A corner from where the ray starts.
        template <typename Point> triple seen(const Point& corner) const {
            triple way_there;
            for (std::size_t k = 0; k < 3; ++k)
                way_there[k] = static_cast<double>(corner[k]) - from[k];
            return way_there;
        }

        triple from, way;
        double best; ///< how often the way fits in between, to the hit or to the reach
        bool hit = false;
    };

    /// Share by which ranges are wider than they should be.
    static constexpr double widened = 1.0 + 1e-9;

    const Tree& tree_;
    const Scene& scene_;
    double reach_;
};

} // namespace morva::osg
