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

#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/geoset_access.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

namespace morva {

/// Where a ray hits. Without `hit` the rest means nothing, unless a function says so.
template <typename T, typename P, typename V> struct intersection_point {
    bool hit = false;       ///< the caller clears it before a query
    P point{};              ///< on the segment
    V normal{};             ///< of the triangle: cross product of its edges, not of unit length
    T t{};                  ///< fraction of the segment; for a scene's element a distance
    std::int32_t extra = 0; ///< the caller's: never written
    std::int32_t index = 0; ///< of the triangle, or of the scene's element
    bool two_sided = false; ///< asks intersect_seg_triangle() for both faces
};

/// Counts nothing. Whoever wants to count puts a record of his own in its place.
struct empty_trace_statistics {};

namespace detail {

template <typename T> T smaller(T a, T b) { return a < b ? a : b; }
template <typename T> T larger(T a, T b) { return a > b ? a : b; }

template <typename V, typename P> V difference(const P& a, const P& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
template <typename V> V cross(const V& a, const V& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
template <typename T, typename V> T dot(const V& a, const V& b) {
    return T(0) + a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// Euclidean distance of two points.
template <typename T, typename V, typename P> T distance(const P& a, const P& b) {
    const V way = difference<V>(a, b);
    return std::sqrt(dot<T>(way, way));
}

/// The point at fraction `t` of a segment.
template <typename T, typename P> P point_at(const P& p, const P& q, T t) {
    return {(q[0] - p[0]) * t + p[0], (q[1] - p[1]) * t + p[1], (q[2] - p[2]) * t + p[2]};
}

/// Whether the segment from `p` to `q` meets the front of a triangle. `normal` is always written;
/// `t`, the fraction, is what was worked out of it so far where there is no hit. A NaN rejects
/// nothing.
template <typename T, typename P, typename V>
bool meets(const P& a, const P& b, const P& c, const P& p, const P& q, V& normal, T& t) {
    const V ab = difference<V>(b, a), ac = difference<V>(c, a), qp = difference<V>(p, q);
    normal = cross(ab, ac);
    const T d = dot<T>(qp, normal);
    if (T(0) >= d)
        return false;
    const V ap = difference<V>(p, a);
    t = dot<T>(ap, normal);
    if (T(0) > t || t > d)
        return false;
    const V e = cross(qp, ap);
    const T v = dot<T>(ac, e);
    if (T(0) > v || v > d)
        return false;
    const T w = dot<T>(ab, e);
    if (w > T(0) || v - w > d)
        return false;
    t = (T(1) / d) * t;
    return true;
}

/// The corners that rays test, by geoset.
template <typename Element, typename Object>
const Element* ray_triangles(const geo_set_convertable<Element, Object>& list) {
    return list.triangles;
}
template <typename Geoset>
auto ray_triangles(const Geoset& geoset) -> decltype(geoset.simple_tris + 0) {
    return geoset.simple_tris;
}

/// A geoset whose elements are geosets with trees of their own: members `built_count`, `trees`
/// and `geosets`, one of each per element.
template <typename Geoset, typename = void> struct is_scene : std::false_type {};
template <typename Geoset>
struct is_scene<Geoset, std::void_t<decltype(std::declval<const Geoset&>().built_count),
                                    decltype(std::declval<const Geoset&>().trees[0].nodes),
                                    decltype(std::declval<const Geoset&>().geosets[0].bbox)>>
    : std::true_type {};

} // namespace detail

/// Clips a ray against a box, axis by axis, in the range from 0 to the largest value of T.
///
/// direction    of any length; an axis with less than 1e-6 of it is left out, and only asks that
///              the ray starts between its two planes
/// entry, exit  out: where the ray enters and leaves; entry is 0 inside the box
/// returns      false if the range is empty: the ray misses the box
template <typename T, typename Box, typename P, typename V>
bool clip_ray(const Box& box, const P& from, const V& direction, T& entry, T& exit) {
    entry = T(0);
    exit = static_cast<T>(std::numeric_limits<float>::max());
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (std::abs(direction[axis]) < T(1e-6f)) {
            if (from[axis] < box.min[axis] || from[axis] > box.max[axis])
                return false;
            continue;
        }
        const T inverse = T(1) / direction[axis];
        T first = (box.min[axis] - from[axis]) * inverse;
        T second = (box.max[axis] - from[axis]) * inverse;
        if (first > second)
            std::swap(first, second);
        entry = detail::larger(first, entry);
        exit = detail::smaller(second, exit);
        if (entry > exit)
            return false;
    }
    return true;
}

template <typename T, typename P, typename V, typename Geoset, typename Stats>
void fire_ray_rec(const bih_tree<T>& tree, int node, const Geoset& geoset, const P& from,
                  const P& to, const V& inverse_direction, T t_min, T t_max,
                  intersection_point<T, P, V>& result, Stats& stats, int ignored);

namespace detail {

/// One ray on its way through one tree, by the literal steps.
template <typename T, typename P, typename V, typename Geoset, typename Stats> class ray_descent {
  public:
    ray_descent(const bih_tree<T>& tree, const Geoset& geoset, const P& from, const P& to,
                const V& inverse_direction, intersection_point<T, P, V>& result, Stats& stats,
                int ignored)
        : tree_(tree), geoset_(geoset), from_(from), to_(to), inverse_(inverse_direction),
          result_(result), stats_(stats), ignored_(ignored) {}

    /// Goes down from `node` within the range; a loop, which recurses for the near child where both
    /// children count. A NaN among the numbers sends the ray into both.
    void descend(std::uint64_t node, T t_min, T t_max) {
        while (!tree_.nodes[node].is_leaf()) {
            const bih_node<T>& here = tree_.nodes[node];
            const auto axis = static_cast<std::size_t>(here.axis);
            const T inverse = inverse_[axis];
            const bool down = T(0) > inverse;
            const std::uint64_t left = node + 1, right = static_cast<std::uint64_t>(here.right);
            const T t_near = ((down ? here.right_plane : here.left_plane) - from_[axis]) * inverse;
            const T t_far = ((down ? here.left_plane : here.right_plane) - from_[axis]) * inverse;
            node = down ? left : right; // the far one
            const std::uint64_t near = down ? right : left;
            if (t_min > t_near) { // the far child whatever t_max is: hits lie there, too
                t_min = larger(t_far, t_min);
            } else if (t_far > t_max) {
                t_max = smaller(t_near, t_max);
                node = near;
            } else {
                descend(near, t_min, smaller(t_near, t_max));
                if (result_.hit) { // maybe by an earlier leaf: t_max can also grow
                    t_max = distance<T, V>(from_, result_.point);
                    if (t_far > t_max)
                        return;
                }
                t_min = larger(t_far, t_min);
            }
        }
        const bih_node<T>& leaf = tree_.nodes[node];
        for (std::uint32_t k = 0; k < leaf.count; ++k) {
            const auto e = static_cast<std::int32_t>(tree_.indices[leaf.first + std::uint64_t(k)]);
            if (e == ignored_)
                continue;
            if constexpr (is_scene<Geoset>::value)
                scene_element(e);
            else
                triangle(e);
        }
    }

  private:
    /// Keeps the hit of a triangle if it is nearer than what there is. Of equal ones the first
    /// stays.
    void triangle(std::int32_t e) {
        const auto& corners = ray_triangles(geoset_)[e];
        V normal;
        T t;
        if (!meets(corners.a, corners.b, corners.c, from_, to_, normal, t))
            return;
        if (result_.hit && !(result_.t > t))
            return;
        result_.point = point_at(from_, to_, t);
        result_.hit = true;
        result_.two_sided = false;
        result_.index = e;
        result_.normal = normal;
        result_.t = t;
    }

    /// Fires into the tree of an element and keeps the hit with the least distance.
    void scene_element(std::int32_t e) {
        auto built = static_cast<std::uint64_t>(e);
        if (!(built < geoset_.built_count)) {
            say({"Morva_osg_scene_geoset.simple_object(), no element with ", std::to_string(e)});
            if (geoset_.built_count == 0)
                return;
            built = geoset_.built_count - 1;
        }
        const auto& element = geoset_.geosets[built];
        const V direction{T(1) / inverse_[0], T(1) / inverse_[1], T(1) / inverse_[2]};
        T entry, exit;
        if (!clip_ray(element.bbox, from_, direction, entry, exit))
            return;
        const P end{direction[0] * exit + from_[0], direction[1] * exit + from_[1],
                    direction[2] * exit + from_[2]};
        intersection_point<T, P, V> local;
        fire_ray_rec(geoset_.trees[built], 0, element, from_, end, inverse_, entry, exit, local,
                     stats_, -1);
        local.t = distance<T, V>(from_, local.point);
        local.normal.normalize();
        if (local.hit && (!result_.hit || result_.t > local.t)) {
            result_ = local;
            result_.index = e;
        }
    }

    const bih_tree<T>& tree_;
    const Geoset& geoset_;
    const P from_, to_;
    const V inverse_;
    intersection_point<T, P, V>& result_;
    Stats& stats_;
    const int ignored_;
};

} // namespace detail

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
    detail::ray_descent<T, P, V, Geoset, Stats>(tree, geoset, from, to, inverse_direction, result,
                                                stats, ignored)
        .descend(static_cast<std::uint64_t>(node), t_min, t_max);
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
