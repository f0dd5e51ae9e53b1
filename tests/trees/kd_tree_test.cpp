#include <morva/trees/kd_rules.h>
#include <morva/trees/kd_tree.h>

#include "naive_kd.h"
#include "test_geosets.h"

namespace {

using morva::avg_depth_node;
using morva::kd_build_setup;
using morva::kd_tree;
using morva::triangle_count;

/// Nodes as plain numbers, planes to the last bit.
std::vector<std::array<std::int64_t, 3>> numbers_of(const morva::kd_node<float>* nodes,
                                                    std::uint64_t count) {
    std::vector<std::array<std::int64_t, 3>> numbers;
    for (const auto* n = nodes; n != nodes + count; ++n) {
        if (n->is_leaf())
            numbers.push_back({-1, n->range_first(), n->range_count()});
        else
            numbers.push_back({n->axis, n->right_child(), bits_of(n->cut_plane())});
    }
    return numbers;
}

std::vector<std::uint64_t> indices_of(const kd_tree<float>& tree) {
    return {tree.indices, tree.indices + tree.index_count};
}

void expect_same(const kd_tree<float>& tree, const naive_tree& twin) {
    EXPECT_EQ(numbers_of(tree.nodes, tree.node_count + 1),
              numbers_of(twin.nodes.data(), twin.nodes.size()));
    EXPECT_EQ(indices_of(tree), twin.indices);
    EXPECT_EQ(tree.leaf_count, twin.leaf_count);
    EXPECT_EQ(tree.max_leaf_size, twin.max_leaf_size);
    EXPECT_EQ(tree.max_depth_reached, twin.max_depth_reached);
    EXPECT_LE(tree.index_count, tree.index_capacity);
}

/// The box of the elements, or with `spare` one that fits loosely, and here and there not at all.
morva::float_box box_around(const morva::float_box& tight, std::uint64_t spare,
                            std::mt19937& random) {
    morva::float_box box = tight;
    for (std::size_t a = 0; spare > 0 && a < 3; ++a) {
        if (random() % 2 == 0)
            box.max[a] += float(random() % 20);
        if (random() % 3 == 0)
            box.min[a] -= float(random() % 20);
        if (random() % 8 == 0)
            box.max[a] = box.min[a]; // no area to speak of
    }
    box.refresh_extent();
    return box;
}

/// Builds a tree and its twin: over all, or in a loose box over a part of the indices, those
/// around which have to keep their values. True if the root was cut.
template <typename Geoset, typename Strategy>
bool expect_twin_tree(const std::vector<box3>& boxes, const kd_build_setup& setup,
                      const Strategy& strategy, std::mt19937& random, std::uint64_t spare = 0) {
    Geoset geoset(boxes), naive(boxes);
    const auto box = box_around(morva::refresh_bounding_box(geoset), spare, random);
    const std::uint64_t first = spare / 2, count = geoset.size - spare;
    kd_tree<float> tree;
    naive_tree twin;
    std::uint64_t next = 0;
    for (std::uint64_t e = 0; e < geoset.size; ++e)
        twin.indices.push_back(e);
    const stream_capture told(std::cout);
    {
        const stream_capture twin_told(std::cout);
        naive_build(twin, next, naive, first, count, box, 0, setup, strategy);
        twin.told = twin_told.text();
    }
    if (spare == 0) {
        compile(geoset, tree, setup, strategy);
    } else {
        prepare_tree(tree, geoset.size, setup);
        process_node(tree, 0, geoset, first, count, box, 0, setup, strategy);
    }
    expect_same(tree, twin);
    EXPECT_EQ(told.text(), twin.told);
    EXPECT_EQ(geoset.size, naive.size);
    return !tree.nodes[0].is_leaf();
}

template <typename Strategy>
void expect_twins_everywhere(const Strategy& strategy, unsigned int loose_cuts) {
    std::mt19937 random(20240);
    const float costs[] = {-1.0f, 0.0f, 0.125f, 1.0f, 2.0f};
    const auto any = [&random](const auto& from) { return from[random() % 5]; };
    unsigned int cuts = 0;
    for (int round = 0; round < 1400; ++round) {
        auto boxes = make_boxes(random, any(std::array{1, 2, 3, 17, 90}),
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
        SCOPED_TRACE(testing::Message() << "round " << round);
        if (round % 2 == 0) {
            expect_twin_tree<cut_boxes>(boxes, setup, strategy, random);
            expect_twin_tree<spoiled_boxes>(boxes, setup, strategy, random);
            expect_twin_tree<whole_boxes>(boxes, setup, strategy, random);
            expect_twin_tree<packed_points>(boxes, setup, strategy, random);
        } else if (boxes.size() > 3) {
            const auto spare = 1 + random() % 3;
            cuts += expect_twin_tree<cut_boxes>(boxes, setup, strategy, random, spare) ? 1 : 0;
        }
    }
    EXPECT_GT(cuts, loose_cuts);
}

/// A strategy that the library does not know: a quarter of the axis behind the longest.
struct quarters {
    struct build_state {};
    template <typename Range>
    float plane(const Range&, const morva::float_box& box, int& axis, build_state&) const {
        axis = (axis + 1) % 3;
        return box.min[std::size_t(axis)] + box.extent[std::size_t(axis)] * 0.25f;
    }
};

template <typename Geoset>
float naive_plane(const quarters& strategy, const Geoset&, const kd_build_setup&,
                  const std::vector<std::uint64_t>&, const morva::float_box& box, int& axis) {
    quarters::build_state none;
    return strategy.plane(nullptr, box, axis, none);
}

TEST(Compile, BuildsTheTreeOfItsNaiveTwinAndSaysTheSame) {
    expect_twins_everywhere(morva::kd_strategy_median(), 100);
    expect_twins_everywhere(morva::kd_strategy_ObjMedian(), 100);
    expect_twins_everywhere(morva::kd_strategy_SAH(), 40);
    expect_twins_everywhere(quarters(), 100);
}

TEST(Compile, ATreeCanBeBuiltAgainAndCountedBelowAnyNodeAndGivenMoreRoom) {
    std::mt19937 random(3);
    kd_tree<float> tree;
    tree.check_resize(0);
    EXPECT_EQ(tree.node_capacity, 1U);
    EXPECT_EQ(triangle_count<float>(tree, 0), 0U);
    for (const std::size_t count : {400, 0, 3, 900}) {
        whole_boxes geoset(make_boxes(random, count, trouble::none));
        const kd_build_setup setup{2, 20, 2, 1, 2, 0.95f, false};
        tree.factor = 7;
        compile(geoset, tree, setup, morva::kd_strategy_ObjMedian());
        EXPECT_EQ(triangle_count<float>(tree, 0), count == 0 ? 0 : tree.index_count);
        EXPECT_EQ(tree.factor, 1.0);
    }
    const int right = tree.nodes[0].right_child();
    EXPECT_GT(tree.index_count, 900U); // twice where a box crosses a plane
    EXPECT_EQ(triangle_count<float>(tree, 1) + triangle_count<float>(tree, unsigned(right)),
              tree.index_count);
    float both = 0, whole = 0;
    avg_depth_node<float>(tree, 0, 0, whole);
    avg_depth_node<float>(tree, 1, 1, both);
    avg_depth_node<float>(tree, right, 1, both);
    EXPECT_EQ(whole, both);
    EXPECT_NEAR(whole / float(tree.leaf_count), 14.0f, 6.0f);
    const std::uint64_t room = tree.node_capacity;
    tree.check_resize(room - 1);
    EXPECT_EQ(tree.node_capacity, room);
    tree.check_resize(room);
    EXPECT_EQ(tree.node_capacity, 2 * room);
    EXPECT_EQ(triangle_count<float>(tree, 0), tree.index_count) << "the nodes stay";
}

TEST(Compile, EndsWherePrecisionDoesAlsoWhereNoElementsAreAllowed) {
    const float far = 1e8f;
    for (const auto& [low, high, nodes] :
         {std::tuple(1.0f, 1.25f, 82U), std::tuple(far, std::nextafter(far, 2e8f), 0U)}) {
        const box3 one = {{{low, low}}}, other = {{{high, high}}};
        whole_boxes geoset({one, one, other, other});
        kd_tree<float> tree;
        const kd_build_setup setup{0, 100000, 3, 1, 2, 0.95f, false};
        compile(geoset, tree, setup, morva::kd_strategy_ObjMedian());
        EXPECT_EQ(tree.node_count, nodes);
    }
}

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
        auto indices = indices_of(tree);
        int added = 0;
        bool stop = round % 3 == 0;
        const auto left = sort(geoset, first, count, plane, axis, added, tree, stop, mode);
        std::uint64_t twin_added = 0;
        ASSERT_EQ(left, naive_sort(naive, indices, first, count, plane, axis, mode, twin_added));
        ASSERT_EQ(std::uint64_t(added), twin_added);
        ASSERT_EQ(indices_of(tree), indices);
        ASSERT_EQ(stop, round % 3 == 0); // callers pass it along
    }
}

TEST(KdRules, NameWhatIsBroken) {
    const struct {
        const char* rule;
        void (*spoil)(kd_tree<float>& tree, kd_build_setup& setup);
    } rows[] = {
        {"", [](auto&, auto&) {}},
        {"node_count below node_capacity", [](auto& t, auto&) { t.node_capacity = 6; }},
        {"index_count within index_capacity", [](auto& t, auto&) { t.index_capacity = 3; }},
        {"all nodes hang below the root", [](auto& t, auto&) { t.node_count = 7; }},
        {"nodes stand in pre-order", [](auto& t, auto&) { t.node_count = 5; }},
        {"leaf_count counts the leaves", [](auto& t, auto&) { ++t.leaf_count; }},
        {"max_leaf_size is that of the fullest leaf", [](auto& t, auto&) { ++t.max_leaf_size; }},
        {"no node below max_depth", [](auto&, auto& setup) { setup.max_depth = 1; }},
        {"axis is 0, 1 or 2", [](auto& t, auto&) { t.nodes[1].axis = 3; }},
        {"right follows the left subtree", [](auto& t, auto&) { ++t.nodes[0].right; }},
        {"leaves lie end to end", [](auto& t, auto&) { ++t.nodes[2].first; }},
        {"leaves cover all indices", [](auto& t, auto&) { ++t.index_count; }},
        {"indices are element numbers", [](auto& t, auto&) { t.indices[3] = 4; }},
        {"no element stands twice",
         [](auto& t, auto& setup) {
             setup.straddle_mode = 1; // cut elements are not asked for their side
             t.indices[1] = t.indices[0];
         }},
        {"elements lie on their side of each plane",
         [](auto& t, auto&) { std::swap(t.indices[0], t.indices[3]); }}};
    for (const auto& row : rows) {
        whole_boxes geoset({{{{0, 1}}}, {{{1, 2}}}, {{{2, 3}}}, {{{3, 4}}}}); // side by side on x
        kd_build_setup setup{1, 9, 3, 1, 2, 0.95f, false};
        kd_tree<float> tree;
        compile(geoset, tree, setup, morva::kd_strategy_median());
        ASSERT_EQ(tree.node_count, 6U);
        const std::uint64_t indices = tree.index_capacity;
        row.spoil(tree, setup);
        EXPECT_EQ(broken_rule_of(tree, geoset, setup), row.rule);
        tree.index_capacity = indices;
    }
}

} // namespace
