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
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

float reachOf(const osg_geoset& geoset) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    float high = 0;
    for (::osg::UInt32 row = 0; row < 3 * geoset.size; ++row)
        high = std::max({high, property->getValue(row)[0], property->getValue(row)[1]});
    return high;
}

double areaOf(const osg_geoset& geoset) {
    double area = 0;
    for (std::size_t i = 0; i < geoset.size; ++i)
        area += tri::areaOf(tri::cornersOf(geoset, i)).length();
    return area;
}

/// The first row in which two geosets differ, spare rows too, or their common number of rows.
std::size_t sameRows(const osg_geoset& a, const osg_geoset& b) {
    const std::size_t rows = a.geometry->getTexCoords()->size();
    const tri::rows in_a = tri::rowsOf(a.geometry.get(), rows),
                    in_b = tri::rowsOf(b.geometry.get(), rows);
    std::size_t row = 0;
    for (bool equal = true; equal && row < rows; row += equal ? 1 : 0) {
        const std::vector<float> x = tri::numbersOf(in_a[row]), y = tri::numbersOf(in_b[row]);
        equal = std::equal(x.begin(), x.end(), y.begin(), uv::same);
    }
    return row;
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
                values.back()[rng() % 2] =
                    std::floor(from) + 0.0004F * static_cast<float>(rng() % 5);
        }
    }
}

TEST(OptimizeTexCoords, IsTheNaiveTwinToTheLastBit) {
    std::mt19937 rng(7402);
    int total = 0, by_plane = 0;
    for (int round = 0; round < 200; ++round) {
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
            for (auto row = static_cast<::osg::UInt32>(values.size());
                 !smart && row < property->size(); ++row)
                property->setValue(::osg::Vec2f(-7.25F, static_cast<float>(row)), row); // to spare
        }
        const morva_test::stream_capture told(std::cout);
        const int added = smart ? optimizeTexCoordsSmart(geoset, max, limit)
                                : optimizeTexCoords(geoset, max, limit);
        const morva_test::stream_capture told_by_naive(std::cout);
        const int expected =
            smart ? uv::naiveSmart(naive, max, limit) : uv::naiveOptimize(naive, max, limit);
        EXPECT_EQ(added, expected);
        EXPECT_EQ(told.text(), told_by_naive.text());
        ASSERT_EQ(geoset.size, positions.size() / 3 + static_cast<unsigned>(added));
        ASSERT_EQ(sameRows(geoset, naive), naive.geometry->getTexCoords()->size());
        ASSERT_EQ(tri::broken_rule_of(geoset), "");
        total += added;
        by_plane += geoset.split_axis >= 0 ? 1 : 0;
    }
    EXPECT_GT(total, 10000);
    EXPECT_GT(by_plane, 10) << "long triangles are cut at a plane";
}

const corners wedge = {{0, 0, 0}, {10, 0, 0}, {0, 5, 0}};
const coordinates ten = {{0, 0}, {10, 0}, {0, 1}};

TEST(OptimizeTexCoords, KeepsToItsLimitInAnyStoredForm) {
    for (const int max : {-5, 0, 1, 2, 3, 9, 10}) {
        SCOPED_TRACE(max);
        osg_geoset geoset, other;
        uv::fill(geoset, wedge, ten);
        uv::fill(other, wedge, ten);
        const ::osg::GeoTexCoords3fPtr three = ::osg::GeoTexCoords3f::create();
        for (::osg::UInt32 i = 0; i < geoset.geometry->getTexCoords()->size(); ++i)
            three->addValue(geoset.geometry->getTexCoords()->getValue(i));
        other.geometry->setTexCoords(three);
        const int added = optimizeTexCoords(geoset, max, 50);
        EXPECT_EQ(geoset.size, static_cast<std::uint64_t>(added) + 1);
        EXPECT_EQ(added > 0, max > 0 && max < 10);
        EXPECT_LE(reachOf(geoset), max < 1 ? 10 : max == 1 ? 1.002F : static_cast<float>(max));
        EXPECT_EQ(optimizeTexCoords(geoset, max, 50), 0) << "nothing is left to do";
        EXPECT_EQ(optimizeTexCoords(other, max, 50), added);
        EXPECT_EQ(sameRows(other, geoset), geoset.geometry->getTexCoords()->size());
    }
}

TEST(OptimizeTexCoords, TakesAGeosetInAnyState) {
    osg_geoset empty, plain, not_set_up, null;
    tri::fillGeoset(plain, wedge);
    not_set_up.geometry = tri::soup(wedge);
    const ::osg::GeoTexCoordsPtr five = ::osg::GeoTexCoords2f::create();
    for (const float u : {-3.0F, 1.0F, -3.0F, -1.0F, 9.0F})
        five->addValue(::osg::Vec2f(u, 0));
    not_set_up.geometry->setTexCoords(five);
    null.geometry = ::osg::NullFC;
    for (osg_geoset* geoset : {&empty, &plain, &not_set_up, &null})
        EXPECT_EQ(optimizeTexCoords(*geoset, 1, 50) + optimizeTexCoordsSmart(*geoset, 1, 50), 0);
    EXPECT_EQ(five->getValue(1), ::osg::Vec2f(4, 0));
    EXPECT_EQ(five->getValue(3), ::osg::Vec2f(-1, 0)) << "two rows fill no triangle";
}

TEST(OptimizeTexCoords, ComesToAnEndWhateverRoundingDoes) {
    const coordinates eight = {{0, 0}, {8, 0}, {0, 8}};
    const float x = 1e6F;
    const struct {
        const char* name;
        corners positions;
        coordinates values;
        int added;   ///< triangles
        float reach; ///< largest coordinate afterwards
        int limit = 50;
        double rounding = 1e-6; ///< of the area
    } cases[] = {
        {"far away", {{x, x, 0}, {x + 2, x, 0}, {x, x + 2, 0}}, eight, 15, 2},
        {"a needle", {{0, 0, 0}, {10, 0, 0}, {5, 1e-5F, 0}}, {{0, 0}, {8, 0}, {4, 1}}, 5, 2},
        {"a NaN", wedge, {{0, 0}, {10, nan_value}, {0, 1}}, 29, 2},
        {"infinities", wedge, {{inf, 0}, {10, -inf}, {-inf, inf}}, 0, 0},
        {"a far image", wedge, {{1e30F, 0}, {1e30F, 9}, {1e30F, 1}}, 29, 2},
        {"far apart", wedge, {{-3e38F, 1e30F}, {3e38F, 0}, {0, 9}}, 0, 0},
        {"not wrapped", wedge, {{0, 0}, {2e9F, 0}, {0, 2e9F}}, 65536, 1e9F, 2147483647},
        {"all wrapped", wedge, ten, 0, 0, -2147483647},
        {"a line", {{0, 0, 0}, {1e3F, 1e3F, 1e3F}, {500, 500, 500}}, ten, 0, 10},
        {"too steep", {{0, 0, 0}, {1000, 0, 0}, {0, 1, 0}}, {{0, 0}, {0, 0}, {40, 40}}, 65536, 40},
        {"too fine", {{999, 0, 0}, {999.002F, 0, 0}, {999, 0.002F, 0}}, ten, 63, 2, 50, .03},
        {"small", {{0, 0, 0}, {3e-6F, 0, 0}, {0, 3e-6F, 0}}, ten, 3, 5},
        {"large", {{0, 0, 0}, {9e11F, 0, 0}, {0, 9e11F, 0}}, ten, 49, 10}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        osg_geoset geoset, smart;
        uv::fill(geoset, row.positions, row.values);
        uv::fill(smart, row.positions, row.values);
        const double area = areaOf(geoset);
        const morva_test::stream_capture told(std::cout);
        EXPECT_EQ(optimizeTexCoords(geoset, 2, row.limit), row.added);
        EXPECT_LE(optimizeTexCoordsSmart(smart, 2, row.limit), 11) << "bounded by the input";
        EXPECT_EQ(tri::broken_rule_of(geoset) + tri::broken_rule_of(smart), "");
        EXPECT_NEAR(areaOf(geoset), area, row.rounding * area);
        EXPECT_EQ(reachOf(geoset), row.reach);
    }
}

TEST(OptimizeTexCoords, StopsAtAMillionTrianglesForAFew) {
    corners positions;
    coordinates values;
    for (float x = 0; x < 40; x += 2) {
        positions.insert(positions.end(), {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}});
        values.insert(values.end(), {{0, 0}, {250, 0}, {0, 250}});
    }
    osg_geoset geoset;
    uv::fill(geoset, positions, values);
    EXPECT_EQ(optimizeTexCoords(geoset, 1, 300) / 2, (1 << 20) / 2);
}

/// How many stretches of an edge have a triangle on one side alone, edges taken from corner to
/// corner of whatever stands on them: none on a closed surface. Exact where coordinates are.
std::ptrdiff_t openStretches(const osg_geoset& geoset) {
    using point = std::vector<float>;
    std::map<point, ::osg::Pnt3d> all;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        for (const ::osg::Pnt3f& p : tri::cornersOf(geoset, i))
            all.emplace(point{p[0], p[1], p[2]}, p);
    }
    std::map<std::pair<point, point>, int> stretches;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const corners t = tri::cornersOf(geoset, i);
        for (std::size_t k = 0; k < 3; ++k) {
            const ::osg::Pnt3d from(t[k]);
            const ::osg::Vec3d edge = ::osg::Pnt3d(t[(k + 1) % 3]) - from;
            std::map<double, point> on_edge;
            for (const auto& [key, corner] : all) {
                const double along = (corner - from).dot(edge);
                if (along >= 0 && along <= edge.squareLength() &&
                    edge.cross(corner - from).squareLength() == 0)
                    on_edge.emplace(along, key);
            }
            for (auto a = on_edge.begin(), b = std::next(a); b != on_edge.end(); ++a, ++b) {
                ++stretches[{a->second, b->second}];
                --stretches[{b->second, a->second}];
            }
        }
    }
    return std::count_if(stretches.begin(), stretches.end(),
                         [](const auto& s) { return s.second != 0; });
}

/// Random coordinates for triangles; halves with a maximum of 2.
void halve(osg_geoset& geoset, const corners& positions, std::mt19937& rng) {
    std::uniform_real_distribution<float> some(-6.0F, 6.0F);
    coordinates values(positions.size());
    for (::osg::Vec2f& value : values)
        value.setValues(some(rng), some(rng));
    uv::fill(geoset, positions, values);
    EXPECT_GT(optimizeTexCoords(geoset, 2, 50), 50);
}

TEST(OptimizeTexCoords, LeavesASurfaceClosedWhereMiddlesAreExact) {
    // Halves meet in the same bits then, and a corner of one lies exactly on the edge of another.
    const ::osg::Pnt3f x(2, 0, 0), y(0, 1, 0), z(0, 0, 3), X(-1, 0, 0), Y(0, -2, 0), Z(0, 0, -1);
    std::mt19937 rng(7403);
    osg_geoset geoset;
    halve(geoset, {x, y, z, y, X, z, X, Y, z, Y, x, z, y, x, Z, X, y, Z, Y, X, Z, x, Y, Z}, rng);
    EXPECT_EQ(geoset.split_axis, -1) << "edges are halved alone";
    EXPECT_EQ(openStretches(geoset), 0);
}

TEST(OptimizeTexCoords, ConservesAreaWindingAndIdAndKeepsGapsWithinRounding) {
    std::mt19937 rng(7404);
    const corners ball = tri::roughBall(rng, 8, 12);
    osg_geoset geoset, whole;
    tri::fillGeoset(whole, ball);
    halve(geoset, ball, rng);
    double farthest = 0;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const auto row = static_cast<::osg::UInt32>(3 * i);
        const float id = geoset.geometry->getTexCoords7()->getValue(row)[0];
        const corners t = tri::cornersOf(geoset, i);
        const corners source = tri::cornersOf(whole, static_cast<std::size_t>(id));
        const ::osg::Vec3d normal = tri::areaOf(source);
        EXPECT_GT(tri::areaOf(t).dot(normal), 0.0);
        for (const ::osg::Pnt3f& p : t)
            farthest = std::max(farthest,
                                std::abs((::osg::Pnt3d(p) - ::osg::Pnt3d(source[0])).dot(normal)) /
                                    normal.length());
    }
    EXPECT_NEAR(areaOf(geoset) / areaOf(whole), 1.0, 1e-6);
    // An edge halved from either end can come to neighbouring numbers: no gap is wider than that.
    EXPECT_LE(farthest, 4 * 0x1p-24 * 1.2);
}

} // namespace
