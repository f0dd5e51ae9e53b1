#pragma once

// Both kinds of trees once more, as plain as can be said: nodes in vectors, a function that
// recurses for every child, planes of a bih found after the sort; of a kd-tree planes from literal
// sweeps over ordered bounds, and one growing index list in which every sort shifts the tail.

#include "test_geosets.h"

#include <numeric>

#include <morva/trees/bih_tree.h>
#include <morva/trees/kd_tree.h>
#include <morva/trees/tree_ranges.h>

namespace morva_test {

using morva::avg_depth_node;
using morva::extents_on_axis;
using morva::refresh_bounding_box;
using morva::triangle_count;

struct naive_node {
    std::int64_t right = -1;
    int axis = -1;
    float left_plane = 0, right_plane = 0; ///< of a kd-tree the left one alone
    std::uint64_t first = 0, count = 0;

    bool is_leaf() const { return axis < 0; }
};
inline morva::index_range range_of(const naive_node& leaf) { return {leaf.first, leaf.count}; }

/// Nodes and indices as a build should leave them.
struct naive_tree {
    std::vector<naive_node> nodes;
    std::vector<std::uint64_t> indices;
    std::uint64_t leaves = 0, deepest = 0, fullest = 0, held = 0; ///< held: by all leaves
    float sum_of_depths = 0;                                      ///< of the leaves

    explicit naive_tree(std::uint64_t elements) : indices(elements) {
        std::iota(indices.begin(), indices.end(), std::uint64_t(0));
    }
    void leaf(std::uint64_t first, std::uint64_t count, unsigned depth) {
        nodes.emplace_back();
        nodes.back().first = first;
        nodes.back().count = count;
        ++leaves;
        held += count;
        fullest = std::max(fullest, count);
        sum_of_depths += float(depth);
    }
    std::size_t inner(unsigned depth) {
        deepest = std::max<std::uint64_t>(deepest, depth);
        nodes.emplace_back();
        return nodes.size() - 1;
    }
};

inline float2 planes_of(const naive_node& n) { return {n.left_plane, n.right_plane}; }
inline float2 planes_of(const morva::bih_node<float>& n) { return {n.left_plane, n.right_plane}; }
inline float2 planes_of(const morva::kd_node<float>& n) { return {n.cut_plane(), 0}; }

/// Nodes as plain numbers, planes to the last bit.
template <typename Nodes>
std::vector<std::array<std::int64_t, 4>> numbers_of(const Nodes& nodes, std::uint64_t count) {
    std::vector<std::array<std::int64_t, 4>> numbers;
    for (std::uint64_t i = 0; i < count; ++i) {
        if (nodes[i].is_leaf()) {
            const auto [first, size] = range_of(nodes[i]);
            numbers.push_back({-1, -1, std::int64_t(first), std::int64_t(size)});
        } else {
            const auto [left, right] = planes_of(nodes[i]);
            numbers.push_back({nodes[i].axis, nodes[i].right, bits_of(left), bits_of(right)});
        }
    }
    return numbers;
}

template <typename Tree> void expect_same(const Tree& tree, const naive_tree& twin) {
    EXPECT_EQ(numbers_of(tree.nodes, tree.node_count + 1),
              numbers_of(twin.nodes, twin.nodes.size()));
    EXPECT_EQ(std::vector(tree.indices, tree.indices + tree.index_count), twin.indices);
    EXPECT_EQ(tree.leaf_count, twin.leaves);
    EXPECT_EQ(tree.max_depth_reached, twin.deepest);
    EXPECT_EQ(tree.max_leaf_size, twin.fullest);
    EXPECT_EQ(triangle_count<float>(tree, 0), twin.held);
    EXPECT_EQ(triangle_count<float>(tree, unsigned(twin.nodes.size())), 0U);
}

/// The last of the longest.
inline int longest_of(const morva::float_box& box) {
    int axis = 0;
    for (const int a : {1, 2})
        axis = box.extent[std::size_t(axis)] > box.extent[std::size_t(a)] ? axis : a;
    return axis;
}

inline morva::float_box half_of(morva::float_box box, int axis, float plane, bool left) {
    (left ? box.max : box.min)[std::size_t(axis)] = plane;
    box.refresh_extent();
    return box;
}

/// The box of boxes, by the first one and what compares with it.
inline box3 hull_of(const std::vector<box3>& boxes) {
    box3 all = boxes[0];
    for (const box3& box : boxes)
        for (std::size_t a = 0; a < 3; ++a)
            all[a] = {box[a][0] < all[a][0] ? box[a][0] : all[a][0],
                      box[a][1] > all[a][1] ? box[a][1] : all[a][1]};
    return all;
}

inline morva::float_box naive_box(const std::vector<box3>& boxes) {
    const box3 all = hull_of(boxes);
    morva::float_box box;
    box.min = {all[0][0], all[1][0], all[2][0]};
    box.max = {all[0][1], all[1][1], all[2][1]};
    box.refresh_extent();
    return box;
}

/// Divides a range of a bih.
inline void naive_divide(naive_tree& tree, const std::vector<box3>& extents, std::uint64_t first,
                         std::uint64_t count, const morva::float_box& box, unsigned depth,
                         const morva::build_setup& setup) {
    const std::size_t node = tree.inner(depth);
    const int axis = longest_of(box);
    const auto a = std::size_t(axis);
    const float split = box.extent[a] * 0.5f + box.min[a];
    std::uint64_t left = 0;
    for (std::uint64_t k = first; k < first + count; ++k) {
        const auto [low, high] = extents[tree.indices[k]][a];
        if (split > (high - low) * 0.5f + low)
            std::swap(tree.indices[k], tree.indices[first + left++]);
    }
    float left_plane = box.min[a], right_plane = box.max[a];
    for (std::uint64_t k = first; k < first + count; ++k) {
        const auto [low, high] = extents[tree.indices[k]][a];
        if (k < first + left && high > left_plane)
            left_plane = high;
        if (k >= first + left && low < right_plane)
            right_plane = low;
    }
    const float w = (box.max[a] - box.min[a]) * 0.01f;
    const auto child = [&](std::uint64_t at, std::uint64_t size, bool is_left) {
        if (size > setup.max_elements && depth < std::min(setup.max_depth, 1000U))
            naive_divide(tree, extents, at, size, half_of(box, axis, split, is_left), depth + 1,
                         setup);
        else
            tree.leaf(at, size, depth + 1);
    };
    child(first, left, true);
    const auto right = std::int64_t(tree.nodes.size());
    tree.nodes[node] = {right, axis, left_plane + w, right_plane - w};
    child(first + left, count - left, false);
}

inline naive_tree naive_bih(const std::vector<box3>& extents, const morva::float_box& box,
                            const morva::build_setup& setup) {
    naive_tree tree(extents.size());
    naive_divide(tree, extents, 0, extents.size(), box, 0, setup);
    return tree;
}

/// Extent of one element; for points both ends are the coordinate.
template <typename Geoset> float2 extent_of(const Geoset& geoset, int axis, std::uint64_t e) {
    float2 extent{};
    extents_on_axis(geoset, axis).read(e, extent[0], extent[1]);
    return extent;
}

/// The plane of a strategy: the middle of the longest axis, after a word on each NaN or none; or
/// the best of a sweep over all bounds in order, where what lies left of a bound or across it
/// counts as nothing.
template <typename Strategy, typename Geoset>
float naive_plane(const Geoset& geoset, const morva::kd_build_setup& setup,
                  const std::vector<std::uint64_t>& range, const morva::float_box& box, int& axis) {
    constexpr bool sweeps = std::is_same_v<Strategy, morva::kd_strategy_SAH>;
    constexpr bool speaks = std::is_same_v<Strategy, morva::kd_strategy_ObjMedian>;
    const auto& size = box.extent;
    const float area = 2.0f * (size[0] * size[2] + (size[1] * size[2] + size[0] * size[1]));
    const float none = 0, right = float(range.size());
    const float middle = size[std::size_t(axis)] * 0.5f + box.min[std::size_t(axis)];
    float best = right * setup.cost_intersect, best_plane = box.min[std::size_t(axis)];
    for (std::size_t k = 0; k < 3; ++k) {
        std::set<float> bounds; // a NaN in front equals all that come behind it
        for (const std::uint64_t e : range) {
            const auto [lo, hi] = extent_of(geoset, int(k), e);
            if (speaks && (std::isnan(lo) || std::isnan(hi)))
                std::cout << "Found NAN in kd_strategy_ObjMedian!\nAXIS: " << k << " Index: " << e
                          << " MIN: " << lo << " MAX: " << hi << "\n";
            bounds.insert(lo);
            if (lo != hi)
                bounds.insert(hi);
        }
        const float u = size[(k + 1) % 3], w = size[(k + 2) % 3];
        const float left_base = w * u - u * box.min[k] - box.min[k] * w;
        const float right_base = w * u + u * box.max[k] + box.max[k] * w;
        for (const float c : bounds) {
            const float p_left = 2.0f * (left_base + u * c + w * c) / area;
            const float p_right = 2.0f * (right_base - u * c - w * c) / area;
            const float side = (none * p_left + right * p_right) * setup.cost_intersect;
            const float cost = side * setup.cost_factor + setup.cost_traversal;
            if (sweeps && best > cost) {
                best = cost;
                best_plane = c;
                axis = int(k);
            }
        }
    }
    return sweeps ? best_plane : middle;
}

/// Sorts a range of the list, shifting what lies behind it; returns the left count.
template <typename Geoset>
std::uint64_t naive_sort(Geoset& geoset, std::vector<std::uint64_t>& indices, std::uint64_t first,
                         std::uint64_t count, float plane, int axis, int mode) {
    constexpr bool points = decltype(extents_on_axis(geoset, 0))::flat;
    std::vector<std::uint64_t> lefts, rights;
    std::uint64_t left = 0;
    for (std::uint64_t p = first; p < first + count; ++p) {
        const std::uint64_t e = indices[p];
        auto [lo, hi] = extent_of(geoset, axis, e);
        if (lo >= plane)
            continue;
        bool goes_left = points || plane >= hi;
        if (!goes_left && mode == 2) {
            rights.push_back(e);
            goes_left = true;
        } else if (!goes_left) {
            if constexpr (morva::detail::cuts_elements<Geoset>::value) {
                int pieces = 0;
                unsigned long piece = 0;
                if (mode == 1)
                    geoset.splitElement(e, double(plane), axis, pieces, piece);
                for (; pieces > 0; --pieces, ++piece)
                    (plane >= geoset.axis_max[axis][piece] ? lefts : rights).push_back(piece);
            }
            const auto [low, high] = extent_of(geoset, axis, e);
            goes_left = plane > (high - low) * 0.5f + low;
        }
        if (goes_left)
            std::swap(indices[p], indices[first + left++]);
    }
    const std::uint64_t left_of_all = left + lefts.size();
    lefts.insert(lefts.end(), rights.begin(), rights.end());
    indices.insert(indices.begin() + std::ptrdiff_t(first + left), lefts.begin(), lefts.end());
    return left_of_all;
}

/// Builds a kd-tree over a range.
template <typename Strategy, typename Geoset>
void naive_build(naive_tree& tree, Geoset& geoset, std::uint64_t first, std::uint64_t count,
                 const morva::float_box& box, unsigned depth, const morva::kd_build_setup& setup) {
    const auto begin = tree.indices.begin() + std::ptrdiff_t(first);
    int axis = longest_of(box);
    float plane = 0;
    bool stop = count < setup.max_elements || depth >= setup.max_depth;
    if (!stop) {
        plane =
            naive_plane<Strategy>(geoset, setup, {begin, begin + std::ptrdiff_t(count)}, box, axis);
        stop = plane == box.min[std::size_t(axis)] || plane == box.max[std::size_t(axis)];
    }
    if (stop) {
        tree.deepest = std::max<std::uint64_t>(tree.deepest, depth);
        return tree.leaf(first, count, depth);
    }
    const std::size_t node = tree.inner(depth);
    const std::uint64_t before = tree.indices.size();
    const std::uint64_t left =
        naive_sort(geoset, tree.indices, first, count, plane, axis, setup.straddle_mode);
    const std::uint64_t right = count + tree.indices.size() - before - left;
    const auto child = [&](std::uint64_t size, bool is_left) {
        const std::uint64_t at =
            first + (is_left ? 0 : tree.indices.size() - before + count - right);
        if (size > setup.max_elements && depth < setup.max_depth)
            naive_build<Strategy>(tree, geoset, at, size, half_of(box, axis, plane, is_left),
                                  depth + 1, setup);
        else
            tree.leaf(at, size, depth + 1);
    };
    child(left, true);
    tree.nodes[node].right = std::int64_t(tree.nodes.size());
    tree.nodes[node].axis = axis;
    tree.nodes[node].left_plane = plane;
    child(right, false);
}

} // namespace morva_test
