#pragma once

// The value types of everything that knows no scene graph: points, boxes and flat triangles.
//
//     aabb   min o------+          extent = max - min is stored, not derived: the trees read it
//              |        |          to choose an axis. Whoever moves a corner calls
//              +------o max        refresh_extent() afterwards.
//
// All records are plain: no invariant beyond the one above, no allocation, no lock. A
// geo_set_convertable only points at its triangles; whoever made the array frees it.
// All arithmetic is single precision in the order written, so that planes and boxes come out the
// same to the last bit everywhere.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <ostream>

namespace morva {

namespace math {

/// `N` components of type `T`, stored one after the other; both the point and the vector of the
/// trees. Zero unless told otherwise: `vector<float, 3> v{1, 2, 3};`
template <typename T, std::size_t N> struct vector {
    T components[N] = {};

    constexpr T& operator[](std::size_t axis) { return components[axis]; }
    constexpr const T& operator[](std::size_t axis) const { return components[axis]; }

    /// Scales to length 1, in place. Unguarded on purpose: a zero vector becomes NaN.
    void normalize() {
        T sum = T(0);
        for (std::size_t i = 0; i < N; ++i)
            sum += components[i] * components[i];
        const T factor = T(1) / std::sqrt(sum);
        for (std::size_t i = 0; i < N; ++i)
            components[i] *= factor;
    }
};

/// Prints "(x, y, z)" with the format that the stream has.
template <typename Char, typename Traits, typename T, std::size_t N>
std::basic_ostream<Char, Traits>& operator<<(std::basic_ostream<Char, Traits>& out,
                                             const vector<T, N>& v) {
    out << "(";
    for (std::size_t i = 0; i < N; ++i) {
        if (i != 0)
            out << ", ";
        out << static_cast<double>(v[i]);
    }
    return out << ")";
}

/// A 4x4 matrix as four columns of four: component `4 * column + row`.
template <typename T> struct transformation_matrix {
    T components[16] = {};

    constexpr T& operator[](std::size_t i) { return components[i]; }
    constexpr const T& operator[](std::size_t i) const { return components[i]; }
};

} // namespace math

/// An axis-aligned box. Invariant: `extent` is `max - min`, component by component.
template <typename scalar_type, typename point_type, typename vector_type> struct aabb {
    point_type min;     ///< lowest corner
    point_type max;     ///< highest corner
    vector_type extent; ///< edge lengths; negative where an empty box has `min` above `max`

    /// Restores the invariant after `min` or `max` changed.
    void refresh_extent() {
        for (std::size_t axis = 0; axis < 3; ++axis)
            extent[axis] = max[axis] - min[axis];
    }
};

/// The axis on which a box is longest, by its stored extent; of equal ones the highest.
template <typename Box> int longest_axis(const Box& box) {
    const auto& extent = box.extent;
    if (extent[0] > extent[1])
        return extent[0] > extent[2] ? 0 : 2;
    return extent[1] > extent[2] ? 1 : 2;
}

/// Three corners in winding order, without normal or index.
template <typename Scalar, typename Point, typename Vector> struct simple_triangle {
    using scalar_type = Scalar;
    using point_type = Point;
    using vector_type = Vector;

    point_type a;
    point_type b;
    point_type c;
};

using float3 = math::vector<float, 3>;
using float_box = aabb<float, float3, float3>;
using float_triangle = simple_triangle<float, float3, float3>;

/// A flat triangle list that trees take for a geoset. It keeps no arrays per axis: an element's
/// extent is worked out from its corners when it is asked for.
template <typename Element, typename Object> struct geo_set_convertable {
    using scalar_type = typename Element::scalar_type;
    using point_type = typename Element::point_type;
    using vector_type = typename Element::vector_type;

    Element* triangles = nullptr; ///< `count` entries, owned and freed by whoever set it
    std::uint64_t count = 0;      ///< triangles
    aabb<scalar_type, point_type, vector_type> box; ///< over all triangles; set by the holder
};

/// Gives a flat axis a little thickness, so that a ray can hit the box.
///
/// box  in and out; `extent` valid before and after
///
/// An axis thinner than 1e-7 gets 5 % of the largest extent, each further one 5 % of the one
/// before. The new slab lies around 0 on its axis and not around the geometry: stored trees and
/// the picking results depend on it. A box without any size moves to the origin.
template <typename scalar_type, typename point_type, typename vector_type>
void repair_flat_axes(aabb<scalar_type, point_type, vector_type>& box) {
    scalar_type half = scalar_type(0);
    for (std::size_t axis = 0; axis < 3; ++axis)
        if (box.extent[axis] > half)
            half = box.extent[axis];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!(scalar_type(1e-7f) > box.extent[axis]))
            continue;
        half *= scalar_type(0.05f);
        box.max[axis] = half;
        box.min[axis] = -half;
    }
    box.refresh_extent();
}

/// Smallest and largest of three corners on one axis, by strict comparisons from the first on:
/// a NaN in corner a stays, one in b or c is passed over.
template <typename Triangle>
void corner_range(const Triangle& triangle, std::size_t axis, typename Triangle::scalar_type& low,
                  typename Triangle::scalar_type& high) {
    low = high = triangle.a[axis];
    for (const auto* corner : {&triangle.b, &triangle.c}) {
        if ((*corner)[axis] < low)
            low = (*corner)[axis];
        if ((*corner)[axis] > high)
            high = (*corner)[axis];
    }
}

/// Lowest and highest corner over all triangles, zero if there is none; the extent is left out.
template <typename Element, typename Object>
aabb<typename Element::scalar_type, typename Element::point_type, typename Element::vector_type>
corners_of_elements(const geo_set_convertable<Element, Object>& geoset) {
    using scalar = typename Element::scalar_type;
    aabb<scalar, typename Element::point_type, typename Element::vector_type> box;
    for (std::uint64_t i = 0; i < geoset.count; ++i) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            scalar low, high;
            corner_range(geoset.triangles[i], axis, low, high);
            if (i == 0 || low < box.min[axis])
                box.min[axis] = low;
            if (i == 0 || high > box.max[axis])
                box.max[axis] = high;
        }
    }
    return box;
}

/// The box over all elements, with flat axes repaired. For every geoset type that comes with a
/// corners_of_elements() in its own namespace.
template <typename Geoset>
aabb<typename Geoset::scalar_type, typename Geoset::point_type, typename Geoset::vector_type>
calc_bounding_box(const Geoset& geoset) {
    auto box = corners_of_elements(geoset);
    box.refresh_extent();
    repair_flat_axes(box);
    return box;
}

/// Stands where elapsed milliseconds are reported; such reports show 0.
inline int get_ms() { return 0; }

} // namespace morva
