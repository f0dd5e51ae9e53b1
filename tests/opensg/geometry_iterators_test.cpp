// Walking primitives, triangles and lines; index resolution; damaged data.

#include <OpenSG/OSGPrimitiveIterator.h>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

points manyPoints(UInt32 count) {
    points all;
    for (UInt32 i = 0; i < count; ++i)
        all.emplace_back(static_cast<Real32>(i), 0.f, 0.f);
    return all;
}

TEST(IndexResolution, ByMappingAndPresence) {
    const numbers two{3, 0, 2, 1, 1, 2}; // per vertex: entry 0, entry 1
    const struct {
        const char* what;
        numbers indices;
        std::vector<UInt16> mapping;
        corners position, normal, coordinate7;
        Int32 place;
    } table[] = {{"unindexed", {}, {}, {0, 1, 2}, {0, 1, 2}, {0, 1, 2}, -1},
                 {"one for all", {3, 1, 2}, {}, {3, 1, 2}, {3, 1, 2}, {3, 1, 2}, 1},
                 {"two entries", two, {1 | 2048, 2}, {3, 2, 1}, {0, 1, 2}, {3, 2, 1}, 2},
                 {"the last of several", two, {1 | 2, 1}, {0, 1, 2}, {3, 2, 1}, {3, 0, 2}, 2},
                 // In no entry: an index of the others, by the vertex's number in the primitive.
                 {"not mapped", two, {2, 1}, {0, 1, 2}, {3, 2, 1}, {3, 0, 2}, 2}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.what);
        const GeometryRefPtr core =
            makeCore(manyPoints(4), {{GL_TRIANGLES, 3}}, row.indices, row.mapping);
        core->setNormals(propertyOf<GeoNormals3f>(std::vector<Vec3f>(4, Vec3f(0, 0, 1))));
        core->setTexCoords7(propertyOf<GeoTexCoords1f>(std::vector<Real32>{0, 1, 2, 3}));
        forEachCorner(core, [&](const TriangleIterator& it, Int32 k) {
            const auto i = std::size_t(k);
            EXPECT_EQ(it.getPositionIndex(k), row.position[i]);
            EXPECT_EQ(it.getNormalIndex(k), row.normal[i]);
            EXPECT_EQ(it.getTexCoordsIndex7(k), row.coordinate7[i]);
            EXPECT_EQ(it.getPosition(k)[0], static_cast<Real32>(row.position[i]));
            EXPECT_EQ(it.getNormal(k), Vec3f(0, 0, 1));
            EXPECT_EQ(it.getTexCoords7(k)[0], static_cast<Real32>(row.coordinate7[i]));
            EXPECT_EQ(it.getColorIndex(k) + it.getTexCoordsIndex(k), -2) << "absent";
            EXPECT_EQ(it.getColor(k), Color3f(0, 0, 0));
        });
        EXPECT_EQ(core->beginTriangles().getIndexIndex(1), row.place);
    }
}

TEST(Walks, CompareSeekAndStart) {
    const GeometryRefPtr core =
        makeCore(manyPoints(9), {{GL_LINES, 2}, {GL_TRIANGLES, 3}, {GL_TRIANGLE_FAN, 4}});
    const NodeRefPtr node(makeNodeFor(core.get()));
    TriangleIterator it(node.get());
    EXPECT_EQ(it.getGeometry(), core);
    it.seek(2);
    EXPECT_EQ(it.getIndex(), 2);
    EXPECT_EQ(it.getPositionIndex(2), 8);
    EXPECT_TRUE(core->beginTriangles() < it && it < core->endTriangles());
    ++it;
    EXPECT_TRUE(it == core->endTriangles() && !(it < core->endTriangles()));
    PrimitiveIterator primitive(core.get());
    primitive.seek(2);
    EXPECT_TRUE(core->beginPrimitives() < primitive);
    ++primitive;
    EXPECT_TRUE(primitive == core->endPrimitives());
    EXPECT_TRUE(TriangleIterator(GeometryPtr()).isAtEnd() && LineIterator(NodePtr()).isAtEnd());
    core->setLengths(NullFC); // each primitive takes all
    EXPECT_EQ(trianglesOf(core).size(), 3u + 7u);
    core->setPositions(NullFC);
    EXPECT_EQ(trianglesOf(core).size(), 0u);
    const GeometryRefPtr run =
        makeCore(manyPoints(2), {{GL_TRIANGLE_STRIP, 2000000}}, numbers(2000000, 1));
    EXPECT_EQ(trianglesOf(run).size(), 1u) << "a long run takes no stack";
}

/// The walk as it is told, over plain vectors that may fit each other or not.
std::vector<std::pair<corners, UInt32>> naiveWalk(const primitives& all, const numbers& indices,
                                                  UInt32 stride) {
    std::vector<std::pair<corners, UInt32>> triangles; // and types of their primitives
    const UInt64 vertices = indices.size() / stride;
    UInt64 first = 0;
    for (const auto& [type, length] : all) {
        const auto emit = [&, kind = type](UInt64 a, UInt64 b, UInt64 c,
                                           bool counts_always = true) {
            if (first + osgMax(a, osgMax(b, c)) >= vertices)
                return;
            const auto index = [&](UInt64 v) { return Int32(indices[(first + v) * stride]); };
            const corners t{index(a), index(b), index(c)};
            if (counts_always || (t[0] != t[1] && t[1] != t[2] && t[0] != t[2]))
                triangles.emplace_back(t, kind);
        };
        const UInt64 n = length < 3 ? 0 : length;
        for (UInt64 i = 0; i < n && first + i < vertices; ++i) {
            const UInt64 odd = i % 2;
            if (type == GL_TRIANGLES && i % 3 == 0)
                emit(i, i + 1, i + 2);
            else if ((type == GL_TRIANGLE_STRIP || type == GL_QUAD_STRIP) && i + 2 < n)
                emit(i + odd, i + 1 - odd, i + 2, i == 0);
            else if ((type == GL_TRIANGLE_FAN || type == GL_POLYGON) && i + 2 < n)
                emit(0, i + 1, i + 2);
            else if (type == GL_QUADS && i % 4 == 0)
                emit(i, i + 1, i + 2);
            else if (type == GL_QUADS && i % 4 == 3)
                emit(i - 3, i - 1, i);
        }
        first += length;
    }
    return triangles;
}

/// Lines likewise.
std::vector<std::pair<Int32, Int32>> naiveLines(const primitives& all, const numbers& indices,
                                                UInt32 stride) {
    std::vector<std::pair<Int32, Int32>> lines;
    const UInt64 vertices = indices.size() / stride;
    UInt64 first = 0;
    for (const auto& [type, length] : all) {
        const auto index = [&, from = first](UInt64 v) {
            return Int32(indices[(from + v) * stride]);
        };
        const UInt64 n = osgMin<UInt64>(length, vertices - osgMin(first, vertices));
        for (UInt64 i = 0; i < n && n > 1; ++i) {
            const bool last = i + 1 == n;
            if (type == GL_LINES ? i % 2 == 0 && first + i + 1 < vertices
                                 : type == GL_LINE_LOOP || (type == GL_LINE_STRIP && !last))
                lines.emplace_back(index(i), index(last && type == GL_LINE_LOOP ? 0 : i + 1));
        }
        first += length;
    }
    return lines;
}

TEST(Walks, DamagedDataEndsWhereTheDataEnds) {
    std::mt19937 random(seedOf(3));
    for (int round = 0; round < roundsOf(3000); ++round) {
        primitives all;
        for (UInt32 i = random() % 4; i-- > 0;) {
            const UInt32 length = random() % 16 == 0 ? 0xFFFFFFF0u + random() % 16 : random() % 9;
            all.emplace_back(random() % 11, length);
        }
        const UInt32 stride = 1 + random() % 3;
        numbers indices(1 + random() % 40);
        for (UInt32& index : indices)
            index = random() % 6;
        std::vector<UInt16> mapping{1, 2, 4};
        mapping.resize(stride > 1 || random() % 2 != 0 ? stride : 0);
        const GeometryRefPtr core = makeCore(manyPoints(3), all, indices, mapping);
        if (random() % 2 != 0)
            core->setIndices(propertyOf<GeoIndicesUI16>(indices));
        if (!all.empty() && random() % 4 == 0)
            core->getTypes()->addValue(GL_TRIANGLES); // more types than lengths
        const auto naive = naiveWalk(all, indices, stride);
        std::size_t count = 0;
        for (TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it, ++count) {
            const corners t{it.getPositionIndex(0), it.getPositionIndex(1), it.getPositionIndex(2)};
            ASSERT_LT(count, naive.size()) << round;
            ASSERT_EQ(std::make_pair(t, it.getType()), naive[count]) << round;
            EXPECT_EQ(it.getPosition(2)[0], t[2] < 3 ? static_cast<Real32>(t[2]) : 0);
        }
        ASSERT_EQ(count, naive.size()) << round;
        std::size_t primitive = 0;
        for (PrimitiveIterator it(core.get()); !it.isAtEnd(); ++it, ++primitive) {
            ASSERT_EQ(it.getIndex(), Int32(primitive));
            ASSERT_EQ(it.getType(), all[primitive].first);
            ASSERT_LE(it.getLength(), osgMin(all[primitive].second, UInt32(indices.size())));
        }
        ASSERT_EQ(primitive, all.size());
        std::vector<std::pair<Int32, Int32>> walked;
        for (LineIterator it = core->beginLines(); it != core->endLines(); ++it) {
            EXPECT_EQ(it.getIndex(), Int32(walked.size()));
            EXPECT_EQ(it.getPositionIndex(1), Int32(indices.at(std::size_t(it.getIndexIndex(1)))));
            walked.emplace_back(it.getPositionIndex(0), it.getPositionIndex(1));
        }
        ASSERT_EQ(walked, naiveLines(all, indices, stride)) << round;
    }
}

} // namespace
