// What the validators of trees notice: an index or a node that is not as it was built.

#include "naive_trees.h"

namespace {

template <typename Tree, typename Setup, typename... Strategy>
void expect_guarded(Setup setup, Strategy... strategy) {
    whole_boxes geoset({}); // side by side on x, two at each place
    for (const float x : {0.0f, 0.0f, 1.0f, 1.0f, 2.0f, 2.0f, 3.0f, 3.0f})
        geoset.add({{{x, x + 1}}});
    Tree tree;
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

} // namespace
