#pragma once

// How trees read the elements of a geoset. A tree asks three things, each through a free function
// that a geoset's own namespace may overload:
//
//     element_count(geoset)               how many elements there are
//     extents_on_axis(geoset, axis)       a small reader of the elements' extents on one axis
//     refresh_bounding_box(geoset)        brings the box of the whole up to date and gives it
//
// What stands here serves every geoset with the members `size`, `axis_min[a][e]`, `axis_max[a][e]`
// and `bbox`. A reader is a plain record with
//
//     static constexpr bool flat;         every element is a single point: none ever crosses
//     void read(e, lo, hi) const;         writes the extent, or leaves both values as they were
//
// It is fetched once per loop, so that the loop runs on local pointers; growing the geoset
// invalidates it. Elements can be cut if there is a `splitElement`.

#include <morva/core/morva_math.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

namespace morva {

/// Extents held in one array of lows and one of highs.
template <typename T> struct array_extents {
    static constexpr bool flat = false;
    const T* low;  ///< one per element
    const T* high; ///< one per element

    void read(std::uint64_t e, T& lo, T& hi) const {
        lo = low[e];
        hi = high[e];
    }
};

/// Extents of points: both ends are the coordinate itself.
template <typename T> struct point_extents {
    static constexpr bool flat = true;
    const T* coordinate; ///< of the first point, on the axis in question
    std::size_t stride;  ///< values from one point to the next: 3 for packed x, y, z

    void read(std::uint64_t e, T& lo, T& hi) const { lo = hi = coordinate[e * stride]; }
};

/// Extents worked out from the corners of flat triangles.
template <typename Triangle> struct corner_extents {
    using scalar_type = typename Triangle::scalar_type;
    static constexpr bool flat = false;
    const Triangle* triangles; ///< one per element
    std::size_t axis;

    void read(std::uint64_t e, scalar_type& lo, scalar_type& hi) const {
        corner_range(triangles[e], axis, lo, hi);
    }
};

/// Number of elements that a tree sorts.
template <typename Geoset> std::uint64_t element_count(const Geoset& geoset) {
    return static_cast<std::uint64_t>(geoset.size);
}

/// Reader of the extents on `axis`, 0 to 2; valid until the geoset grows.
template <typename Geoset>
auto extents_on_axis(const Geoset& geoset, int axis)
    -> array_extents<std::remove_cv_t<std::remove_reference_t<decltype(geoset.axis_min[0][0])>>> {
    return {geoset.axis_min[axis], geoset.axis_max[axis]};
}

/// The same for flat triangle lists.
template <typename Element, typename Object>
std::uint64_t element_count(const geo_set_convertable<Element, Object>& list) {
    return list.count;
}
template <typename Element, typename Object>
corner_extents<Element> extents_on_axis(const geo_set_convertable<Element, Object>& list,
                                        int axis) {
    return {list.triangles, static_cast<std::size_t>(axis)};
}

/// The list's `box` brought up to date by calc_bounding_box(): flat axes are repaired.
template <typename Element, typename Object>
auto refresh_bounding_box(geo_set_convertable<Element, Object>& list) -> decltype(list.box) {
    list.box = calc_bounding_box(list);
    return list.box;
}

namespace detail {

template <typename Geoset, typename = void> struct has_own_box : std::false_type {};
template <typename Geoset>
struct has_own_box<Geoset, std::void_t<decltype(std::declval<Geoset&>().calc_bounding_box())>>
    : std::true_type {};

template <typename Geoset, typename = void> struct cuts_elements : std::false_type {};
template <typename Geoset>
struct cuts_elements<Geoset,
                     std::void_t<decltype(std::declval<Geoset&>().splitElement(
                         0UL, 0.0, 0, std::declval<int&>(), std::declval<unsigned long&>()))>>
    : std::true_type {};

} // namespace detail

/// The box of the geoset's elements, brought up to date in `bbox`: by the geoset's own
/// `calc_bounding_box()` if it has one, else by strict comparisons over the extents from element
/// 0 on. Zero without elements. Flat axes stay flat.
template <typename Geoset> auto refresh_bounding_box(Geoset& geoset) -> decltype(geoset.bbox) {
    if constexpr (detail::has_own_box<Geoset>::value) {
        geoset.calc_bounding_box();
    } else {
        geoset.bbox = {};
        const std::uint64_t count = element_count(geoset);
        for (int axis = 0; axis < 3; ++axis) {
            const auto extents = extents_on_axis(geoset, axis);
            auto& low = geoset.bbox.min[static_cast<std::size_t>(axis)];
            auto& high = geoset.bbox.max[static_cast<std::size_t>(axis)];
            auto lo = low, hi = high;
            for (std::uint64_t e = 0; e < count; ++e) {
                extents.read(e, lo, hi);
                if (e == 0 || lo < low)
                    low = lo;
                if (e == 0 || hi > high)
                    high = hi;
            }
        }
        geoset.bbox.refresh_extent();
    }
    return geoset.bbox;
}

} // namespace morva
