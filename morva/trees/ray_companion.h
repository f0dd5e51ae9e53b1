#pragma once

// What a tree keeps for its rays: the same planes and the same triangles, packed so that a ray
// touches few lines of the cache. Include <morva/trees/ray_traversal.h>.
//
//     nodes      16 bytes each, in the order of the tree; what a leaf is stands with its parent
//     corners    36 bytes a triangle, in the order of the leaves, up to four side by side
//
// Nothing is left out but what no segment of finite length can hit: empty leaves, and those with
// normals of exactly 0 alone. So the descent makes the same steps to the same triangles, and comes
// to the same bits, with no assumption about the ray. Boxes tighter than the planes would not do:
// on edge, where rounding decides, the test of a triangle takes it from anywhere in its plane,
// which single precision makes as thick as a few ten-thousandths of the scene; whether a box is
// missed does not tell.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace morva {
namespace detail {

/// Where a child is: nothing, a node, or a leaf.
struct packed_child {
    static constexpr std::uint32_t index_bits = 26; ///< of places and big leaves
    static constexpr std::uint32_t count_mask = 7;
    static constexpr std::uint32_t axis_shift = 29;
    static constexpr std::uint32_t leaf_flag = 1U << 31;

    /// Bit 31: a leaf. Bits 30 and 29: axis of the node that the child belongs to, of its left
    /// child alone. A leaf's lower bits: its length, and its place in `bih_tree::indices`; or 0,
    /// and its number among the big ones. A node's lower bits: its index, and 0 is nothing.
    std::uint32_t bits = 0;

    bool is_leaf() const { return (bits & leaf_flag) != 0; }
    std::uint32_t axis() const { return bits >> axis_shift & 3; }
    packed_child without_axis() const { return {bits & ~(3U << axis_shift)}; }
    std::uint32_t count() const { return bits >> index_bits & count_mask; }
    std::uint32_t index() const { return bits & ((1U << index_bits) - 1); }
};

/// An inner node.
struct packed_node {
    float left_plane;      ///< as in the tree
    float right_plane;     ///< as in the tree
    packed_child child[2]; ///< left, right
};
static_assert(sizeof(packed_node) == 16, "four nodes are one line of the cache");

/// A leaf of more elements than a child has bits for.
struct big_leaf {
    std::uint64_t first;
    std::uint32_t count;
};

/// The whole. It holds for one array of triangles, as they were when it was made.
struct ray_companion : bih_companion {
    const float_triangle* triangles = nullptr; ///< the array
    std::vector<packed_node> nodes;            ///< the root is the first
    std::vector<big_leaf> big_leaves;
    /// Nine floats for each entry of `bih_tree::indices`: a, ab, ac. Up to four neighbours in a
    /// leaf make a packet: their first floats, their second floats and so on. 4 to spare.
    std::unique_ptr<float[]> corners;

    std::size_t corner_count = 0; ///< floats in `corners`

    /// What it takes of memory.
    std::size_t bytes() const {
        return sizeof *this + nodes.capacity() * sizeof(packed_node) +
               big_leaves.capacity() * sizeof(big_leaf) + corner_count * sizeof(float);
    }

    static void free(bih_companion* companion) { delete static_cast<ray_companion*>(companion); }
};

/// Trees beyond go without: deeper ones, and such with more elements than places have bits.
constexpr std::uint64_t deepest_packed = 120;
constexpr std::uint64_t largest_packed = std::uint64_t(1) << packed_child::index_bits;

/// Packs a tree.
class ray_companion_builder {
  public:
    ray_companion_builder(const bih_tree<float>& tree, const float_triangle* triangles)
        : tree_(tree), triangles_(triangles), made_(new ray_companion) {
        made_->destroy = ray_companion::free;
        made_->triangles = triangles;
    }

    /// The companion; null where the tree is beyond the limits.
    /// errors  std::bad_alloc
    std::unique_ptr<ray_companion> run() {
        if (tree_.max_depth_reached > deepest_packed || tree_.index_count > largest_packed ||
            tree_.nodes[0].is_leaf())
            return nullptr;
        made_->nodes.reserve(tree_.node_count + 1 - tree_.leaf_count);
        made_->corner_count = 9 * tree_.index_count + 4;
        made_->corners.reset(new float[made_->corner_count]());
        inner(0);
        return std::move(made_);
    }

  private:
    packed_child inner(std::uint64_t node) {
        const bih_node<float>& here = tree_.nodes[node];
        const std::size_t at = made_->nodes.size();
        made_->nodes.push_back({here.left_plane, here.right_plane, {}});
        packed_child left = child(node + 1);
        const packed_child right = child(static_cast<std::uint64_t>(here.right));
        if (left.bits == 0 && right.bits == 0 && at != 0) { // and so nothing came after it
            made_->nodes.pop_back();
            return {};
        }
        left.bits |= static_cast<std::uint32_t>(here.axis) << packed_child::axis_shift;
        made_->nodes[at].child[0] = left;
        made_->nodes[at].child[1] = right;
        return {static_cast<std::uint32_t>(at)};
    }

    packed_child child(std::uint64_t node) {
        const bih_node<float>& here = tree_.nodes[node];
        return here.is_leaf() ? leaf(here.first, here.count) : inner(node);
    }

    packed_child leaf(std::uint32_t first, std::uint32_t count) {
        bool alive = false;
        for (std::uint32_t k = 0; k < count; ++k)
            alive |= put_corners(first, k, count);
        if (!alive)
            return {};
        if (count <= packed_child::count_mask)
            return {packed_child::leaf_flag | count << packed_child::index_bits | first};
        made_->big_leaves.push_back({first, count});
        return {packed_child::leaf_flag | static_cast<std::uint32_t>(made_->big_leaves.size() - 1)};
    }

    /// Stores a triangle; false if its normal is 0, and so is what has to be above 0 for a hit.
    bool put_corners(std::uint32_t first, std::uint32_t k, std::uint32_t count) {
        const float_triangle& t = triangles_[tree_.indices[first + std::uint64_t(k)]];
        const std::uint32_t lane = k % 4, width = std::min(4U, count - (k - lane));
        float* const packet = made_->corners.get() + 9 * (first + std::uint64_t(k - lane));
        const float3 rows[3] = {t.a, difference<float3>(t.b, t.a), difference<float3>(t.c, t.a)};
        for (std::uint32_t i = 0; i < 9; ++i)
            packet[i * width + lane] = rows[i / 3][i % 3];
        const float3 n = cross(rows[1], rows[2]);
        return !(n[0] == 0 && n[1] == 0 && n[2] == 0);
    }

    const bih_tree<float>& tree_;
    const float_triangle* const triangles_;
    std::unique_ptr<ray_companion> made_;
};

} // namespace detail
} // namespace morva
