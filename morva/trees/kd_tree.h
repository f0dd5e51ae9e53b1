#pragma once

// A kd-tree cuts a geoset into cells of bounded size: one plane per inner node, elements below it
// on the left, the others on the right. The leaves become the geometry cores of the output.
//
//        0 x=4           nodes    0  1  2  3  4     pre-order
//       /     \          indices  7 2 | 5 | 0 1     leaf 1, leaf 3, leaf 4, end to end
//      1       2 y=1
//             / \        kd_tree<float> tree;
//            3   4       compile(geoset, tree, setup, kd_strategy_ObjMedian());
//
//     const kd_node<float>& node = tree.nodes[i];
//     node.is_leaf()      its elements are node.range_count() entries of tree.indices, from
//                         node.range_first() on
//     otherwise           node.cut_plane() cuts node.axis; below it lies node i + 1, at it and
//                         above node.right_child()
//
// What happens to an element across a plane is up to `straddle_mode`: 1 cuts it (the geoset
// grows), 2 puts it on both sides (`indices` grows), any other keeps it whole on the side of its
// centre. Any geoset that trees/geoset_access.h can read will do, and any strategy of the form that
// trees/kd_strategies.h shows.
//
// One owner while building; any number of readers afterwards.
// Method: "Multidimensional binary search trees used for associative searching", Bentley, 1975.

#include <morva/core/morva_validate.h>
#include <morva/trees/geoset_access.h>
#include <morva/trees/kd_build.h>
#include <morva/trees/kd_records.h>
#include <morva/trees/kd_rules.h>
#include <morva/trees/kd_strategies.h>

#include <cstdint>

namespace morva {

/// Sorts the range `indices[first]` to `indices[first + count - 1]` at a plane.
///
/// added    out: how many indices the range grew by; those behind it move up
/// stop     untouched: passed along for callers
/// returns  how many indices of the range now belong left; they come first
///
/// An element that begins at the plane or above it goes right, one that ends at the plane or below
/// it left, and what crosses goes by `straddle_mode`. In either part the old indices keep to
/// the outside and new ones meet in the middle: old left, new left, new right, old right. Points
/// never cross; a geoset that cannot cut treats mode 1 as "keep whole".
/// errors   std::bad_alloc; the tree is then as it was, but pieces may have been cut
template <typename Geoset>
unsigned long sort(Geoset& geoset, unsigned long first, unsigned long count, float plane, int axis,
                   int& added, kd_tree<float>& tree, bool& stop, int straddle_mode) {
    static_cast<void>(stop);
    detail::ranges_on_stack ranges(tree, first, count);
    const detail::range_cut cut = ranges.cut(geoset, count, plane, axis, straddle_mode);
    ranges.keep_leaf(cut.left);
    ranges.keep_leaf(count + cut.added - cut.left);
    ranges.finish();
    added = static_cast<int>(cut.added);
    return cut.left;
}

/// Builds the subtree of `node` over a range of the tree's indices.
///
/// tree         its nodes before `node` and its indices stay valid; grows as needed
/// node         index of this node; `tree.node_count` if the next node is to be its left child
/// first,count  the range in `tree.indices`
/// box          of the cell, `extent` valid; children get halves of it, whatever they hold
/// depth        of this node; 0 for the root
/// returns      how many indices were added below this node
///
/// A node with fewer than `max_elements` elements or at `max_depth` is a leaf, and so is one whose
/// plane coincides with a side of its box: single precision has run out, or the strategy sees no
/// use in a cut. A child is asked for a plane only if it has more than `max_elements`. With modes 1
/// and 2 the cost is that of the ranges sorted: indices behind a range do not move at every cut.
/// errors       std::bad_alloc, and whatever cutting throws; the tree may be released then, not
///              used
template <typename Geoset, typename Strategy, typename Box>
std::uint64_t process_node(kd_tree<float>& tree, int node, Geoset& geoset, unsigned long first,
                           unsigned long count, const Box& box, unsigned int depth,
                           const kd_build_setup& setup, const Strategy& strategy) {
    const auto build_in = [&](auto ranges) {
        detail::kd_builder<Geoset, Box, Strategy, decltype(ranges)> builder(tree, geoset, setup,
                                                                            strategy, ranges);
        const std::uint64_t added =
            builder.build(static_cast<std::uint64_t>(node), count, box, depth);
        ranges.finish();
        return added;
    };
    if (detail::sort_may_add(geoset, setup.straddle_mode))
        return build_in(detail::ranges_on_stack(tree, first, count));
    return build_in(detail::ranges_in_place(tree, first));
}

/// Builds the tree of a whole geoset; with no element it is that of createEmptyTree().
///
/// The geoset's box is brought up to date first. With `straddle_mode` 1 the geoset grows by the
/// pieces that come off its elements.
template <typename Geoset, typename Strategy>
void compile(Geoset& geoset, kd_tree<typename Geoset::scalar_type>& tree,
             const kd_build_setup& setup, const Strategy& strategy) {
    const std::uint64_t elements = element_count(geoset);
    if (elements == 0) {
        createEmptyTree(geoset, tree);
        return;
    }
    prepare_tree(tree, elements, setup);
    const auto box = refresh_bounding_box(geoset);
    process_node(tree, 0, geoset, 0, elements, box, 0, setup, strategy);
    validate("compile", [&] { return broken_rule_of(tree, geoset, setup); });
}

/// Sum of the leaves' counts below `node`; an element that stands in two leaves counts twice.
template <typename T> std::uint64_t triangle_count(const kd_tree<T>& tree, unsigned int node) {
    if (tree.nodes == nullptr || node > tree.node_count)
        return 0;
    const kd_node<T>& here = tree.nodes[node];
    if (here.is_leaf())
        return here.range_count();
    return triangle_count<T>(tree, node + 1) +
           triangle_count<T>(tree, static_cast<unsigned int>(here.right_child()));
}

/// Adds the depth of each leaf below `node` to `sum`; `depth` is that of `node`. Divided by
/// `leaf_count` it is the mean depth.
template <typename T> void avg_depth_node(const kd_tree<T>& tree, int node, int depth, float& sum) {
    if (tree.nodes == nullptr || node < 0 || static_cast<std::uint64_t>(node) > tree.node_count)
        return;
    const kd_node<T>& here = tree.nodes[node];
    if (here.is_leaf()) {
        sum += static_cast<float>(depth);
        return;
    }
    avg_depth_node<T>(tree, node + 1, depth + 1, sum);
    avg_depth_node<T>(tree, here.right_child(), depth + 1, sum);
}

} // namespace morva
