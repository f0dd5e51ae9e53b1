#include <morva/core/morva_math.h>
#include <morva/core/morva_span.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
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

float_box box_over(std::vector<float_triangle> triangles) {
    flat_list list;
    list.triangles = triangles.data();
    list.count = triangles.size();
    return calc_bounding_box(list);
}

TEST(Vector, NormalizesAndLeavesNanForNoLength) {
    float3 v{2, -3, 6};
    v.normalize();
    EXPECT_FLOAT_EQ(v[0], 2.0f / 7);
    EXPECT_FLOAT_EQ(v[1], -3.0f / 7);
    EXPECT_FLOAT_EQ(v[2], 6.0f / 7);
    float3 none;
    none.normalize();
    for (std::size_t a = 0; a < 3; ++a)
        EXPECT_TRUE(std::isnan(none[a]));
}

TEST(Vector, PrintsInBrackets) {
    std::ostringstream out;
    out << float3{1, -2.5f, 1e10f};
    EXPECT_EQ(out.str(), "(1, -2.5, 1e+10)");
    std::wostringstream wide;
    wide << float3{1, 0, 3};
    EXPECT_EQ(wide.str(), L"(1, 0, 3)");
}

TEST(CalcBoundingBox, RepairsFlatAxesAroundZero) {
    struct {
        const char* name;
        float_triangle triangle;
        float3 min, max;
    } const rows[] = {
        {"flat in z, at z = 5", {{0, 0, 5}, {10, 0, 5}, {0, 10, 5}}, {0, 0, -0.5f}, {10, 10, 0.5f}},
        {"flat in x and y",
         {{3, 3, 0}, {3, 3, 8}, {3, 3, 2}},
         {-0.4f, -0.02f, 0},
         {0.4f, 0.02f, 8}},
        {"a single place", {{7, 7, 7}, {7, 7, 7}, {7, 7, 7}}, {0, 0, 0}, {0, 0, 0}},
        {"thin, but thick enough", {{0, 0, 0}, {1, 0, 2e-7f}, {0, 1, 0}}, {0, 0, 0}, {1, 1, 2e-7f}},
    };
    for (const auto& row : rows) {
        const float_box box = box_over({row.triangle});
        for (std::size_t a = 0; a < 3; ++a) {
            EXPECT_FLOAT_EQ(box.min[a], row.min[a]) << row.name << ", axis " << a;
            EXPECT_FLOAT_EQ(box.max[a], row.max[a]) << row.name << ", axis " << a;
            EXPECT_EQ(box.extent[a], box.max[a] - box.min[a]) << row.name;
        }
    }
}

TEST(CalcBoundingBox, HoldsEveryCornerTightly) {
    std::mt19937 random(4);
    std::uniform_real_distribution<float> place(-100, 100);
    for (std::size_t count = 1; count < 40; ++count) {
        std::vector<float_triangle> triangles(count);
        std::vector<float> places[3];
        for (float_triangle& t : triangles)
            for (float3* corner : {&t.a, &t.b, &t.c})
                for (std::size_t a = 0; a < 3; ++a)
                    places[a].push_back((*corner)[a] = place(random));
        const float_box box = box_over(triangles);
        for (std::size_t a = 0; a < 3; ++a) {
            EXPECT_EQ(box.min[a], *std::min_element(places[a].begin(), places[a].end()));
            EXPECT_EQ(box.max[a], *std::max_element(places[a].begin(), places[a].end()));
        }
    }
}

TEST(CalcBoundingBox, StandsNoTriangleAndNan) {
    const float_box none = box_over({});
    EXPECT_EQ(none.extent[0], 0.0f);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float_box later = box_over({{{0, 0, 0}, {nan, 1, 1}, {2, 2, 2}}});
    EXPECT_EQ(later.max[0], 2.0f); // passed over
    const float_box first = box_over({{{nan, 0, 0}, {1, 1, 1}, {2, 2, 2}}});
    EXPECT_TRUE(std::isnan(first.max[0])); // nothing compares with it
    EXPECT_EQ(first.max[1], 2.0f);
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
