#pragma once

// Rays through a bih_tree: the first triangle that a segment meets from its front.
//
//     from o-----|==========|----> to     t_min and t_max are where the ray enters and leaves the
//              t_min      t_max           root's box: clip_ray() finds them
//
//     intersection_point<float, float3, float3> hit;      // `hit` false, or nothing is found
//     empty_trace_statistics none;
//     fire_ray_rec(tree, 0, geoset, from, to, inverse_direction, t_min, t_max, hit, none, -1);
//
// Which triangle is found depends on which leaves the descent comes to, so its steps are fixed to
// the last bit: single precision, sums from 0 in the order x, y, z, "the smaller of a and b" is b
// where one of them is a NaN. There is no tolerance in the test of a triangle, and back faces are
// never hit.
//
// Any number of threads may fire at a finished tree, each with a record of its own.
// Method: scalar triple products, "Fast, Minimum Storage Ray-Triangle Intersection", 1997, for
// segments; descent by "Instant Ray Tracing: The Bounding Interval Hierarchy", 2006.

#include <morva/trees/bih_records.h>
#include <morva/trees/ray_companion_use.h>
#include <morva/trees/ray_descent.h>
#include <morva/trees/ray_triangle.h>

#include <cstdint>

namespace morva {

/// Finds the first element below `node` that a segment meets; `result` stays as it is if none is
/// nearer than what it holds.
///
/// geoset             the tree's; triangles must be there: convert() has run on an osg_geoset
/// from, to           the segment; `to` is the point at `t_max`
/// inverse_direction  1 / direction per component, infinite for 0. The direction should be of unit
///                    length, since distances take the place of `t_max` on the way
/// t_min, t_max       range of the ray within the root's box
/// result             in and out: `hit` false at the start of a query. For triangles `t` is the
///                    fraction of the segment and `index` the triangle. For elements of a scene `t`
///                    is a distance, `index` the element and `normal` of unit length; `extra` and
///                    `two_sided` come fresh
/// ignored            an element that is not hit, such as the one that the ray starts on; or -1
///
/// Of hits at the same place the first in the order of the leaves stays. A tree without nodes and a
/// node that it does not have are not hit. A number in a scene's leaf that has no geoset takes the
/// last one there is, after a line on standard output.
template <typename T, typename P, typename V, typename Geoset, typename Stats>
void fire_ray_rec(const bih_tree<T>& tree, int node, const Geoset& geoset, const P& from,
                  const P& to, const V& inverse_direction, T t_min, T t_max,
                  intersection_point<T, P, V>& result, Stats& stats, int ignored) {
    if (tree.nodes == nullptr || node < 0 || static_cast<std::uint64_t>(node) > tree.node_count)
        return;
    if constexpr (!detail::is_scene<Geoset>::value)
        if (detail::ray_triangles(geoset) == nullptr)
            return;
    detail::ray_descent<T, P, V, Geoset, Stats> descent(tree, geoset, from, to, inverse_direction,
                                                        result, stats, ignored);
    if (node != 0 || !detail::descend_with_companion(tree, geoset, descent, t_min, t_max))
        descent.descend(static_cast<std::uint64_t>(node), t_min, t_max);
}

/// Whether the segment from `p` to `q` meets triangle a, b, c, whatever was hit before.
///
/// result   out: `hit`; `normal` in any case; `t` and `point` of a hit. `index` stays. With
///          `two_sided` set, which stays set, the back face is tried first and then the front
template <typename T, typename P, typename V>
void intersect_seg_triangle(const P& a, const P& b, const P& c, const P& p, const P& q,
                            intersection_point<T, P, V>& result) {
    if (result.two_sided) {
        result.two_sided = false;
        intersect_seg_triangle(a, c, b, p, q, result);
        result.two_sided = true;
        if (result.hit)
            return;
    }
    result.hit = detail::meets(a, b, c, p, q, result.normal, result.t);
    if (result.hit)
        result.point = detail::point_at(p, q, result.t);
}

} // namespace morva
