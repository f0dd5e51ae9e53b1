#include <atomic>

#include "ray_scenes.h"

namespace {

/// Whether a segment meets some of the triangles, before a fraction of it: by packets of them, and
/// one by one. Which of the two functions rays take is up to the processor.
void expect_any_met(const flat_triangles& triangles, const test_ray& ray, std::mt19937& random) {
    const float nearest = random() % 2 ? NAN : float(random() % 100) / 50;
    morva::detail::triangle_packet packets[2];
    bool met = false;
    const std::size_t first = random() % triangles.size();
    for (std::size_t k = random() % 17; k-- > 0;) {
        const auto& t = triangles[(first + k) % triangles.size()];
        packets[k / 8].put(k % 8, t);
        float3 normal;
        float way;
        met |=
            morva::detail::meets(t.a, t.b, t.c, ray.from, ray.to, normal, way) && !(way >= nearest);
    }
    const morva::detail::packet_segment segment(ray.from, ray.to);
    EXPECT_EQ(morva::detail::any_met_sse2(packets, 2, segment, nearest), met);
    EXPECT_EQ(morva::detail::wide_registers &&
                  morva::detail::any_met_avx2(packets, 2, segment, nearest),
              morva::detail::wide_registers && met);
}

class FireRayRecOracle : public testing::TestWithParam<int> {};

// 120,000 rays of each kind: over a million; an eighth of them from another node than the root.
TEST_P(FireRayRecOracle, FindsWhatTheLiteralDescentFinds) {
    std::mt19937 random(seedOf(330));
    int hits = 0;
    for (unsigned scene = 0; scene < 6; ++scene) {
        flat_triangles triangles = make_mesh(random, mesh(GetParam()));
        flat_list list = list_of(triangles);
        bih_tree<float> tree;
        const morva::build_setup setup{scene % 2 == 0 ? 3U : 9U, 50};
        compile(list, tree, setup);
        const naive_tree naive = naive_bih(extents_of(triangles), calc_bounding_box(list), setup);
        expect_same(tree, naive);
        for (int i = 0; i < roundsOf(20000); ++i) {
            test_ray ray = make_ray(random, triangles, list);
            const std::size_t node = i % 8 == 0 ? random() % naive.nodes.size() : 0;
            const test_ray twin = naive_fire(naive, triangles, ray, node);
            fire(tree, list, ray, int(node));
            ASSERT_TRUE(same_hits(ray.hit, twin.hit)) << "scene " << scene << ", ray " << i;
            hits += ray.hit.hit ? 1 : 0;
            if (i % 4 == 0 && std::isfinite(ray.to[0] + ray.to[1] + ray.to[2]))
                expect_any_met(triangles, ray, random);
        }
        EXPECT_NE(companion_of(tree), nullptr);
    }
    EXPECT_GT(hits, 6000);
}

INSTANTIATE_TEST_SUITE_P(Meshes, FireRayRecOracle, testing::Range(0, int(mesh::count)));

// What rounding may do to rays is more than rays here come to show.
TEST(MissProver, ProvesNothingOfTinySegmentsAndTakesTheSteeperOfTwoDemands) {
    alignas(16) const float low[4] = {5, 5, 5, 0}, high[4] = {6, 6, 6, 0};
    for (const float length : {1.0f, 1e-11f, 1e-13f}) {
        const morva::detail::miss_prover prover({}, {length, length, length}, {}, {6, 6, 6});
        EXPECT_EQ(prover.misses(low, high), length > 1e-12f) << length;
    }
    const auto least_of = [](const std::vector<float>& lengths) {
        morva::detail::bearing_list list;
        for (const float length : lengths)
            list.add({{0, 0, 0}, {length, 0, 0}, {0, 1 / length, 0}});
        return list.four(0).z_least[0][1];
    };
    EXPECT_GT(least_of({9}), least_of({1})) << "slivers demand more";
    EXPECT_EQ(least_of({9, 1}), least_of({9}));
    EXPECT_EQ(least_of({1, 9}), least_of({9}));
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

TEST(ClipRay, TellsNearlyParallelRaysApartAndElementsEndBehindTheirBoxes) {
    const morva::float_box box = naive_box({{{{0, 1e6f}, {0.1f, 0.7f}, {-1, 1}}}});
    float entry = 0, exit = 0;
    for (const float rise : {5e-6f, 5e-7f})
        EXPECT_EQ(morva::clip_ray(box, float3{}, float3{1, rise, 0}, entry, exit), rise > 1e-6f);
    float3 end;
    const morva::detail::element_rays<float, float3> ray({1, 2, 3});
    ASSERT_TRUE(ray.enters(box, float3{}, entry, exit, end));
    EXPECT_GT(end[1], box.max[1]) << "else triangles in the side of the box are lost";
}

TEST(IntersectSegTriangle, TriesTheBackFirstIfAskedAndCountsEdgesAndEnds) {
    std::mt19937 random(seedOf(332));
    const naive_tree no_tree(0);
    for (int i = 0; i < roundsOf(40000); ++i) {
        const auto point = [&] {
            float3 p = point_in(random, 2);
            for (std::size_t a = 0; a < 3; ++a) // on a grid edges and ends are common
                p[a] = i % 2 == 0 ? std::round(p[a]) : p[a];
            return p;
        };
        const float3 a = point(), b = point(), c = point(), p = point(), q = point();
        const bool both_sides = i % 4 < 2;
        ray_hit hit, twin;
        hit.hit = i % 3 == 0; // whatever it was
        hit.two_sided = both_sides;
        for (const bool is_back : {true, false}) {
            if (is_back ? !both_sides : twin.hit)
                continue;
            const flat_triangles one{{a, is_back ? c : b, is_back ? b : c}};
            naive_ray{no_tree, one, p, q, {}, -1, twin}.triangle(0);
            twin.normal = morva::detail::cross(less(one[0].b, a), less(one[0].c, a));
        }
        intersect_seg_triangle(a, b, c, p, q, hit);
        twin.two_sided = both_sides;
        twin.t = hit.hit ? twin.t : hit.t;
        ASSERT_TRUE(same_hits(hit, twin)) << i;
    }
}

} // namespace
