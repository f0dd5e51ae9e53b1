#include "naive_kd.h"
#include "test_geosets.h"
#include "tests/support/kd_checks.h"

#include <morva/trees/kd_tree.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace {

using namespace morva_test;
using morva::avg_depth_node;
using morva::kd_build_setup;
using morva::kd_tree;
using morva::refresh_bounding_box;
using morva::triangle_count;

/// What goes to standard output during its life.
struct captured_output {
    std::ostringstream text;
    std::streambuf* before = std::cout.rdbuf(text.rdbuf());
    ~captured_output() { std::cout.rdbuf(before); }
};

/// The first place where a tree differs from its naive twin, or an empty text.
std::string difference(const kd_tree<float>& tree, const naive_tree& twin) {
    std::ostringstream where;
    if (tree.node_count + 1 != twin.nodes.size())
        where << tree.node_count << " nodes, twin has " << twin.nodes.size() - 1;
    else if (tree.leaf_count != twin.leaf_count || tree.max_leaf_size != twin.max_leaf_size ||
             tree.max_depth_reached != twin.max_depth_reached)
        where << "statistics";
    for (std::size_t i = 0; i < twin.nodes.size() && where.str().empty(); ++i) {
        const auto &a = tree.nodes[i], &b = twin.nodes[i];
        const bool same =
            a.axis == b.axis && (b.is_leaf() ? a.first == b.first && a.count == b.count
                                             : a.right == b.right && same_bits(a.plane, b.plane));
        if (!same)
            where << "node " << i;
    }
    if (where.str().empty() && tree.index_count != twin.indices.size())
        where << "index_count";
    for (std::size_t i = 0; i < twin.indices.size() && where.str().empty(); ++i)
        if (tree.indices[i] != twin.indices[i])
            where << "index " << i;
    return where.str();
}

/// The twin of process_node() from the root over all elements.
template <typename Geoset, typename Strategy>
naive_tree twin_of(Geoset& geoset, const morva::float_box& box, const kd_build_setup& setup,
                   const Strategy& strategy) {
    naive_tree twin;
    for (std::uint64_t e = 0; e < geoset.size; ++e)
        twin.indices.push_back(e);
    std::uint64_t next = 0;
    naive_build(twin, next, geoset, 0, twin.indices.size(), box, 0, setup, strategy);
    return twin;
}

template <typename Geoset, typename Strategy>
void expect_twin_tree(const std::vector<box3>& boxes, const kd_build_setup& setup,
                      const Strategy& strategy, const std::string& what) {
    SCOPED_TRACE(what);
    Geoset geoset(boxes), naive(boxes);
    kd_tree<float> tree;
    naive_tree twin;
    std::string said, twin_said;
    {
        captured_output out;
        compile(geoset, tree, setup, strategy);
        said = out.text.str();
        out.text.str("");
        twin = twin_of(naive, geoset.bbox, setup, strategy);
        twin_said = out.text.str();
    }
    EXPECT_EQ(broken_rule_of(tree, geoset, setup), "");
    EXPECT_EQ(difference(tree, twin), "");
    EXPECT_EQ(said, twin_said);
    ASSERT_EQ(geoset.size, naive.size);
    if constexpr (std::is_base_of_v<whole_boxes, Geoset>) {
        for (std::size_t a = 0; a < 3; ++a)
            for (std::size_t e = 0; e < geoset.size; ++e)
                ASSERT_TRUE(same_bits(geoset.low[a][e], naive.low[a][e]) &&
                            same_bits(geoset.high[a][e], naive.high[a][e]));
    }
}

template <typename Strategy> void expect_twins_everywhere(const Strategy& strategy) {
    std::mt19937 random(20240);
    for (int kind = 0; kind < int(trouble::count); ++kind) {
        for (const std::size_t count : {1, 2, 3, 17, 90}) {
            const auto boxes = make_boxes(random, count, trouble(kind));
            for (const std::int32_t mode : {1, 2, 3, 0, -1}) {
                kd_build_setup setup{std::uint32_t(random() % 9),
                                     std::uint32_t(random() % 8),
                                     mode,
                                     1.0f,
                                     2.0f,
                                     0.95f,
                                     false};
                const std::string what = "trouble " + std::to_string(kind) + ", " +
                                         std::to_string(count) + " boxes, mode " +
                                         std::to_string(mode);
                expect_twin_tree<cut_boxes>(boxes, setup, strategy, what + ", cut");
                expect_twin_tree<spoiled_boxes>(boxes, setup, strategy, what + ", spoiled");
                expect_twin_tree<whole_boxes>(boxes, setup, strategy, what + ", whole");
                expect_twin_tree<packed_points>(boxes, setup, strategy, what + ", points");
            }
        }
    }
}

TEST(Compile, MedianBuildsTheTreeOfItsNaiveTwin) {
    expect_twins_everywhere(morva::kd_strategy_median());
}

TEST(Compile, ObjMedianBuildsTheTreeOfItsNaiveTwinAndSaysTheSame) {
    expect_twins_everywhere(morva::kd_strategy_ObjMedian());
}

TEST(Compile, SahBuildsTheTreeOfItsNaiveTwin) { expect_twins_everywhere(morva::kd_strategy_SAH()); }

/// Builds over a part of the indices in a box wider than the elements, against the twin, and tells
/// how many of the trees were cut at the root.
template <typename Strategy> unsigned int expect_twins_of_parts(const Strategy& strategy) {
    std::mt19937 random(7);
    unsigned int inner_roots = 0;
    for (int round = 0; round < 300; ++round) {
        const auto boxes = make_boxes(random, 5 + random() % 40, trouble(random() % 4));
        const kd_build_setup setup{std::uint32_t(1 + random() % 4),
                                   6,
                                   std::int32_t(1 + random() % 3),
                                   1.0f,
                                   0.125f * float(random() % 16),
                                   0.95f,
                                   random() % 2 == 0};
        cut_boxes geoset(boxes), naive(boxes);
        morva::float_box box = refresh_bounding_box(geoset);
        for (std::size_t a = 0; a < 3; ++a)
            box.max[a] += float(random() % 4) * 2;
        box.refresh_extent();

        const std::uint64_t first = random() % 4, count = geoset.size - first - random() % 2;
        kd_tree<float> tree;
        prepare_tree(tree, geoset.size, setup);
        process_node(tree, 0, geoset, first, count, box, 0, setup, strategy);

        naive_tree twin;
        for (std::uint64_t e = 0; e < naive.size; ++e)
            twin.indices.push_back(e);
        std::uint64_t next = 0;
        naive_build(twin, next, naive, first, count, box, 0, setup, strategy);
        EXPECT_EQ(difference(tree, twin), "") << "round " << round;
        EXPECT_LE(tree.index_count, tree.index_capacity);
        inner_roots += tree.nodes[0].is_leaf() ? 0 : 1;
    }
    return inner_roots;
}

// The surface area strategy cuts only where the box is loose, and the indices around the range
// have to keep their values.
TEST(ProcessNode, BuildsInALooseBoxOverAPartOfTheIndices) {
    EXPECT_GT(expect_twins_of_parts(morva::kd_strategy_SAH()), 30U);
    EXPECT_GT(expect_twins_of_parts(morva::kd_strategy_ObjMedian()), 200U);
}

TEST(Compile, EmptyGeosetGivesOneLeafAndOneIndex) {
    whole_boxes none(std::vector<box3>{});
    kd_tree<float> tree;
    tree.factor = 7;
    compile(none, tree, {5, 10, 3, 1, 2, 0.95f, false}, morva::kd_strategy_ObjMedian());
    EXPECT_EQ(broken_rule_of(tree, none), "");
    EXPECT_EQ(tree.index_count, 1U);
    EXPECT_EQ(tree.nodes[0].count, 0U);
    EXPECT_EQ(tree.factor, 1.0);
    EXPECT_EQ(triangle_count<float>(tree, 0), 0U);
}

TEST(Compile, ATreeCanBeBuiltAgain) {
    std::mt19937 random(3);
    kd_tree<float> tree;
    for (const std::size_t count : {400, 0, 3, 900}) {
        whole_boxes geoset(make_boxes(random, count, trouble::none));
        const kd_build_setup setup{2, 20, 2, 1, 2, 0.95f, false};
        compile(geoset, tree, setup, morva::kd_strategy_ObjMedian());
        EXPECT_EQ(broken_rule_of(tree, geoset, setup), "") << count;
    }
    EXPECT_EQ(triangle_count<float>(kd_tree<float>(), 0), 0U);
}

TEST(Compile, RootWithExactlyMaxElementsIsCutAndAChildIsNot) {
    // Two at either end: four in the root, two in each child.
    const std::vector<box3> four = {{{{0, 1}, {0, 1}, {0, 1}}},
                                    {{{0, 1}, {0, 1}, {0, 1}}},
                                    {{{8, 9}, {0, 1}, {0, 1}}},
                                    {{{8, 9}, {0, 1}, {0, 1}}}};
    struct {
        std::uint32_t max_elements, max_depth, nodes;
    } const rows[] = {{5, 9, 0}, {4, 9, 2}, {2, 9, 2}, {2, 0, 0}, {1, 1, 2}};
    for (const auto& row : rows) {
        whole_boxes geoset(four);
        kd_tree<float> tree;
        compile(geoset, tree, {row.max_elements, row.max_depth, 3, 1, 2, 0.95f, false},
                morva::kd_strategy_median());
        EXPECT_EQ(tree.node_count, row.nodes) << row.max_elements << " deep " << row.max_depth;
    }
}

TEST(Compile, LongestAxisTiesGoToTheHigherAxis) {
    struct {
        morva::float3 size;
        std::uint32_t axis;
    } const rows[] = {{{3, 2, 1}, 0}, {{1, 3, 2}, 1}, {{1, 2, 3}, 2}, {{2, 2, 1}, 1},
                      {{2, 1, 2}, 2}, {{1, 2, 2}, 2}, {{2, 2, 2}, 2}};
    for (const auto& row : rows) {
        const box3 box = {{{0, row.size[0]}, {0, row.size[1]}, {0, row.size[2]}}};
        whole_boxes geoset(std::vector<box3>{box});
        kd_tree<float> tree;
        compile(geoset, tree, {1, 1, 3, 1, 2, 0.95f, false}, morva::kd_strategy_median());
        EXPECT_EQ(tree.nodes[0].axis, row.axis) << row.size;
    }
}

TEST(Compile, RunsOutOfPrecisionIntoALeafOfAnySize) {
    // Neighbouring floats: the middle rounds onto a side of the box.
    const float at = 1e8f, next = std::nextafter(at, 2e8f);
    whole_boxes geoset(std::vector<box3>(20, {{{at, next}, {at, next}, {at, next}}}));
    kd_tree<float> tree;
    const kd_build_setup setup{1, 500, 3, 1, 2, 0.95f, false};
    compile(geoset, tree, setup, morva::kd_strategy_ObjMedian());
    EXPECT_EQ(broken_rule_of(tree, geoset, setup), "");
    EXPECT_EQ(tree.node_count, 0U);
    EXPECT_EQ(tree.max_leaf_size, 20U);
}

// max_elements 0 asks for cuts until nothing is left to cut; it must neither divide nor hang.
TEST(Compile, NoElementAllowedEndsWithPrecision) {
    std::mt19937 random(5);
    whole_boxes geoset(make_boxes(random, 6, trouble::coincident));
    kd_tree<float> tree;
    const kd_build_setup setup{0, 100000, 3, 1, 2, 0.95f, false};
    compile(geoset, tree, setup, morva::kd_strategy_median());
    EXPECT_EQ(broken_rule_of(tree, geoset, setup), "");
    EXPECT_LT(tree.max_depth_reached, 1000U);
}

TEST(Compile, CuttingConservesVolume) {
    std::mt19937 random(11);
    const auto volume = [](const whole_boxes& boxes) {
        double sum = 0;
        for (std::size_t e = 0; e < boxes.size; ++e) {
            const box3 b = boxes.box(e);
            sum += (double(b[0][1]) - double(b[0][0])) * (double(b[1][1]) - double(b[1][0])) *
                   (double(b[2][1]) - double(b[2][0]));
        }
        return sum;
    };
    cut_boxes geoset(make_boxes(random, 300, trouble::none));
    const double before = volume(geoset);
    kd_tree<float> tree;
    compile(geoset, tree, {4, 20, 1, 1, 2, 0.95f, false}, morva::kd_strategy_ObjMedian());
    EXPECT_GT(geoset.size, 400U);
    EXPECT_EQ(tree.index_count, geoset.size);
    EXPECT_NEAR(volume(geoset), before, 1e-5 * before);
}

TEST(TriangleCount, AndMeanDepthFollowTheLeaves) {
    std::mt19937 random(13);
    whole_boxes geoset(make_boxes(random, 200, trouble::none));
    kd_tree<float> tree;
    compile(geoset, tree, {4, 9, 2, 1, 2, 0.95f, false}, morva::kd_strategy_median());
    ASSERT_FALSE(tree.nodes[0].is_leaf());
    EXPECT_GT(triangle_count<float>(tree, 0), geoset.size); // twice where a box crosses a plane
    EXPECT_EQ(triangle_count<float>(tree, 0), tree.index_count);
    const auto right = static_cast<unsigned int>(tree.nodes[0].right);
    EXPECT_EQ(triangle_count<float>(tree, 1) + triangle_count<float>(tree, right),
              tree.index_count);

    float both = 0, whole = 0;
    avg_depth_node<float>(tree, 0, 0, whole);
    avg_depth_node<float>(tree, 1, 1, both);
    avg_depth_node<float>(tree, int(right), 1, both);
    EXPECT_EQ(whole, both);
    EXPECT_LE(whole / float(tree.leaf_count), 9.0f);
    EXPECT_GE(whole / float(tree.leaf_count), 1.0f);
}

TEST(CheckResize, MakesRoomAndKeepsTheNodes) {
    kd_tree<float> tree;
    for (unsigned long node : {0UL, 1UL, 2UL, 3UL, 50UL}) {
        tree.check_resize(node);
        ASSERT_LT(node, tree.node_capacity);
        tree.nodes[node].first = std::uint32_t(100 + node);
    }
    ASSERT_NE(tree.nodes, nullptr);
    EXPECT_EQ(tree.nodes[0].first, 100U);
    EXPECT_EQ(tree.nodes[3].first, 103U);
    const std::uint64_t capacity = tree.node_capacity;
    tree.check_resize(7);
    EXPECT_EQ(tree.node_capacity, capacity);
}

struct sort_row {
    const char* rule;
    float lo, hi;
    int mode;
    bool left, right; ///< where the element stands afterwards
};

class SortRule : public testing::TestWithParam<sort_row> {};

TEST_P(SortRule, AtThePlaneFour) {
    const sort_row& row = GetParam();
    const box3 box = {{{row.lo, row.hi}, {0, 1}, {0, 1}}};
    whole_boxes geoset(std::vector<box3>{box});
    kd_tree<float> tree;
    prepare_tree(tree, 1, {});
    int added = -1;
    bool stop = true;
    const unsigned long left = sort(geoset, 0, 1, 4.0f, 0, added, tree, stop, row.mode);
    EXPECT_EQ(left, row.left ? 1U : 0U);
    EXPECT_EQ(1 + static_cast<unsigned long>(added) - left, row.right ? 1U : 0U);
    EXPECT_TRUE(stop);
}

const float not_a_number = std::numeric_limits<float>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Rules, SortRule,
    testing::Values(sort_row{"begins on the plane", 4, 9, 3, false, true},
                    sort_row{"begins on the plane, doubled", 4, 9, 2, false, true},
                    sort_row{"ends on the plane", 1, 4, 3, true, false},
                    sort_row{"ends on the plane, centre rounds up to it",
                             std::nextafter(4.0f, 0.0f), 4, 3, true, false},
                    sort_row{"ends on the plane, doubled", 1, 4, 2, true, false},
                    sort_row{"flat on the plane", 4, 4, 2, false, true},
                    sort_row{"crosses, centre left", 1, 6, 3, true, false},
                    sort_row{"crosses, centre right", 3, 9, 3, false, true},
                    sort_row{"crosses, centre on the plane", 3, 5, 3, false, true},
                    sort_row{"crosses, doubled", 3, 5, 2, true, true},
                    sort_row{"cannot be cut", 1, 6, 1, true, false},
                    sort_row{"NaN below", not_a_number, 3, 3, true, false},
                    sort_row{"NaN above", 1, not_a_number, 3, false, true},
                    sort_row{"NaN, doubled", not_a_number, not_a_number, 2, true, true}),
    [](const auto& row) {
        std::string name;
        for (const char* c = row.param.rule; *c != 0; ++c)
            if (std::isalnum(static_cast<unsigned char>(*c)))
                name += *c;
        return name;
    });

// Old left, new left, new right, old right, then the tail: with cuts and with references.
TEST(Sort, KeepsNewIndicesBetweenTheOldOnes) {
    std::mt19937 random(17);
    for (int round = 0; round < 200; ++round) {
        const auto boxes = make_boxes(random, 4 + random() % 30, trouble(random() % 4));
        const int mode = 1 + int(random() % 3), axis = int(random() % 3);
        const float plane = float(random() % 7) - 2;
        const std::uint64_t first = random() % 3, count = boxes.size() - first - random() % 2;
        cut_boxes geoset(boxes), naive(boxes);
        kd_tree<float> tree;
        prepare_tree(tree, boxes.size(), {});
        if (round % 2 == 0)
            tree.resize_indices(tree.index_count); // no room to spare
        std::vector<std::uint64_t> indices(tree.indices, tree.indices + tree.index_count);
        int added = 0;
        bool stop = false;
        const auto left = sort(geoset, first, count, plane, axis, added, tree, stop, mode);
        std::uint64_t twin_added = 0;
        const auto twin_left =
            naive_sort(naive, indices, first, count, plane, axis, mode, twin_added);
        ASSERT_EQ(left, twin_left);
        ASSERT_EQ(std::uint64_t(added), twin_added);
        ASSERT_EQ(std::vector<std::uint64_t>(tree.indices, tree.indices + tree.index_count),
                  indices);
    }
}

} // namespace
