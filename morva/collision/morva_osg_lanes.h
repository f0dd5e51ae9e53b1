#pragma once

// Four numbers at a time. Each lane is computed as it would be alone, bit for bit.

#include <cmath>
#include <cstddef>
#include <cstdint>

#include <morva/core/morva_math.h>

namespace morva::osg {

using lanes = float __attribute__((vector_size(16)));
using lane_mask = std::int32_t __attribute__((vector_size(16))); ///< -1 or 0 in each lane

inline lanes allLanes(float value) { return lanes{value, value, value, value}; }

inline bool anyLane(lane_mask mask) {
#ifdef __SSE__
    return __builtin_ia32_movmskps(reinterpret_cast<lanes>(mask)) != 0;
#else
    using halves = std::int64_t __attribute__((vector_size(16)));
    const halves both = reinterpret_cast<halves>(mask);
    return (both[0] | both[1]) != 0;
#endif
}

/// A bit for each lane that is set, the first one lowest.
inline unsigned bitsOf(lane_mask mask) {
#ifdef __SSE__
    return static_cast<unsigned>(__builtin_ia32_movmskps(reinterpret_cast<lanes>(mask)));
#else
    return (mask[0] & 1U) | (mask[1] & 2U) | (mask[2] & 4U) | (mask[3] & 8U);
#endif
}

/// `value` where the mask is set, else 0.
inline lanes where(lane_mask mask, lanes value) {
    return reinterpret_cast<lanes>(mask & reinterpret_cast<lane_mask>(value));
}

/// A point with another value on one axis.
inline lanes withAxis(lanes point, std::size_t axis, float value) {
    constexpr lane_mask only[3] = {{-1, 0, 0, 0}, {0, -1, 0, 0}, {0, 0, -1, 0}};
    return reinterpret_cast<lanes>((only[axis] & reinterpret_cast<lane_mask>(allLanes(value))) |
                                   (~only[axis] & reinterpret_cast<lane_mask>(point)));
}

/// The sums over the first three lanes of each.
inline lanes sumsOf(lanes a, lanes b, lanes c, lanes d) {
    return lanes{a[0], b[0], c[0], d[0]} + lanes{a[1], b[1], c[1], d[1]} +
           lanes{a[2], b[2], c[2], d[2]};
}

inline lanes smaller(lanes a, lanes b) { return a < b ? a : b; }
inline lanes larger(lanes a, lanes b) { return a > b ? a : b; }
inline lanes magnitude(lanes v) { return v < lanes{} ? -v : v; }

inline lanes squareRoots(lanes v) {
#ifdef __SSE__
    return __builtin_ia32_sqrtps(v);
#else
    return lanes{std::sqrt(v[0]), std::sqrt(v[1]), std::sqrt(v[2]), std::sqrt(v[3])};
#endif
}

/// A point in one register; the last lane is 0.
inline lanes lanesOf(const float3& p) { return lanes{p[0], p[1], p[2], 0.F}; }

/// Four points or vectors, axis by axis.
struct lanes3 {
    lanes x, y, z;
};

inline lanes3 allLanes(const float3& p) { return {allLanes(p[0]), allLanes(p[1]), allLanes(p[2])}; }
inline lanes3 operator-(const lanes3& a, const lanes3& b) {
    return {a.x - b.x, a.y - b.y, a.z - b.z};
}
inline lanes3 magnitude(const lanes3& v) {
    return {magnitude(v.x), magnitude(v.y), magnitude(v.z)};
}
inline lanes largest(const lanes3& v) { return larger(larger(v.x, v.y), v.z); }
inline lanes dot(const lanes3& a, const lanes3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline lanes3 cross(const lanes3& a, const lanes3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

} // namespace morva::osg
