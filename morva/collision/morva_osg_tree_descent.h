#pragma once

// The descent of two trees at once, in the order that decides which contact is the first.
//
//     pair_descent<any_pair> descent(a, b, b_to_a, any_pair());
//     if (descent.visit(0, 0, box_a, box_b)) ... descent.contact(), descent.pairs()
//
// The box of B in A's coordinates is never made from corners again: a plane that cuts a slice of
// width w off B's own box on axis k moves a side of the box in A's coordinates by w times the
// matrix coefficient, on each axis. Single precision, so that the boxes and with them the leaves
// that are compared are the same to the last bit everywhere. A filter may rule out pairs of nodes
// that hold no contact; it changes the time alone.
//
// For the library's own source files; a descent belongs to one thread.

#include <cstdint>
#include <limits>
#include <vector>

#include <morva/collision/morva_osg_lanes.h>
#include <morva/collision/morva_osg_triangle_contact.h>
#include <morva/core/morva_math.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/trees/bih_records.h>

namespace morva::osg {

/// One side of a descent.
struct tree_side {
    const bih_tree<float>& tree; ///< with nodes
    const triangle_list& list;
};

/// The box of a node of A.
struct descent_box {
    lanes min, max;
};

/// The box of a node of B, in A's coordinates and in its own.
struct carried_box {
    lanes min, max;
    float3 own_min, own_max;
};

/// One or two nodes of a tree that are next; the same one twice stands for one.
struct next_nodes {
    std::uint64_t left, right;
};

/// Pairs of two nodes of A with two of B, as bits: right and left of A with the left one of B, then
/// the right one.
enum pair_bits : unsigned { right_left = 1, right_right = 2, left_left = 4, left_right = 8 };

/// Rules out nothing.
struct any_pair {
    static constexpr unsigned rejects(const next_nodes&, const next_nodes&) { return 0; }
};

template <typename Filter> class pair_descent {
  public:
    /// patience  pairs of nodes after which the descent gives up
    pair_descent(const tree_side& a, const tree_side& b,
                 const math::transformation_matrix<float>& b_to_a, const Filter& filter,
                 std::uint64_t patience = std::numeric_limits<std::uint64_t>::max())
        : a_(a), b_(b), matrix_(b_to_a), filter_(filter), patience_(patience), left_(patience) {
        for (std::size_t k = 0; k < 3; ++k)
            columns_[k] = lanes{b_to_a[4 * k], b_to_a[4 * k + 1], b_to_a[4 * k + 2], 0.F};
    }

    /// Looks for a contact below two nodes; true ends the descent: found, or given up.
    bool visit(std::uint64_t node_a, std::uint64_t node_b, const descent_box& box_a,
               const carried_box& box_b) {
        if (anyLane((box_b.min > box_a.max) | (box_a.min > box_b.max)))
            return false;
        if (left_ == 0)
            return gave_up_ = true;
        --left_;
        const bih_node<float>& a = a_.tree.nodes[node_a];
        const bih_node<float>& b = b_.tree.nodes[node_b];
        if (a.is_leaf() && b.is_leaf())
            return compare(node_a, node_b);
        const next_nodes next_a = nextOf(node_a, a), next_b = nextOf(node_b, b);
        for (const std::uint64_t next : {next_a.left, next_a.right})
            __builtin_prefetch(a_.tree.nodes + next); // in time for what is visited
        for (const std::uint64_t next : {next_b.left, next_b.right})
            __builtin_prefetch(b_.tree.nodes + next);
        const unsigned out = filter_.rejects(next_a, next_b);
        if (a.is_leaf())
            return ((out & left_left) == 0 &&
                    visit(node_a, next_b.left, box_a, leftOf(box_b, b))) ||
                   ((out & left_right) == 0 &&
                    visit(node_a, next_b.right, box_a, rightOf(box_b, b)));
        if (b.is_leaf())
            return ((out & left_left) == 0 &&
                    visit(next_a.left, node_b, leftOf(box_a, a), box_b)) ||
                   ((out & right_left) == 0 &&
                    visit(next_a.right, node_b, rightOf(box_a, a), box_b));
        const descent_box left_a = leftOf(box_a, a), right_a = rightOf(box_a, a);
        const carried_box left_b = leftOf(box_b, b), right_b = rightOf(box_b, b);
        return ((out & right_left) == 0 && visit(next_a.right, next_b.left, right_a, left_b)) ||
               ((out & left_right) == 0 && visit(next_a.left, next_b.right, left_a, right_b)) ||
               ((out & left_left) == 0 && visit(next_a.left, next_b.left, left_a, left_b)) ||
               ((out & right_right) == 0 && visit(next_a.right, next_b.right, right_a, right_b));
    }

    bool gaveUp() const { return gave_up_; }
    std::uint64_t visits() const { return patience_ - left_; } ///< pairs of nodes
    const float3& contact() const { return contact_; }         ///< after visit() found one
    std::uint64_t pairs() const { return pairs_; } ///< of triangles; those of equal ones, too

  private:
    static next_nodes nextOf(std::uint64_t index, const bih_node<float>& node) {
        return node.is_leaf() ? next_nodes{index, index}
                              : next_nodes{index + 1, static_cast<std::uint64_t>(node.right)};
    }
    static descent_box leftOf(const descent_box& box, const bih_node<float>& a) {
        return {box.min, withAxis(box.max, static_cast<std::size_t>(a.axis), a.left_plane)};
    }
    static descent_box rightOf(const descent_box& box, const bih_node<float>& a) {
        return {withAxis(box.min, static_cast<std::size_t>(a.axis), a.right_plane), box.max};
    }
    /// Without what lies above the left plane.
    carried_box leftOf(carried_box box, const bih_node<float>& b) const {
        const auto k = static_cast<std::size_t>(b.axis);
        const lanes shift = allLanes(box.own_max[k] - b.left_plane) * columns_[k];
        const lane_mask high = columns_[k] >= lanes{};
        box.max -= where(high, shift);
        box.min -= where(~high, shift);
        box.own_max[k] = b.left_plane;
        return box;
    }
    /// Without what lies below the right plane.
    carried_box rightOf(carried_box box, const bih_node<float>& b) const {
        const auto k = static_cast<std::size_t>(b.axis);
        const lanes shift = allLanes(b.right_plane - box.own_min[k]) * columns_[k];
        const lane_mask low = columns_[k] >= lanes{};
        box.min += where(low, shift);
        box.max += where(~low, shift);
        box.own_min[k] = b.right_plane;
        return box;
    }

    /// Each triangle of A's leaf with each of B's. Leaves stay at hand: where only one side goes
    /// on, the other one's is not read again.
    bool compare(std::uint64_t node_a, std::uint64_t node_b) {
        const bih_node<float>& a = a_.tree.nodes[node_a];
        const bih_node<float>& b = b_.tree.nodes[node_b];
        if (a.count == 0 || b.count == 0)
            return false;
        if (loaded_b_ != node_b) {
            readLeaf(b_.tree, b_.list, b, entries_b_);
            packs_.load(entries_b_, matrix_);
            loaded_b_ = node_b;
        }
        if (loaded_a_ != node_a) {
            readLeaf(a_.tree, a_.list, a, entries_a_);
            loaded_a_ = node_a;
        }
        std::uint32_t place = 0;
        for (const leaf_entry& entry : entries_a_) {
            if (!packs_.firstContact(*entry.triangle, place, contact_))
                continue;
            pairs_ += std::uint64_t{entry.place} * b.count + place + 1;
            return true;
        }
        pairs_ += std::uint64_t{a.count} * b.count;
        return false;
    }

    static constexpr std::uint64_t none = std::numeric_limits<std::uint64_t>::max();

    const tree_side a_, b_;
    const math::transformation_matrix<float>& matrix_;
    const Filter& filter_;
    lanes columns_[3]; ///< of the matrix, without the translation
    std::vector<leaf_entry> entries_a_, entries_b_;
    leaf_packs packs_;
    std::uint64_t loaded_a_ = none; ///< the leaf of A that is in `entries_a_`
    std::uint64_t loaded_b_ = none; ///< the leaf of B that is in `packs_`
    const std::uint64_t patience_;
    std::uint64_t left_; ///< of the patience
    std::uint64_t pairs_ = 0;
    float3 contact_;
    bool gave_up_ = false;
};

} // namespace morva::osg
