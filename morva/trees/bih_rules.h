#pragma once

// The invariants of a built bounding interval hierarchy, as text of the first one that is broken:
//
//     validate("bih-tree", [&] { return broken_rule_of(tree, geoset, setup); });
//
// One thread, which builds neither tree nor geoset meanwhile. The geoset's box is that of the
// build.

#include <morva/core/morva_math.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/geoset_access.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace morva {
namespace detail {

/// The box that a build began with, which lists and scenes call `box`.
template <typename Geoset> auto box_of_build(const Geoset& geoset) -> decltype(geoset.bbox) {
    return geoset.bbox;
}
template <typename Geoset> auto box_of_build(const Geoset& geoset) -> decltype(geoset.box) {
    return geoset.box;
}

/// Walks a tree in the order of its nodes and notes the first rule that fails.
template <typename T, typename Geoset> class bih_walk {
  public:
    using box = decltype(box_of_build(std::declval<const Geoset&>()));

    bih_walk(const bih_tree<T>& tree, const Geoset& geoset, const build_setup& setup)
        : tree_(tree), geoset_(geoset), setup_(setup),
          max_depth_(std::min(setup.max_depth, bih_depth_limit)) {
        seen_.resize(static_cast<std::size_t>(element_count(geoset)), 0);
    }

    std::string run() {
        rule(tree_.active == 1, "active");
        rule(tree_.nodes != nullptr && tree_.indices != nullptr, "nodes and indices exist");
        rule(tree_.node_count < tree_.node_capacity, "node_count below node_capacity");
        rule(tree_.index_count == seen_.size(), "one index per element");
        if (!broken_.empty())
            return broken_;
        node(0, box_of_build(geoset_));
        rule(next_node_ == tree_.node_count + 1, "all nodes hang below the root");
        rule(leaves_ == tree_.leaf_count, "leaf_count counts the leaves");
        rule(fullest_ == tree_.max_leaf_size, "max_leaf_size is that of the fullest leaf");
        rule(deepest_ == tree_.max_depth_reached, "max_depth_reached is that of an inner node");
        rule(next_index_ == tree_.index_count, "leaves cover all indices");
        return broken_;
    }

  private:
    /// One node above a leaf, and the side on which the leaf lies.
    struct side_of_node {
        int axis;
        T plane;  ///< that of the side
        T spare;  ///< by which the plane is wider than the elements
        T middle; ///< centres below it are left
        bool left;
    };

    void rule(bool holds, const char* words) {
        if (!holds && broken_.empty())
            broken_ = words;
    }

    void node(std::uint64_t index, const box& around) {
        if (index > tree_.node_count || index != next_node_++)
            return rule(false, "nodes stand in pre-order");
        const bih_node<T>& here = tree_.nodes[index];
        const bool may_be_divided = path_.empty() || path_.size() <= max_depth_;
        if (here.is_leaf())
            return leaf(here, may_be_divided);
        rule(may_be_divided, "no children below max_depth");
        if (here.axis != longest_axis(around))
            return rule(false, "nodes are divided where their box is longest");
        deepest_ = std::max<std::uint64_t>(deepest_, path_.size());
        const auto axis = static_cast<std::size_t>(here.axis);
        const std::uint64_t first = next_index_;
        const T middle = around.extent[axis] * T(0.5f) + around.min[axis];
        const T spare = (around.max[axis] - around.min[axis]) * T(0.01f);
        path_.push_back({here.axis, here.left_plane, spare, middle, true});
        box half = around;
        half.max[axis] = middle;
        half.refresh_extent();
        node(index + 1, half);
        rule(here.right == static_cast<std::int64_t>(next_node_), "right follows the left subtree");
        path_.back() = {here.axis, here.right_plane, spare, middle, false};
        half = around;
        half.min[axis] = middle;
        half.refresh_extent();
        node(next_node_, half);
        path_.pop_back();
        rule(path_.empty() || next_index_ - first > setup_.max_elements,
             "what is divided has more than max_elements");
    }

    void leaf(const bih_node<T>& here, bool may_be_divided) {
        ++leaves_;
        fullest_ = std::max<std::uint64_t>(fullest_, here.count);
        rule(!path_.empty(), "the root is divided");
        rule(here.right == -1, "leaves have no children");
        rule(here.count <= setup_.max_elements || !may_be_divided, "leaves are small or deep");
        if (here.first != next_index_ || std::uint64_t(here.first) + here.count > tree_.index_count)
            return rule(false, "leaves lie end to end");
        for (; next_index_ < std::uint64_t(here.first) + here.count; ++next_index_) {
            const std::uint64_t e = tree_.indices[next_index_];
            if (e >= seen_.size() || seen_[static_cast<std::size_t>(e)]++ > 0)
                return rule(false, "each element has one index");
            sides(e);
        }
    }

    /// An element can be asked again why it is where it is; a NaN is on the right of everything,
    /// and bounds nothing.
    void sides(std::uint64_t e) {
        for (const side_of_node& s : path_) {
            const auto extents = extents_on_axis(geoset_, s.axis);
            T lo{}, hi{};
            extents.read(e, lo, hi);
            const bool is_left = s.middle > (hi - lo) * T(0.5f) + lo;
            rule(is_left == s.left, "elements lie on the side of their centre");
            rule(!(s.left ? hi + s.spare > s.plane : lo - s.spare < s.plane),
                 "planes are wider than their elements");
        }
    }

    const bih_tree<T>& tree_;
    const Geoset& geoset_;
    const build_setup& setup_;
    const std::uint32_t max_depth_;
    std::vector<std::uint8_t> seen_;
    std::vector<side_of_node> path_;
    std::uint64_t next_node_ = 0, next_index_ = 0, leaves_ = 0, fullest_ = 0, deepest_ = 0;
    std::string broken_;
};

} // namespace detail

/// The first rule that a tree of compile() breaks, or an empty text: nodes stand in pre-order,
/// divided where they are to be and no deeper than `max_depth`; leaves lie end to end and hold each
/// element once; statistics are right; elements are on the side of their centre, within the plane
/// there less its spare hundredth.
template <typename T, typename Geoset>
std::string broken_rule_of(const bih_tree<T>& tree, const Geoset& geoset,
                           const build_setup& setup) {
    return detail::bih_walk<T, Geoset>(tree, geoset, setup).run();
}

} // namespace morva
