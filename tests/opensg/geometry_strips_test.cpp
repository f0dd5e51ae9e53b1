// Strips and fans: whatever is found, the triangles with their winding stay.

#include <gtest/gtest.h>

#include <OpenSG/OSGGeoFunctions.h>

#include <cstdlib>
#include <random>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

GeometryRefPtr sharedGrid(int cells) {
    const GeometryRefPtr core = makeTriangles(gridPoints(cells));
    createSharedIndex(core);
    return core;
}

/// A disc of n triangles around vertex 0.
GeometryRefPtr disc(UInt32 n) {
    numbers indices;
    for (UInt32 i = 0; i < n; ++i)
        indices.insert(indices.end(), {0, 1 + i, 1 + (i + 1) % n});
    return makeCore(points(n + 1), {{GL_TRIANGLES, 3 * n}}, indices);
}

primitives primitivesOf(const GeometryRefPtr& core) {
    const numbers types = numbersOf(core->getTypes()), lengths = numbersOf(core->getLengths());
    primitives all;
    for (std::size_t i = 0; i < types.size(); ++i)
        all.emplace_back(types[i], lengths[i]);
    return all;
}

TEST(Strips, QuadAndGrid) {
    const GeometryRefPtr quad = sharedGrid(1);
    EXPECT_EQ(createOptimizedPrimitives(quad, 1, true, false, 16, false, true), 4);
    EXPECT_EQ(primitivesOf(quad), (primitives{{GL_TRIANGLE_STRIP, 4}}));
    EXPECT_EQ(sorted(trianglesOf(quad)), sorted({{0, 1, 2}, {2, 1, 4}}));

    for (const bool stitch : {false, true}) {
        const GeometryRefPtr grid = sharedGrid(2);
        const std::vector<corners> before = sorted(trianglesOf(grid));
        const Int32 cost = createOptimizedPrimitives(grid, 1, true, false, 16, false, stitch);
        EXPECT_LE(cost, 13);
        EXPECT_EQ(sorted(trianglesOf(grid)), before);
        if (stitch) {
            EXPECT_EQ(primitivesOf(grid).size(), 1u);
            EXPECT_GE(indicesOf(grid).size(), static_cast<std::size_t>(cost));
        } else {
            EXPECT_EQ(indicesOf(grid).size(), static_cast<std::size_t>(cost));
        }
    }
    // Long rows: little more than one index a triangle.
    const GeometryRefPtr large = sharedGrid(30);
    EXPECT_LE(createOptimizedPrimitives(large), 30 * 30 * 2 * 11 / 10);
}

TEST(Strips, ApplyOnlyWhatIsCheaper) {
    const GeometryRefPtr loose =
        makeCore(points(6), {{GL_TRIANGLES, 6}, {GL_POINTS, 1}}, {0, 1, 2, 3, 4, 5, 0});
    EXPECT_EQ(createOptimizedPrimitives(loose), 6);
    EXPECT_EQ(primitivesOf(loose), (primitives{{GL_TRIANGLES, 6}})) << "points go";
    EXPECT_EQ(createOptimizedPrimitives(loose), 6);
    EXPECT_EQ(createOptimizedPrimitives(loose, 1, true, true, 16, false, false, true), 6);
    EXPECT_EQ(primitivesOf(loose), (primitives{{GL_TRIANGLES, 6}})) << "no gain, no change";

    const GeometryRefPtr strip = makeCore(points(4), {{GL_TRIANGLE_STRIP, 4}}, {0, 1, 2, 3});
    const GeoIndicesPtr indices = strip->getIndices();
    EXPECT_EQ(createOptimizedPrimitives(strip), 4);
    EXPECT_EQ(strip->getIndices(), indices);

    EXPECT_EQ(createOptimizedPrimitives(GeometryPtr()), 0);
    EXPECT_EQ(createOptimizedPrimitives(GeometryRefPtr(Geometry::create())), 0);
    EXPECT_EQ(createOptimizedPrimitives(makeTriangles(quadPoints())), 0) << "no indices";
    EXPECT_EQ(createOptimizedPrimitives(makeCore(points(3), {{GL_LINES, 2}}, {0, 1})), 0);
}

TEST(Strips, FansAroundBusyVertices) {
    const struct {
        bool strips, fans;
        UInt32 least;
        primitives expected;
    } table[] = {
        {false, true, 16, {{GL_TRIANGLE_FAN, 22}}},
        {true, true, 20, {{GL_TRIANGLE_FAN, 22}}},
        {false, true, 21, {{GL_TRIANGLES, 60}}},
        {false, false, 0, {{GL_TRIANGLES, 60}}},
    };
    for (const auto& row : table) {
        const GeometryRefPtr core = disc(20);
        const std::vector<corners> before = sorted(trianglesOf(core));
        const Int32 cost = createOptimizedPrimitives(core, 1, row.strips, row.fans, row.least);
        EXPECT_EQ(cost, static_cast<Int32>(row.expected[0].second));
        EXPECT_EQ(primitivesOf(core), row.expected);
        EXPECT_EQ(sorted(trianglesOf(core)), before);
    }
}

TEST(Strips, LeaveTheRandomSequenceAlone) {
    std::srand(5);
    const int expected = std::rand();
    std::srand(5);
    const GeometryRefPtr grid = sharedGrid(4);
    createOptimizedPrimitives(grid, 8);
    EXPECT_EQ(std::rand(), expected);
}

/// Corners as index tuples, since positions alone do not tell vertices apart under a mapping.
std::vector<corners> tupleTriangles(const GeometryRefPtr& core) {
    std::vector<corners> triangles;
    for (TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it) {
        corners t;
        for (Int32 k = 0; k < 3; ++k)
            t[static_cast<std::size_t>(k)] = it.getPositionIndex(k) * 1000 + it.getNormalIndex(k);
        triangles.push_back(t);
    }
    return triangles;
}

TEST(Strips, KeepEveryTriangleOfAnySoup) {
    std::mt19937 random(23);
    for (int round = 0; round < 400; ++round) {
        // Few vertices: duplicates, turned twins, edges of many triangles, degenerates.
        const UInt32 vertices = 4 + random() % 12, triangles = 1 + random() % 80;
        const bool mapped = round % 2 != 0;
        numbers indices;
        for (UInt32 i = 0; i < triangles * 3; ++i) {
            indices.push_back(random() % vertices);
            if (mapped)
                indices.push_back(random() % 2);
        }
        const std::vector<UInt16> mapping =
            mapped ? std::vector<UInt16>{1, 2} : std::vector<UInt16>{};
        const auto make = [&] {
            const GeometryRefPtr core =
                makeCore(points(vertices), {{GL_TRIANGLES, triangles * 3}}, indices, mapping);
            core->setNormals(GeoNormals3f::create());
            return core;
        };
        const GeometryRefPtr core = make(), again = make();
        std::vector<corners> before = sorted(tupleTriangles(core));
        const bool stitch = random() % 2 != 0, isolated = random() % 2 != 0;
        const bool fans = random() % 2 != 0;
        const UInt32 least = 1 + random() % 6;
        createOptimizedPrimitives(core, 1, true, fans, least, false, stitch, isolated);
        createOptimizedPrimitives(again, 1, true, fans, least, false, stitch, isolated);
        EXPECT_EQ(indicesOf(core), indicesOf(again)) << "the same each time";
        EXPECT_EQ(mappingOf(core), mapping);

        if (indicesOf(core) != indices) { // applied
            const auto degenerate = [](const corners& t) {
                return t[0] == t[1] || t[1] == t[2] || t[0] == t[2];
            };
            before.erase(std::remove_if(before.begin(), before.end(), degenerate), before.end());
        }
        ASSERT_EQ(sorted(tupleTriangles(core)), before) << round;
    }
}

TEST(Strips, StayQuickOnPilesOfTheSameTriangle) {
    numbers indices;
    for (UInt32 i = 0; i < 100000; ++i)
        indices.insert(indices.end(), {0, 1 + i % 2, 2 - i % 2});
    const GeometryRefPtr core = makeCore(points(3), {{GL_TRIANGLES, 300000}}, indices);
    EXPECT_LE(createOptimizedPrimitives(core), 100002);
    EXPECT_EQ(trianglesOf(core).size(), 100000u);
}

} // namespace
