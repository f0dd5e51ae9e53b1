// The normal form of texture coordinates, and questions about coordinates.

#include "tests/support/test.h"

#include "naive_texcoords.h"

#include <cfloat>

#include <morva/textures/morva_osg_texcoords.h>

namespace {

using tri::nan_value;
using uv::coordinates;
constexpr float inf = std::numeric_limits<float>::infinity();

coordinates after(uv::step which, coordinates t, int limit = 50) {
    void (*const steps[])(::osg::Vec2f&, ::osg::Vec2f&, ::osg::Vec2f&) = {
        morva::osg::roundTCToInteger, morva::osg::getTCPositiv, morva::osg::getTCNearToZero};
    if (which == uv::wrap)
        morva::osg::cutTC(t[0], t[1], t[2], limit);
    else
        steps[which](t[0], t[1], t[2]);
    return t;
}

bool same(const coordinates& a, const coordinates& b) {
    return std::equal(a.begin(), a.end(), b.begin(), [](const auto& p, const auto& q) {
        return uv::same(p[0], q[0]) && uv::same(p[1], q[1]);
    });
}

/// Pairs from a list of numbers, as " 1 2  0.5 1  3 3".
coordinates read(const char* text) {
    std::istringstream in(text);
    coordinates values;
    for (float u = 0, v = 0; in >> u >> v;)
        values.push_back(::osg::Vec2f(u, v));
    return values;
}

TEST(NormalForm, IsThatOfTheNaiveTwinToTheLastBit) {
    const float special[] = {0.0F,    -0.0F,      1.0F,          0.001F,   -0.001F, 0.999F,
                             1e30F,   -1e30F,     inf,           -inf,     FLT_MAX, -FLT_MAX,
                             FLT_MIN, 8388607.5F, 2147483648.0F, nan_value};
    std::mt19937 rng(7401);
    const auto any = [&] {
        const float unit = std::uniform_real_distribution<float>(-1.0F, 1.0F)(rng);
        const auto whole = static_cast<float>(rng() % 9) - 4.0F;
        const float values[] = {special[rng() % std::size(special)], whole + unit * 0.002F,
                                unit * 3, unit * 120, std::nextafter(whole + 0.001F, unit * 9)};
        return values[rng() % std::size(values)];
    };
    for (int round = 0; round < 60000; ++round) {
        coordinates t(3);
        for (::osg::Vec2f& point : t)
            point.setValues(any(), any());
        const int limit = round % 7 == 0 ? static_cast<int>(rng() % 100) - 10 : 50;
        for (const uv::step which : {uv::snap, uv::positive, uv::near_zero, uv::wrap}) {
            coordinates expected = t;
            uv::naiveStep(which, expected, limit);
            ASSERT_TRUE(same(after(which, t, limit), expected))
                << "step " << which << " limit " << limit << " of " << testing::PrintToString(t);
        }
    }
}

TEST(HasTexCoords, ReportTheExtremesAndCompareWithTheirBounds) {
    const struct {
        const char *name, *values;
        bool greater, as_triangles, smaller;
        ::osg::Vec2f max, max_as_triangles, min;
    } cases[] = {
        {"none", "", false, false, false, {0, 0}, {0, 0}, {0, 0}},
        {"1.04", "1.04 0.5", false, false, false, {1.04F, 0.5F}, {0, 0}, {0, 0}},
        {"1.05", "1.05 0", false, false, false, {1.05F, 0}, {0, 0}, {0, 0}},
        {"v alone", "0 1.06", true, false, false, {0, 1.06F}, {0, 0}, {0, 0}},
        {"rest", "7 -3 7.5 -3 7 -2.5 9 9", true, false, true, {9, 9}, {0.5F, 0.5F}, {0, -3}},
        {"wrap", "0 0 60.25 0 0 40", true, true, false, {60.25F, 40}, {0.25F, 40}, {0, 0}}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const ::osg::GeoTexCoordsRefPtr two(::osg::GeoTexCoords2f::create());
        const ::osg::GeoTexCoordsRefPtr three(::osg::GeoTexCoords3f::create());
        for (const auto& property : {two, three}) {
            for (const ::osg::Vec2f& value : read(row.values))
                property->addValue(value);
            ::osg::Vec2f found(7, 7);
            const auto greater = [&](bool as_triangles) {
                return morva::osg::hasTexCoordsGreater1(property.get(), found[0], found[1],
                                                        as_triangles);
            };
            EXPECT_EQ(greater(false), row.greater);
            EXPECT_EQ(found, row.max);
            EXPECT_EQ(greater(true), row.as_triangles);
            EXPECT_EQ(found, row.max_as_triangles);
            EXPECT_EQ(greater(false), row.greater) << "nothing was written back";
            EXPECT_EQ(morva::osg::hasTexCoordsSmaller0(property.get(), found[0], found[1]),
                      row.smaller);
            EXPECT_EQ(found, row.min);
        }
    }
    float u = 7, v = 7;
    EXPECT_FALSE(morva::osg::hasTexCoordsGreater1(::osg::NullFC, u, v, true));
    EXPECT_FALSE(morva::osg::hasTexCoordsSmaller0(::osg::NullFC, u, v));
    EXPECT_EQ(::osg::Vec2f(u, v), ::osg::Vec2f(0, 0));
}

TEST(HasTCabove, LooksAtTheStoredOrTheDrawnCoordinates) {
    using namespace morva_test;
    const auto square = [](const char* values, bool textured = false) {
        mesh_data mesh = quads(1);
        mesh.coordinates = read(values);
        return meshNode(mesh, textured ? chunked({1, 1, 1, 1}, imageOf(6407, 9, 17))
                                       : chunked({1, 1, 1, 1}));
    };
    mesh_data unmapped = quads(1);
    unmapped.coordinates = read("5 5");
    unmapped.indices = {0, 1, 2, 3};
    unmapped.mapping = {::osg::Geometry::MapPosition};
    const struct {
        const char* name;
        ::osg::NodePtr node;
        float limit;
        bool plain, normalised;
        bool out; ///< of an atlas with images up to 16 x 16
    } cases[] = {{"null", ::osg::NullFC, 0, false, false, false},
                 {"a group", group(), 0, false, false, false},
                 {"none", meshNode(quads(1)), -1, false, false, false},
                 {"2.04 is within 2", square("0 0 2.04 0 2.04 1 0 1"), 2, false, false, false},
                 {"but not within 1.9", square("0 0 2.04 0 2.04 1 0 1"), 1.9F, true, true, true},
                 {"5 to 6 is 0 to 1", square("5 0 6 0 6 2.5 5 2"), 2.5F, true, false, false},
                 {"v reaches 2.5", square("5 0 6 0 6 2.5 5 2"), 2.4F, true, true, true},
                 {"its image is too high", square("0 0 1 0 1 1 0 1", true), 5, false, false, true},
                 {"a missing one is zero", square("5 0 6 0 6 2"), 5.5F, true, true, true},
                 {"all are missing", meshNode(unmapped), 0, true, false, false},
                 {"and zero is above -1", meshNode(unmapped), -1, true, true, true}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        const node_ref node(row.node);
        EXPECT_EQ(morva::osg::hasTCabove(row.node, row.limit, false), row.plain);
        EXPECT_EQ(morva::osg::hasTCabove(row.node, row.limit, true), row.normalised);
        EXPECT_EQ(morva::osg::checkGeoForTexIndex(row.node, row.limit, 16), row.out);
    }
}

} // namespace
