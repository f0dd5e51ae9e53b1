#pragma once

// The range of a tree's indices below one of its nodes, for both kinds of trees. Include the tree.
//
//     range_below(tree, node)                    {first, count}: the leaves lie end to end
//     children_of(tree, node, left, right)       false for a leaf
//
// A tree without nodes and a node that it does not have give an empty range. Any thread.

#include <cstdint>

#include <morva/trees/bih_records.h>
#include <morva/trees/kd_records.h>

namespace morva {

/// A part of `tree.indices`.
struct index_range {
    std::uint64_t first = 0;
    std::uint64_t count = 0;
};

inline index_range range_of(const bih_node<float>& leaf) { return {leaf.first, leaf.count}; }
inline index_range range_of(const kd_node<float>& leaf) {
    return {leaf.range_first(), leaf.range_count()};
}

/// Whether the tree has that node.
template <typename Tree> bool has_node(const Tree& tree, std::uint64_t node) {
    return tree.nodes != nullptr && node <= tree.node_count;
}

/// The children of an inner node, out; false for a leaf.
template <typename Tree>
bool children_of(const Tree& tree, std::uint64_t node, std::uint64_t& left, std::uint64_t& right) {
    if (tree.nodes[node].is_leaf())
        return false;
    left = node + 1;
    right = static_cast<std::uint64_t>(tree.nodes[node].right);
    return true;
}

/// What all leaves below a node have. O(depth).
template <typename Tree> index_range range_below(const Tree& tree, std::uint64_t node) {
    if (!has_node(tree, node) || (tree.node_count == 0 && !tree.nodes[node].is_leaf()))
        return {};
    std::uint64_t first = node, last = node, other = 0, next = 0;
    while (children_of(tree, first, next, other))
        first = next;
    while (children_of(tree, last, other, next))
        last = next;
    const std::uint64_t begin = range_of(tree.nodes[first]).first;
    const index_range end = range_of(tree.nodes[last]);
    return {begin, end.first + end.count - begin};
}

} // namespace morva
