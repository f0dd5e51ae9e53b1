#include <atomic>

#include "ray_scenes.h"

namespace {

using morva::bih_tree;

class FireRayRecOracle : public testing::TestWithParam<int> {};

// 120,000 rays of each kind: over a million.
TEST_P(FireRayRecOracle, FindsWhatTheLiteralDescentFinds) {
    std::mt19937 random(330);
    std::size_t hits = 0;
    for (unsigned scene = 0; scene < 6; ++scene) {
        flat_triangles triangles = make_mesh(random, mesh(GetParam()));
        flat_list list = list_of(triangles);
        bih_tree<float> tree;
        const morva::build_setup setup{scene % 2 == 0 ? 3U : 9U, 50};
        compile(list, tree, setup);
        const naive_tree naive = naive_bih(extents_of(triangles), list.box, setup);
        for (int i = 0; i < 20000; ++i) {
            test_ray ray = make_ray(random, triangles, list), twin = ray;
            fire(tree, list, ray);
            naive_ray{naive, triangles, twin.from, twin.to, twin.inverse, twin.ignored, twin.hit}
                .fire(0, twin.t_min, twin.t_max);
            ASSERT_TRUE(same_hits(ray.hit, twin.hit)) << "scene " << scene << ", ray " << i;
            hits += ray.hit.hit ? 1 : 0;
        }
        EXPECT_NE(companion_of(tree), nullptr);
    }
    EXPECT_GT(hits, 6000U);
}

INSTANTIATE_TEST_SUITE_P(Meshes, FireRayRecOracle, testing::Range(0, int(mesh::count)));

morva::detail::ray_cluster corners_of(const flat_triangles& triangles) {
    morva::detail::ray_cluster box{{1e38F, 1e38F, 1e38F}, 0, {-1e38F, -1e38F, -1e38F}, 0};
    for (const auto& t : triangles)
        for (std::size_t a = 0; a < 3; ++a) {
            box.low[a] = std::min({box.low[a], t.a[a], t.b[a], t.c[a]});
            box.high[a] = std::max({box.high[a], t.a[a], t.b[a], t.c[a]});
        }
    return box;
}

// Which of the two functions rays take is up to the processor. What is proven to miss is not met.
TEST(AnyMet, TellsOfPacketsWhatTheTestTellsOfTheirTriangles) {
    std::mt19937 random(333);
    std::size_t told[2] = {}, proven = 0;
    flat_triangles triangles;
    flat_list list;
    for (int i = 0; i < 100000; ++i) {
        if (i % 1000 == 0) {
            triangles = make_mesh(random, mesh(i / 1000 % int(mesh::count)));
            list = list_of(triangles);
            refresh_bounding_box(list);
        }
        const test_ray ray = make_ray(random, triangles, list);
        if (!std::isfinite(ray.to[0] + ray.to[1] + ray.to[2]))
            continue;
        const float nearest = i % 2 ? NAN : float(random() % 100) / 50;
        morva::detail::triangle_packet packets[2];
        morva::detail::bearing_list bearings;
        flat_triangles some;
        bool met = false;
        const std::size_t first = random() % triangles.size();
        for (std::size_t k = random() % 17; k-- > 0;) {
            const auto& t = triangles[(first + k) % triangles.size()];
            packets[k / 8].put(k % 8, t);
            bearings.add(t);
            some.push_back(t);
            float3 normal;
            float way;
            met |= morva::detail::meets(t.a, t.b, t.c, ray.from, ray.to, normal, way) &&
                   !(way >= nearest);
        }
        const morva::detail::packet_segment segment(ray.from, ray.to);
        ASSERT_EQ(morva::detail::any_met_sse2(packets, 2, segment, nearest), met) << i;
        if (morva::detail::wide_registers) {
            ASSERT_EQ(morva::detail::any_met_avx2(packets, 2, segment, nearest), met) << i;
        }
        ++told[met ? 1 : 0];
        morva::detail::ray_bearings fours[morva::detail::bearing_list::most_fours];
        for (std::uint32_t k = 0; k < bearings.fours(); ++k)
            fours[k] = bearings.four(k);
        const auto all = corners_of(triangles), box = corners_of(some);
        morva::detail::miss_prover prover(ray.from, ray.to, {all.low[0], all.low[1], all.low[2]},
                                          {all.high[0], all.high[1], all.high[2]});
        if (!std::isnan(nearest))
            prover.stop_at(nearest);
        if (prover.misses(box.low, box.high) && prover.is_steep(fours, bearings.fours())) {
            ASSERT_FALSE(met) << i;
            ++proven;
        }
    }
    EXPECT_GT(std::min(told[0], told[1]), 3000U);
    EXPECT_GT(proven, 10000U);
}

TEST(FireRayRec, ThreadsFireWhileOneOfThemMakesTheCompanion) {
    const ball_rays ball(4000);
    for (int round = 0; round < 8; ++round) {
        flat_list list = ball.list;
        bih_tree<float> tree;
        compile(list, tree, {3, 50});
        std::atomic<int> wrong{0};
        inThreads(4, [&](unsigned) {
            for (std::size_t i = 0; i < ball.rays.size(); ++i) {
                test_ray ray = ball.rays[i];
                fire(tree, list, ray);
                wrong += same_hits(ray.hit, ball.twins[i].hit) ? 0 : 1;
            }
        });
        EXPECT_EQ(wrong, 0);
        EXPECT_NE(companion_of(tree), nullptr);
    }
}

TEST(IntersectSegTriangle, TriesTheBackFirstIfAskedAndCountsEdgesAndEnds) {
    std::mt19937 random(332);
    const naive_tree no_tree(0);
    for (int i = 0; i < 40000; ++i) {
        const bool exact = i % 2 == 0; // on a grid of a few points edges and ends are common
        const auto point = [&] {
            float3 p = point_in(random, 2);
            for (std::size_t a = 0; exact && a < 3; ++a)
                p[a] = std::round(p[a]);
            return p;
        };
        const float3 a = point(), b = point(), c = point(), p = point(), q = point();
        ray_hit hit, twin;
        hit.hit = i % 3 == 0;
        hit.index = twin.index = 5;
        hit.two_sided = twin.two_sided = i % 4 < 2;
        for (const bool reversed : {true, false}) {
            if (reversed ? !hit.two_sided : twin.hit)
                continue;
            const flat_triangles one{reversed ? morva::float_triangle{a, c, b}
                                              : morva::float_triangle{a, b, c}};
            naive_ray{no_tree, one, p, q, {}, -1, twin}.triangle(0);
            const auto n = cross_of(less(one[0].b, a), less(one[0].c, a));
            twin.normal = {n[0], n[1], n[2]};
        }
        intersect_seg_triangle(a, b, c, p, q, hit);
        twin.index = 5;
        twin.two_sided = i % 4 < 2;
        if (!hit.hit)
            twin.t = hit.t;
        ASSERT_TRUE(same_hits(hit, twin)) << i;
    }
}

} // namespace
