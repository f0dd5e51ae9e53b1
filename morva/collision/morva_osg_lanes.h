#pragma once

// Four numbers at a time. Each lane is computed as it would be alone, bit for bit.

#include <cstddef>
#include <cstdint>

#include <morva/core/morva_math.h>

namespace morva::osg {

using lanes = float __attribute__((vector_size(16)));
using lane_mask = std::int32_t __attribute__((vector_size(16))); ///< -1 or 0 in each lane

inline lanes allLanes(float value) { return lanes{value, value, value, value}; }

inline bool anyLane(lane_mask mask) {
    using halves = std::int64_t __attribute__((vector_size(16)));
    const halves both = reinterpret_cast<halves>(mask);
    return (both[0] | both[1]) != 0;
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
inline lanes dot(const lanes3& a, const lanes3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline lanes3 cross(const lanes3& a, const lanes3& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}

} // namespace morva::osg
