#pragma once

// The invariants of a built kd-tree, as text of the first one that is broken:
//
//     validate("kd-tree", [&] { return broken_rule_of(tree, geoset, setup); });
//
// One thread, which builds neither tree nor geoset meanwhile.

#include <morva/trees/geoset_access.h>
#include <morva/trees/kd_records.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace morva {
namespace detail {

/// Walks a tree in the order of its nodes and notes the first rule that fails.
template <typename T, typename Geoset> class kd_walk {
  public:
    kd_walk(const kd_tree<T>& tree, const Geoset& geoset, const kd_build_setup& setup)
        : tree_(tree), geoset_(geoset), setup_(setup) {
        seen_.resize(static_cast<std::size_t>(element_count(geoset)), 0);
    }

    std::string run() {
        rule(tree_.nodes != nullptr && tree_.indices != nullptr, "nodes and indices exist");
        rule(tree_.node_count < tree_.node_capacity, "node_count below node_capacity");
        rule(tree_.index_count <= tree_.index_capacity, "index_count within index_capacity");
        if (!broken_.empty())
            return broken_;
        node(0);
        rule(next_node_ == tree_.node_count + 1, "all nodes hang below the root");
        rule(leaves_ == tree_.leaf_count, "leaf_count counts the leaves");
        rule(fullest_ == tree_.max_leaf_size, "max_leaf_size is that of the fullest leaf");
        if (seen_.empty()) {
            rule(tree_.index_count == 1 && tree_.leaf_count == 1, "an empty tree is one leaf");
            return broken_;
        }
        rule(next_index_ == tree_.index_count, "leaves cover all indices");
        for (const unsigned int times : seen_) {
            rule(times > 0, "every element stands in a leaf");
            rule(setup_.straddle_mode == 2 || times == 1, "no element stands twice");
        }
        return broken_;
    }

  private:
    /// One plane above a leaf, and the side of it on which the leaf lies.
    struct side_of_plane {
        int axis;
        float plane;
        bool left;
    };

    void rule(bool holds, const char* words) {
        if (!holds && broken_.empty())
            broken_ = words;
    }

    void node(std::uint64_t index) {
        if (index > tree_.node_count || index != next_node_++)
            return rule(false, "nodes stand in pre-order");
        rule(path_.size() <= setup_.max_depth, "no node below max_depth");
        const kd_node<T>& here = tree_.nodes[index];
        if (here.is_leaf())
            return leaf(here);
        if (here.axis > 2)
            return rule(false, "axis is 0, 1 or 2");
        path_.push_back({static_cast<int>(here.axis), here.plane, true});
        node(index + 1);
        path_.back().left = false;
        rule(here.right == static_cast<std::int64_t>(next_node_), "right follows the left subtree");
        node(next_node_);
        path_.pop_back();
    }

    void leaf(const kd_node<T>& here) {
        ++leaves_;
        fullest_ = std::max<std::uint64_t>(fullest_, here.count);
        if (here.first != next_index_ || here.first + here.count > tree_.index_count)
            return rule(false, "leaves lie end to end");
        for (; next_index_ < std::uint64_t(here.first) + here.count; ++next_index_) {
            const std::uint64_t e = tree_.indices[next_index_];
            if (e >= seen_.size())
                return rule(false, "indices are element numbers");
            ++seen_[static_cast<std::size_t>(e)];
            if (setup_.straddle_mode != 1)
                sides(e);
        }
    }

    /// Elements that are never cut can be asked again why they are where they are.
    void sides(std::uint64_t e) {
        for (const side_of_plane& s : path_) {
            const auto extents = extents_on_axis(geoset_, s.axis);
            float lo = 0, hi = 0;
            extents.read(e, lo, hi);
            const bool above = lo >= s.plane, below = s.plane >= hi;
            bool may_be_left = !above, may_be_right = above || !below;
            if (decltype(extents)::flat)
                may_be_right = above;
            else if (setup_.straddle_mode != 2) {
                may_be_left = !above && (below || s.plane > (hi - lo) * 0.5f + lo);
                may_be_right = !may_be_left;
            }
            rule(s.left ? may_be_left : may_be_right, "elements lie on their side of each plane");
        }
    }

    const kd_tree<T>& tree_;
    const Geoset& geoset_;
    const kd_build_setup& setup_;
    std::vector<unsigned int> seen_;
    std::vector<side_of_plane> path_;
    std::uint64_t next_node_ = 0, next_index_ = 0, leaves_ = 0, fullest_ = 0;
    std::string broken_;
};

} // namespace detail

/// The first rule that a tree breaks, or an empty text: nodes stand in pre-order and no deeper than
/// `max_depth`, leaves lie end to end, statistics are right, every element is in a leaf, twice in
/// mode 2 alone; where nothing is cut, each element is on its side of every plane above it.
template <typename T, typename Geoset>
std::string broken_rule_of(const kd_tree<T>& tree, const Geoset& geoset,
                           const kd_build_setup& setup) {
    return detail::kd_walk<T, Geoset>(tree, geoset, setup).run();
}

} // namespace morva
