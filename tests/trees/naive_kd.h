#pragma once

// The kd build once more, as plain as it can be said: one growing index list in which every sort
// shifts the tail, planes from literal sweeps over ordered maps. The oracle of the tree tests.

#include <morva/trees/kd_records.h>
#include <morva/trees/kd_strategies.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iostream>
#include <map>
#include <set>
#include <type_traits>
#include <vector>

namespace morva_test {

/// The bounds of some elements on one axis, in order. Each tally is stored raised and then stored
/// again as it was, so that none ever leaves 0.
template <typename Key> struct sweep_line {
    using tallies = std::map<Key, std::uint32_t>;
    tallies starts, ends, flats;
    std::set<Key> candidates;

    static void tally(tallies& map, Key key) {
        const std::uint32_t before = map[key];
        map[key] = before + 1;
        map[key] = before;
    }
    void fill(Key lo, Key hi) {
        if (lo == hi) {
            tally(flats, lo);
            candidates.insert(lo);
        } else {
            tally(starts, lo);
            tally(ends, hi);
            candidates.insert(lo);
            candidates.insert(hi);
        }
    }
    /// evaluate(candidate, left, straddling, right), in ascending order.
    template <typename Evaluate> void sweep(std::uint32_t count, Evaluate evaluate) const {
        std::uint32_t left = 0, straddling = 0, right = count;
        auto start = starts.begin(), end = ends.begin(), flat = flats.begin();
        for (const Key c : candidates) {
            for (; start != starts.end() && start->first < c; ++start) {
                left += start->second;
                straddling += start->second;
            }
            for (; end != ends.end() && end->first <= c; ++end) {
                right -= end->second;
                straddling -= end->second;
            }
            for (; flat != flats.end() && flat->first < c; ++flat) {
                left += flat->second;
                right -= flat->second;
            }
            evaluate(c, left, straddling, right);
        }
    }
};

/// Extent of one element; for points both ends are the coordinate.
template <typename Geoset>
void read_extent(const Geoset& geoset, int axis, std::uint64_t e, float& lo, float& hi) {
    using morva::extents_on_axis;
    extents_on_axis(geoset, axis).read(e, lo, hi);
}

/// Sweeps over the bounds of a range on one axis; with `tell_nan` a NaN is told and left out.
template <typename Key, typename Geoset, typename Evaluate>
void sweep_range(const Geoset& geoset, const std::vector<std::uint64_t>& range, int axis,
                 bool tell_nan, Evaluate evaluate) {
    sweep_line<Key> line;
    for (const std::uint64_t e : range) {
        float lo = 0, hi = 0;
        read_extent(geoset, axis, e, lo, hi);
        if (!tell_nan || (!std::isnan(lo) && !std::isnan(hi))) {
            line.fill(Key(lo), Key(hi));
            continue;
        }
        std::cout << "Found NAN in kd_strategy_ObjMedian!" << std::endl;
        std::cout << "AXIS: " << axis << " Index: " << e << " MIN: " << lo << " MAX: " << hi
                  << std::endl;
    }
    line.sweep(std::uint32_t(range.size()), evaluate);
}

template <typename Geoset>
float naive_plane(const morva::kd_strategy_median&, const Geoset&, const morva::kd_build_setup&,
                  const std::vector<std::uint64_t>&, const morva::float_box& box, int& axis) {
    return box.extent[std::size_t(axis)] * 0.5f + box.min[std::size_t(axis)];
}

template <typename Geoset>
float naive_plane(const morva::kd_strategy_ObjMedian&, const Geoset& geoset,
                  const morva::kd_build_setup&, const std::vector<std::uint64_t>& range,
                  const morva::float_box& box, int& axis) {
    std::uint32_t best = 0xffffffffU;
    bool found = false;
    int best_axis = axis;
    float best_plane = box.min[std::size_t(axis)];
    for (int a = 0; a < 3; ++a) {
        const auto evaluate = [&](double c, std::uint32_t left, std::uint32_t straddling,
                                  std::uint32_t right) {
            const std::uint32_t cost = (left > right ? left - right : right - left) + straddling;
            if (cost >= best || left == 0 || right == 0)
                return;
            best = cost;
            best_plane = float(c);
            best_axis = a;
            found = true;
        };
        sweep_range<double>(geoset, range, a, true, evaluate);
    }
    if (!found)
        return 0.5f * box.extent[std::size_t(axis)] + box.min[std::size_t(axis)];
    axis = best_axis;
    return best_plane;
}

template <typename Geoset>
float naive_plane(const morva::kd_strategy_SAH&, const Geoset& geoset,
                  const morva::kd_build_setup& setup, const std::vector<std::uint64_t>& range,
                  const morva::float_box& box, int& axis) {
    const float ex = box.extent[0], ey = box.extent[1], ez = box.extent[2];
    const float area = 2.0f * (ex * ez + (ey * ez + ex * ey));
    float best = float(range.size()) * setup.cost_intersect;
    int best_axis = axis;
    float best_plane = box.min[std::size_t(axis)];
    for (int a = 0; a < 3; ++a) {
        const std::size_t k = std::size_t(a);
        const float u = box.extent[(k + 1) % 3], w = box.extent[(k + 2) % 3];
        const float left_base = w * u - u * box.min[k] - box.min[k] * w;
        const float right_base = w * u + u * box.max[k] + box.max[k] * w;
        const auto evaluate = [&](float c, std::uint32_t left, std::uint32_t straddling,
                                  std::uint32_t right) {
            if (straddling != 0 && setup.clean_splits_only)
                return;
            const float p_left = 2.0f * (left_base + u * c + w * c) / area;
            const float p_right = 2.0f * (right_base - u * c - w * c) / area;
            const float cost_a =
                (float(left + straddling) * p_left + float(right) * p_right) * setup.cost_intersect;
            const float cost_b =
                (float(left) * p_left + float(right + straddling) * p_right) * setup.cost_intersect;
            float cost = std::min(cost_b, cost_a) * setup.cost_factor + setup.cost_traversal;
            if (straddling == 0 && left >= 1 && right >= 1)
                cost *= 0.8f;
            if (!(best > cost))
                return;
            best = cost;
            best_plane = c;
            best_axis = a;
        };
        sweep_range<float>(geoset, range, a, false, evaluate);
    }
    axis = best_axis;
    return best_plane;
}

/// Nodes and indices as the build should leave them.
struct naive_tree {
    std::vector<morva::kd_node<float>> nodes;
    std::vector<std::uint64_t> indices;
    std::uint64_t leaf_count = 0, max_depth_reached = 0, max_leaf_size = 0;

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
