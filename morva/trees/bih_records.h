#pragma once

// The records of a bounding interval hierarchy: its setup, its nodes, and the tree that owns nodes
// and indices. Include <morva/trees/bih_tree.h>, which tells how they are used.
//
// Both arrays are raw and owned by the tree. An array and its capacity change together, and new
// storage is there before the old one goes, so that a failed growth leaves the tree as it was.

#include <algorithm>
#include <cstdint>
#include <memory>

#include <morva/core/morva_export.h>
#include <morva/trees/bih_companions.h>

namespace morva {

/// How a tree is built; in use are (3, 50) for picking and (5, 100) for occlusion.
struct MORVA_API build_setup {
    std::uint32_t max_elements = 0; ///< a child with more is divided
    std::uint32_t max_depth = 0;    ///< children of a node this deep are leaves; at most 1000 count
};

namespace detail {

/// Levels below this are not made, however deep a setup wants to go: descents are recursive.
constexpr std::uint32_t bih_depth_limit = 1000;

} // namespace detail

/// One node. The intervals of an inner node's children may overlap or leave a gap; together they
/// cover every element below it, and 1 % of the node's box more on either side.
template <typename T> struct MORVA_API bih_node {
    std::int64_t right = -1; ///< inner: index of the right child; the left one is next to the node
    std::int32_t axis = -1;  ///< inner: 0, 1 or 2; leaf: -1
    union {
        T left_plane;            ///< inner: nothing on the left reaches above it
        std::uint32_t first = 0; ///< leaf: start in `bih_tree::indices`
    };
    union {
        T right_plane;           ///< inner: nothing on the right reaches below it
        std::uint32_t count = 0; ///< leaf: length of the range; 0 is legal
    };

    bool is_leaf() const { return axis == -1; }
};
static_assert(sizeof(bih_node<float>) == 24, "nodes lie end to end in 24 bytes each");

/// The tree. `node_count + 1` nodes are in use if there are any, in pre-order; the leaves' ranges
/// lie end to end in `indices`, in the order of the nodes, and hold each element once.
template <typename T> struct MORVA_API bih_tree {
    std::int64_t active = 0;             ///< 1 once a build has finished, 0 from the start of one
    bih_node<T>* nodes = nullptr;        ///< `node_capacity` entries, owned
    std::uint64_t node_capacity = 0;     ///< entries
    std::uint64_t* indices = nullptr;    ///< `index_count` entries, owned: element numbers
    std::uint64_t index_count = 0;       ///< entries
    std::uint64_t node_count = 0;        ///< nodes below the root: the root is not counted
    std::uint64_t leaf_count = 0;        ///< leaves
    std::uint64_t max_depth_reached = 0; ///< of the inner nodes
    std::uint64_t max_leaf_size = 0;     ///< elements of the fullest leaf
    bih_companions companions;           ///< leave with the arrays; see trees/bih_companions.h

    bih_tree() = default;
    bih_tree(const bih_tree&) = delete;
    bih_tree& operator=(const bih_tree&) = delete;
    ~bih_tree() { release(); }

    /// Makes room for the node of this index: doubles, at least 2, and keeps what is there.
    void check_resize(std::uint64_t node) {
        if (node >= node_capacity)
            resize_nodes(std::max<std::uint64_t>(2 * node, 2));
    }

    /// Gives the node array `capacity` entries and keeps the old nodes that fit.
    void resize_nodes(std::uint64_t capacity) {
        std::unique_ptr<bih_node<T>[]> grown(new bih_node<T>[capacity]);
        std::copy_n(nodes, std::min(capacity, node_capacity), grown.get());
        delete[] nodes;
        nodes = grown.release();
        node_capacity = capacity;
    }

    /// Frees both arrays and the companions, and forgets all that was built: not active.
    void release() {
        companions.drop();
        active = 0;
        delete[] nodes;
        delete[] indices;
        nodes = nullptr;
        indices = nullptr;
        node_capacity = index_count = 0;
        clear_statistics();
    }

    void clear_statistics() { node_count = leaf_count = max_depth_reached = max_leaf_size = 0; }
};

} // namespace morva
