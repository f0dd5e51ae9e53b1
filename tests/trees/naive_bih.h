#pragma once

// Bounding interval hierarchies and rays once more, as plain as can be: nodes in vectors, planes
// found after the sort, one function that recurses for every child.

#include "test_geosets.h"

#include <morva/trees/bih_tree.h>
#include <morva/trees/ray_traversal.h>

namespace morva_test {

using morva::float3;
using flat_triangles = std::vector<morva::float_triangle>;
using flat_list = morva::geo_set_convertable<morva::float_triangle, morva::float_triangle>;
using ray_hit = morva::intersection_point<float, float3, float3>;

inline flat_list list_of(flat_triangles& triangles) {
    flat_list list;
    list.triangles = triangles.data();
    list.count = triangles.size();
    return list;
}

/// Extents of triangles, by the first corner and what compares with it.
inline std::vector<box3> extents_of(const flat_triangles& triangles) {
    std::vector<box3> extents;
    for (const auto& t : triangles) {
        extents.emplace_back();
        for (std::size_t a = 0; a < 3; ++a) {
            auto& [low, high] = extents.back()[a];
            low = high = t.a[a];
            for (const float x : {t.b[a], t.c[a]}) {
                low = x < low ? x : low;
                high = x > high ? x : high;
            }
        }
    }
    return extents;
}

struct naive_bih_node {
    std::int64_t right = -1;
    int axis = -1;
    float left_plane = 0, right_plane = 0;
    std::uint64_t first = 0, count = 0;
};

struct naive_bih {
    std::vector<naive_bih_node> nodes;
    std::vector<std::uint64_t> indices;
    std::uint64_t leaves = 0, deepest = 0, fullest = 0;

    naive_bih(const std::vector<box3>& extents, const morva::float_box& box,
              const morva::build_setup& setup) {
        for (std::uint64_t e = 0; e < extents.size(); ++e)
            indices.push_back(e);
        nodes.emplace_back();
        divide(0, 0, extents.size(), box, 0, setup, extents);
    }

    void divide(std::size_t node, std::uint64_t first, std::uint64_t count,
                const morva::float_box& box, unsigned depth, const morva::build_setup& setup,
                const std::vector<box3>& extents) {
        deepest = std::max<std::uint64_t>(deepest, depth);
        std::size_t axis = 0; // the last of the longest
        for (const std::size_t a : {1, 2})
            axis = box.extent[axis] > box.extent[a] ? axis : a;
        const float split = box.extent[axis] * 0.5f + box.min[axis];
        std::uint64_t left = 0;
        for (std::uint64_t k = first; k < first + count; ++k) {
            const auto [low, high] = extents[indices[k]][axis];
            if (split > (high - low) * 0.5f + low)
                std::swap(indices[k], indices[first + left++]);
        }
        float left_plane = box.min[axis], right_plane = box.max[axis];
        for (std::uint64_t k = first; k < first + count; ++k) {
            const auto [low, high] = extents[indices[k]][axis];
            if (k < first + left && high > left_plane)
                left_plane = high;
            if (k >= first + left && low < right_plane)
                right_plane = low;
        }
        const float w = (box.max[axis] - box.min[axis]) * 0.01f;
        nodes[node].axis = int(axis);
        nodes[node].left_plane = left_plane + w;
        nodes[node].right_plane = right_plane - w;
        morva::float_box half = box;
        half.max[axis] = split;
        child(first, left, half, depth, setup, extents);
        nodes[node].right = std::int64_t(nodes.size());
        half = box;
        half.min[axis] = split;
        child(first + left, count - left, half, depth, setup, extents);
    }

    void child(std::uint64_t first, std::uint64_t count, morva::float_box box, unsigned depth,
               const morva::build_setup& setup, const std::vector<box3>& extents) {
        nodes.emplace_back();
        if (count > setup.max_elements && depth < std::min(setup.max_depth, 1000U)) {
            box.refresh_extent();
            return divide(nodes.size() - 1, first, count, box, depth + 1, setup, extents);
        }
        nodes.back().first = first;
        nodes.back().count = count;
        fullest = std::max(fullest, count);
        ++leaves;
    }
};

inline std::array<float, 3> cross_of(const std::array<float, 3>& a, const std::array<float, 3>& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
inline float dot_of(const std::array<float, 3>& a, const std::array<float, 3>& b) {
    float sum = 0;
    for (std::size_t i = 0; i < 3; ++i)
        sum += a[i] * b[i];
    return sum;
}
inline std::array<float, 3> less(const float3& a, const float3& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

/// One ray, with all that stays the same on its way.
struct naive_ray {
    const naive_bih& tree;
    const flat_triangles& triangles;
    float3 from, to, inverse;
    int ignored;
    ray_hit& result;

    void triangle(std::uint64_t e) const {
        const auto& [a, b, c] = triangles[e];
        if (int(e) == ignored)
            return;
        const auto ab = less(b, a), ac = less(c, a), n = cross_of(ab, ac), qp = less(from, to);
        const float d = dot_of(qp, n);
        if (0 >= d)
            return;
        const auto ap = less(from, a);
        const float s = dot_of(ap, n);
        const auto e3 = cross_of(qp, ap);
        const float v = dot_of(ac, e3), w = dot_of(ab, e3);
        if (0 > s || s > d || 0 > v || v > d || w > 0 || v - w > d)
            return;
        const float t = (1 / d) * s;
        if (result.hit && !(result.t > t))
            return;
        result.hit = true;
        result.t = t;
        result.index = int(e);
        result.two_sided = false;
        for (std::size_t i = 0; i < 3; ++i) {
            result.normal[i] = n[i];
            result.point[i] = (to[i] - from[i]) * t + from[i];
        }
    }

    float way() const {
        const auto v = less(from, result.point);
        return std::sqrt(dot_of(v, v));
    }

    void fire(std::size_t index, float t_min, float t_max) const {
        const naive_bih_node& node = tree.nodes[index];
        for (std::uint64_t k = node.first; node.axis < 0 && k < node.first + node.count; ++k)
            triangle(tree.indices[k]);
        if (node.axis < 0)
            return;
        const auto a = std::size_t(node.axis);
        std::size_t near = index + 1, far = std::size_t(node.right);
        float t_near = (node.left_plane - from[a]) * inverse[a];
        float t_far = (node.right_plane - from[a]) * inverse[a];
        if (0 > inverse[a]) {
            std::swap(near, far);
            std::swap(t_near, t_far);
        }
        const float later = t_far > t_min ? t_far : t_min, sooner = t_near < t_max ? t_near : t_max;
        if (t_min > t_near)
            return fire(far, later, t_max);
        if (t_far > t_max)
            return fire(near, t_min, sooner);
        fire(near, t_min, sooner);
        if (result.hit) {
            t_max = way();
            if (t_far > t_max)
                return;
        }
        fire(far, later, t_max);
    }
};

} // namespace morva_test
