#pragma once

// The inside of the kd build: one loop over nodes, and two ways to hold the ranges that it cuts.
// Include <morva/trees/kd_tree.h>.
//
// Nodes are made in pre-order, and so leaves are kept in the order of their ranges: the present
// range is always the first one that is in no leaf yet.
//
//   ranges_in_place   for builds that add no index: a range is a part of `tree.indices` itself.
//   ranges_on_stack   for builds that do. The ranges still to be cut lie on a stack, the present
//                     one on top, and leaves are appended to the new index array:
//
//                         stack  [ right of root | right of node 1 | left of node 1 ]
//                         done   [ leaf ][ leaf ]...
//
//                     A cut rewrites only the top, so that the indices behind it need not make
//                     room at every node.

#include <morva/trees/geoset_access.h>
#include <morva/trees/kd_records.h>
#include <morva/trees/kd_strategies.h>

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace morva {
namespace detail {

/// The indices that one sort adds.
struct side_lists {
    std::vector<std::uint64_t> left;
    std::vector<std::uint64_t> right;
};

/// Sorts a range where no index is added; returns the left count. A NaN among the bounds of an
/// element sends it right, that of a point left.
template <typename Extents>
std::uint64_t partition_whole(const Extents& extents, std::uint64_t* range, std::uint64_t count,
                              float plane) {
    std::uint64_t left = 0;
    float lo{}, hi{};
    for (std::uint64_t p = 0; p < count; ++p) {
        extents.read(range[p], lo, hi);
        if (lo >= plane)
            continue;
        if (Extents::flat || plane >= hi || plane > (hi - lo) * 0.5f + lo)
            std::swap(range[p], range[left++]);
    }
    return left;
}

/// Sorts a range and references what crosses on both sides.
template <typename Extents>
std::uint64_t partition_doubled(const Extents& extents, std::uint64_t* range, std::uint64_t count,
                                float plane, side_lists& sides) {
    std::uint64_t left = 0;
    float lo{}, hi{};
    for (std::uint64_t p = 0; p < count; ++p) {
        extents.read(range[p], lo, hi);
        if (lo >= plane)
            continue;
        if (!(plane >= hi))
            sides.right.push_back(range[p]);
        std::swap(range[p], range[left++]);
    }
    return left;
}

/// Sorts a range and cuts what crosses. The element itself stays one of the pieces and goes by its
/// centre, whether the cut succeeded or not.
template <typename Geoset>
std::uint64_t partition_cut(Geoset& geoset, std::uint64_t* range, std::uint64_t count, float plane,
                            int axis, side_lists& sides) {
    std::uint64_t left = 0;
    auto extents = extents_on_axis(geoset, axis);
    float lo{}, hi{};
    for (std::uint64_t p = 0; p < count; ++p) {
        const std::uint64_t e = range[p];
        extents.read(e, lo, hi);
        if (lo >= plane)
            continue;
        if (!(plane >= hi)) {
            int pieces = 0;
            unsigned long first_piece = 0;
            geoset.splitElement(e, static_cast<double>(plane), axis, pieces, first_piece);
            extents = extents_on_axis(geoset, axis); // a cut may move the arrays
            for (int i = 0; i < pieces; ++i) {
                const std::uint64_t f = first_piece + static_cast<unsigned long>(i);
                extents.read(f, lo, hi);
                (plane >= hi ? sides.left : sides.right).push_back(f);
            }
            extents.read(e, lo, hi);
            if (!(plane > (hi - lo) * 0.5f + lo))
                continue;
        }
        std::swap(range[p], range[left++]);
    }
    return left;
}

/// Sorts a range by the rule of `straddle_mode`; new indices go to `sides`. Returns how many of
/// the old ones belong left.
template <typename Geoset>
std::uint64_t sort_range(Geoset& geoset, std::uint64_t* range, std::uint64_t count, float plane,
                         int axis, int straddle_mode, side_lists& sides) {
    using extents_type = decltype(extents_on_axis(geoset, axis));
    if constexpr (!extents_type::flat) {
        if (straddle_mode == 2)
            return partition_doubled(extents_on_axis(geoset, axis), range, count, plane, sides);
        if constexpr (cuts_elements<Geoset>::value)
            if (straddle_mode == 1)
                return partition_cut(geoset, range, count, plane, axis, sides);
    }
    return partition_whole(extents_on_axis(geoset, axis), range, count, plane);
}

/// Whether a sort of this geoset in this mode can add indices.
template <typename Geoset> bool sort_may_add(const Geoset& geoset, int straddle_mode) {
    if constexpr (decltype(extents_on_axis(geoset, 0))::flat)
        return false;
    else
        return straddle_mode == 2 || (straddle_mode == 1 && cuts_elements<Geoset>::value);
}

/// What one cut gave.
struct range_cut {
    std::uint64_t left;  ///< indices of the left child
    std::uint64_t added; ///< how many more the children have than the node
};

/// Ranges that are parts of the tree's own indices.
class ranges_in_place {
  public:
    ranges_in_place(kd_tree<float>& tree, std::uint64_t first) : tree_(tree), first_(first) {}

    const std::uint64_t* range(std::uint64_t) const { return tree_.indices + first_; }

    template <typename Geoset>
    range_cut cut(Geoset& geoset, std::uint64_t count, float plane, int axis, int straddle_mode) {
        side_lists none;
        return {sort_range(geoset, tree_.indices + first_, count, plane, axis, straddle_mode, none),
                0};
    }
    std::uint64_t keep_leaf(std::uint64_t count) {
        first_ += count;
        return first_ - count;
    }
    void finish() {}

  private:
    kd_tree<float>& tree_;
    std::uint64_t first_; ///< of the indices that are in no leaf yet
};

/// Ranges on a stack of their own, until finish() puts the indices of the leaves in the place of
/// the range that the build began with.
class ranges_on_stack {
  public:
    ranges_on_stack(kd_tree<float>& tree, std::uint64_t first, std::uint64_t count)
        : tree_(tree), first_(first), count_(count),
          stack_(tree.indices + first, tree.indices + first + count),
          index_count_(tree.index_count), index_capacity_(tree.index_capacity) {
        done_.reserve(count);
    }

    /// The present range, which is `count` long.
    const std::uint64_t* range(std::uint64_t count) const {
        return stack_.data() + (stack_.size() - count);
    }

    /// Puts the left child's range, cut off the present one, on top of the right child's.
    template <typename Geoset>
    range_cut cut(Geoset& geoset, std::uint64_t count, float plane, int axis, int straddle_mode) {
        sides_.left.clear();
        sides_.right.clear();
        assert(count <= stack_.size());
        const std::size_t bottom = stack_.size() - count;
        const std::uint64_t left =
            sort_range(geoset, stack_.data() + bottom, count, plane, axis, straddle_mode, sides_);
        const std::uint64_t added = sides_.left.size() + sides_.right.size();
        raise_left_part(bottom, left);
        grow_counts(added);
        return {left + sides_.left.size(), added};
    }

    /// The range on top is final; returns where it begins in the tree's indices.
    std::uint64_t keep_leaf(std::uint64_t count) {
        const std::uint64_t at = first_ + done_.size();
        const auto end = stack_.end();
        done_.insert(done_.end(), end - static_cast<std::ptrdiff_t>(count), end);
        stack_.resize(stack_.size() - count);
        return at;
    }

    /// Replaces the range in the tree by what the leaves hold.
    void finish() {
        const std::uint64_t tail = first_ + count_;
        assert(stack_.empty());
        done_.insert(done_.end(), tree_.indices + tail, tree_.indices + tree_.index_count);
        assert(first_ + done_.size() == index_count_);
        if (index_capacity_ != tree_.index_capacity)
            tree_.resize_indices(index_capacity_);
        std::copy(done_.begin(), done_.end(), tree_.indices + first_);
        tree_.index_count = index_count_;
    }

  private:
    /// Reorders the top from old left, old right to: new right, old right, old left, new left. So
    /// the left child's range comes to lie on top, each child's indices in their order.
    void raise_left_part(std::size_t bottom, std::uint64_t left) {
        const auto begin = [this](std::size_t at) {
            return stack_.begin() + static_cast<std::ptrdiff_t>(at);
        };
        std::rotate(begin(bottom), begin(bottom + left), stack_.end());
        stack_.insert(begin(bottom), sides_.right.begin(), sides_.right.end());
        stack_.insert(stack_.end(), sides_.left.begin(), sides_.left.end());
    }

    /// Counts what the index array would come to if each cut made its room there.
    void grow_counts(std::uint64_t added) {
        if (index_count_ + added >= index_capacity_)
            index_capacity_ = 2 * index_count_ + added;
        index_count_ += added;
    }

    kd_tree<float>& tree_;
    std::uint64_t first_, count_;      ///< the range in the tree
    std::vector<std::uint64_t> stack_; ///< ranges still to be cut
    std::vector<std::uint64_t> done_;  ///< the leaves' indices, in the order of the leaves
    std::uint64_t index_count_, index_capacity_;
    side_lists sides_;
};

/// The nodes in pre-order; one object per build.
template <typename Geoset, typename Box, typename Strategy, typename Ranges> class kd_builder {
  public:
    kd_builder(kd_tree<float>& tree, Geoset& geoset, const kd_build_setup& setup,
               const Strategy& strategy, Ranges& ranges)
        : tree_(tree), geoset_(geoset), setup_(setup), strategy_(strategy), ranges_(ranges) {}

    /// Builds node `root` over the present range and returns how many indices were added below it.
    std::uint64_t build(std::uint64_t root, std::uint64_t count, const Box& box,
                        unsigned int depth) {
        std::uint64_t added = build_node(root, {count, depth, nobody, box});
        while (!waiting_.empty()) {
            const open_cell cell = waiting_.back();
            waiting_.pop_back();
            const std::uint64_t node = ++tree_.node_count;
            if (cell.right_of != nobody)
                tree_.nodes[cell.right_of].right = static_cast<std::int64_t>(node);
            if (cell.count > setup_.max_elements)
                added += build_node(node, cell);
            else
                make_leaf(node, cell.count);
        }
        return added;
    }

  private:
    static constexpr std::uint64_t nobody = ~std::uint64_t{0};

    /// What is to become a node.
    struct open_cell {
        std::uint64_t count;
        unsigned int depth;
        std::uint64_t right_of; ///< node whose right child it is; nobody's
        Box box;
    };

    /// Cuts the cell, so that its halves wait, or makes it a leaf. Returns how many indices came
    /// in.
    std::uint64_t build_node(std::uint64_t node, const open_cell& cell) {
        tree_.check_resize(node);
        tree_.max_depth_reached = std::max<std::uint64_t>(tree_.max_depth_reached, cell.depth);
        int axis = longest_axis(cell.box);
        float plane = 0;
        if (!find_plane(cell, axis, plane)) {
            make_leaf(node, cell.count);
            return 0;
        }
        tree_.nodes[node].axis = static_cast<std::uint32_t>(axis);
        tree_.nodes[node].plane = plane;
        const range_cut cut = ranges_.cut(geoset_, cell.count, plane, axis, setup_.straddle_mode);

        const auto a = static_cast<std::size_t>(axis);
        const std::uint64_t right = cell.count + cut.added - cut.left;
        waiting_.push_back({right, cell.depth + 1, node, cell.box});
        waiting_.back().box.min[a] = plane;
        waiting_.back().box.refresh_extent();
        waiting_.push_back({cut.left, cell.depth + 1, nobody, cell.box});
        waiting_.back().box.max[a] = plane;
        waiting_.back().box.refresh_extent();
        return cut.added;
    }

    /// False for what has to be a leaf.
    bool find_plane(const open_cell& cell, int& axis, float& plane) {
        if (cell.count < setup_.max_elements || cell.depth >= setup_.max_depth)
            return false;
        const kd_range<Geoset> range{geoset_, setup_, ranges_.range(cell.count), cell.count};
        plane = strategy_.plane(range, cell.box, axis, state_);
        const auto a = static_cast<std::size_t>(axis);
        return plane != cell.box.min[a] && plane != cell.box.max[a];
    }

    /// Turns `node` into a leaf over the present range.
    void make_leaf(std::uint64_t node, std::uint64_t count) {
        tree_.check_resize(node);
        kd_node<float>& leaf = tree_.nodes[node];
        leaf.axis = kd_leaf_axis;
        leaf.first = static_cast<std::uint32_t>(ranges_.keep_leaf(count));
        leaf.count = static_cast<std::uint32_t>(count);
        tree_.max_leaf_size = std::max(tree_.max_leaf_size, count);
        ++tree_.leaf_count;
    }

    kd_tree<float>& tree_;
    Geoset& geoset_;
    const kd_build_setup& setup_;
    const Strategy& strategy_;
    Ranges& ranges_;
    typename Strategy::build_state state_;
    std::vector<open_cell> waiting_; ///< the next one last
};

} // namespace detail
} // namespace morva
