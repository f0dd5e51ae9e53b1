#pragma once

// What a tree keeps for its rays: the same planes and the same triangles, packed so that a ray
// touches few lines of the cache. Include <morva/trees/ray_traversal.h>.
//
//     nodes      16 bytes each, in the order of the tree; what a leaf is stands with its parent
//     clusters   the small subtrees: box, bearings, and their triangles in packets of eight
//
// A small subtree is one leaf here. Most rays that come to one are proven by its box and bearings
// to meet nothing there (ray_bearings.h); for the others its triangles are tested all at once,
// whatever the planes between them say: a subtree none of whose triangles is met changes nothing,
// so a ray passes it by. Where one is met the planes around its leaf tell whether the descent comes
// there; where they don't, the ray goes down step by step in the tree itself. Above, the steps are
// those of the tree. So every ray comes to the same bits, with no assumption about it but that its
// length is finite.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/ray_bearings.h>
#include <morva/trees/ray_packets.h>
#include <morva/trees/ray_triangle.h>
#include <morva/trees/tree_ranges.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>
#include <vector>

namespace morva {
namespace detail {

/// Where a child is: nothing, a node, or a cluster.
struct packed_child {
    static constexpr std::uint32_t axis_shift = 29;
    static constexpr std::uint32_t leaf_flag = 1U << 31;

    /// Bit 31: a cluster. Bits 30 and 29: axis of the node that the child belongs to, of its left
    /// child alone. Lower bits: the unit at which the cluster starts; or index of the node, and 0
    /// is nothing.
    std::uint32_t bits = 0;

    bool is_leaf() const { return (bits & leaf_flag) != 0; }
    std::uint32_t axis() const { return bits >> axis_shift & 3; }
    packed_child without_axis() const { return {bits & ~(3U << axis_shift)}; }
    std::uint32_t index() const { return bits & ((1U << axis_shift) - 1); }
};

/// An inner node.
struct packed_node {
    float left_plane;      ///< as in the tree
    float right_plane;     ///< as in the tree
    packed_child child[2]; ///< left, right
};
static_assert(sizeof(packed_node) == 16, "four nodes are one line of the cache");

/// A small subtree, and the head of what lies behind it: its bearings if it has more than one
/// packet, since to test a single one is as fast, then its packets. Both words have the bits of an
/// ordinary float set, since they are read beside the corners as a fourth one.
struct alignas(32) ray_cluster {
    static constexpr std::uint32_t float_bits = 0x40000000;

    float low[3];       ///< of its triangles
    std::uint32_t size; ///< 16 * packets + fours of bearings
    float high[3];
    std::uint32_t subtree; ///< the tree's node

    std::uint64_t node() const { return subtree & ~float_bits; }
    std::uint32_t fours() const { return size & 15; }
    std::uint32_t packet_count() const { return (size & ~float_bits) >> 4; }
    const ray_bearings* bearings() const { return reinterpret_cast<const ray_bearings*>(this + 1); }
    const triangle_packet* packets() const {
        return reinterpret_cast<const triangle_packet*>(bearings() + fours());
    }
};

/// What clusters are laid in, end to end.
struct alignas(32) ray_unit {
    unsigned char bytes[32];
};
constexpr std::size_t packet_units = sizeof(triangle_packet) / sizeof(ray_unit);
static_assert(sizeof(ray_cluster) == sizeof(ray_unit) && sizeof(ray_bearings) == sizeof(ray_unit) &&
                  packet_units * sizeof(ray_unit) == sizeof(triangle_packet),
              "all parts of a cluster are whole units");

/// The whole. It holds for one array of triangles, as they were when it was made.
struct ray_companion : bih_companion {
    const float_triangle* triangles = nullptr; ///< the array
    std::vector<packed_node> nodes;            ///< the root is the first
    std::vector<ray_unit> units;
    float3 low{HUGE_VALF, HUGE_VALF, HUGE_VALF}; ///< of all triangles
    float3 high{-HUGE_VALF, -HUGE_VALF, -HUGE_VALF};

    const ray_cluster& cluster(packed_child leaf) const {
        return *reinterpret_cast<const ray_cluster*>(units.data() + leaf.index());
    }
    /// What it takes of memory.
    std::size_t bytes() const {
        return sizeof *this + nodes.capacity() * sizeof(packed_node) +
               units.capacity() * sizeof(ray_unit);
    }

    static void free(bih_companion* companion) { delete static_cast<ray_companion*>(companion); }
};

/// Trees beyond go without: deeper ones, and such with more nodes or elements than there are
/// numbers for.
constexpr std::uint64_t deepest_packed = 120;
constexpr std::uint64_t most_nodes_packed = std::uint64_t(1) << 28;
constexpr std::uint64_t largest_packed = std::uint64_t(1) << 25;

/// A subtree of so many triangles is a cluster. Measured: with 16 bounced rays are slower, with 48
/// those of a camera.
constexpr std::uint64_t largest_cluster = 32;

/// Room for a triangle, more than what it takes on the average, while a companion is made.
constexpr std::uint64_t usual_units = 2;

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
            tree_.node_count >= most_nodes_packed || tree_.nodes[0].is_leaf())
            return nullptr;
        made_->units.reserve(usual_units * tree_.index_count);
        inner(0);
        made_->units.shrink_to_fit();
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

    /// Makes one of what is below a node.
    packed_child cluster(std::uint64_t node, const index_range& all) {
        if (all.count == 0)
            return {};
        bearings_.clear();
        ray_cluster made{{HUGE_VALF, HUGE_VALF, HUGE_VALF},
                         0,
                         {-HUGE_VALF, -HUGE_VALF, -HUGE_VALF},
                         static_cast<std::uint32_t>(node) | ray_cluster::float_bits};
        below_.clear();
        for (std::uint64_t k = 0; k < all.count; ++k)
            below_.push_back(triangles_[tree_.indices[all.first + k]]);
        for (const float_triangle& t : below_)
            take(t, made);
        for (std::size_t k = 0; below_.size() > packet_width && k < below_.size(); ++k)
            bearings_.add(below_[k]);
        const std::uint64_t packets = (all.count + packet_width - 1) / packet_width;
        const std::uint32_t fours = bearings_.fours();
        made.size = static_cast<std::uint32_t>(packets << 4) | fours | ray_cluster::float_bits;
        const std::size_t at = made_->units.size();
        made_->units.resize(at + 1 + fours + packet_units * packets);
        ray_unit* next = made_->units.data() + at;
        new (next++) ray_cluster(made);
        for (std::uint32_t k = 0; k < fours; ++k)
            new (next++) ray_bearings(bearings_.four(k));
        for (std::uint64_t k = 0; k < all.count; next += packet_units) {
            auto* const packet = new (next) triangle_packet;
            for (std::size_t lane = 0; lane < packet_width && k < all.count; ++lane)
                packet->put(lane, below_[k++]);
        }
        return {packed_child::leaf_flag | static_cast<std::uint32_t>(at)};
    }

    /// Extends a cluster, and what holds for all.
    void take(const float_triangle& t, ray_cluster& cluster) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            cluster.low[axis] = std::min({cluster.low[axis], t.a[axis], t.b[axis], t.c[axis]});
            cluster.high[axis] = std::max({cluster.high[axis], t.a[axis], t.b[axis], t.c[axis]});
            made_->low[axis] = std::min(made_->low[axis], cluster.low[axis]);
            made_->high[axis] = std::max(made_->high[axis], cluster.high[axis]);
        }
    }

    std::vector<float_triangle> below_; ///< of the cluster at hand
    bearing_list bearings_;             ///< of it
    const bih_tree<float>& tree_;
    const float_triangle* const triangles_;
    std::unique_ptr<ray_companion> made_;
};

} // namespace detail
} // namespace morva
