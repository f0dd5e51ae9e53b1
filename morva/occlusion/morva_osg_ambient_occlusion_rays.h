#pragma once

// The rays of a point and what they come to.
//
//     . . . . .       a lattice of directions from a cube, `shots` steps along each edge,
//     . \ | / .       (shots + 1)^3 of them; each leans towards the point's normal, and starts
//     . - o - .       a little way off the point
//     . / | \ .
//
//     value = 1 - (near hits + shares of those further off) / rays
//
// A point that no ray of meets anything near has the value 1. No random numbers: the same point
// gives the same bits in every run and on every thread. The lattice is made once for the process,
// by the first caller; any number of threads may ask for it.

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/core/morva_span.h>
#include <morva/trees/ray_traversal.h>

namespace morva::osg {

/// Numbers of shots for which there are rays. More would fill gigabytes with them.
constexpr int least_shots = 1, most_shots = 255;

/// The directions of a point's rays, of any length, the zero vector among them where the lattice
/// has a middle.
///
/// shots    steps along an edge of the cube. Only the first call that is in range counts: others
///          get its set. Out of range: none, and nothing is made
/// returns  in the order of x, then y, then z
/// errors   std::bad_alloc
MORVA_API std::vector<math::vector<float, 3>> getRayVecs(unsigned int shots);

/// The same set without a copy; it stays as it is as long as the process lives.
MORVA_API span<const float3> rayVecsOf(int shots);

/// How many rays a call with `shots` fires per point: those of the set that there is, or of the one
/// that would be made.
MORVA_API std::size_t raysInForce(int shots);

/// One ray on its way.
struct occlusion_ray {
    /// A ray of the set, from a point, towards its normal.
    occlusion_ray(const float3& position, const float3& normal, const float3& vector) {
        for (std::size_t k = 0; k < 3; ++k) {
            from[k] = static_cast<float>(static_cast<double>(position[k]) +
                                         static_cast<double>(vector[k]) * start_offset);
            direction[k] = vector[k] + normal[k];
        }
    }

    /// Whether it goes anywhere. What a ray without a finite start and direction hits has no
    /// distance, so that it counts for nothing.
    bool isFired() const {
        float sum = 0.0F;
        for (std::size_t k = 0; k < 3; ++k)
            sum += from[k] * 0.0F + direction[k] * 0.0F;
        return sum == 0.0F &&
               (direction[0] != 0.0F || direction[1] != 0.0F || direction[2] != 0.0F);
    }

    /// Share of the vector by which the start lies off the point.
    static constexpr double start_offset = 0.0001;
    /// A distance from the start differs from that from the point by less, in world units: twice
    /// what the longest vector and its offset come to.
    static constexpr double start_slack = 4.0 * start_offset;

    float3 from;
    float3 direction; ///< of any length
};

/// What is known of the rays of a place without firing them: nothing.
struct nothing_near {
    bool stops(std::size_t, const occlusion_ray&) const { return false; }
};

/// Fires at a scene whose parts have trees of their own, see osg_scene_geoset. A copy costs
/// nothing; any number of threads may fire.
template <typename Tree, typename Scene> class scene_rays {
  public:
    scene_rays(const Tree& over_parts, const Scene& of_parts)
        : tree_(over_parts), scene_(of_parts) {}

    /// Whether the ray meets something, and where first.
    bool operator()(const occlusion_ray& ray, float3& point) const {
        float entry, exit;
        if (!ray.isFired() || !clip_ray(scene_.box, ray.from, ray.direction, entry, exit))
            return false;
        float3 to, inverse;
        for (std::size_t k = 0; k < 3; ++k) {
            to[k] = ray.direction[k] * exit + ray.from[k];
            inverse[k] = 1.0F / ray.direction[k];
        }
        intersection_point<float, float3, float3> hit;
        empty_trace_statistics none;
        fire_ray_rec(tree_, 0, scene_, ray.from, to, inverse, entry, exit, hit, none, -1);
        point = hit.point;
        return hit.hit;
    }

    nothing_near near(const float3&, double) const { return {}; }

  private:
    const Tree& tree_;
    const Scene& scene_;
};

/// What some rays of a point came to.
struct occlusion_sum {
    std::int32_t full = 0; ///< hits nearer than the distance
    double partial = 0.0;  ///< shares of those up to twice as far

    void addNear() { ++full; }

    /// Counts a hit that lies `d` from the point. Up to `distance` it counts whole; behind, its
    /// share grows from 0 at `distance` to 1 at twice that. On purpose: values lean on it.
    void add(float d, double distance) {
        const auto far = static_cast<double>(d);
        if (far < distance)
            addNear();
        else if (far < 2.0 * distance)
            partial += (far - distance) / distance;
    }

    /// The value of the point; a NaN for no rays.
    float value(std::size_t rays) const {
        return 1.0F - static_cast<float>(full + partial) / static_cast<float>(rays);
    }
};

/// The value of a point: 1 for one that sees nothing near, towards 0 where rays hit near things.
///
/// position, normal  in the world; a zero normal lets the rays go to all sides
/// distance          world units, up to which a hit counts whole
/// trace             bool(const occlusion_ray&, float3& point): whether and where a ray hits; and
///                   near(position, distance), something that has stops(number, ray), true where
///                   the hit of that ray of the set is certain to be nearer
template <typename Trace>
float opennessOf(span<const float3> rays, const float3& position, const float3& normal,
                 double distance, Trace&& trace) {
    occlusion_sum sum;
    auto near = trace.near(position, distance);
    for (std::size_t i = 0; i < rays.size(); ++i) {
        const occlusion_ray ray(position, normal, rays[i]);
        float3 point;
        if (near.stops(i, ray))
            sum.addNear();
        else if (trace(ray, point))
            sum.add(detail::distance<float, float3>(position, point), distance);
    }
    return sum.value(rays.size());
}

} // namespace morva::osg
