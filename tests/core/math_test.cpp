#include "tests/support/test.h"

#include <morva/core/morva_math.h>
#include <morva/core/morva_twister.h>

namespace {

using morva::float3;
using morva::float_box;
using morva::float_triangle;

using flat_list = morva::geo_set_convertable<float_triangle, float_triangle>;

static_assert(sizeof(float3) == 3 * sizeof(float), "a vector is its components");
static_assert(sizeof(float_box) == 9 * sizeof(float), "a box is three points");
static_assert(sizeof(float_triangle) == 9 * sizeof(float), "a triangle is three points");
static_assert(sizeof(morva::math::transformation_matrix<float>) == 16 * sizeof(float), "16 values");

TEST(CalcBoundingBox, HoldsEveryCornerAndRepairsFlatAxesAroundZero) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const struct {
        const char* rule;
        std::vector<float_triangle> triangles;
        float3 min, max;
    } rows[] = {
        {"every corner counts",
         {{{0, 9, 4}, {-3, 1, 5}, {2, 2, 6}}, {{1, 1, -7}, {8, 0, 1}, {0, -2, 2}}},
         {-3, -2, -7},
         {8, 9, 6}},
        {"flat in z", {{{0, 0, 5}, {10, 0, 5}, {0, 10, 5}}}, {0, 0, -0.5f}, {10, 10, 0.5f}},
        {"flat in two", {{{3, 3, 0}, {3, 3, 8}, {3, 3, 2}}}, {-0.4f, -0.02f, 0}, {0.4f, 0.02f, 8}},
        {"a single place", {{{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}}, {0, 0, 0}, {0, 0, 0}},
        {"thick enough", {{{0, 0, 0}, {1, 0, 2e-7f}, {0, 1, 0}}}, {0, 0, 0}, {1, 1, 2e-7f}},
        {"none", {}, {0, 0, 0}, {0, 0, 0}},
        {"nan is passed over", {{{0, 0, 0}, {nan, 1, 1}, {2, 2, 2}}}, {0, 0, 0}, {2, 2, 2}}};
    for (auto row : rows) {
        flat_list list;
        list.triangles = row.triangles.data();
        list.count = row.triangles.size();
        const float_box box = morva::calc_bounding_box<flat_list>(list);
        for (std::size_t a = 0; a < 3; ++a) {
            EXPECT_FLOAT_EQ(box.min[a], row.min[a]) << row.rule << ", axis " << a;
            EXPECT_FLOAT_EQ(box.max[a], row.max[a]) << row.rule << ", axis " << a;
            EXPECT_EQ(box.extent[a], box.max[a] - box.min[a]) << row.rule;
        }
    }
}

// ---- random numbers

/// Of the first 2,000 numbers, which are more than three blocks, and of the words that they are
/// made of: the low bits are lost in a number.
std::uint64_t hashOf(Twister& twister) {
    std::uint64_t hash = 14695981039346656037U;
    for (int i = 0; i < 2000; ++i) {
        const float number = twister.rand();
        hash = (hash ^ twister.state[twister.index - 1]) * 1099511628211U;
        hash = (hash ^ bits_of(number)) * 1099511628211U;
    }
    return hash;
}

TEST(Twister, FollowsItsSequenceOverSeveralBlocks) {
    Twister again(17), zero(3);
    again.rand();
    again.do_seed(4357);
    zero.do_seed(0);
    const std::uint64_t usual = 11101408977897574168U;
    std::pair<Twister, std::uint64_t> rows[] = {{Twister(), usual},
                                                {Twister(0), usual},
                                                {Twister(1), 524202476835808695U},
                                                {Twister(~0UL), 15184841491409120591U},
                                                {again, 10782746851338040425U},
                                                {zero, 5304408120838048511U}}; // not the usual one
    for (auto& [twister, hash] : rows)
        EXPECT_EQ(hashOf(twister), hash);
}

} // namespace
