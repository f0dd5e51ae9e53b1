#include <morva/core/morva_math.h>
#include <morva/core/morva_span.h>

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <vector>

namespace {

using morva::float3;
using morva::float_box;
using morva::float_triangle;

using flat_list = morva::geo_set_convertable<float_triangle, float_triangle>;

static_assert(sizeof(float3) == 3 * sizeof(float), "a vector is its components");
static_assert(sizeof(float_box) == 9 * sizeof(float), "a box is three points");
static_assert(sizeof(float_triangle) == 9 * sizeof(float), "a triangle is three points");
static_assert(sizeof(morva::math::transformation_matrix<float>) == 16 * sizeof(float), "16 values");

TEST(Vector, NormalizesLeavesNanForNoLengthAndPrintsInBrackets) {
    float3 v{2, -3, 6}, none;
    v.normalize();
    none.normalize();
    const float expected[] = {2.0f / 7, -3.0f / 7, 6.0f / 7};
    for (std::size_t a = 0; a < 3; ++a) {
        EXPECT_FLOAT_EQ(v[a], expected[a]);
        EXPECT_TRUE(std::isnan(none[a]));
    }
    std::ostringstream out;
    std::wostringstream wide;
    out << float3{1, -2.5f, 1e10f};
    wide << float3{1, 0, 3};
    EXPECT_EQ(out.str(), "(1, -2.5, 1e+10)");
    EXPECT_EQ(wide.str(), L"(1, 0, 3)");
}

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
        {"flat in z, at z = 5",
         {{{0, 0, 5}, {10, 0, 5}, {0, 10, 5}}},
         {0, 0, -0.5f},
         {10, 10, 0.5f}},
        {"flat in x and y",
         {{{3, 3, 0}, {3, 3, 8}, {3, 3, 2}}},
         {-0.4f, -0.02f, 0},
         {0.4f, 0.02f, 8}},
        {"a single place", {{{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}}, {0, 0, 0}, {0, 0, 0}},
        {"thick enough", {{{0, 0, 0}, {1, 0, 2e-7f}, {0, 1, 0}}}, {0, 0, 0}, {1, 1, 2e-7f}},
        {"none", {}, {0, 0, 0}, {0, 0, 0}},
        {"nan is passed over", {{{0, 0, 0}, {nan, 1, 1}, {2, 2, 2}}}, {0, 0, 0}, {2, 2, 2}},
    };
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

TEST(GetMs, StandsStill) { EXPECT_EQ(morva::get_ms(), 0); }

TEST(Span, SeesTheStorageAndClampsItsParts) {
    std::vector<int> values = {1, 2, 3, 4, 5};
    const morva::span<int> all = values;
    all[1] = 20;
    EXPECT_EQ(values[1], 20);
    EXPECT_EQ(morva::span<const int>(all).data(), values.data());
    const std::size_t rest = static_cast<std::size_t>(-1);
    const std::size_t rows[][3] = {{0, 5, 5}, {2, 2, 2}, {3, 9, 2},   {5, 1, 0},
                                   {9, 1, 0}, {2, 0, 0}, {1, rest, 4}}; // first, count, size
    for (const auto& row : rows) {
        const morva::span<int> part = all.subspan(row[0], row[1]);
        EXPECT_EQ(part.size(), row[2]) << row[0] << ", " << row[1];
        EXPECT_TRUE(part.empty() || part.data() == &values[row[0]]);
    }
    EXPECT_TRUE(morva::span<int>().empty());
}

} // namespace
