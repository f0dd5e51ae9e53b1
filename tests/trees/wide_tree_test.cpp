// The tree of eight children: what it holds, and which leaves a ray comes to.

#include "tests/support/test.h"

#include <algorithm>
#include <random>
#include <set>

#include <morva/trees/ray_packets.h>
#include <morva/trees/wide_walk.h>

namespace {

using morva::float3;
using morva::wide_item;
using morva::wide_tree;

/// Boxes of several owners: many at one place (kind 0), flat (1), or anywhere and small (2).
std::vector<wide_item> anyItems(std::mt19937& rng, unsigned kind) {
    std::vector<wide_item> items(rng() % 4 == 0 ? rng() % 12 : rng() % 3000);
    const unsigned owners = 1 + rng() % 5;
    std::uniform_real_distribution<float> place(-1, 1), size(0, 0.1F);
    for (std::size_t i = 0; i < items.size(); ++i) {
        for (std::size_t a = 0; a < 3; ++a) {
            const float at = kind == 0 && i % 3 != 0 ? 0.5F : place(rng);
            items[i].low[a] = kind == 1 && a == 2 ? 0.0F : at;
            items[i].high[a] = items[i].low[a] + (kind == 2 ? 0.0F : size(rng));
        }
        items[i].owner = rng() % owners;
        items[i].number = static_cast<std::uint32_t>(i);
    }
    return items;
}

/// Leaves below a node in order; adds what is wrong with boxes to `broken`.
std::vector<std::uint32_t> leavesOf(const wide_tree& tree, const std::vector<wide_item>& items,
                                    std::uint32_t child, int& broken) {
    if ((child & wide_tree::leaf_flag) != 0)
        return {child & ~wide_tree::leaf_flag};
    const morva::wide_node& node = tree.nodes[child];
    std::vector<std::uint32_t> all;
    for (std::size_t lane = 0; lane < 8 && node.planes[0][lane] <= node.planes[3][lane]; ++lane) {
        for (const std::uint32_t leaf : leavesOf(tree, items, node.child[lane], broken)) {
            all.push_back(leaf);
            for (std::uint32_t k = 0; k < tree.leaves[leaf].count; ++k)
                for (std::size_t a = 0; a < 3; ++a) {
                    const wide_item& item = items[tree.leaves[leaf].first + k];
                    broken += item.low[a] < node.planes[a][lane] ||
                              item.high[a] > node.planes[a + 3][lane];
                }
        }
    }
    return all;
}

/// Takes down the leaves that come until one of them is the last wanted.
struct visitor {
    std::set<std::uint32_t> seen;
    std::uint32_t last = wide_tree::leaf_flag;

    bool operator()(std::uint32_t leaf) {
        seen.insert(leaf);
        return leaf == last;
    }
};

TEST(WideTree, HoldsEachItemOnceAndRaysComeToTheBoxesThatTheyPass) {
    for (unsigned seed = 0; seed < 60; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        std::vector<wide_item> items = anyItems(rng, seed % 3);
        const wide_tree tree(items);
        ASSERT_EQ(tree.nodes.empty(), items.empty());
        if (items.empty())
            continue;
        int broken = 0;
        std::vector<std::uint32_t> leaves = leavesOf(tree, items, 0, broken);
        EXPECT_EQ(broken, 0);
        std::sort(leaves.begin(), leaves.end());
        ASSERT_EQ(leaves.size(), tree.leaves.size());
        std::set<std::uint32_t> numbers;
        for (std::uint32_t i = 0; i < leaves.size(); ++i) {
            EXPECT_EQ(leaves[i], i);
            const auto [first, count] = tree.leaves[i];
            ASSERT_TRUE(count >= 1 && count <= 8);
            for (std::uint32_t k = first; k < first + count; ++k) {
                EXPECT_EQ(items[k].owner, items[first].owner);
                numbers.insert(items[k].number);
            }
        }
        EXPECT_EQ(numbers.size(), items.size());
        if (!morva::detail::wide_registers)
            continue;
        std::normal_distribution<float> any;
        for (std::uint32_t leaf = 0; leaf < leaves.size(); ++leaf) { // through a point of each
            const wide_item& item = items[tree.leaves[leaf].first];
            const float3 from{any(rng), any(rng), any(rng)};
            float3 inverse;
            for (std::size_t a = 0; a < 3; ++a)
                inverse[a] = 1 / (0.5F * (item.low[a] + item.high[a]) - from[a]);
            visitor all, some;
            EXPECT_FALSE(walk(tree, from, inverse, 0.0F, 2.0F, all));
            EXPECT_EQ(all.seen.count(leaf), 1U);
            EXPECT_TRUE(seed % 3 == 0 || all.seen.size() <= leaves.size() / 2 + 20);
            some.last = leaf;
            EXPECT_TRUE(walk(tree, from, inverse, 0.0F, 2.0F, some));
            visitor before;
            walk(tree, from, inverse, 0.0F, 0.4F, before);
            EXPECT_LE(before.seen.size(), all.seen.size());
        }
    }
}

} // namespace
