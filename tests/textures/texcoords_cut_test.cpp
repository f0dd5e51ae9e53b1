// Halving of triangles whose texture coordinates reach too far.

#include "naive_texcoords.h"
#include "texcoord_scenes.h"

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <random>

#include <morva/textures/morva_osg_texcoords.h>

namespace {

using morva::osg::optimizeTexCoords;
using morva::osg::optimizeTexCoordsSmart;
using uv::mesh;
using uv::osg_geoset;
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();
constexpr float inf = std::numeric_limits<float>::infinity();

::osg::Vec2f anyCoordinate(std::mt19937& rng, float from, float span) {
    std::uniform_real_distribution<float> some(0.0F, span);
    ::osg::Vec2f value(from + some(rng), from * 0.5F + some(rng));
    if (rng() % 3 == 0) // on a whole number, or near to one
        value[rng() % 2] = std::floor(value[0]) + 0.0004F * static_cast<float>(rng() % 5);
    return value;
}

/// A few triangles of ordinary shape, long ones and ones that share an edge among them, with
/// coordinates anywhere, some beyond the limit of 50.
mesh anyMesh(std::mt19937& rng) {
    std::uniform_real_distribution<float> unit(-1.0F, 1.0F);
    mesh m;
    const std::size_t count = 1 + rng() % 6;
    for (std::size_t i = 0; i < count; ++i) {
        const float size = std::pow(10.0F, 2.0F * unit(rng));
        const float length = rng() % 4 == 0 ? 20.0F : 1.0F;
        const ::osg::Pnt3f at(unit(rng) * 10, unit(rng) * 10, unit(rng) * 10);
        const float from = 40.0F * unit(rng), span = rng() % 3 == 0 ? 30.0F : 5.0F;
        for (std::size_t k = 0; k < 3; ++k) {
            const bool shared = i > 0 && k < 2 && rng() % 2 == 0;
            m.positions.push_back(
                shared ? m.positions[3 * i - 1 - k]
                       : at + ::osg::Vec3f(unit(rng) * length, unit(rng), unit(rng)) * size);
            m.coordinates.push_back(anyCoordinate(rng, from, span));
        }
        const std::vector<::osg::Pnt3f> t(m.positions.end() - 3, m.positions.end());
        const ::osg::Vec3d ab = ::osg::Pnt3d(t[1]) - ::osg::Pnt3d(t[0]),
                           ac = ::osg::Pnt3d(t[2]) - ::osg::Pnt3d(t[0]);
        if (tri::areaOf(t).length() < 0.01 * (ab.squareLength() + ac.squareLength())) {
            m.positions.resize(3 * i); // thin ones have tests of their own
            m.coordinates.resize(3 * i);
            --i;
        }
    }
    return m;
}

/// Puts other values behind the last triangle, as an earlier cut may have left them.
void fillTail(osg_geoset& geoset) {
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
    for (auto row = static_cast<::osg::UInt32>(3 * geoset.size); row < property->size(); ++row)
        property->setValue(::osg::Vec2f(-7.25F, static_cast<float>(row)), row);
}

TEST(OptimizeTexCoords, IsTheNaiveTwinToTheLastBit) {
    std::mt19937 rng(7402);
    int total = 0, by_plane = 0;
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const mesh m = anyMesh(rng);
        int max = static_cast<int>(rng() % 6) - 1;
        max += max == 1 ? 1 : 0; // of which the twin comes to no end
        const int limit = rng() % 4 == 0 ? 5 : 50;
        const bool smart = round % 3 == 0;
        osg_geoset geoset, naive;
        uv::fill(geoset, m);
        uv::fill(naive, m);
        if (!smart && rng() % 2 == 0) {
            fillTail(geoset);
            fillTail(naive);
        }
        testing::internal::CaptureStdout();
        const std::uint64_t before = geoset.size;
        // Without a bound of its own only the plain form takes a maximum of 0 for none.
        const int added = smart ? optimizeTexCoordsSmart(geoset, std::max(max, 0), limit)
                                : optimizeTexCoords(geoset, max, limit);
        const std::string told = testing::internal::GetCapturedStdout();
        testing::internal::CaptureStdout();
        const int expected = smart ? uv::naiveSmart(naive, std::max(max, 0), limit)
                                   : uv::naiveOptimize(naive, max, limit);
        EXPECT_EQ(told, testing::internal::GetCapturedStdout());
        ASSERT_EQ(added, expected);
        ASSERT_EQ(uv::firstDifference(geoset, naive), "");
        EXPECT_EQ(geoset.size - before, static_cast<std::uint64_t>(added));
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
        total += added;
        by_plane += geoset.split_axis >= 0 ? 1 : 0;
        for (std::size_t i = 0; !smart && max > 0 && i < geoset.size; ++i) {
            if (uv::reachOf(geoset, i) <= static_cast<float>(max))
                continue;
            int pieces = 0;
            unsigned long first = 0;
            testing::internal::CaptureStdout();
            geoset.splitElementInTwoParts(i, pieces, first, 0, false);
            testing::internal::GetCapturedStdout();
            EXPECT_EQ(pieces, 0) << "triangle " << i << " could have been halved";
        }
    }
    EXPECT_GT(total, 10000);
    EXPECT_GT(by_plane, 10) << "long triangles are cut at a plane";
}

TEST(OptimizeTexCoords, KeepsToItsLimitWhereATriangleCanBeHalved) {
    const mesh strip = {{{0, 0, 0}, {10, 0, 0}, {0, 5, 0}}, {{0, 0}, {10, 0}, {0, 1}}};
    for (const int max : {-5, 0, 1, 2, 3, 9, 10}) {
        SCOPED_TRACE(max);
        osg_geoset geoset;
        uv::fill(geoset, strip);
        const int added = optimizeTexCoords(geoset, max, 50);
        EXPECT_EQ(geoset.size, static_cast<std::uint64_t>(added) + 1);
        EXPECT_EQ(added > 0, max > 0 && max < 10);
        for (std::size_t i = 0; added > 0 && i < geoset.size; ++i)
            ASSERT_LE(uv::reachOf(geoset, i), max == 1 ? 1.002F : static_cast<float>(max));
        EXPECT_EQ(optimizeTexCoords(geoset, max, 50), 0) << "nothing is left to do";
    }
}

TEST(OptimizeTexCoords, TakesAnyStoredFormAndAnyState) {
    const mesh strip = {{{0, 0, 0}, {10, 0, 0}, {0, 5, 0}}, {{-3, 0}, {1, 0}, {-3, 1}}};
    osg_geoset usual, other;
    uv::fill(usual, strip);
    uv::fill(other, strip);
    const ::osg::GeoTexCoords3fPtr three = ::osg::GeoTexCoords3f::create();
    for (::osg::UInt32 i = 0; i < usual.geometry->getTexCoords()->size(); ++i)
        three->addValue(usual.geometry->getTexCoords()->getValue(i));
    other.geometry->setTexCoords(three);
    EXPECT_GT(optimizeTexCoords(usual, 2, 50), 0);
    EXPECT_EQ(optimizeTexCoords(other, 2, 50), static_cast<int>(usual.size) - 1);
    EXPECT_EQ(uv::firstDifference(other, usual), "");

    const auto optimized = [](osg_geoset& geoset) {
        return optimizeTexCoords(geoset, 1, 50) + optimizeTexCoordsSmart(geoset, 1, 50);
    };
    osg_geoset empty, plain, not_set_up, null;
    EXPECT_EQ(optimized(empty), 0);
    tri::fillGeoset(plain, strip.positions);
    EXPECT_EQ(optimized(plain), 0) << "no coordinates";
    // Two rows do not fill a triangle, and without setup() there is nothing to halve.
    not_set_up.geometry =
        uv::coreOf({strip.positions, {{-3, 0}, {1, 0}, {-3, 1}, {-1, 0}, {9, 9}}});
    EXPECT_EQ(optimized(not_set_up), 0);
    EXPECT_EQ(not_set_up.geometry->getTexCoords()->getValue(1), ::osg::Vec2f(4, 0));
    EXPECT_EQ(not_set_up.geometry->getTexCoords()->getValue(3), ::osg::Vec2f(-1, 0));
    null.geometry = ::osg::NullFC;
    EXPECT_EQ(optimized(null), 0);
}

TEST(OptimizeTexCoords, ComesToAnEndOnBrokenInput) {
    const std::vector<::osg::Pnt3f> right = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    const std::vector<::osg::Vec2f> ten = {{0, 0}, {10, 0}, {0, 1}};
    const struct {
        const char* name;
        mesh m;
        int limit, least, most; ///< triangles added
    } cases[] = {
        {"a NaN", {right, {{0, 0}, {10, nan_value}, {0, 1}}}, 50, 0, 0},
        {"infinities", {right, {{inf, 0}, {10, -inf}, {-inf, inf}}}, 50, 0, 0},
        {"far away together", {right, {{1e30F, 0}, {1e30F, 9}, {1e30F, 1}}}, 50, 10, 100},
        {"far apart", {right, {{-3e38F, 1e30F}, {3e38F, 0}, {0, 9}}}, 50, 0, 0},
        {"far apart, no wrap", {right, {{0, 0}, {2e9F, 0}, {0, 2e9F}}}, 2147483647, 0, 0},
        {"no limit to wrap at", {right, {{0, 0}, {8, 0}, {0, 1}}}, -2147483647, 0, 100},
        {"a line", {{{0, 0, 0}, {1000, 1000, 1000}, {500, 500, 500}}, ten}, 50, 0, 0},
        {"a needle",
         {{{0.1F, 0.2F, 0.3F}, {700.1F, 300.2F, 500.3F}, {350.1F, 150.2F, 250.3F}}, ten},
         50,
         0,
         0},
        {"steep across a long one",
         {{{0, 0, 0}, {1e6F, 0, 0}, {0, 0.5F, 0}}, {{0, 0}, {0, 0}, {40, 40}}},
         50,
         0,
         0},
        {"smaller than a piece may be", {{{0, 0, 0}, {3e-6F, 0, 0}, {0, 3e-6F, 0}}, ten}, 50, 0, 8},
        {"as large as kept", {{{0, 0, 0}, {9e11F, 0, 0}, {0, 9e11F, 0}}, ten}, 50, 0, 100}};
    for (const auto& row : cases) {
        SCOPED_TRACE(row.name);
        osg_geoset geoset;
        uv::fill(geoset, row.m);
        ASSERT_EQ(geoset.size, 1U);
        testing::internal::CaptureStdout();
        const int added = optimizeTexCoords(geoset, 2, row.limit);
        testing::internal::GetCapturedStdout();
        EXPECT_GE(added, row.least);
        EXPECT_LE(added, row.most);
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
        const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords();
        for (::osg::UInt32 i = 0; i < property->size(); ++i)
            EXPECT_FALSE(std::isinf(property->getValue(i)[0] + property->getValue(i)[1]));
        // Bounded by the coordinates that there were, whatever they are.
        osg_geoset smart;
        uv::fill(smart, row.m);
        testing::internal::CaptureStdout();
        const int bounded = optimizeTexCoordsSmart(smart, 2, row.limit);
        testing::internal::GetCapturedStdout();
        EXPECT_LE(bounded, 11);
        EXPECT_EQ(tri::broken_rule_of(smart), "");
    }
}

TEST(OptimizeTexCoords, StopsAtAMillionTrianglesForAFew) {
    mesh m;
    for (int i = 0; i < 20; ++i) {
        const float x = static_cast<float>(2 * i);
        m.positions.insert(m.positions.end(), {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}});
        m.coordinates.insert(m.coordinates.end(), {{0, 0}, {250, 0}, {0, 250}});
    }
    osg_geoset geoset;
    uv::fill(geoset, m);
    const int added = optimizeTexCoords(geoset, 1, 300);
    EXPECT_GE(added, 1 << 20);
    EXPECT_LE(added, (1 << 20) + 1);
    EXPECT_EQ(geoset.size, 20U + static_cast<unsigned>(added));
}

using point = std::vector<float>;
point pointOf(const ::osg::Pnt3f& p) { return {p[0], p[1], p[2]}; }

/// Lines along which the triangles of a geoset do not meet others, every edge taken from corner to
/// corner of whatever stands on it: none on a closed surface. Exact where coordinates are.
int openLines(const osg_geoset& geoset) {
    std::map<point, ::osg::Pnt3d> corners;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        for (const ::osg::Pnt3f& p : tri::cornersOf(geoset, i))
            corners.emplace(pointOf(p), ::osg::Pnt3d(p));
    }
    std::map<std::pair<point, point>, int> lines;
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const std::vector<::osg::Pnt3f> t = tri::cornersOf(geoset, i);
        for (std::size_t k = 0; k < 3; ++k) {
            const ::osg::Pnt3d from(t[k]);
            const ::osg::Vec3d edge = ::osg::Pnt3d(t[(k + 1) % 3]) - from;
            std::map<double, point> on_edge;
            for (const auto& [key, corner] : corners) {
                const ::osg::Vec3d away = corner - from;
                const double along = away.dot(edge);
                if (along >= 0 && along <= edge.squareLength() &&
                    edge.cross(away).squareLength() == 0)
                    on_edge.emplace(along, key);
            }
            for (auto a = on_edge.begin(), b = std::next(a); b != on_edge.end(); ++a, ++b) {
                ++lines[{a->second, b->second}];
                --lines[{b->second, a->second}];
            }
        }
    }
    return static_cast<int>(std::count_if(lines.begin(), lines.end(),
                                          [](const auto& line) { return line.second != 0; }));
}

TEST(OptimizeTexCoords, LeavesAClosedSurfaceClosedWhereMiddlesAreExact) {
    const ::osg::Pnt3f x(2, 0, 0), y(0, 1, 0), z(0, 0, 3), x1(-1, 0, 0), y1(0, -2, 0), z1(0, 0, -1);
    const std::vector<::osg::Pnt3f> octahedron = {x, y, z,  y,  x1, z,  x1, y1, z,  y1, x,  z,
                                                  y, x, z1, x1, y,  z1, y1, x1, z1, x,  y1, z1};
    std::mt19937 rng(7403);
    std::uniform_real_distribution<float> some(-6.0F, 6.0F);
    for (int round = 0; round < 4; ++round) {
        mesh m = {octahedron, {}};
        for (std::size_t i = 0; i < octahedron.size(); ++i)
            m.coordinates.push_back(::osg::Vec2f(some(rng), some(rng)));
        osg_geoset geoset;
        uv::fill(geoset, m);
        ASSERT_EQ(openLines(geoset), 0);
        EXPECT_GT(optimizeTexCoords(geoset, 2, 50), 50);
        EXPECT_EQ(geoset.split_axis, -1) << "edges are halved alone";
        EXPECT_EQ(openLines(geoset), 0);
    }
}

TEST(OptimizeTexCoords, ConservesAreaWindingAndIdAndKeepsGapsWithinRounding) {
    std::mt19937 rng(7404);
    std::uniform_real_distribution<float> some(-6.0F, 6.0F);
    mesh m = {tri::roughBall(rng, 8, 12), {}};
    for (std::size_t i = 0; i < m.positions.size(); ++i)
        m.coordinates.push_back(::osg::Vec2f(some(rng), some(rng)));
    osg_geoset geoset;
    uv::fill(geoset, m);
    std::vector<std::vector<::osg::Pnt3f>> whole;
    for (std::size_t i = 0; i < geoset.size; ++i)
        whole.push_back(tri::cornersOf(geoset, i));
    EXPECT_GT(optimizeTexCoords(geoset, 2, 50), 1000);
    std::vector<::osg::Vec3d> parts(whole.size());
    double farthest = 0; // from the source's plane
    for (std::size_t i = 0; i < geoset.size; ++i) {
        const auto id = static_cast<std::size_t>(
            geoset.geometry->getTexCoords7()->getValue(static_cast<::osg::UInt32>(3 * i))[0]);
        const std::vector<::osg::Pnt3f> t = tri::cornersOf(geoset, i);
        const ::osg::Vec3d area = tri::areaOf(t), normal = tri::areaOf(whole[id]);
        EXPECT_GT(area.dot(normal), 0.0);
        parts[id] += area;
        for (const ::osg::Pnt3f& p : t) {
            const ::osg::Vec3d away = ::osg::Pnt3d(p) - ::osg::Pnt3d(whole[id][0]);
            farthest = std::max(farthest, std::abs(away.dot(normal)) / normal.length());
        }
    }
    double area = 0, kept = 0;
    for (std::size_t id = 0; id < whole.size(); ++id) {
        area += tri::areaOf(whole[id]).length();
        kept += parts[id].length();
        EXPECT_NEAR((parts[id] - tri::areaOf(whole[id])).length() / tri::areaOf(whole[id]).length(),
                    0.0, 1e-5);
    }
    EXPECT_NEAR(kept / area, 1.0, 1e-6);
    // Two triangles may halve their edge from opposite ends and come to neighbouring numbers.
    EXPECT_LE(farthest, 4 * 0x1p-24 * 1.2);
}

} // namespace
