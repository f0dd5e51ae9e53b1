#include "tests/support/shortage.h"

#include "ray_scenes.h"

namespace {

using morva::build_setup;

TEST(BihCompile, BuildsTheTreeOfItsNaiveTwin) {
    std::mt19937 random(seedOf(310));
    bih_tree<float> tree;
    for (int round = 0; round < roundsOf(1500); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const build_setup setup{std::uint32_t(random() % 6),
                                std::array<std::uint32_t, 5>{0, 1, 5, 50, 5000}[random() % 5]};
        const std::size_t few = setup.max_elements;
        const std::size_t count =
            std::array<std::size_t, 6>{1, 2, few, few + 1, 40, 200}[random() % 6];
        auto boxes = make_boxes(random, std::max<std::size_t>(count, 1),
                                trouble(round % int(trouble::count)));
        for (box3& box : boxes) // a moderate distance, and the planes of the halves at times
            for (auto& range : box)
                if (round % 5 == 0)
                    range = {range[0] + 1e6f, range[1] + 1e6f};
        whole_boxes geoset(boxes);
        compile(geoset, tree, setup);
        expect_same(tree, naive_bih(boxes, naive_box(boxes), setup));
    }
}

TEST(BihCompile, FailsAsAWholeAndLeavesWhatItDoesNotBegin) {
    std::mt19937 random(seedOf(312));
    const auto boxes = make_boxes(random, 30, trouble::coincident);
    whole_boxes geoset(boxes), none({}), many({});
    many.size = std::uint64_t(1) << 31; // none of them is ever asked for
    const naive_tree twin = naive_bih(boxes, naive_box(boxes), {1, 300});
    failInTurn(1, [&](const auto& starved) {
        bih_tree<float> tree;
        compile(geoset, tree, {1, 300});
        compile(none, tree, {2, 7});
        EXPECT_THROW(compile(many, tree, {2, 7}), std::length_error);
        expect_same(tree, twin);
        tree.nodes[0].axis = 7; // is to go
        const bool failed = starved([&] { compile(geoset, tree, {1, 300}); });
        EXPECT_TRUE(failed || tree.active == 1);
        if (tree.active == 0)
            EXPECT_TRUE(tree.nodes == nullptr && tree.indices == nullptr &&
                        tree.node_capacity + tree.index_count + tree.node_count == 0);
        else // only a check was left out
            expect_same(tree, twin);
    });
    bih_tree<float> tree;
    tree.node_count = (std::uint64_t(1) << 31) - 2; // the next node has no number
    EXPECT_THROW(process_node(tree, 0, geoset, 0, 0, geoset.bbox, 0, build_setup{1, 1}),
                 std::length_error);
    tree.release();
    EXPECT_EQ(triangle_count<float>(tree, 0), 0U);
}

TEST(BihProcessNode, BuildsByHandFromNoRoomOnAndDropsCompanions) {
    using slot = morva::companion_slot;
    static int destroyed = 0;
    whole_boxes geoset(std::vector<box3>(1));
    bih_tree<float> tree;
    tree.indices = new std::uint64_t[1]{0};
    tree.index_count = 1;
    for (const bool is_due : {false, true, false}) // then somebody is at it
        EXPECT_EQ(tree.companions.due(slot::rays, 2), is_due);
    morva::bih_companion companion;
    companion.destroy = [](morva::bih_companion*) { ++destroyed; };
    tree.companions.publish(slot::rays, &companion);
    EXPECT_EQ(tree.companions.find(slot::rays), &companion);
    EXPECT_EQ(tree.companions.find(slot::fitted_boxes), nullptr);
    process_node(tree, 0, geoset, 0, 1, refresh_bounding_box(geoset), 0, build_setup{3, 50});
    EXPECT_EQ(destroyed, 1);
    EXPECT_EQ(tree.companions.find(slot::rays), nullptr);
    EXPECT_TRUE(tree.companions.due(slot::rays, 1)) << "counted anew";
    EXPECT_EQ(tree.node_capacity, 4U) << "2 for the root, twice that for its children";
    EXPECT_EQ(tree.node_count, 2U);
}

TEST(FireRayRec, GoesOnWithoutACompanionWhereMemoryOrItsTrianglesAreGone) {
    ball_rays ball(2000);
    flat_triangles moved = ball.triangles; // not there any more
    for (morva::float_triangle& t : moved)
        t = {};
    flat_list other = list_of(moved);
    failInTurn(1, [&](const auto& starved) {
        bih_tree<float> tree;
        compile(ball.list, tree, {3, 50});
        std::size_t wrong = 0;
        const bool failed = starved([&] {
            for (std::size_t i = 0; i < ball.rays.size(); ++i) {
                test_ray ray = ball.rays[i];
                const bool gone = i < 1500 && std::isfinite(ray.to[0] + ray.to[1] + ray.to[2]);
                fire(tree, gone ? other : ball.list, ray);
                wrong += same_hits(ray.hit, (gone ? ball.rays : ball.twins)[i].hit) ? 0 : 1;
            }
        });
        EXPECT_EQ(wrong, 0U);
        EXPECT_EQ(companion_of(tree) == nullptr, failed);
    });
    const bih_tree<float> none; // without nodes nothing is there to meet
    test_ray ray = ball.rays[0];
    fire(none, ball.list, ray);
    EXPECT_TRUE(same_hits(ray.hit, ball.rays[0].hit));
}

} // namespace
