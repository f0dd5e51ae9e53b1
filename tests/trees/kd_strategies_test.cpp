#include "naive_kd.h"
#include "test_geosets.h"

#include <morva/trees/kd_strategies.h>

#include <gtest/gtest.h>

namespace {

using namespace morva_test;
using morva::kd_build_setup;
using morva::refresh_bounding_box;

std::vector<std::uint64_t> shuffled_indices(std::mt19937& random, std::size_t count) {
    std::vector<std::uint64_t> indices(count);
    for (std::size_t i = 0; i < count; ++i)
        indices[i] = i;
    std::shuffle(indices.begin(), indices.end(), random);
    return indices;
}

morva::float_box random_box(std::mt19937& random, whole_boxes& geoset) {
    morva::float_box box = refresh_bounding_box(geoset);
    for (std::size_t a = 0; a < 3; ++a) {
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

// Plane and axis to the last bit, sign of zero included, for boxes and costs of all kinds: the
// cheapest bound of one pass is the one that the ordered sweep keeps.
TEST(SahCalcPlane, FindsThePlaneOfTheSweep) {
    std::mt19937 random(99);
    unsigned int bounds = 0;
    for (int round = 0; round < 4000; ++round) {
        const auto kind = trouble(random() % unsigned(trouble::count));
        auto boxes = make_boxes(random, random() % 30, kind);
        if (round % 5 == 0) // both zeros as bounds
            for (std::size_t i = 0; i < boxes.size(); ++i)
                boxes[i][random() % 3] = {i % 2 ? -0.0f : 0.0f, random() % 2 ? 0.0f : -0.0f};
        whole_boxes geoset(boxes);
        const morva::float_box box = random_box(random, geoset);
        const float costs[] = {-1.0f, 0.0f, 0.5f, 1.0f, 2.0f};
        const kd_build_setup setup{1,
                                   1,
                                   3,
                                   costs[random() % 5],
                                   costs[random() % 5],
                                   random() % 4 ? 0.95f : costs[random() % 5],
                                   random() % 2 == 0};
        const auto indices = shuffled_indices(random, boxes.size());
        const std::size_t first = boxes.empty() ? 0 : random() % boxes.size();
        const std::size_t count = boxes.size() - first;

        const int longest = int(random() % 3);
        int axis = longest, twin_axis = longest;
        const morva::kd_strategy_SAH strategy;
        const float plane =
            strategy.calcPlane(geoset, setup, first, count, box, axis, indices.data());
        const float twin =
            naive_plane(strategy, geoset, setup,
                        {indices.begin() + std::ptrdiff_t(first), indices.end()}, box, twin_axis);
        ASSERT_EQ(axis, twin_axis) << "round " << round;
        ASSERT_EQ(bits_of(plane), bits_of(twin)) << "round " << round << ": " << plane;
        bounds += plane != box.min[std::size_t(longest)] ? 1 : 0;
    }
    EXPECT_GT(bounds, 500U);
}

TEST(SahCalcPlane, OneElementStaysALeafAndManyInATightBoxGiveItsUpperSide) {
    struct {
        std::size_t count;
        float plane;
        int axis;                                         ///< that of the plane; 2 goes in
    } const rows[] = {{0, 0, 2}, {1, 0, 2}, {64, 64, 0}}; // equal costs: the lowest axis wins
    for (const auto& row : rows) {
        std::vector<box3> boxes;
        for (std::size_t i = 0; i < row.count; ++i) // powers of two: nothing rounds
            boxes.push_back({{{float(i), float(i + 1)}, {0, 64}, {0, 64}}});
        whole_boxes geoset(boxes);
        std::mt19937 random(1);
        const auto indices = shuffled_indices(random, row.count);
        int axis = 2;
        EXPECT_EQ(morva::kd_strategy_SAH().calcPlane(
                      geoset, kd_build_setup{1, 50, 3, 1.0f, 2.0f, 0.95f, false}, 0, row.count,
                      refresh_bounding_box(geoset), axis, indices.data()),
                  row.plane);
        EXPECT_EQ(axis, row.axis);
    }
}

} // namespace
