#pragma once

// What a tree keeps for its rays, so that a descent can leave out what no step of it would change:
// tight boxes of both children beside their planes, and the triangles in the order of the leaves.
// Include <morva/trees/ray_traversal.h>; it is made in trees/ray_companion_build.h.
//
//     tree           0             companion      0         one node for each node of the tree that
//                   / \                          / \        has triangles on both sides; the planes
//             (empty)  2                   chain:  .        of the others are steps of a chain
//                     / \                  0, 2   / \       on the way
//                    3   4                       3   4
//
// A subtree may be left out where the test of a triangle, as it is written, would reject all that
// is in it, or find it behind the hit that there is. That its box is missed does not say so: on
// edge, where rounding decides, the test takes triangles anywhere in the plane of the ray. So a
// subtree also has a cone of its normals, and is missed only by rays that meet all its triangles
// flat enough. Why that is enough, for a triangle a, b, c, a segment from p to q, u = 2^-24,
// l = max(|ab|, |ac|), n = ab x ac, and a reach A, which is at least l and the distance of p from
// any corner:
//
// 1. Differences of coordinates are right within a factor of 1 +- u. Take them for exact: that
//    moves p by u A and b and c by u l. Each of the sums d, s, v and w of the test is then within
//    7.1 u times the product of the lengths in it, ab and ac in the place of n. So with
//    D = 8 u |pq| l A, d, v and w are right within 0.9 D, and d - v + w as it is compared within
//    2.7 D.
// 2. Where the true |d| = |pq . n| is at least K D, K >= 4, and the test takes the triangle, d is
//    positive, and of the three true weights v / d, -w / d, (d - v + w) / d, which sum up to 1,
//    negative ones come to 4.5 / K at most. So the line passes the plane within the box of the
//    triangle, grown by 4.5 / K times its own extents; and the calculated t is within
//    4 min(|ab|, |ac|) / K of there, measured along the ray, by which the box grows, too.
// 3. |d| >= K D is |cos(n, pq)| >= 8 K u A l / |n|: the steepness, times the reach.
// 4. A triangle in a plane across an axis has ab, ac and n with exact zeros. Then d and s are
//    right within factors, s <= d holds the distance of p from the plane below that of q, and all
//    errors scale with d: it counts as flat for any ray that is not too long.
// 5. Roundings of p, t and the test of a box stay below 24 u A. Boxes are kept on a grid, and 8
//    steps of it are added to every side, which are more as long as A is below 16 diagonals.
// 6. Nothing over- or underflows within the limits that ray_skipping::within_limits() sets. A
//    triangle with a normal of exactly 0 is never taken, as d is 0.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_companions.h>

#include <cstdint>
#include <vector>

namespace morva {
namespace detail {

/// Limits of the argument above, in diagonals of the box of all corners.
constexpr float ray_reach_limit = 16;
constexpr float ray_length_limit = 64;
/// The reach that steepness is counted for; beyond it cones open in proportion.
constexpr float ray_usual_reach = 2.5f;

/// A node of the tree with triangles on both sides; one line of the cache. Arrays of two: left
/// child, right child.
struct alignas(64) ray_node {
    std::uint16_t box[3][2][2]; ///< by axis: low sides of both, high sides; steps of the grid
    float left_plane;           ///< as in the tree
    float right_plane;          ///< as in the tree
    std::uint32_t at[2];        ///< node here, or place of a leaf in `bih_tree::indices`
    std::uint32_t chain[2];     ///< first step on the way there; 0: none
    std::int8_t normal[3][2];   ///< by axis: axis of the cone of normals, in 127ths
    std::int8_t sine[2];        ///< of how steep a ray must be on that axis, in 127ths
    std::uint16_t count[2];     ///< of a leaf its length; 0: not a leaf
    std::uint8_t axis;          ///< 0, 1 or 2
};
static_assert(sizeof(ray_node) == 64, "a node is one line of the cache");

/// A node of the tree with triangles on one side alone.
struct ray_step {
    float left_plane;
    float right_plane;
    std::uint8_t axis;
    bool leads_left; ///< the side with triangles
    bool last;       ///< of its chain
};

/// The whole. It holds for one array of triangles, as they were when it was made.
struct ray_companion : bih_companion {
    const float_triangle* triangles = nullptr; ///< the array
    std::vector<ray_node> nodes;               ///< the root is the first, if it is not a leaf
    std::vector<ray_step> chains;              ///< entry 0 is not used
    /// Nine floats for each entry of `bih_tree::indices`: a, ab, ac. Up to four neighbours in a
    /// leaf make a packet: their first floats, their second floats and so on. 4 to spare.
    std::vector<float> corners;
    bool empty = false;           ///< nothing can ever be hit
    std::uint32_t root_at = 0;    ///< as in a node
    std::uint32_t root_chain = 0; ///< as in a node
    std::uint16_t root_count = 0; ///< as in a node
    float low[3] = {};            ///< of all corners
    float high[3] = {};           ///< of all corners
    float diagonal = 0;           ///< of that box
    double grid_low[3] = {};      ///< where the grid begins
    double steps_per_unit[3] = {};

    static void free(bih_companion* companion) { delete static_cast<ray_companion*>(companion); }
};

} // namespace detail
} // namespace morva
