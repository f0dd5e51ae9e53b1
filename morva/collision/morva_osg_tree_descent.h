#pragma once

// The descent of two trees at once, in the order that decides which contact is the first.
//
//     pair_descent<any_pair> descent(a, b, b_to_a, any_pair());
//     if (descent.visit(0, 0, boxes)) ... descent.contact(), descent.pairs()
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

/// The boxes of a pair of nodes. In A's coordinates, but for B's own.
struct pair_boxes {
    lanes a_min, a_max;
    lanes b_min, b_max;
    float3 own_min, own_max; ///< of B, in B's coordinates
};

/// Rules out nothing.
struct any_pair {
    static constexpr bool rejects(std::uint64_t, std::uint64_t) { return false; }
};

template <typename Filter> class pair_descent {
  public:
    /// patience  pairs of nodes after which the descent gives up
    pair_descent(const tree_side& a, const tree_side& b,
                 const math::transformation_matrix<float>& b_to_a, const Filter& filter,
                 std::uint64_t patience = std::numeric_limits<std::uint64_t>::max())
        : a_(a), b_(b), matrix_(b_to_a), filter_(filter), patience_(patience) {
        for (std::size_t k = 0; k < 3; ++k)
            columns_[k] = lanes{b_to_a[4 * k], b_to_a[4 * k + 1], b_to_a[4 * k + 2], 0.F};
    }

    /// Looks for a contact below two nodes; true ends the descent: found, or given up.
    bool visit(std::uint64_t node_a, std::uint64_t node_b, const pair_boxes& boxes) {
        if (anyLane((boxes.b_min > boxes.a_max) | (boxes.a_min > boxes.b_max)))
            return false;
        if (filter_.rejects(node_a, node_b))
            return false;
        if (patience_-- == 0)
            return gave_up_ = true;
        const bih_node<float>& a = a_.tree.nodes[node_a];
        const bih_node<float>& b = b_.tree.nodes[node_b];
        if (a.is_leaf() && b.is_leaf())
            return compare(a, node_b, b);
        if (a.is_leaf())
            return visit(node_a, node_b + 1, leftOfB(boxes, b)) ||
                   visit(node_a, rightOf(b), rightOfB(boxes, b));
        if (b.is_leaf())
            return visit(node_a + 1, node_b, leftOfA(boxes, a)) ||
                   visit(rightOf(a), node_b, rightOfA(boxes, a));
        const pair_boxes left_b = leftOfB(boxes, b), right_b = rightOfB(boxes, b);
        return visit(rightOf(a), node_b + 1, rightOfA(left_b, a)) ||
               visit(node_a + 1, rightOf(b), leftOfA(right_b, a)) ||
               visit(node_a + 1, node_b + 1, leftOfA(left_b, a)) ||
               visit(rightOf(a), rightOf(b), rightOfA(right_b, a));
    }

    bool gaveUp() const { return gave_up_; }
    const float3& contact() const { return contact_; } ///< after visit() found one
    std::uint64_t pairs() const { return pairs_; }     ///< of triangles; those of equal ones, too

  private:
    static std::uint64_t rightOf(const bih_node<float>& node) {
        return static_cast<std::uint64_t>(node.right);
    }
    static lanes onAxis(std::size_t axis, lanes where, float value) {
        where[axis] = value;
        return where;
    }
    static pair_boxes leftOfA(pair_boxes boxes, const bih_node<float>& a) {
        boxes.a_max = onAxis(static_cast<std::size_t>(a.axis), boxes.a_max, a.left_plane);
        return boxes;
    }
    static pair_boxes rightOfA(pair_boxes boxes, const bih_node<float>& a) {
        boxes.a_min = onAxis(static_cast<std::size_t>(a.axis), boxes.a_min, a.right_plane);
        return boxes;
    }
    static lanes where(lane_mask mask, lanes value) {
        return reinterpret_cast<lanes>(mask & reinterpret_cast<lane_mask>(value));
    }
    /// Without what lies above the left plane.
    pair_boxes leftOfB(pair_boxes boxes, const bih_node<float>& b) const {
        const auto k = static_cast<std::size_t>(b.axis);
        const lanes shift = allLanes(boxes.own_max[k] - b.left_plane) * columns_[k];
        const lane_mask high = columns_[k] >= lanes{};
        boxes.b_max -= where(high, shift);
        boxes.b_min -= where(~high, shift);
        boxes.own_max[k] = b.left_plane;
        return boxes;
    }
    /// Without what lies below the right plane.
    pair_boxes rightOfB(pair_boxes boxes, const bih_node<float>& b) const {
        const auto k = static_cast<std::size_t>(b.axis);
        const lanes shift = allLanes(b.right_plane - boxes.own_min[k]) * columns_[k];
        const lane_mask low = columns_[k] >= lanes{};
        boxes.b_min += where(low, shift);
        boxes.b_max += where(~low, shift);
        boxes.own_min[k] = b.right_plane;
        return boxes;
    }

    /// Each triangle of A's leaf with each of B's.
    bool compare(const bih_node<float>& a, std::uint64_t node_b, const bih_node<float>& b) {
        if (loaded_ != node_b) {
            readLeaf(b_.tree, b_.list, b, entries_);
            packs_.load(entries_, matrix_);
            loaded_ = node_b;
        }
        readLeaf(a_.tree, a_.list, a, entries_);
        std::uint32_t place = 0;
        for (const leaf_entry& entry : entries_) {
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
    std::vector<leaf_entry> entries_;
    leaf_packs packs_;
    std::uint64_t loaded_ = none; ///< the leaf of B that is in `packs_`
    std::uint64_t patience_;
    std::uint64_t pairs_ = 0;
    float3 contact_;
    bool gave_up_ = false;
};

} // namespace morva::osg
