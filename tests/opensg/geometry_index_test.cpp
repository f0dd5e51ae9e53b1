// createSharedIndex, createSingleIndex and counting.

#include <gtest/gtest.h>

#include <OpenSG/OSGGeoFunctions.h>

#include <cstring>
#include <map>
#include <random>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

TEST(SharedIndex, JoinsEqualVertices) {
    const struct {
        points positions;
        Int32 changed;
        numbers indices;
    } table[] = {
        {quadPoints(), 2, {0, 1, 2, 1, 4, 2}},
        {roofPoints(), 2, {0, 1, 2, 1, 0, 5}},
        {gridPoints(2), 15, {0, 1,  2, 1,  4,  2, 2, 4,  8,  4,  10, 8,
                             1, 13, 4, 13, 16, 4, 4, 16, 10, 16, 22, 10}},
        {{{0, 0, 0}, {-0.f, 0, 0}, {1e-7f, 0, 0}}, 0, {0, 1, 2}}, // by bytes, not by value
        {{}, 0, {}},
    };
    for (const auto& row : table) {
        const GeometryRefPtr core = makeTriangles(row.positions);
        const std::vector<corners> before = trianglesOf(core);
        EXPECT_EQ(createSharedIndex(core), row.changed);
        EXPECT_EQ(indicesOf(core), row.indices);
        EXPECT_EQ(mappingOf(core), std::vector<UInt16>());
        EXPECT_EQ(core->getPositions()->getSize(), row.positions.size());
        EXPECT_EQ(trianglesOf(core).size(), before.size());
        EXPECT_EQ(createSharedIndex(core), 0) << "nothing is left to share";
        EXPECT_EQ(createSingleIndex(core), 0) << "one index is there already";
        EXPECT_EQ(indicesOf(core), row.indices);
    }
}

TEST(SharedIndex, ComparesAllPropertiesOfAnEntry) {
    const Vec3f a(1, 0, 0), b(0, 1, 0);
    const auto shared = [](const std::vector<Vec3f>& normals) {
        const GeometryRefPtr core = makeTriangles(points(normals.size()));
        core->setNormals(makeProperty<GeoNormals3f>(normals));
        createSharedIndex(core);
        return indicesOf(core);
    };
    EXPECT_EQ(shared({a, b, a}), (numbers{0, 1, 0}));
    EXPECT_EQ(shared({a, b, b}), (numbers{0, 1, 1}));
    EXPECT_EQ(shared({a, a, b, b, a}), (numbers{0, 0, 2, 2, 0}));

    // Entry by entry where there are several; the first to come stays, not the lowest.
    const GeometryRefPtr core =
        makeCore(points(4), {{GL_TRIANGLES, 3}}, {3, 2, 1, 1, 0, 0}, {1, 2});
    core->setNormals(makeProperty<GeoNormals3f>(std::vector<Vec3f>{a, b, a}));
    EXPECT_EQ(createSharedIndex(core), 3);
    EXPECT_EQ(indicesOf(core), (numbers{3, 2, 3, 1, 3, 2}));

    // A property too short for some vertices keeps them from those that it has.
    const GeometryRefPtr short_normals = makeTriangles(points(4));
    short_normals->setNormals(makeProperty<GeoNormals3f>(std::vector<Vec3f>{a, a}));
    EXPECT_EQ(createSharedIndex(short_normals), 2);
    EXPECT_EQ(indicesOf(short_normals), (numbers{0, 0, 2, 2}));
}

TEST(SharedIndex, SparesWhatIsMissingOrSharedWithOthers) {
    EXPECT_EQ(createSharedIndex(GeometryPtr()), -1);
    EXPECT_EQ(createSingleIndex(GeometryPtr()), -1);
    const GeometryRefPtr bare(Geometry::create());
    EXPECT_EQ(createSharedIndex(bare), 0);
    EXPECT_EQ(bare->getIndices(), NullFC);
    // Without indices a mapping means nothing; two indices per vertex do not come of it.
    const GeometryRefPtr mapped = makeCore(quadPoints(), {{GL_TRIANGLES, 6}}, {}, {1, 2});
    EXPECT_EQ(createSharedIndex(mapped), 2);
    EXPECT_EQ(trianglesOf(mapped), (std::vector<corners>{{0, 1, 2}, {1, 4, 2}}));
    const GeometryRefPtr beyond = makeCore(points(1), {{GL_TRIANGLES, 3}}, {7, 0xFFFFFFFFu, 7});
    EXPECT_EQ(createSharedIndex(beyond), 0);
    EXPECT_EQ(indicesOf(beyond), (numbers{7, 0xFFFFFFFFu, 7}));

    const GeometryRefPtr core = makeCore(points(3), {{GL_TRIANGLES, 3}});
    core->setIndices(makeProperty<GeoIndicesUI16>(numbers{2, 1, 0}));
    const GeometryRefPtr other = makeCore({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{GL_TRIANGLES, 3}});
    other->setIndices(core->getIndices());
    EXPECT_EQ(createSharedIndex(core), 2);
    EXPECT_EQ(indicesOf(core), (numbers{2, 2, 2}));
    EXPECT_EQ(indicesOf(other), (numbers{2, 1, 0})) << "the other's vertices are different ones";
    EXPECT_NE(GeoIndicesUI16Ptr::dcast(core->getIndices()), NullFC);
}

TEST(SingleIndex, NumbersTuplesByFirstUse) {
    const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}, {{GL_TRIANGLES, 4}},
                                         {2, 0, 1, 1, 2, 0, 2, 1}, {1 | 2048, 2});
    core->setNormals(makeProperty<GeoNormals3f>(std::vector<Vec3f>{{1, 0, 0}, {0, 1, 0}}));
    core->setTexCoords7(makeProperty<GeoTexCoords1f>(std::vector<Real32>{10, 11}));
    core->setColors(makeProperty<GeoColors3ub>(std::vector<Color3ub>{{1, 2, 3}})); // not mapped
    const GeometryRefPtr other(Geometry::create());
    other->setNormals(core->getNormals());
    EXPECT_EQ(createSingleIndex(core), 3);
    EXPECT_EQ(indicesOf(core), (numbers{0, 1, 0, 2}));
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1 | 2 | 2048}));
    EXPECT_EQ(GeoPositions3fPtr::dcast(core->getPositions())->getField().getValues(),
              (points{{2, 0, 0}, {1, 0, 0}, {2, 0, 0}}));
    EXPECT_EQ(core->getNormals()->getValue(2), Vec3f(0, 1, 0));
    EXPECT_EQ(core->getTexCoords7()->getValue(0), Vec2f(0, 0)) << "beyond the old end";
    EXPECT_EQ(core->getTexCoords7()->getValue(1), Vec2f(11, 0));
    EXPECT_EQ(core->getColors()->getSize(), 1u);
    EXPECT_EQ(other->getNormals()->getSize(), 2u) << "the other's property stays";
    EXPECT_EQ(createSingleIndex(core), 3);
    EXPECT_EQ(indicesOf(core), (numbers{0, 1, 0, 2}));
}

TEST(SingleIndex, AgreesWithASlowSearch) {
    std::mt19937 random(5);
    for (int round = 0; round < 100; ++round) {
        const UInt32 stride = 1 + random() % 3, vertices = random() % 60;
        numbers indices(vertices * stride);
        for (UInt32& index : indices)
            index = random() % 4;
        std::vector<UInt16> mapping{1, 2, 4};
        mapping.resize(stride);
        const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, {3, 0, 0}},
                                             {{GL_POINTS, vertices}}, indices, mapping);
        std::map<numbers, UInt32> known;
        numbers expected;
        for (UInt32 v = 0; v < vertices; ++v) {
            const numbers tuple(indices.begin() + v * stride, indices.begin() + (v + 1) * stride);
            const auto number = static_cast<UInt32>(known.size());
            expected.push_back(known.emplace(tuple, number).first->second);
        }
        EXPECT_EQ(createSingleIndex(core), static_cast<Int32>(known.size()));
        EXPECT_EQ(indicesOf(core), expected);
        for (UInt32 v = 0; v < vertices; ++v) {
            const UInt32 was = indices[v * stride];
            EXPECT_EQ(core->getPositions()->getValue(expected[v])[0],
                      was % 2 == 0 ? 0.f : static_cast<Real32>(was));
        }
    }
}

TEST(PrimitiveCount, ByTypeAndLength) {
    const GeometryRefPtr core = makeCore(points(100), {{GL_POINTS, 3},
                                                       {GL_LINES, 5},
                                                       {GL_LINE_STRIP, 4},
                                                       {GL_LINE_LOOP, 4},
                                                       {GL_TRIANGLES, 8},
                                                       {GL_TRIANGLE_STRIP, 5},
                                                       {GL_TRIANGLE_FAN, 1},
                                                       {GL_QUADS, 8},
                                                       {GL_QUAD_STRIP, 6},
                                                       {GL_POLYGON, 5},
                                                       {77, 9},
                                                       {GL_LINE_STRIP, 0}});
    UInt32 triangles = 9, lines = 9, single = 9;
    EXPECT_EQ(calcPrimitiveCount(core, triangles, lines, single), 16u + 9u + 3u);
    EXPECT_EQ(triangles, 2u + 3 + 0 + 4 + 4 + 3);
    EXPECT_EQ(lines, 2u + 3 + 4);
    EXPECT_EQ(single, 3u);
    EXPECT_EQ(calcPrimitiveCount(GeometryPtr(), triangles, lines, single), 0u);
    EXPECT_EQ(triangles, 0u);
}

} // namespace
