#pragma once

// The kd build once more, as plain as it can be said: one growing index list in which every sort
// shifts the tail, planes from literal sweeps over ordered bounds. The oracle of the tree tests.

#include "tests/support/test.h"

#include <morva/trees/kd_strategies.h>

namespace morva_test {

/// Extent of one element; for points both ends are the coordinate.
template <typename Geoset>
void read_extent(const Geoset& geoset, int axis, std::uint64_t e, float& lo, float& hi) {
    using morva::extents_on_axis;
    extents_on_axis(geoset, axis).read(e, lo, hi);
}

/// The bounds of a range on one axis, in order. A NaN in front equals all that come behind it.
template <typename Geoset>
std::set<float> bounds_of(const Geoset& geoset, const std::vector<std::uint64_t>& range, int axis) {
    std::set<float> bounds;
    for (const std::uint64_t e : range) {
        float lo = 0, hi = 0;
        read_extent(geoset, axis, e, lo, hi);
        bounds.insert(lo);
        if (lo != hi)
            bounds.insert(hi);
    }
    return bounds;
}

template <typename Geoset>
float naive_plane(const morva::kd_strategy_median&, const Geoset&, const morva::kd_build_setup&,
                  const std::vector<std::uint64_t>&, const morva::float_box& box, int& axis) {
    return box.extent[std::size_t(axis)] * 0.5f + box.min[std::size_t(axis)];
}

template <typename Geoset>
float naive_plane(const morva::kd_strategy_ObjMedian&, const Geoset& geoset,
                  const morva::kd_build_setup& setup, const std::vector<std::uint64_t>& range,
                  const morva::float_box& box, int& axis) {
    for (int a = 0; a < 3; ++a) {
        for (const std::uint64_t e : range) {
            float lo = 0, hi = 0;
            read_extent(geoset, a, e, lo, hi);
            if (std::isnan(lo) || std::isnan(hi))
                std::cout << "Found NAN in kd_strategy_ObjMedian!\nAXIS: " << a << " Index: " << e
                          << " MIN: " << lo << " MAX: " << hi << "\n";
        }
    }
    return naive_plane(morva::kd_strategy_median(), geoset, setup, range, box, axis);
}

/// The sweep over all bounds in order; what lies left of a bound or across it counts as nothing.
template <typename Geoset>
float naive_plane(const morva::kd_strategy_SAH&, const Geoset& geoset,
                  const morva::kd_build_setup& setup, const std::vector<std::uint64_t>& range,
                  const morva::float_box& box, int& axis) {
    const float ex = box.extent[0], ey = box.extent[1], ez = box.extent[2];
    const float area = 2.0f * (ex * ez + (ey * ez + ex * ey));
    const float none = 0, right = float(range.size());
    float best = right * setup.cost_intersect;
    float best_plane = box.min[std::size_t(axis)];
    for (int a = 0; a < 3; ++a) {
        const std::size_t k = std::size_t(a);
        const float u = box.extent[(k + 1) % 3], w = box.extent[(k + 2) % 3];
        const float left_base = w * u - u * box.min[k] - box.min[k] * w;
        const float right_base = w * u + u * box.max[k] + box.max[k] * w;
        for (const float c : bounds_of(geoset, range, a)) {
            const float p_left = 2.0f * (left_base + u * c + w * c) / area;
            const float p_right = 2.0f * (right_base - u * c - w * c) / area;
            const float side = (none * p_left + right * p_right) * setup.cost_intersect;
            const float cost = side * setup.cost_factor + setup.cost_traversal;
            if (!(best > cost))
                continue;
            best = cost;
            best_plane = c;
            axis = a;
        }
    }
    return best_plane;
}

/// Nodes and indices as the build should leave them.
struct naive_tree {
    std::vector<morva::kd_node<float>> nodes;
    std::vector<std::uint64_t> indices;
    std::uint64_t leaf_count = 0, max_depth_reached = 0, max_leaf_size = 0;
    std::string told; ///< what was printed on the way

    void put(std::uint64_t node, const morva::kd_node<float>& record) {
        if (nodes.size() <= node)
            nodes.resize(node + 1);
        nodes[node] = record;
    }
    void put_leaf(std::uint64_t node, std::uint64_t first, std::uint64_t count) {
        morva::kd_node<float> leaf;
        leaf.first = std::uint32_t(first);
        leaf.count = std::uint32_t(count);
        put(node, leaf);
        ++leaf_count;
        max_leaf_size = std::max(max_leaf_size, count);
    }
};

/// Sorts a range of the list, shifting what lies behind it; returns the left count.
template <typename Geoset>
std::uint64_t naive_sort(Geoset& geoset, std::vector<std::uint64_t>& indices, std::uint64_t first,
                         std::uint64_t count, float plane, int axis, int mode,
                         std::uint64_t& added) {
    using morva::extents_on_axis;
    constexpr bool points = decltype(extents_on_axis(geoset, 0))::flat;
    std::vector<std::uint64_t> lefts, rights;
    std::uint64_t left = 0;
    for (std::uint64_t p = first; p < first + count; ++p) {
        const std::uint64_t e = indices[p];
        float lo = 0, hi = 0;
        read_extent(geoset, axis, e, lo, hi);
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
                read_extent(geoset, axis, e, lo, hi);
            }
            goes_left = plane > (hi - lo) * 0.5f + lo;
        }
        if (goes_left)
            std::swap(indices[p], indices[first + left++]);
    }
    added = lefts.size() + rights.size();
    lefts.insert(lefts.end(), rights.begin(), rights.end());
    const std::uint64_t left_pieces = added - rights.size();
    indices.insert(indices.begin() + std::ptrdiff_t(first + left), lefts.begin(), lefts.end());
    return left + left_pieces;
}

/// Returns the number of indices added below the node. `next` is the number of the next node.
template <typename Geoset, typename Strategy>
std::uint64_t naive_build(naive_tree& tree, std::uint64_t& next, Geoset& geoset,
                          std::uint64_t first, std::uint64_t count, const morva::float_box& box,
                          unsigned int depth, const morva::kd_build_setup& setup,
                          const Strategy& strategy) {
    const std::uint64_t node = next++;
    tree.max_depth_reached = std::max<std::uint64_t>(tree.max_depth_reached, depth);
    const auto& size = box.extent;
    int axis = size[0] > size[1] ? (size[0] > size[2] ? 0 : 2) : (size[1] > size[2] ? 1 : 2);
    float plane = 0;
    bool stop = count < setup.max_elements || !(depth < setup.max_depth);
    if (!stop) {
        const auto begin = tree.indices.begin() + std::ptrdiff_t(first);
        plane =
            naive_plane(strategy, geoset, setup, {begin, begin + std::ptrdiff_t(count)}, box, axis);
        stop = plane == box.min[std::size_t(axis)] || plane == box.max[std::size_t(axis)];
    }
    if (stop) {
        tree.put_leaf(node, first, count);
        return 0;
    }
    std::uint64_t added = 0;
    const std::uint64_t left =
        naive_sort(geoset, tree.indices, first, count, plane, axis, setup.straddle_mode, added);
    const auto child = [&](std::uint64_t at, std::uint64_t size_of, bool is_left) {
        if (!(size_of > setup.max_elements && depth < setup.max_depth)) {
            tree.put_leaf(next++, at, size_of);
            return std::uint64_t(0);
        }
        morva::float_box half = box;
        (is_left ? half.max : half.min)[std::size_t(axis)] = plane;
        half.refresh_extent();
        return naive_build(tree, next, geoset, at, size_of, half, depth + 1, setup, strategy);
    };
    const std::uint64_t below_left = child(first, left, true);
    morva::kd_node<float> inner;
    inner.axis = std::uint32_t(axis);
    inner.plane = plane;
    inner.right = std::int64_t(next);
    tree.put(node, inner);
    const std::uint64_t below_right = child(first + left + below_left, count + added - left, false);
    return added + below_left + below_right;
}

} // namespace morva_test
