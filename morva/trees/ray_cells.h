#pragma once

// Where a ray has to be for its descent to come to an element of a bih_tree.
//
//     low o------+      the planes on the way down to a leaf, the narrowest of each side; infinite
//         | leaf |      where there is none
//         +------o high
//
// A ray that has not hit anything yet comes to the leaf if the range in which it is between these
// planes is not empty, by the descent's own arithmetic: that is monotonic, so that the narrowest
// plane of a side says it for all. (It may come to others, too: a far child is entered without a
// look at the end of the range.) Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace morva {

/// The planes around a leaf.
struct ray_cell {
    float3 low{-HUGE_VALF, -HUGE_VALF, -HUGE_VALF};
    float3 high{HUGE_VALF, HUGE_VALF, HUGE_VALF};
};

/// Calls `use(node, cell)` for each leaf below a node, in their order.
template <typename Use>
void for_each_cell(const bih_tree<float>& tree, std::uint64_t node, const ray_cell& around,
                   const Use& use) {
    const bih_node<float>& here = tree.nodes[node];
    if (here.is_leaf())
        return use(here, around);
    const auto axis = static_cast<std::size_t>(here.axis);
    ray_cell left = around, right = around;
    left.high[axis] = std::min(left.high[axis], here.left_plane);
    right.low[axis] = std::max(right.low[axis], here.right_plane);
    for_each_cell(tree, node + 1, left, use);
    for_each_cell(tree, static_cast<std::uint64_t>(here.right), right, use);
}

/// Whether a ray surely comes to the leaf of a cell, if nothing that it hits stops it before. A NaN
/// is passed over, as in the descent.
///
/// t_min   in and out: as given to fire_ray_rec(), then where the ray enters the cell. Only a hit
///         whose distance is less may keep it from the leaf
/// t_max   as given to fire_ray_rec()
inline bool comes_to(const ray_cell& cell, const float3& from, const float3& inverse_direction,
                     float& t_min, float t_max) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const float inverse = inverse_direction[axis];
        const bool down = 0.0F > inverse;
        const float since = ((down ? cell.high[axis] : cell.low[axis]) - from[axis]) * inverse;
        const float until = ((down ? cell.low[axis] : cell.high[axis]) - from[axis]) * inverse;
        t_min = detail::larger(since, t_min);
        t_max = detail::smaller(until, t_max);
    }
    return t_min <= t_max;
}

} // namespace morva
