#pragma once

// What a ray asks a single triangle, and what it keeps of the answer. Include
// <morva/trees/ray_traversal.h>, which tells what is settled about the arithmetic.

#include <cmath>
#include <cstdint>

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

} // namespace detail
} // namespace morva
