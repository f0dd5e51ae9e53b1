#pragma once

// The descent of a ray through a bih_tree, step by step. Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/ray_triangle.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

namespace morva {
namespace detail {

/// The corners that rays test, by geoset.
template <typename Element, typename Object>
const Element* ray_triangles(const geo_set_convertable<Element, Object>& list) {
    return list.triangles;
}
template <typename Geoset>
auto ray_triangles(const Geoset& geoset) -> decltype(geoset.simple_tris + 0) {
    return geoset.simple_tris;
}

template <typename Geoset, typename = void> constexpr bool holds_float_triangles = false;
template <typename Geoset>
constexpr bool holds_float_triangles<
    Geoset, std::enable_if_t<std::is_convertible_v<
                decltype(ray_triangles(std::declval<const Geoset&>())), const float_triangle*>>> =
    true;

/// A geoset whose elements are geosets with trees of their own: members `built_count`, `trees`
/// and `geosets`, one of each per element.
template <typename Geoset, typename = void> struct is_scene : std::false_type {};
template <typename Geoset>
struct is_scene<Geoset, std::void_t<decltype(std::declval<const Geoset&>().built_count),
                                    decltype(std::declval<const Geoset&>().trees[0].nodes),
                                    decltype(std::declval<const Geoset&>().geosets[0].bbox)>>
    : std::true_type {};

/// 1 / direction, per component.
template <typename V> V inverse_of(const V& direction) {
    V inverse;
    for (std::size_t axis = 0; axis < 3; ++axis)
        inverse[axis] = 1 / direction[axis];
    return inverse;
}

/// See below; `inverse` is that of the direction.
template <typename T, typename Box, typename P, typename V>
bool clip_ray(const Box& box, const P& from, const V& direction, const V& inverse, T& entry,
              T& exit) {
    entry = T(0);
    exit = static_cast<T>(std::numeric_limits<float>::max());
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (std::abs(direction[axis]) < T(1e-6f)) {
            if (from[axis] < box.min[axis] || from[axis] > box.max[axis])
                return false;
            continue;
        }
        T first = (box.min[axis] - from[axis]) * inverse[axis];
        T second = (box.max[axis] - from[axis]) * inverse[axis];
        if (first > second)
            std::swap(first, second);
        entry = detail::larger(first, entry);
        exit = detail::smaller(second, exit);
        if (entry > exit)
            return false;
    }
    return true;
}

} // namespace detail

/// Clips a ray against a box, axis by axis, in the range from 0 to the largest value of T.
///
/// direction    of any length; an axis with less than 1e-6 of it is left out, and only asks that
///              the ray starts between its two planes
/// entry, exit  out: where the ray enters and leaves; entry is 0 inside the box
/// returns      false if the range is empty: the ray misses the box
template <typename T, typename Box, typename P, typename V>
bool clip_ray(const Box& box, const P& from, const V& direction, T& entry, T& exit) {
    return detail::clip_ray(box, from, direction, detail::inverse_of(direction), entry, exit);
}

namespace detail {

/// How a ray goes into the trees of a scene's elements.
template <typename T, typename V> class element_rays {
  public:
    explicit element_rays(const V& inverse_direction)
        : direction_(inverse_of(inverse_direction)), inverse_(inverse_of(direction_)) {}

    /// Whether it meets an element's box. Then it goes on from `from` to `end` there.
    ///
    /// entry, far  out: its range; `end` is at `far`
    template <typename Box, typename P>
    bool enters(const Box& box, const P& from, T& entry, T& far, P& end) const {
        T exit;
        if (!clip_ray(box, from, direction_, inverse_, entry, exit))
            return false;
        // A little behind the box, by rounding: else faces that lie on it are lost. Not beyond all
        // numbers, as with a direction of nearly no length.
        far = smaller(exit * T(1.00001f), std::numeric_limits<T>::max());
        for (std::size_t axis = 0; axis < 3; ++axis)
            end[axis] = direction_[axis] * far + from[axis];
        return true;
    }

  private:
    V direction_; ///< as it comes back from its inverse
    V inverse_;   ///< of that
};

} // namespace detail

template <typename T, typename P, typename V, typename Geoset, typename Stats>
void fire_ray_rec(const bih_tree<T>& tree, int node, const Geoset& geoset, const P& from,
                  const P& to, const V& inverse_direction, T t_min, T t_max,
                  intersection_point<T, P, V>& result, Stats& stats, int ignored);

namespace detail {

/// One ray on its way through one tree, by the literal steps.
template <typename T, typename P, typename V, typename Geoset, typename Stats> class ray_descent {
  public:
    /// Whether all is of the types that ray_packed_descent.h is written for.
    static constexpr bool plain_floats = std::is_same_v<T, float> && std::is_same_v<P, float3> &&
                                         std::is_same_v<V, float3> && holds_float_triangles<Geoset>;

    ray_descent(const bih_tree<T>& tree, const Geoset& geoset, const P& from, const P& to,
                const V& inverse_direction, intersection_point<T, P, V>& result, Stats& stats,
                int ignored)
        : tree_(tree), geoset_(geoset), from_(from), to_(to), inverse_(inverse_direction),
          result_(result), stats_(stats), ignored_(ignored) {}

    /// Whether the segment has a length; others hit even triangles that have no area.
    bool is_finite() const {
        const V way = difference<V>(from_, to_);
        return std::isfinite(way[0] * T(0) + way[1] * T(0) + way[2] * T(0));
    }

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
        for (std::uint32_t k = 0; k < leaf.count; ++k)
            element(tree_.indices[leaf.first + std::uint64_t(k)]);
    }

  private:
    template <typename Descent> friend class ray_packed_descent;

    /// What a leaf does with one of its elements.
    void element(std::uint64_t number) {
        const auto e = static_cast<std::int32_t>(number);
        if (e == ignored_)
            return;
        if constexpr (is_scene<Geoset>::value)
            scene_element(e);
        else
            triangle(e);
    }

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
        T entry, far;
        P end;
        if (!element_rays<T, V>(inverse_).enters(element.bbox, from_, entry, far, end))
            return;
        intersection_point<T, P, V> local;
        fire_ray_rec(geoset_.trees[built], 0, element, from_, end, inverse_, entry, far, local,
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

} // namespace morva
