#pragma once

// What a tree keeps for its rays: the same planes and the same triangles, packed so that a ray
// touches few lines of the cache. Include <morva/trees/ray_traversal.h>.
//
//     nodes      16 bytes each, in the order of the tree; what a leaf is stands with its parent
//     packets    eight triangles each, those of a small subtree in one to four
//
// A small subtree is one leaf here. Its triangles are tested all at once, whatever the planes
// between them say: a subtree none of whose triangles is met changes nothing, so a ray passes it
// by, and only where one is met it goes down there step by step in the tree itself. Above, the
// steps are those of the tree. So every ray comes to the same bits, with no assumption about it but
// that its length is finite. Boxes tighter than the planes would not do: on edge, where rounding
// decides, the test of a triangle takes it from anywhere in its plane, which single precision makes
// as thick as a few ten-thousandths of the scene; whether a box is missed does not tell.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/ray_packets.h>
#include <morva/trees/ray_triangle.h>
#include <morva/trees/tree_ranges.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace morva {
namespace detail {

/// Where a child is: nothing, a node, or packets.
struct packed_child {
    static constexpr std::uint32_t index_bits = 26; ///< of packets and big subtrees
    static constexpr std::uint32_t count_mask = 7;
    static constexpr std::uint32_t axis_shift = 29;
    static constexpr std::uint32_t leaf_flag = 1U << 31;

    /// Bit 31: packets. Bits 30 and 29: axis of the node that the child belongs to, of its left
    /// child alone. Lower bits of packets: how many, and the first; or 0, and their number among
    /// the big ones. Those of a node: its index, and 0 is nothing.
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

/// Packets that are more than a child has bits for.
struct big_leaf {
    std::uint32_t first, count;
};

/// The whole. It holds for one array of triangles, as they were when it was made.
struct ray_companion : bih_companion {
    const float_triangle* triangles = nullptr; ///< the array
    std::vector<packed_node> nodes;            ///< the root is the first
    std::vector<std::uint32_t> subtrees;       ///< one per packet: the tree's node above it
    std::vector<big_leaf> big_leaves;
    triangle_packet* packets = nullptr; ///< as many as `subtrees`, in `storage`
    std::unique_ptr<unsigned char[]> storage;

    /// What it takes of memory.
    std::size_t bytes() const {
        return sizeof *this + nodes.capacity() * sizeof(packed_node) +
               subtrees.capacity() * sizeof(std::uint32_t) +
               big_leaves.capacity() * sizeof(big_leaf) + storage_bytes();
    }
    std::size_t storage_bytes() const { return (subtrees.size() + 1) * sizeof(triangle_packet); }

    static void free(bih_companion* companion) { delete static_cast<ray_companion*>(companion); }
};

/// Trees beyond go without: deeper ones, and such with more elements than packets have numbers.
constexpr std::uint64_t deepest_packed = 120;
constexpr std::uint64_t largest_packed = std::uint64_t(1) << packed_child::index_bits;

/// A subtree of so many triangles is tested as a whole. Measured: 8 and 64 are slower.
constexpr std::uint64_t largest_cluster = 32;

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
        inner(0);
        std::size_t room = made_->storage_bytes();
        made_->storage.reset(new unsigned char[room]);
        void* start = made_->storage.get();
        std::align(alignof(triangle_packet), room - sizeof(triangle_packet), start, room);
        made_->packets = static_cast<triangle_packet*>(start);
        for (std::size_t packet = 0; packet < made_->subtrees.size();)
            packet += fill(packet);
        return std::move(made_);
    }

  private:
    packed_child inner(std::uint64_t node) {
        const bih_node<float>& here = tree_.nodes[node];
        const std::size_t at = made_->nodes.size();
        made_->nodes.push_back({here.left_plane, here.right_plane, {}});
        packed_child left = child(node + 1);
        const packed_child right = child(static_cast<std::uint64_t>(here.right));
        left.bits |= static_cast<std::uint32_t>(here.axis) << packed_child::axis_shift;
        made_->nodes[at].child[0] = left;
        made_->nodes[at].child[1] = right;
        return {static_cast<std::uint32_t>(at)};
    }

    packed_child child(std::uint64_t node) {
        const index_range all = range_below(tree_, node);
        if (all.count <= largest_cluster || tree_.nodes[node].is_leaf())
            return cluster(node, all);
        return inner(node);
    }

    static std::uint64_t packets_for(const index_range& all) {
        return (all.count + packet_width - 1) / packet_width;
    }

    /// Numbers the packets of what is below a node.
    packed_child cluster(std::uint64_t node, const index_range& all) {
        const auto first = static_cast<std::uint32_t>(made_->subtrees.size());
        const auto count = static_cast<std::uint32_t>(packets_for(all));
        made_->subtrees.insert(made_->subtrees.end(), count, static_cast<std::uint32_t>(node));
        if (count == 0)
            return {};
        if (count <= packed_child::count_mask)
            return {packed_child::leaf_flag | count << packed_child::index_bits | first};
        made_->big_leaves.push_back({first, count});
        return {packed_child::leaf_flag | static_cast<std::uint32_t>(made_->big_leaves.size() - 1)};
    }

    /// Fills the packets below the node of this one, and tells how many they are.
    std::uint64_t fill(std::size_t packet) {
        const index_range all = range_below(tree_, made_->subtrees[packet]);
        triangle_packet* const packets = made_->packets + packet;
        for (std::uint64_t k = 0; k < packets_for(all); ++k)
            new (packets + k) triangle_packet;
        for (std::uint64_t k = 0; k < all.count; ++k)
            packets[k / packet_width].put(k % packet_width,
                                          triangles_[tree_.indices[all.first + k]]);
        return packets_for(all);
    }

    const bih_tree<float>& tree_;
    const float_triangle* const triangles_;
    std::unique_ptr<ray_companion> made_;
};

} // namespace detail
} // namespace morva
