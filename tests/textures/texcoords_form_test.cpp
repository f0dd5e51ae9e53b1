// The normal form of texture coordinates, and questions about coordinates.

#include "naive_texcoords.h"
#include "texcoord_scenes.h"

#include "../support/scene_builders.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <random>

#include <morva/textures/morva_osg_texcoords.h>

namespace {

using uv::triple;
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

enum step { snap, positive, near_zero, wrap };

triple after(step which, triple t, int limit = 50) {
    switch (which) {
    case snap:
        morva::osg::roundTCToInteger(t[0], t[1], t[2]);
        break;
    case positive:
        morva::osg::getTCPositiv(t[0], t[1], t[2]);
        break;
    case near_zero:
        morva::osg::getTCNearToZero(t[0], t[1], t[2]);
        break;
    case wrap:
        morva::osg::cutTC(t[0], t[1], t[2], limit);
    }
    return t;
}

std::string textOf(const triple& t) {
    std::string text;
    for (const ::osg::Vec2f& point : t)
        text += testing::PrintToString(point[0]) + " " + testing::PrintToString(point[1]) + ", ";
    return text;
}

bool same(const triple& a, const triple& b) {
    bool equal = true;
    for (std::size_t i = 0; i < 3; ++i)
        equal &= uv::same(a[i][0], b[i][0]) && uv::same(a[i][1], b[i][1]);
    return equal;
}

TEST(NormalForm, EachStepDoesItsPart) {
    const struct {
        const char* name;
        step which;
        triple given, expected;
    } cases[] = {
        {"near whole numbers, from both sides",
         snap,
         {{0.9996F, 0}, {2.0004F, 0}, {1, 1}},
         {{1, 0}, {2, 0}, {1, 1}}},
        {"just too far, and negative",
         snap,
         {{0.9989F, -0.0005F}, {2.0011F, -1.0005F}, {0.5F, -3}},
         {{0.9989F, -0.0F}, {2.0011F, -1}, {0.5F, -3}}},
        {"the lowest goes to 0 .. 1",
         positive,
         {{-2.5F, 0}, {-1.5F, 0}, {-2, 1}},
         {{0.5F, 0}, {1.5F, 0}, {1, 1}}},
        {"a whole negative number goes to 0",
         positive,
         {{-2, 0.5F}, {7, -1}, {0, 3}},
         {{0, 1.5F}, {9, 0}, {2, 4}}},
        {"nothing negative stays", positive, {{7, 8}, {9, 8}, {7, 9}}, {{7, 8}, {9, 8}, {7, 9}}},
        {"a lowest of exactly 1 stays",
         near_zero,
         {{1, 0}, {2, 0}, {1, 1}},
         {{1, 0}, {2, 0}, {1, 1}}},
        {"a lowest of 2 goes", near_zero, {{2, 0}, {2, 1}, {4, 0}}, {{0, 0}, {0, 1}, {2, 0}}},
        {"a negative one stays", near_zero, {{-2, 3}, {4, 3}, {5, 3}}, {{-2, 0}, {4, 0}, {5, 0}}},
        {"both values of a point beyond the limit",
         wrap,
         {{60.5F, 7.25F}, {10, 70.5F}, {50, 50}},
         {{0.5F, 0.25F}, {0, 0.5F}, {50, 50}}},
        {"the other value stays up to 1",
         wrap,
         {{60.5F, 1}, {1, 70.5F}, {51.5F, 60.25F}},
         {{0.5F, 1}, {1, 0.5F}, {0.5F, 0.25F}}},
    };
    for (const auto& row : cases) {
        const triple made = after(row.which, row.given);
        EXPECT_TRUE(same(made, row.expected)) << row.name << ": " << textOf(made);
    }
    triple far = {{3.2F, 5.1F}, {4.2F, 5.1F}, {3.2F, 6.1F}};
    far = after(near_zero, far);
    const float expected[3][2] = {{0.2F, 0.1F}, {1.2F, 0.1F}, {0.2F, 1.1F}};
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_NEAR(far[i][0], expected[i][0], 1e-6);
        EXPECT_NEAR(far[i][1], expected[i][1], 1e-6);
    }
}

float anyValue(std::mt19937& rng) {
    const float special[] = {0.0F,       -0.0F,       1.0F,       -1.0F,        0.001F,
                             0.999F,     -0.001F,     1e30F,      -1e30F,       inf,
                             -inf,       FLT_MAX,     -FLT_MAX,   nan_value,    FLT_MIN,
                             8388607.5F, -8388607.5F, 8388608.0F, 2147483648.0F};
    std::uniform_real_distribution<float> near(-0.002F, 0.002F), some(-3.0F, 3.0F),
        wide(-120.0F, 120.0F);
    switch (rng() % 5) {
    case 0:
        return special[rng() % std::size(special)];
    case 1:
        return static_cast<float>(static_cast<int>(rng() % 9) - 4) + near(rng);
    case 2:
        return some(rng);
    case 3:
        return wide(rng);
    default:
        return std::nextafter(static_cast<float>(rng() % 4) + 0.001F, rng() % 2 == 0 ? 9.F : -9.F);
    }
}

TEST(NormalForm, IsThatOfTheNaiveTwinToTheLastBit) {
    std::mt19937 rng(7401);
    for (int round = 0; round < 60000; ++round) {
        triple t(3);
        for (::osg::Vec2f& point : t)
            point.setValues(anyValue(rng), anyValue(rng));
        const int limit = round % 7 == 0 ? static_cast<int>(rng() % 100) - 10 : 50;
        triple naive[4] = {t, t, t, t};
        uv::naiveSnap(naive[snap]);
        uv::naivePositive(naive[positive]);
        uv::naiveNearZero(naive[near_zero]);
        uv::naiveWrap(naive[wrap], limit);
        for (const step which : {snap, positive, near_zero, wrap}) {
            const triple made = after(which, t, limit);
            ASSERT_TRUE(same(made, naive[which]))
                << "step " << which << " of " << textOf(t) << " gives " << textOf(made)
                << " and not " << textOf(naive[which]);
        }
    }
}

/// A property of these coordinates, stored with two components or with three.
::osg::GeoTexCoordsPtr propertyOf(const std::vector<::osg::Vec2f>& values, bool three = false) {
    ::osg::GeoTexCoordsPtr property = ::osg::GeoTexCoords2f::create();
    if (three) {
        ::osg::addRefCP(property);
        ::osg::subRefCP(property);
        property = ::osg::GeoTexCoords3f::create();
    }
    for (const ::osg::Vec2f& value : values)
        property->addValue(value);
    return property;
}

TEST(HasTexCoords, ReportTheExtremesAndCompareWithTheirBounds) {
    const struct {
        const char* name;
        std::vector<::osg::Vec2f> values;
        bool greater, as_triangles, smaller;
        ::osg::Vec2f max, max_as_triangles, min;
    } cases[] = {
        {"none", {}, false, false, false, {0, 0}, {0, 0}, {0, 0}},
        {"1.04 is reported", {{1.04F, 0.5F}}, false, false, false, {1.04F, 0.5F}, {0, 0}, {0, 0}},
        {"1.05 is not above", {{1.05F, 0}}, false, false, false, {1.05F, 0}, {0, 0}, {0, 0}},
        {"v alone", {{0, 1.06F}}, true, false, false, {0, 1.06F}, {0, 0}, {0, 0}},
        {"a triangle and a rest",
         {{7, -3}, {7.5F, -3}, {7, -2.5F}, {9, 9}},
         true,
         false,
         true,
         {9, 9},
         {0.5F, 0.5F},
         {0, -3}},
        {"beyond the wrap",
         {{0, 0}, {60.25F, 0}, {0, 40}},
         true,
         true,
         false,
         {60.25F, 40},
         {0.25F, 40},
         {0, 0}},
        {"NaNs are passed over",
         {{nan_value, 2}, {0, nan_value}, {-1, 0}},
         true,
         true,
         true,
         {0, 2},
         {0, 2},
         {-1, 0}},
    };
    for (const auto& row : cases) {
        for (const bool three : {false, true}) {
            SCOPED_TRACE(row.name);
            const ::osg::GeoTexCoordsRefPtr property(propertyOf(row.values, three));
            float u = 7, v = 7;
            EXPECT_EQ(morva::osg::hasTexCoordsGreater1(property.get(), u, v, false), row.greater);
            EXPECT_EQ(::osg::Vec2f(u, v), row.max);
            EXPECT_EQ(morva::osg::hasTexCoordsGreater1(property.get(), u, v, true),
                      row.as_triangles);
            EXPECT_EQ(::osg::Vec2f(u, v), row.max_as_triangles);
            EXPECT_EQ(morva::osg::hasTexCoordsSmaller0(property.get(), u, v), row.smaller);
            EXPECT_EQ(::osg::Vec2f(u, v), row.min);
            for (::osg::UInt32 i = 0; i < row.values.size(); ++i)
                EXPECT_TRUE(uv::same(property->getValue(i)[0], row.values[i][0]));
        }
    }
    float u = 7, v = 7;
    EXPECT_FALSE(morva::osg::hasTexCoordsGreater1(::osg::NullFC, u, v, true));
    EXPECT_EQ(::osg::Vec2f(u, v), ::osg::Vec2f(0, 0));
    u = v = 7;
    EXPECT_FALSE(morva::osg::hasTexCoordsSmaller0(::osg::NullFC, u, v));
    EXPECT_EQ(::osg::Vec2f(u, v), ::osg::Vec2f(0, 0));
}

TEST(HasTCabove, LooksAtTheStoredOrTheDrawnCoordinates) {
    using namespace morva_test;
    mesh_data square = quads(1);
    square.coordinates = {{5, 0}, {6, 0}, {6, 2.5F}, {5, 2}};
    mesh_data edge = quads(1);
    edge.coordinates = {{0, 0}, {2.04F, 0}, {2.04F, 1}, {0, 1}};
    mesh_data at_limit = edge;
    at_limit.coordinates[1] = ::osg::Vec2f(2.0F + 0.05F, 0);
    mesh_data unused = withIndex(square, *std::make_unique<std::mt19937>(1));
    unused.indices = {0, 1, 3, 3};
    mesh_data short_list = square; // the last corner has no coordinate
    short_list.coordinates = {{5, 0}, {6, 0}, {6, 2}};
    mesh_data unmapped = square;
    unmapped.indices = {0, 1, 2, 3};
    unmapped.mapping = {::osg::Geometry::MapPosition};
    const struct {
        const char* name;
        ::osg::NodePtr node;
        float limit;
        bool plain, normalised;
    } cases[] = {
        {"null", ::osg::NullFC, 0, false, false},
        {"a group", group(), 0, false, false},
        {"no coordinates", meshNode(quads(1)), -1, false, false},
        {"2.04 is within 2", meshNode(edge), 2, false, false},
        {"and not within 1.9", meshNode(edge), 1.9F, true, true},
        {"the limit is not above itself", meshNode(at_limit), 2, false, false},
        {"5 to 6 is 0 to 1, v reaches 2.5", meshNode(square), 2.4F, true, true},
        {"v is in bounds", meshNode(square), 2.5F, true, false},
        {"2.5 is not drawn", meshNode(unused), 2.4F, true, false},
        {"a missing one is zero: 6 stays", meshNode(short_list), 5.5F, true, true},
        {"all missing are zero", meshNode(unmapped), 0, true, false},
        {"zero is above -1", meshNode(unmapped), -1, true, true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const ::osg::NodeRefPtr node(row.node);
        EXPECT_EQ(morva::osg::hasTCabove(row.node, row.limit, false), row.plain);
        EXPECT_EQ(morva::osg::hasTCabove(row.node, row.limit, true), row.normalised);
    }
}

TEST(CheckGeoForTexIndex, KeepsLargeImagesAndLargeCoordinatesOut) {
    using namespace morva_test;
    mesh_data square = quads(1);
    square.coordinates = {{5, 0}, {6, 0}, {6, 2.5F}, {5, 2}};
    const auto textured = [&](int width, int height) {
        return meshNode(square, chunked({1, 1, 1, 1}, imageOf(6407, width, height)));
    };
    const struct {
        const char* name;
        ::osg::NodePtr node;
        float limit;
        bool out;
    } cases[] = {{"null", ::osg::NullFC, 0, false},
                 {"all within", textured(16, 16), 3, false},
                 {"too wide", textured(17, 2), 3, true},
                 {"too high", textured(2, 17), 3, true},
                 {"coordinates", textured(16, 16), 2, true},
                 {"coordinates without image", meshNode(square), 2, true},
                 {"no image, no harm", meshNode(quads(1)), 2, false}};
    for (const auto& row : cases) {
        const ::osg::NodeRefPtr node(row.node);
        EXPECT_EQ(morva::osg::checkGeoForTexIndex(row.node, row.limit, 16), row.out) << row.name;
    }
}

} // namespace
