// What broken_rule_of() says of trees that were spoiled after they were built.

#include "tests/support/test.h"

#include <morva/trees/kd_rules.h>
#include <morva/trees/kd_tree.h>

namespace {

/// Four intervals on x, side by side.
struct four_boxes {
    using scalar_type = float;
    std::uint64_t size = 4;
    float low[3][4] = {{0, 1, 2, 3}}, high[3][4] = {{1, 2, 3, 4}};
    const float *axis_min[3] = {low[0], low[1], low[2]}, *axis_max[3] = {high[0], high[1], high[2]};
    morva::float_box bbox;
};

using kd_tree = morva::kd_tree<float>;

TEST(KdRules, NameWhatIsBroken) {
    const struct {
        const char* rule;
        void (*spoil)(kd_tree& tree, morva::kd_build_setup& setup);
    } rows[] = {
        {"", [](kd_tree&, morva::kd_build_setup&) {}},
        {"node_count below node_capacity", [](kd_tree& t, auto&) { t.node_capacity = 6; }},
        {"index_count within index_capacity", [](kd_tree& t, auto&) { t.index_capacity = 3; }},
        {"all nodes hang below the root", [](kd_tree& t, auto&) { t.node_count = 7; }},
        {"nodes stand in pre-order", [](kd_tree& t, auto&) { t.node_count = 5; }},
        {"leaf_count counts the leaves", [](kd_tree& t, auto&) { ++t.leaf_count; }},
        {"max_leaf_size is that of the fullest leaf", [](kd_tree& t, auto&) { ++t.max_leaf_size; }},
        {"no node below max_depth", [](kd_tree&, auto& setup) { setup.max_depth = 1; }},
        {"axis is 0, 1 or 2", [](kd_tree& t, auto&) { t.nodes[1].axis = 3; }},
        {"right follows the left subtree", [](kd_tree& t, auto&) { ++t.nodes[0].right; }},
        {"leaves lie end to end", [](kd_tree& t, auto&) { ++t.nodes[2].first; }},
        {"leaves cover all indices", [](kd_tree& t, auto&) { ++t.index_count; }},
        {"indices are element numbers", [](kd_tree& t, auto&) { t.indices[3] = 4; }},
        {"no element stands twice",
         [](kd_tree& t, auto& setup) {
             setup.straddle_mode = 1; // cut elements are not asked for their side
             t.indices[1] = t.indices[0];
         }},
        {"elements lie on their side of each plane",
         [](kd_tree& t, auto&) { std::swap(t.indices[0], t.indices[3]); }}};
    for (const auto& row : rows) {
        four_boxes geoset;
        morva::kd_build_setup setup{1, 9, 3, 1, 2, 0.95f, false};
        kd_tree tree;
        compile(geoset, tree, setup, morva::kd_strategy_median());
        ASSERT_EQ(tree.node_count, 6U);
        const std::uint64_t indices = tree.index_capacity;
        row.spoil(tree, setup);
        EXPECT_EQ(broken_rule_of(tree, geoset, setup), row.rule);
        tree.index_capacity = indices;
    }
}

} // namespace
