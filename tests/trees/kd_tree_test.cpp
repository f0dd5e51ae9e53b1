#include "naive_trees.h"

namespace {

using morva::kd_build_setup;
using morva::kd_tree;

/// Builds a tree anew, and its twin: over all, or in a loose box over a part of the indices, those
/// around which have to keep their values. True if the root was cut.
template <typename Geoset, typename Strategy>
bool expect_twin_tree(const std::vector<box3>& boxes, const kd_build_setup& setup,
                      const Strategy& strategy, std::mt19937& random, std::uint64_t spare = 0) {
    Geoset geoset(boxes), naive(boxes);
    auto box = refresh_bounding_box(geoset);
    for (std::size_t a = 0; spare > 0 && a < 3; ++a) { // loose, or without an area
        box.max[a] = random() % 8 == 0 ? box.min[a] : box.max[a] + float(random() % 20);
        box.min[a] -= float(random() % 3 == 0 ? random() % 20 : 0);
    }
    box.refresh_extent();
    const std::uint64_t first = spare / 2, count = geoset.size - spare;
    static kd_tree<float> tree;
    tree.factor = 7;
    naive_tree twin(std::max<std::uint64_t>(geoset.size, 1)); // an empty tree has one index, too
    const stream_capture twin_told(std::cout);
    naive_build<Strategy>(twin, naive, first, count, box, 0, setup);
    const stream_capture told(std::cout);
    if (spare == 0) {
        compile(geoset, tree, setup, strategy);
    } else {
        prepare_tree(tree, geoset.size, setup);
        process_node(tree, 0, geoset, first, count, box, 0, setup, strategy);
    }
    expect_same(tree, twin);
    EXPECT_EQ(told.text(), twin_told.text());
    EXPECT_EQ(geoset.size, naive.size);
    EXPECT_EQ(tree.factor, 1.0);
    float depths = 0;
    avg_depth_node<float>(tree, 0, 0, depths);
    EXPECT_EQ(depths, twin.sum_of_depths);
    return !tree.nodes[0].is_leaf();
}

template <typename Strategy>
void expect_twins_everywhere(const Strategy& strategy, unsigned int loose_cuts) {
    std::mt19937 random(seedOf(20240));
    const float costs[] = {-1.0f, 0.0f, 0.125f, 1.0f, 2.0f};
    const auto any = [&random](const auto& from) { return from[random() % std::size(from)]; };
    unsigned int cuts = 0;
    for (int round = 0; round < roundsOf(1400); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        auto boxes = make_boxes(random, any(std::array{0, 1, 2, 3, 17, 90}),
                                trouble(round % int(trouble::count)));
        const std::size_t flat = random() % 9; // both zeros as bounds of one axis
        for (std::size_t i = 0; flat < 3 && i < boxes.size(); ++i)
            boxes[i][flat] = {i % 2 ? -0.0f : 0.0f, random() % 2 ? 0.0f : -0.0f};
        const kd_build_setup setup{std::uint32_t(random() % 9),
                                   std::uint32_t(random() % 8),
                                   any(std::array{1, 2, 3, 0, -1}),
                                   random() % 2 ? 1.0f : any(costs),
                                   0.125f * float(random() % 16),
                                   random() % 4 ? 0.95f : any(costs),
                                   random() % 2 == 0};
        if (round % 2 == 0) {
            expect_twin_tree<cut_boxes>(boxes, setup, strategy, random);
            expect_twin_tree<whole_boxes>(boxes, setup, strategy, random);
            expect_twin_tree<packed_points>(boxes, setup, strategy, random);
        } else if (boxes.size() > 3) {
            const auto spare = 1 + random() % 3;
            cuts += expect_twin_tree<cut_boxes>(boxes, setup, strategy, random, spare) ? 1 : 0;
        }
    }
    EXPECT_GT(cuts, loose_cuts);
}

TEST(Compile, BuildsTheTreeOfItsNaiveTwinAndSaysTheSame) {
    expect_twins_everywhere(morva::kd_strategy_median(), 100);
    expect_twins_everywhere(morva::kd_strategy_ObjMedian(), 100);
    expect_twins_everywhere(morva::kd_strategy_SAH(), 40);
}

// What the validators of both trees notice: an index or a node that is not as it was built.
template <typename Tree, typename Setup, typename... Strategy>
void expect_guarded(Setup setup, Strategy... strategy) {
    whole_boxes geoset({});
    Tree tree;
    EXPECT_NE(broken_rule_of(tree, geoset, setup), "") << "never built";
    compile(geoset, tree, setup, strategy...); // over nothing a kd-tree is one leaf
    EXPECT_EQ(broken_rule_of(tree, geoset, setup).empty(), sizeof...(strategy) == 1);
    for (const float x : {0.0f, 0.0f, 1.0f, 1.0f, 2.0f, 2.0f, 3.0f, 3.0f})
        geoset.add({{{x, x + 1}}}); // side by side on x, two at each place
    compile(geoset, tree, setup, strategy...);
    ASSERT_EQ(tree.node_count, 6U);
    const auto expect_broken = [&](auto& number, std::uint64_t other) {
        const auto built = std::exchange(number, std::decay_t<decltype(number)>(other));
        EXPECT_EQ(broken_rule_of(tree, geoset, setup).empty(), number == built) << other;
        number = built;
    };
    for (std::uint64_t i = 0; i < 8; ++i)
        for (std::uint64_t e = 0; e < 9; ++e) // twice then, on a wrong side, or none
            expect_broken(tree.indices[i], e);
    for (std::uint64_t i = 0; i < 7; ++i) {
        auto& node = tree.nodes[i];
        for (std::uint64_t axis = 0; axis < 4; ++axis)
            expect_broken(node.axis, axis);
        node.is_leaf() ? expect_broken(node.first, node.first + 1)
                       : expect_broken(node.right, std::uint64_t(node.right) + 1);
    }
}

TEST(TreeRules, GuardEachIndexAndNode) {
    expect_guarded<morva::bih_tree<float>>(morva::build_setup{2, 9});
    for (const int mode : {2, 3}) // elements that are cut are not asked for their side
        expect_guarded<morva::kd_tree<float>>(morva::kd_build_setup{2, 9, mode, 1, 2, 0.95f, false},
                                              morva::kd_strategy_median());
}

TEST(CheckResize, DoublesTheRoomOfTheFirstNodeThatHasNone) {
    kd_tree<float> tree;
    for (const auto& [node, room] : {std::pair(0U, 1U), {1U, 2U}, {1U, 2U}, {2U, 4U}, {3U, 4U}}) {
        tree.check_resize(node);
        EXPECT_EQ(tree.node_capacity, room);
    }
}

} // namespace
