#pragma once

// The records of a kd-tree: its setup, its nodes, and the tree that owns nodes and indices.
// Include <morva/trees/kd_tree.h>, which tells how they are used.
//
// Both arrays are raw and owned by the tree. An array and its capacity change together, and new
// storage is there before the old one goes, so that a failed growth leaves the tree as it was.

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <memory>

#include <morva/core/morva_export.h>

namespace morva {

/// How a kd-tree is built; usually written as seven values in this order.
struct MORVA_API kd_build_setup {
    std::uint32_t max_elements = 0; ///< a cell with more is cut; 0: only empty cells stay
    std::uint32_t max_depth = 0;    ///< a node this deep is not cut; 0: one leaf
    std::int32_t straddle_mode = 3; ///< 1 cut, 2 reference on both sides, else keep whole
    float cost_intersect = 1.0f;    ///< of one element, for kd_strategy_SAH
    float cost_traversal = 2.0f;    ///< of one inner node, for kd_strategy_SAH
    float cost_factor = 0.95f;      ///< on the cost of a cut, for kd_strategy_SAH
    bool clean_splits_only = false; ///< for kd_strategy_SAH; no cut counts as unclean there
};

/// `kd_node::axis` of a leaf.
constexpr std::uint32_t kd_leaf_axis = 0xffffffffU;

/// One node: a plane with two children, or a range of `kd_tree::indices`. The functions read what
/// the kind of node has.
template <typename T> struct MORVA_API kd_node {
    std::uint32_t axis = kd_leaf_axis; ///< inner: 0, 1 or 2
    union {
        std::int64_t right;      ///< inner: index of the right child; the left one is next to it
        std::uint32_t first = 0; ///< leaf: start in `indices`
    };
    union {
        T plane;                 ///< inner: coordinate of the plane on `axis`
        std::uint32_t count = 0; ///< leaf: length of the range; 0 is legal
    };

    bool is_leaf() const { return axis == kd_leaf_axis; }
    /// Of an inner node: number of its right child.
    int right_child() const {
        assert(!is_leaf());
        return static_cast<int>(right);
    }
    /// Of an inner node: what lies below it on `axis` is on the left.
    T cut_plane() const {
        assert(!is_leaf());
        return plane;
    }
    /// Of a leaf: where its range of `kd_tree::indices` begins, and how long it is.
    std::uint32_t range_first() const {
        assert(is_leaf());
        return first;
    }
    std::uint32_t range_count() const {
        assert(is_leaf());
        return count;
    }
};

/// The tree. `node_count + 1` nodes and `index_count` indices are in use; the leaves' ranges lie
/// end to end in `indices`, in the order of the nodes.
template <typename T> struct MORVA_API kd_tree {
    kd_node<T>* nodes = nullptr;         ///< `node_capacity` entries, owned
    std::uint64_t* indices = nullptr;    ///< `index_capacity` entries, owned: element numbers
    std::uint64_t index_capacity = 0;    ///< entries
    std::uint64_t index_count = 0;       ///< entries in use
    std::uint64_t node_capacity = 0;     ///< entries
    std::uint64_t node_count = 0;        ///< nodes below the root: the root is not counted
    std::uint64_t leaf_count = 0;        ///< leaves
    std::uint64_t max_depth_reached = 0; ///< of the nodes that were asked for a plane
    std::uint64_t max_leaf_size = 0;     ///< indices of the fullest leaf
    double factor = 1.0;                 ///< set by every build, read by none

    kd_tree() = default;
    kd_tree(const kd_tree&) = delete;
    kd_tree& operator=(const kd_tree&) = delete;
    ~kd_tree() { release(); }

    /// Makes room for the node of this index: doubles, at least, and keeps what is there.
    void check_resize(unsigned long node) {
        if (node >= node_capacity)
            resize_nodes(std::max<std::uint64_t>(2 * node, node + 1));
    }

    /// Gives the node array `capacity` entries and keeps the old nodes that fit.
    void resize_nodes(std::uint64_t capacity) {
        std::unique_ptr<kd_node<T>[]> grown(new kd_node<T>[capacity]);
        std::copy_n(nodes, std::min(capacity, node_capacity), grown.get());
        delete[] nodes;
        nodes = grown.release();
        node_capacity = capacity;
    }

    /// Gives the index array `capacity` entries and keeps the old indices that fit; new entries
    /// have no value yet.
    void resize_indices(std::uint64_t capacity) {
        std::unique_ptr<std::uint64_t[]> grown(new std::uint64_t[capacity]);
        std::copy_n(indices, std::min(capacity, index_count), grown.get());
        delete[] indices;
        indices = grown.release();
        index_capacity = capacity;
        index_count = std::min(capacity, index_count);
    }

    /// Frees both arrays, and forgets all that was built.
    void release() {
        delete[] nodes;
        delete[] indices;
        nodes = nullptr;
        indices = nullptr;
        index_capacity = index_count = node_capacity = 0;
        clear_statistics();
    }

    void clear_statistics() {
        node_count = leaf_count = max_depth_reached = max_leaf_size = 0;
        factor = 1.0;
    }
};

/// The tree of an empty geoset: one leaf with no element. One index exists nevertheless.
template <typename Geoset, typename T> void createEmptyTree(Geoset& /*geoset*/, kd_tree<T>& tree) {
    tree.release();
    tree.resize_indices(2);
    tree.indices[0] = 0;
    tree.index_count = 1;
    tree.resize_nodes(2);
    tree.nodes[0] = kd_node<T>();
    tree.leaf_count = 1;
}

/// Empties a tree and makes it ready for process_node() from node 0 over `elements` elements:
/// indices 0, 1, 2 and so on, room for twice as many, and room for the nodes to be expected.
template <typename T>
void prepare_tree(kd_tree<T>& tree, std::uint64_t elements, const kd_build_setup& setup) {
    tree.release();
    tree.resize_indices(2 * elements);
    for (std::uint64_t i = 0; i < elements; ++i)
        tree.indices[i] = i;
    tree.index_count = elements;

    std::uint64_t hint = 10;
    if (setup.max_depth >= 2 && setup.max_elements > 0)
        hint = std::max(hint, elements / setup.max_elements);
    tree.resize_nodes(2 * hint);
}

} // namespace morva
