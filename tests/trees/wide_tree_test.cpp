// The tree of eight children: what it holds, and which leaves a ray comes to.

#include "tests/support/test.h"

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
        items[i].number = std::uint32_t(i);
    }
    return items;
}

TEST(WideTree, HoldsEachItemOnceAndRaysComeToTheItemsThatTheyPass) {
    std::mt19937 rng(seedOf(7));
    for (unsigned round = 0; round < roundsOf(60U); ++round) {
        SCOPED_TRACE(round);
        std::vector<wide_item> items = anyItems(rng, round % 3);
        const wide_tree tree(items);
        ASSERT_EQ(tree.nodes.empty(), items.empty());
        std::set<std::uint32_t> numbers;
        std::normal_distribution<float> any;
        for (std::uint32_t leaf = 0; leaf < tree.leaves.size(); ++leaf) {
            const auto [first, count] = tree.leaves[leaf];
            ASSERT_TRUE(count >= 1 && count <= 8);
            for (std::uint32_t k = first; k < first + count; ++k) {
                const wide_item& item = items[k];
                EXPECT_EQ(item.owner, items[first].owner);
                numbers.insert(item.number);
                if (k != first || !morva::detail::wide_registers)
                    continue;
                const float3 from{any(rng), any(rng), any(rng)}; // through its centre
                float3 inverse;
                for (std::size_t a = 0; a < 3; ++a)
                    inverse[a] = 1 / (0.5F * (item.low[a] + item.high[a]) - from[a]);
                std::size_t seen = 0;
                const auto find_it = [&](std::uint32_t other) {
                    return ++seen > 0 && other == leaf;
                };
                EXPECT_TRUE(walk(tree, from, inverse, 0.0F, 1.0F, find_it));
                EXPECT_TRUE(round % 3 == 0 || seen <= tree.leaves.size() / 2 + 20);
            }
        }
        EXPECT_EQ(numbers.size(), items.size());
    }
}

} // namespace
