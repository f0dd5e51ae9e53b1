#pragma once

// Triangles and rays that make trouble: on edge, in the planes of triangles, along axes, far, tiny.

#include "naive_trees.h"

#include <morva/trees/ray_traversal.h>

namespace morva_test {

using morva::bih_tree;
using morva::empty_trace_statistics;
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

inline std::vector<box3> extents_of(const flat_triangles& triangles) {
    std::vector<box3> extents;
    for (const auto& [a, b, c] : triangles) {
        extents.emplace_back();
        for (std::size_t k = 0; k < 3; ++k)
            extents.back()[k] = {std::min({a[k], b[k], c[k]}), std::max({a[k], b[k], c[k]})};
    }
    return extents;
}

struct test_ray {
    float3 from, to, inverse;
    float t_min = 0, t_max = 0;
    int ignored = -1;
    ray_hit hit;
};

/// Floats by their bits, where not even NaN equals all others.
inline std::uint32_t kind_of(float x) { return std::isnan(x) ? 0x7fc00000U : bits_of(x); }

inline bool same_hits(const ray_hit& a, const ray_hit& b) {
    const auto numbers_of = [](const ray_hit& hit) {
        const auto &p = hit.point, &n = hit.normal;
        return std::tuple(hit.hit, hit.index, hit.two_sided, hit.extra, kind_of(hit.t),
                          kind_of(p[0]), kind_of(p[1]), kind_of(p[2]), kind_of(n[0]), kind_of(n[1]),
                          kind_of(n[2]));
    };
    return numbers_of(a) == numbers_of(b);
}

inline float3 less(const float3& a, const float3& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
inline float dot(const float3& a, const float3& b) {
    return 0.0f + a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

/// One ray, with all that stays the same on its way.
struct naive_ray {
    const naive_tree& tree;
    const flat_triangles& triangles;
    float3 from, to, inverse;
    int ignored;
    ray_hit& result;

    void triangle(std::uint64_t e) const {
        const auto& [a, b, c] = triangles[e];
        if (int(e) == ignored)
            return;
        const float3 ab = less(b, a), ac = less(c, a), qp = less(from, to), ap = less(from, a);
        const float3 n = morva::detail::cross(ab, ac), e3 = morva::detail::cross(qp, ap);
        const float d = dot(qp, n), s = dot(ap, n), v = dot(ac, e3), w = dot(ab, e3);
        if (0 >= d || 0 > s || s > d || 0 > v || v > d || w > 0 || v - w > d)
            return;
        const float t = (1 / d) * s;
        if (result.hit && !(result.t > t))
            return;
        result.hit = true;
        result.t = t;
        result.index = int(e);
        result.two_sided = false;
        result.normal = n;
        for (std::size_t i = 0; i < 3; ++i)
            result.point[i] = (to[i] - from[i]) * t + from[i];
    }

    void fire(std::size_t index, float t_min, float t_max) const {
        const naive_node& node = tree.nodes[index];
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
            t_max = std::sqrt(dot(less(from, result.point), less(from, result.point)));
            if (t_far > t_max)
                return;
        }
        fire(far, later, t_max);
    }
};

/// What is wrong with the triangles of a scene.
enum class mesh { soup, ball, slivers, far_ball, tiny, huge, copies, spoiled, count };

inline float3 point_in(std::mt19937& random, float size) {
    std::uniform_real_distribution<float> unit(-size, size);
    return {unit(random), unit(random), unit(random)};
}

inline float3 on_ball(int step, int turn) {
    const float a = 0.13f * float(step), b = 0.29f * float(turn);
    return {std::sin(a) * std::cos(b), std::sin(a) * std::sin(b), std::cos(a)};
}

inline flat_triangles make_mesh(std::mt19937& random, mesh kind) {
    flat_triangles made;
    const auto shifted = [](float3 p, const float3& by, float factor) {
        for (std::size_t i = 0; i < 3; ++i)
            p[i] += by[i] * factor;
        return p;
    };
    for (int i = 0; i < 300 && (kind == mesh::soup || kind == mesh::spoiled); ++i) {
        float3 a = point_in(random, 1); // half of them in heaps, with much between
        for (std::size_t k = 0; i % 2 == 0 && k < 3; ++k)
            a[k] = std::round(a[k]) + 0.05f * a[k];
        const float3 b = shifted(a, point_in(random, 1), 0.2f);
        made.push_back({a, b, i % 7 == 0 ? b : shifted(a, point_in(random, 1), 0.2f)});
    }
    for (int i = 0; i < 400 && kind == mesh::slivers; ++i) { // in few planes, long and thin
        const float3 side = point_in(random, 1), a = point_in(random, i % 2 ? 1.0f : 0.0f);
        const float thin = std::pow(0.1f, float(i % 9));
        const float3 b = shifted(a, side, 1);
        made.push_back({a, b, shifted(shifted(b, side, 0.1f), point_in(random, 1), thin)});
    }
    const int patches = !made.empty() ? 0 : kind == mesh::copies ? 88 : 24 * 22;
    for (int i = 0; i < patches; ++i) {
        const int s = i / 22, t = i % 22;
        made.push_back({on_ball(s, t), on_ball(s + 1, t), on_ball(s + 1, t + 1)});
        made.push_back({on_ball(s, t), on_ball(s + 1, t + 1), on_ball(s, t + 1)});
    }
    const float away = kind != mesh::far_ball ? 0.0f : random() % 2 ? 1e6f : 3e4f;
    const float scale = kind == mesh::tiny ? 1e-7f : kind == mesh::huge ? 3e12f : 1.0f;
    for (auto& t : made)
        for (float3* corner : {&t.a, &t.b, &t.c})
            for (std::size_t i = 0; i < 3; ++i)
                (*corner)[i] = (*corner)[i] * scale + away;
    if (kind == mesh::spoiled)
        for (std::size_t i = 0; i < 30; ++i)
            made[random() % made.size()].b[random() % 3] = i % 2 ? NAN : INFINITY;
    for (std::size_t i = 0, n = made.size(); kind == mesh::copies && i < 7 * n; ++i)
        made.push_back(made[i % n]);
    return made;
}

/// A ray at the triangles, of one of several troublesome kinds.
inline test_ray make_ray(std::mt19937& random, const flat_triangles& triangles,
                         const flat_list& list) {
    const auto any = [&]() -> const morva::float_triangle& {
        return triangles[random() % triangles.size()];
    };
    std::uniform_real_distribution<float> unit(-0.2f, 1.2f);
    const auto at = [](const morva::float_triangle& t, float v, float w) {
        float3 p;
        for (std::size_t i = 0; i < 3; ++i)
            p[i] = t.a[i] + v * (t.b[i] - t.a[i]) + w * (t.c[i] - t.a[i]);
        return p;
    };
    const float size = std::max({list.box.extent[0], list.box.extent[1], list.box.extent[2]});
    test_ray ray;
    const auto &t = any(), &u = any();
    ray.from = at(t, unit(random), unit(random)); // in a plane; outside, often
    float3 goal = random() % 4 == 0 ? u.b : at(u, unit(random), 0.5f * unit(random));
    const auto kind = random() % 8;
    if (kind < 3) // from outside, from near or from far
        for (std::size_t i = 0; i < 3; ++i)
            ray.from[i] += (random() % 2 ? 1.0f : -1.0f) * size * (kind == 2 ? 30.0f : 1.0f);
    if (kind == 3) { // along the plane that it starts in, or at an angle of next to nothing
        goal = at(t, 5 * unit(random) - 2, 5 * unit(random) - 2);
        goal[random() % 3] += size * std::array<float, 4>{0.0f, 1e-6f, 1e-5f, 1e-4f}[random() % 4];
    }
    float3 direction;
    for (std::size_t i = 0; i < 3; ++i)
        direction[i] = goal[i] - ray.from[i];
    if (kind == 4 || kind == 5) // along an axis, or across one; both zeros
        for (std::size_t i = 0; i < 3; ++i)
            if ((i == random() % 3) == (kind == 5))
                direction[i] = random() % 2 ? 0.0f : -0.0f;
    if (random() % 4 != 0)
        direction.normalize();
    for (std::size_t i = 0; i < 3; ++i)
        ray.inverse[i] = 1 / direction[i];
    const bool meets_box = clip_ray(list.box, ray.from, direction, ray.t_min, ray.t_max);
    if (random() % 16 == 0 || !meets_box) {
        ray.t_min = 0;
        ray.t_max = 4 * size;
    }
    for (std::size_t i = 0; i < 3; ++i)
        ray.to[i] = direction[i] * ray.t_max + ray.from[i];
    if (random() % 8 == 0) // hits lie beyond
        ray.t_max *= unit(random);
    if (random() % 32 == 0) // where even triangles without area are hit
        ray.to[random() % 3] = random() % 2 ? INFINITY : NAN;
    if (random() % 8 == 0)
        ray.ignored = int(random() % triangles.size());
    if (random() % 8 == 0) { // a hit is there already
        ray.hit.hit = ray.hit.two_sided = true;
        ray.hit.t = unit(random);
        ray.hit.point = goal;
        ray.hit.extra = 7;
    }
    return ray;
}

template <typename Geoset>
void fire(const bih_tree<float>& tree, const Geoset& geoset, test_ray& ray, int node = 0) {
    empty_trace_statistics none;
    fire_ray_rec(tree, node, geoset, ray.from, ray.to, ray.inverse, ray.t_min, ray.t_max, ray.hit,
                 none, ray.ignored);
}

inline const void* companion_of(const bih_tree<float>& tree) {
    return tree.companions.find(morva::companion_slot::rays);
}

/// A ray, and what the naive descent finds from a node on.
inline test_ray naive_fire(const naive_tree& tree, const flat_triangles& triangles, test_ray ray,
                           std::size_t node = 0) {
    naive_ray{tree, triangles, ray.from, ray.to, ray.inverse, ray.ignored, ray.hit}.fire(
        node, ray.t_min, ray.t_max);
    return ray;
}

/// Rays at a ball.
struct ball_rays {
    std::mt19937 random{seedOf(331)};
    flat_triangles triangles = make_mesh(random, mesh::ball);
    flat_list list = list_of(triangles);
    std::vector<test_ray> rays, twins;

    explicit ball_rays(std::size_t count) {
        const auto naive = naive_bih(extents_of(triangles), refresh_bounding_box(list), {3, 50});
        while (rays.size() < count) {
            rays.push_back(make_ray(random, triangles, list));
            twins.push_back(naive_fire(naive, triangles, rays.back()));
        }
    }
};

} // namespace morva_test
