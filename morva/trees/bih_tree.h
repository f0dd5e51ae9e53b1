#pragma once

// A bounding interval hierarchy sorts elements without copying or cutting them: each element
// sits in exactly one leaf, and the leaves are ranges of one index array, end to end.
//
//        0 x             nodes    0  1  2  3  4     pre-order, left child of i is i + 1
//       /   \            indices  7 2 | 5 | 0 1     leaf 1, leaf 3, leaf 4
//      1     2 y
//           / \          bih_tree<float> tree;
//          3   4         compile(geoset, tree, build_setup{3, 50});
//                        fire_ray_rec(tree, 0, geoset, ...);           // trees/ray_traversal.h
//
// Any geoset that trees/geoset_access.h can read will do: osg_geoset, geo_set_convertable and
// geosets of whole scenes. Space is halved, whatever lies in it; only the planes follow the
// elements. So a pile of equal elements, which no plane divides, costs one level after the other
// down to `max_depth`: at most the larger of 2 and 2 (max_depth + 1) n / (max_elements + 1) nodes
// below the root for n elements.
//
// One owner while building; any number of readers afterwards. A tree that is built again, or
// released, must have no reader.
// Method: "Instant Ray Tracing: The Bounding Interval Hierarchy", 2006.

#include <morva/core/morva_validate.h>
#include <morva/trees/bih_records.h>
#include <morva/trees/bih_rules.h>
#include <morva/trees/geoset_access.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace morva {
namespace detail {

/// Elements and nodes are counted in 31 bits.
inline void check_bih_count(std::uint64_t count) {
    if (count > static_cast<std::uint64_t>(std::numeric_limits<std::int32_t>::max()))
        throw std::length_error("too many elements for a bih_tree");
}

/// Builds a tree from one node on, in pre-order.
template <typename Geoset, typename Box> class bih_builder {
  public:
    using scalar = typename Geoset::scalar_type;

    bih_builder(bih_tree<scalar>& tree, const Geoset& geoset, const build_setup& setup)
        : tree_(tree), geoset_(geoset), max_elements_(setup.max_elements),
          max_depth_(std::min(setup.max_depth, bih_depth_limit)) {}

    /// Divides the range of a node and builds what is below it.
    void divide(std::uint64_t node, std::uint64_t first, std::uint64_t count, const Box& box,
                std::uint32_t depth) {
        tree_.check_resize(node);
        tree_.max_depth_reached = std::max<std::uint64_t>(tree_.max_depth_reached, depth);
        const int axis = longest_axis(box);
        const auto a = static_cast<std::size_t>(axis);
        const scalar middle = box.extent[a] * scalar(0.5f) + box.min[a];
        const cut here = partition(first, count, axis, middle, box.min[a], box.max[a]);
        const scalar spare = (box.max[a] - box.min[a]) * scalar(0.01f);

        // By index: the nodes move where there is no more room for them.
        tree_.nodes[node].axis = axis;
        tree_.nodes[node].left_plane = here.left_plane + spare;
        tree_.nodes[node].right_plane = here.right_plane - spare;
        child(next_node(), first, here.left, box, a, true, middle, depth);
        const std::uint64_t right = next_node();
        tree_.nodes[node].right = static_cast<std::int64_t>(right);
        child(right, first + here.left, count - here.left, box, a, false, middle, depth);
    }

  private:
    /// What the division of a range gave.
    struct cut {
        std::uint64_t left; ///< elements on the left; they come first
        scalar left_plane;  ///< largest bound on the left, not yet widened
        scalar right_plane; ///< smallest bound on the right
    };

    /// Sends the elements whose centre is below `middle` left, and one with a NaN right. Not
    /// stable. Planes begin at the sides of the box, and no NaN moves them.
    cut partition(std::uint64_t first, std::uint64_t count, int axis, scalar middle, scalar low,
                  scalar high) {
        const auto extents = extents_on_axis(geoset_, axis);
        std::uint64_t* const range = tree_.indices + first;
        cut result{0, low, high};
        scalar lo{}, hi{};
        for (std::uint64_t p = 0; p < count; ++p) {
            extents.read(range[p], lo, hi);
            if (middle > (hi - lo) * scalar(0.5f) + lo) {
                if (hi > result.left_plane)
                    result.left_plane = hi;
                std::swap(range[p], range[result.left++]);
            } else if (lo < result.right_plane) {
                result.right_plane = lo;
            }
        }
        return result;
    }

    std::uint64_t next_node() {
        check_bih_count(tree_.node_count + 2);
        return ++tree_.node_count;
    }

    /// Makes the child of a node of depth `depth`: a leaf, or divided itself.
    void child(std::uint64_t node, std::uint64_t first, std::uint64_t count, const Box& box,
               std::size_t axis, bool is_left, scalar middle, std::uint32_t depth) {
        if (count > max_elements_ && depth < max_depth_) {
            Box half = box;
            (is_left ? half.max : half.min)[axis] = middle;
            half.refresh_extent();
            divide(node, first, count, half, depth + 1);
            return;
        }
        tree_.check_resize(node);
        bih_node<scalar> leaf;
        leaf.first = static_cast<std::uint32_t>(first);
        leaf.count = static_cast<std::uint32_t>(count);
        tree_.nodes[node] = leaf;
        tree_.max_leaf_size = std::max(tree_.max_leaf_size, count);
        ++tree_.leaf_count;
    }

    bih_tree<scalar>& tree_;
    const Geoset& geoset_;
    const std::uint32_t max_elements_;
    const std::uint32_t max_depth_;
};

} // namespace detail

/// Divides a node and builds the subtree below it over a range of the tree's indices, without
/// asking whether it should be divided.
///
/// tree         `indices` hold the range; grows as needed, companions go
/// node         index of this node; its left child is node `tree.node_count + 1`, so that it is to
///              be the last one so far
/// first,count  the range in `tree.indices`; it is reordered
/// box          of the node, `extent` valid; children get halves of it, whatever they hold
/// depth        of this node; 0 for the root
///
/// A child is divided if it has more than `max_elements` elements and this node is above
/// `max_depth`, of which at most 1000 levels count. Elements go by their centre, one on the plane
/// to the right.
/// errors       std::bad_alloc; std::length_error for more than 2^31 - 1 nodes; the tree may be
///              released then, not used
template <typename Geoset, typename Box>
void process_node(bih_tree<typename Geoset::scalar_type>& tree, int node, const Geoset& geoset,
                  unsigned long first, unsigned long count, const Box& box, unsigned int depth,
                  const build_setup& setup) {
    tree.companions.drop();
    detail::bih_builder<Geoset, Box>(tree, geoset, setup)
        .divide(static_cast<std::uint64_t>(node), first, count, box, depth);
}

/// Builds the tree of a whole geoset in the place of what it held. Without elements nothing
/// happens: the tree stays as it was.
///
/// The geoset's box is brought up to date first, by refresh_bounding_box(): that of an osg_geoset
/// as it is, that of a geo_set_convertable with flat axes repaired. The root is always divided.
/// errors  std::length_error for more than 2^31 - 1 elements, before anything changes;
///         std::bad_alloc, or std::length_error for as many nodes: the tree is then empty and not
///         active
template <typename Geoset>
void compile(Geoset& geoset, bih_tree<typename Geoset::scalar_type>& tree,
             const build_setup& setup) {
    const std::uint64_t elements = element_count(geoset);
    if (elements == 0)
        return;
    detail::check_bih_count(elements);
    tree.release();
    try {
        tree.indices = new std::uint64_t[elements];
        tree.index_count = elements;
        std::iota(tree.indices, tree.indices + elements, std::uint64_t(0));
        tree.resize_nodes(2 * elements);
        const auto box = refresh_bounding_box(geoset);
        process_node(tree, 0, geoset, 0, elements, box, 0, setup);
    } catch (...) {
        tree.release();
        throw;
    }
    tree.active = 1;
    validate("compile", [&] { return broken_rule_of(tree, geoset, setup); });
}

/// Sum of the leaves' counts below `node`; 0 for a tree without nodes.
template <typename T> std::uint64_t triangle_count(const bih_tree<T>& tree, unsigned int node) {
    if (tree.nodes == nullptr || node > tree.node_count)
        return 0;
    const bih_node<T>& here = tree.nodes[node];
    if (here.is_leaf())
        return here.count;
    return triangle_count<T>(tree, node + 1) +
           triangle_count<T>(tree, static_cast<unsigned int>(here.right));
}

} // namespace morva
