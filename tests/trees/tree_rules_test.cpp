// What the validators of trees notice: any number that is not as it was built.

#include "naive_trees.h"

namespace {

/// Puts other numbers in place of those of a tree of seven nodes, one at a time. Each has to break
/// a rule.
template <typename Tree, typename Setup, typename... Strategy>
void expect_guarded(Setup setup, std::vector<std::uint64_t Tree::*> counts, Strategy... strategy) {
    whole_boxes geoset({}); // side by side on x, two at each place
    for (const float x : {0.0f, 0.0f, 1.0f, 1.0f, 2.0f, 2.0f, 3.0f, 3.0f})
        geoset.add({{{x, x + 1}}});
    Tree tree;
    compile(geoset, tree, setup, strategy...);
    ASSERT_EQ(tree.node_count, 6U);
    const auto expect_broken = [&](auto& number, auto other) {
        std::swap(number, other);
        EXPECT_NE(broken_rule_of(tree, geoset, setup), "") << number << " for " << other;
        std::swap(number, other);
        EXPECT_EQ(broken_rule_of(tree, geoset, setup), "");
    };
    for (const auto count : counts)
        expect_broken(tree.*count, tree.*count + 1);
    expect_broken(tree.node_capacity, tree.node_count);
    expect_broken(tree.node_count, tree.node_count - 1);
    expect_broken(setup.max_depth, 0U);
    for (std::uint64_t i = 0; i < 8; ++i)
        for (std::uint64_t e = 0; e < 9; ++e)
            if (e != tree.indices[i]) // twice then, on a wrong side, or none
                expect_broken(tree.indices[i], e);
    for (std::uint64_t i = 0; i < 7; ++i) {
        auto& node = tree.nodes[i];
        for (const int axis : {-1, 0, 1, 2, 3})
            if (decltype(node.axis)(axis) != node.axis)
                expect_broken(node.axis, decltype(node.axis)(axis));
        if (node.is_leaf())
            expect_broken(node.first, node.first + 1);
        if (node.is_leaf())
            expect_broken(node.count, node.count + 1);
        else
            expect_broken(node.right, node.right + 1);
    }
}

TEST(TreeRules, GuardEachNumber) {
    using bih = morva::bih_tree<float>;
    using kd = morva::kd_tree<float>;
    expect_guarded<bih>(morva::build_setup{2, 9},
                        {&bih::index_count, &bih::node_count, &bih::leaf_count, &bih::max_leaf_size,
                         &bih::max_depth_reached});
    for (const int mode : {2, 3}) // elements that are cut are not asked for their side
        expect_guarded<kd>(morva::kd_build_setup{2, 9, mode, 1, 2, 0.95f, false},
                           {&kd::index_count, &kd::node_count, &kd::leaf_count, &kd::max_leaf_size},
                           morva::kd_strategy_median());
}

} // namespace
