// Halving of triangles whose texture coordinates reach too far.

#include "tests/support/test.h"

#include "naive_texcoords.h"

#include <morva/textures/morva_osg_texcoords.h>

namespace {

using morva::osg::optimizeTexCoords;
using morva::osg::optimizeTexCoordsSmart;
using uv::coordinates;
using uv::osg_geoset;
using corners = std::vector<::osg::Pnt3f>;
using tri::nan_value;
constexpr float inf = std::numeric_limits<float>::infinity();

float reachOf(const osg_geoset& geoset) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    float high = 0;
    for (::osg::UInt32 row = 0; row < 3 * geoset.size; ++row)
        high = std::max({high, property->getValue(row)[0], property->getValue(row)[1]});
    return high;
}

/// Whether two geosets are equal to the last bit, spare rows too.
bool sameRows(const osg_geoset& a, const osg_geoset& b) {
    const std::size_t rows = a.geometry->getTexCoords()->size();
    const auto x = tri::numbersOf(tri::rowsOf(a.geometry.get(), rows));
    const auto y = tri::numbersOf(tri::rowsOf(b.geometry.get(), rows));
    return std::equal(x.begin(), x.end(), y.begin(), [](const auto& p, const auto& q) {
        return std::equal(p.begin(), p.end(), q.begin(), uv::same);
    });
}

/// A few triangles, some long, some with an edge in common, with coordinates anywhere.
void anyTriangles(std::mt19937& rng, float away, corners& positions, coordinates& values) {
    std::uniform_real_distribution<float> unit(-1.0F, 1.0F);
    for (const std::size_t end = 3 + 3 * (rng() % 6); positions.size() < end;) {
        const float size = std::pow(10.0F, 2.0F * unit(rng)),
                    long_one = rng() % 4 == 0 ? 20.0F : 1.0F;
        const ::osg::Pnt3f at(unit(rng) * 10 + away, unit(rng) * 10, unit(rng) * 10 - away);
        corners t;
        for (std::size_t k = 0; k < 3; ++k)
            t.push_back(at + ::osg::Vec3f(unit(rng) * long_one, unit(rng), unit(rng)) * size);
        if (!positions.empty() && rng() % 2 == 0)
            std::copy_n(positions.end() - 2, 2, t.rbegin());
        positions.insert(positions.end(), t.begin(), t.end());
        const float from = 40.0F * unit(rng), span = rng() % 3 == 0 ? 30.0F : 5.0F;
        for (int k = 0; k < 3; ++k) {
            values.push_back(::osg::Vec2f(from + span * unit(rng), from * 0.5F + span * unit(rng)));
            if (rng() % 3 == 0) // on a whole number, or near to one
                values.back()[rng() % 2] = std::floor(from) + 0.0004F * float(rng() % 5);
        }
    }
}

TEST(OptimizeTexCoords, IsTheNaiveTwinToTheLastBit) {
    std::mt19937 rng(seedOf(7402));
    int total = 0, by_plane = 0;
    for (int round = 0; round < roundsOf(200); ++round) {
        SCOPED_TRACE(round);
        corners positions;
        coordinates values;
        anyTriangles(rng, round % 40 == 1 ? 1e5F : 0, positions, values);
        const bool smart = round % 3 == 0;
        // The twin does not come to an end at 1, and has no word for none in its smart form.
        const int maxima[] = {-1, 0, 2, 3, 4}, max = std::max(maxima[rng() % 5], smart ? 0 : -1);
        const int limit = rng() % 4 == 0 ? 5 : 50;
        osg_geoset geoset, naive;
        for (osg_geoset* one : {&geoset, &naive}) {
            uv::fill(*one, positions, values);
            const ::osg::GeoTexCoordsPtr property = one->geometry->getTexCoords();
            for (auto row = ::osg::UInt32(values.size()); !smart && row < property->size(); ++row)
                property->setValue(::osg::Vec2f(-7.25F, float(row)), row); // to spare
        }
        if (round % 5 == 0) // stored in another form
            geoset.geometry->setTexCoords(
                inOtherForm<::osg::GeoTexCoords3f>(geoset.geometry->getTexCoords()));
        const morva_test::stream_capture told(std::cout);
        const int added = smart ? optimizeTexCoordsSmart(geoset, max, limit)
                                : optimizeTexCoords(geoset, max, limit);
        const morva_test::stream_capture told_by_naive(std::cout);
        const int expected =
            smart ? uv::naiveSmart(naive, max, limit) : uv::naiveOptimize(naive, max, limit);
        EXPECT_EQ(added, expected);
        EXPECT_EQ(told.text(), told_by_naive.text());
        ASSERT_EQ(geoset.size, positions.size() / 3 + unsigned(added));
        ASSERT_TRUE(sameRows(naive, geoset));
        ASSERT_EQ(tri::broken_rule_of(geoset), "");
        total += added;
        by_plane += geoset.split_axis >= 0 ? 1 : 0;
    }
    EXPECT_GT(total, 10000);
    EXPECT_GT(by_plane, 10) << "long triangles are cut at a plane";
}

const corners wedge = {{0, 0, 0}, {10, 0, 0}, {0, 5, 0}};
const coordinates ten = {{0, 0}, {10, 0}, {0, 1}};

TEST(OptimizeTexCoords, ComesToAnEndWhateverRoundingDoes) {
    const struct {
        const char* name;
        corners positions;
        coordinates values;
        int added;   ///< triangles
        float reach; ///< largest coordinate afterwards
        int limit = 50;
        double rounding = 1e-6; ///< of the area
    } cases[] = {
        {"a needle", {{0, 0, 0}, {10, 0, 0}, {5, 1e-5F, 0}}, {{0, 0}, {8, 0}, {4, 1}}, 5, 2},
        {"a NaN", wedge, {{0, 0}, {10, nan_value}, {0, 1}}, 29, 2},
        {"infinities", wedge, {{inf, 0}, {10, -inf}, {-inf, inf}}, 0, 0},
        {"far apart", wedge, {{-3e38F, 1e30F}, {3e38F, 0}, {0, 9}}, 0, 0},
        {"not wrapped", wedge, {{0, 0}, {2e9F, 0}, {0, 2e9F}}, 65536, 1e9F, 2147483647},
        {"all wrapped", wedge, ten, 0, 0, -2147483647},
        {"too steep", {{0, 0, 0}, {1000, 0, 0}, {0, 1, 0}}, {{0, 0}, {0, 0}, {40, 40}}, 65536, 40},
        {"too fine", {{999, 0, 0}, {999.002F, 0, 0}, {999, 0.002F, 0}}, ten, 63, 2, 50, .03},
        {"large", {{0, 0, 0}, {9e11F, 0, 0}, {0, 9e11F, 0}}, ten, 49, 10}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        osg_geoset geoset, smart;
        uv::fill(geoset, row.positions, row.values);
        uv::fill(smart, row.positions, row.values);
        const double area = tri::areaOfAll(geoset);
        const morva_test::stream_capture told(std::cout);
        EXPECT_EQ(optimizeTexCoords(geoset, 2, row.limit), row.added);
        EXPECT_LE(optimizeTexCoordsSmart(smart, 2, row.limit), 11) << "bounded by the input";
        EXPECT_EQ(tri::broken_rule_of(geoset) + tri::broken_rule_of(smart), "");
        EXPECT_NEAR(tri::areaOfAll(geoset), area, row.rounding * area);
        EXPECT_EQ(reachOf(geoset), row.reach);
    }
}

} // namespace
