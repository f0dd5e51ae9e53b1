// Shared and single indices, counting; strips and fans: whatever is found, the triangles with
// their winding stay; normals of vertices and faces.

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_geometry_tools.h>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

/// Random indices over few values, with every kind of mapping and properties of any length.
GeometryRefPtr randomGeometry(std::mt19937& random) {
    const UInt32 stride = random() % 4, vertices = random() % 60;
    numbers indices(vertices * osgMax(stride, 1u));
    for (UInt32& index : indices)
        index = random() % 7;
    std::vector<UInt16> mapping{1, 2 | 4, 2048};
    mapping.resize(stride);
    const points all{{0, 0, 0}, {1, 0, 0}, {0, 0, 0}, {1, 0, 0}, {-0.f, 0, 0}, {1e-7f, 0, 0}};
    const GeometryRefPtr core = makeCore(all, {{GL_POINTS, vertices}}, indices, mapping);
    if (random() % 2 != 0)
        core->setNormals(propertyOf<GeoNormals3b>(std::vector<Vec3b>(random() % 9)));
    if (random() % 2 != 0)
        core->setColors(propertyOf<GeoColors3ub>(
            std::vector<Color3ub>{{1, 2, 3}, {1, 2, 3}, {1, 2, 4}, {1, 2, 3}}));
    return core;
}

TEST(SharedIndex, IsWhatTheLibraryJoinsAndCountsInTheLastEntry) {
    std::mt19937 random(seedOf(7));
    for (int round = 0; round < roundsOf(300); ++round) {
        const GeometryRefPtr core = randomGeometry(random), twin(core->clone());
        numbers before = indicesOf(core);
        Int32 changed = createSharedIndex(core);
        morva::osg::joinEqualVertices(twin);
        const std::size_t stride = osgMax(mappingOf(core).size(), std::size_t(1));
        const numbers joined = indicesOf(core);
        for (auto i = UInt32(before.size()); i < joined.size(); ++i)
            before.push_back(i); // made from nothing
        EXPECT_EQ(joined, indicesOf(twin)) << round;
        EXPECT_EQ(mappingOf(core), mappingOf(twin)) << round;
        for (std::size_t i = stride - 1; i < joined.size(); i += stride)
            changed -= joined[i] != before[i];
        EXPECT_EQ(changed, 0) << round;
        EXPECT_EQ(createSharedIndex(core), 0) << "nothing is left to share";
    }
}

TEST(Indices, SpareWhatIsMissingOrSharedWithOthers) {
    for (const auto function : {&createSharedIndex, &createSingleIndex}) {
        EXPECT_EQ(function(GeometryPtr()), -1);
        const GeometryRefPtr bare(Geometry::create());
        EXPECT_EQ(function(bare), 0);
        EXPECT_EQ(bare->getIndices(), NullFC);
        // Without indices a mapping means nothing, and goes.
        const GeometryRefPtr mapped = makeCore(points(3), {{GL_TRIANGLES, 3}}, {}, {1});
        function(mapped);
        EXPECT_EQ(mappingOf(mapped), std::vector<UInt16>());
        EXPECT_EQ(indicesOf(mapped).size(), 3u);
        const GeometryRefPtr empty = makeCore(points(3), {{GL_TRIANGLES, 3}}, {}, {1, 2});
        empty->setIndices(GeoIndicesUI32::create());
        EXPECT_EQ(function(empty), 0);
        EXPECT_EQ(mappingOf(empty), (std::vector<UInt16>{1, 2}));
        EXPECT_EQ(empty->getPositions()->getSize(), 3u);
    }
    const GeometryRefPtr core = makeCore(points(3), {{GL_TRIANGLES, 3}});
    core->setIndices(propertyOf<GeoIndicesUI16>(numbers{2, 1, 0}));
    const GeometryRefPtr other(GeometryPtr::dcast(core->shallowCopy()));
    EXPECT_EQ(createSharedIndex(core), 2);
    EXPECT_EQ(indicesOf(core), (numbers{2, 2, 2}));
    EXPECT_EQ(indicesOf(other), (numbers{2, 1, 0})) << "the other's stay";
    EXPECT_NE(GeoIndicesUI16Ptr::dcast(core->getIndices()), NullFC);
    EXPECT_EQ(core->getPositions(), other->getPositions());
    createSingleIndex(core);
    EXPECT_NE(core->getPositions(), other->getPositions()) << "unshared whatever comes of it";
}

TEST(SingleIndex, AgreesWithASlowSearch) {
    std::mt19937 random(seedOf(5));
    for (int round = 0; round < roundsOf(300); ++round) {
        const GeometryRefPtr core = randomGeometry(random), before(core->clone());
        const numbers indices = indicesOf(core);
        const std::vector<UInt16> mapping = mappingOf(core);
        if (mapping.empty() || indices.empty())
            continue;
        std::map<numbers, UInt32> known;
        numbers expected;
        for (std::size_t v = 0; v < indices.size(); v += mapping.size()) {
            const auto first = indices.begin() + std::ptrdiff_t(v);
            const numbers tuple(first, first + std::ptrdiff_t(mapping.size()));
            const auto number = UInt32(known.size());
            expected.push_back(known.emplace(tuple, number).first->second);
        }
        for (int again = 0; again < 2; ++again) {
            EXPECT_EQ(createSingleIndex(core), Int32(known.size()));
            EXPECT_EQ(indicesOf(core), expected);
            EXPECT_EQ(mappingOf(core).size(), 1u);
        }
        for (const auto& [tuple, number] : known) {
            const Pnt3f p = tuple[0] < 6 ? before->getPositions()->getValue(tuple[0]) : Pnt3f();
            EXPECT_EQ(core->getPositions()->getValue(number), p);
            if (core->getColors() == NullFC || mapping.size() < 2)
                continue;
            const Color3f c = tuple[1] < 4 ? before->getColors()->getValue(tuple[1]) : Color3f();
            EXPECT_EQ(core->getColors()->getValue(number), c);
        }
        if (core->getColors() != NullFC && mapping.size() < 2) {
            EXPECT_EQ(core->getColors()->getSize(), 4u) << "not mapped: as it was";
        }
    }
}

TEST(PrimitiveCount, ByTypeAndLength) {
    // Types by number: points, lines, loop, strip; triangles, strip, fan; quads, strip, polygon.
    const primitives all{{0, 3}, {1, 5},  {2, 4}, {3, 4}, {4, 8},  {5, 5},
                         {6, 1}, {7, 10}, {8, 6}, {9, 5}, {77, 9}, {3, 0}};
    UInt32 triangles = 9, lines = 9, single = 9;
    EXPECT_EQ(calcPrimitiveCount(makeCore(points(100), all), triangles, lines, single), 29u);
    EXPECT_EQ(triangles, 2u + 3 + 0 + 5 + 4 + 3);
    EXPECT_EQ(lines, 2u + 3 + 4);
    EXPECT_EQ(calcPrimitiveCount(GeometryPtr(), triangles, lines, single), 0u);
}

GeometryRefPtr sharing(const points& positions) {
    const GeometryRefPtr core = makeTriangles(positions);
    createSharedIndex(core);
    return core;
}
GeometryRefPtr sharedGrid(int cells) { return sharing(gridPoints(cells)); }
GeometryRefPtr sharedRoof() { return sharing(roofPoints()); }

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

TEST(Strips, ApplyOnlyWhatIsCheaper) {
    const GeometryRefPtr loose =
        makeCore(points(6), {{GL_TRIANGLES, 6}, {GL_POINTS, 1}}, {0, 1, 2, 3, 4, 5, 0});
    const GeometryRefPtr strip = makeCore(points(4), {{GL_TRIANGLE_STRIP, 4}}, {0, 1, 2, 3});
    const struct {
        GeometryRefPtr core;
        bool strips, fans;
        UInt32 least;
        bool stitch;
        Int32 cost; ///< at most
        primitives expected;
    } table[] = {
        {sharedGrid(1), true, false, 16, true, 4, {{GL_TRIANGLE_STRIP, 4}}},
        {sharedGrid(2), true, false, 16, false, 13, {}},
        {sharedGrid(2), true, false, 16, true, 13, {}},
        {sharedGrid(30), true, true, 16, false, 1980, {}}, // little more than one index a triangle
        {loose, true, true, 16, false, 6, {{GL_TRIANGLES, 6}}}, // points go
        {strip, true, true, 16, false, 4, {{GL_TRIANGLE_STRIP, 4}}},
        {disc(20), false, true, 16, false, 22, {{GL_TRIANGLE_FAN, 22}}},
        {disc(20), true, true, 20, false, 22, {{GL_TRIANGLE_FAN, 22}}},
        {disc(20), false, true, 21, false, 60, {{GL_TRIANGLES, 60}}},
        {disc(20), false, false, 0, false, 60, {{GL_TRIANGLES, 60}}},
        {GeometryRefPtr(Geometry::create()), true, true, 16, false, 0, {}},
        {makeTriangles(quadPoints()), true, true, 16, false, 0, {{GL_TRIANGLES, 6}}}, // no indices
        {makeCore(points(3), {{GL_LINES, 2}}, {0, 1}), true, true, 1, false, 0, {{GL_LINES, 2}}}};
    const RefPtr<GeoIndicesPtr> kept(strip->getIndices());
    std::srand(5); // is left alone
    for (const auto& row : table) {
        SCOPED_TRACE(&row - table);
        const std::vector<corners> before = sorted(trianglesOf(row.core));
        const Int32 cost = createOptimizedPrimitives(row.core, 1, row.strips, row.fans, row.least,
                                                     false, row.stitch);
        EXPECT_LE(cost, row.cost);
        EXPECT_EQ(sorted(trianglesOf(row.core)), before);
        if (!row.expected.empty()) {
            EXPECT_EQ(primitivesOf(row.core), row.expected);
            EXPECT_EQ(cost, row.cost);
        } else if (cost > 0) {
            const auto indices = Int32(indicesOf(row.core).size());
            EXPECT_TRUE(row.stitch ? indices >= cost : indices == cost);
            EXPECT_TRUE(!row.stitch || primitivesOf(row.core).size() == 1);
        }
    }
    EXPECT_EQ(createOptimizedPrimitives(GeometryPtr()), 0);
    EXPECT_EQ(strip->getIndices(), kept.get()) << "what costs the same is left as it is";
    const int next = std::rand();
    std::srand(5);
    EXPECT_EQ(next, std::rand());
}

/// Corners as index tuples, since positions alone do not tell vertices apart under a mapping.
std::vector<corners> tupleTriangles(const GeometryRefPtr& core) {
    std::vector<corners> triangles;
    forEachCorner(core, [&](const TriangleIterator& it, Int32 k) {
        if (k == 0)
            triangles.emplace_back();
        triangles.back()[UInt32(k)] = it.getPositionIndex(k) * 1000 + it.getNormalIndex(k);
    });
    return triangles;
}

TEST(Strips, KeepEveryTriangleOfAnySoup) {
    std::mt19937 random(seedOf(23));
    for (int round = 0; round < roundsOf(400); ++round) {
        // Few vertices: duplicates, turned twins, edges of many triangles, degenerates.
        const UInt32 vertices = 4 + random() % 12, triangles = 1 + random() % 80;
        const bool mapped = round % 2 != 0;
        numbers indices;
        for (UInt32 i = 0; i < triangles * 3; ++i) {
            indices.push_back(random() % vertices);
            if (mapped)
                indices.push_back(random() % 2);
        }
        std::vector<UInt16> mapping;
        if (mapped)
            mapping = {1, 2};
        const GeometryRefPtr core =
            makeCore(points(vertices), {{GL_TRIANGLES, triangles * 3}}, indices, mapping);
        core->setNormals(GeoNormals3f::create());
        const GeometryRefPtr again(core->clone());
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

using normals = std::vector<Vec3f>;
const Vec3f up(0, 0, 1), side(0, 1, 0), slanted(0, std::sqrt(.5f), std::sqrt(.5f)), none;

normals normalsOf(const GeometryRefPtr& core) {
    normals values;
    for (UInt32 i = 0; core->getNormals() != NullFC && i < core->getNormals()->getSize(); ++i)
        values.push_back(core->getNormals()->getValue(i));
    return values;
}

/// What the corners of the triangles have.
normals cornerNormals(const GeometryRefPtr& core) {
    normals values;
    forEachCorner(core,
                  [&](const TriangleIterator& it, Int32 k) { values.push_back(it.getNormal(k)); });
    return values;
}

Real32 degrees(Real32 angle) { return angle * static_cast<Real32>(Pi) / 180.f; }

TEST(VertexNormals, SumUnitNormalsPerPositionIndexAndFollowIt) {
    const GeometryRefPtr roof = sharedRoof(), apart = makeTriangles(roofPoints());
    calcVertexNormals(roof);
    EXPECT_EQ(normalsOf(roof), (normals{slanted, slanted, up, none, none, side}));
    EXPECT_EQ(mappingOf(roof), std::vector<UInt16>());
    calcVertexNormals(apart, static_cast<Real32>(Pi));
    EXPECT_EQ(normalsOf(apart), (normals{up, up, up, side, side, side}));
    EXPECT_EQ(apart->getIndices(), NullFC);
    calcFaceNormals(roof);
    EXPECT_EQ(normalsOf(roof), (normals{up, side}));
    EXPECT_EQ(mappingOf(roof), (std::vector<UInt16>{1, 2}));
    const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{GL_TRIANGLES, 3}},
                                         {0, 0, 0, 1, 0, 0, 2, 0, 0}, {1, 2 | 16, 4});
    core->setNormals(GeoNormals3b::create());
    calcVertexNormals(core);
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1 | 2, 16, 4}));
    EXPECT_NE(GeoNormals3bPtr::dcast(core->getNormals()), NullFC) << "the form stays";
    EXPECT_FLOAT_EQ(core->getNormals()->getValue(2)[2], 1.f);
}

TEST(CreaseNormals, GiveTheRoofAnEdgeAndKeepEveryPropertyIndexed) {
    const GeometryRefPtr core = sharedRoof();
    core->setIndices(propertyOf<GeoIndicesUI16>(indicesOf(core)));
    core->setTexCoords7(propertyOf<GeoTexCoords1f>(std::vector<Real32>{0, 1, 2, 3, 4, 5}));
    core->setSecondaryColors(propertyOf<GeoColors3f>(std::vector<Color3f>(6)));
    const GeometryRefPtr other = makeCore(roofPoints(), {{GL_TRIANGLES, 6}});
    other->setIndices(core->getIndices());
    for (int again = 0; again < 2; ++again) { // the entry of the normals is used again
        calcVertexNormals(core, degrees(30));
        EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1 | 8 | 2048, 2}));
        EXPECT_EQ(indicesOf(core), (numbers{0, 0, 1, 1, 2, 2, 1, 3, 0, 4, 5, 5}));
        EXPECT_EQ(normalsOf(core), (normals{up, up, up, side, side, side}));
    }
    EXPECT_EQ(indicesOf(other), (numbers{0, 1, 2, 1, 0, 5})) << "the other's index stays";
    // An entry left empty is taken before a new one is made, also if the normals were what left it.
    const GeometryRefPtr hollow =
        makeCore(roofPoints(), {{GL_TRIANGLES, 3}}, {0, 7, 0, 1, 7, 0, 2, 7, 0}, {1 | 2, 0, 16});
    calcVertexNormals(hollow, degrees(30));
    EXPECT_EQ(mappingOf(hollow), (std::vector<UInt16>{1, 2, 16}));
    EXPECT_EQ(indicesOf(hollow), (numbers{0, 0, 0, 1, 1, 0, 2, 2, 0}));
}

TEST(CreaseNormals, MoreNormalsThanANarrowIndexHolds) {
    points positions;
    for (int i = 0; i < 22000; ++i) {
        const auto x = static_cast<Real32>(i);
        positions.insert(positions.end(), {{x, 0, 0}, {x, 1, 0}, {x, 0, i % 2 == 0 ? 1.f : -1.f}});
    }
    numbers indices;
    for (UInt32 i = 0; i < 66000; ++i)
        indices.insert(indices.end(), {i % 60000, 0});
    const GeometryRefPtr core = makeCore(positions, {{GL_TRIANGLES, 66000}}, {}, {1, 2});
    core->setIndices(propertyOf<GeoIndicesUI16>(indices));
    calcVertexNormals(core, degrees(30));
    for (TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it) {
        ASSERT_EQ(it.getNormal(0), Vec3f(it.getIndex() % 2 == 0 ? 1.f : -1.f, 0, 0))
            << it.getIndex();
    }
}

/// Literally: for each corner all faces are looked at, and sets of faces are compared.
struct naive_crease {
    normals values;
    numbers number_of_corner;
    naive_crease(const points& positions, const std::vector<corners>& faces, Real32 crease) {
        normals face_normals;
        for (const corners& f : faces) {
            const auto at = [&](int k) { return positions[std::size_t(f[k])]; };
            face_normals.push_back((at(1) - at(0)).cross(at(2) - at(0)));
            face_normals.back().normalize();
        }
        std::map<std::pair<Int32, std::set<std::size_t>>, UInt32> known;
        for (std::size_t f = 0; f < faces.size(); ++f) {
            const Vec3f& own = face_normals[f];
            if (own[0] == 0.f && own[1] == 0.f && own[2] == 0.f) {
                number_of_corner.insert(number_of_corner.end(), 3, UInt32(values.size()));
                values.push_back(values.empty() ? Vec3f() : values.back());
                continue;
            }
            for (const Int32 p : faces[f]) {
                std::set<std::size_t> members;
                Vec3f sum;
                for (std::size_t g = 0; g < faces.size(); ++g) {
                    if (std::count(faces[g].begin(), faces[g].end(), p) > 0 &&
                        (g == f || own.dot(face_normals[g]) > std::cos(crease))) {
                        members.insert(g);
                        sum += face_normals[g];
                    }
                }
                sum.normalize();
                const auto entered = known.emplace(std::make_pair(p, members), values.size());
                if (entered.second)
                    values.push_back(sum);
                number_of_corner.push_back(entered.first->second);
            }
        }
    }
};

TEST(CreaseNormals, AgreeWithASlowSearch) {
    std::mt19937 random(seedOf(17));
    for (int round = 0; round < roundsOf(120); ++round) {
        // Some rounds have so many faces at each position that they are told apart by hashes.
        const UInt32 vertices = 3 + random() % 8;
        const UInt32 faces = 1 + random() % (round % 4 == 0 ? 300u : 20u);
        points positions(vertices);
        for (UInt32 i = 0; i < vertices * 3; ++i)
            positions[i / 3][i % 3] = static_cast<Real32>(random() % 3) - 1.f;
        numbers indices;
        for (UInt32 i = 0; i < faces * 3; ++i)
            indices.push_back(random() % vertices);
        const GeometryRefPtr core = makeCore(positions, {{GL_TRIANGLES, faces * 3}}, indices);
        const Real32 crease = degrees(static_cast<Real32>(random() % 180));
        const naive_crease naive(positions, trianglesOf(core), crease);
        calcVertexNormals(core, crease);
        const normals values = normalsOf(core);
        ASSERT_EQ(values.size(), naive.values.size()) << round;
        EXPECT_EQ(std::memcmp(&values[0], &naive.values[0], values.size() * sizeof(Vec3f)), 0);
        numbers numbered;
        forEachCorner(core, [&](const TriangleIterator& it, Int32 k) {
            numbered.push_back(UInt32(it.getNormalIndex(k)));
        });
        EXPECT_EQ(numbered, naive.number_of_corner) << round;
    }
}

TEST(CreaseNormals, WithoutIndicesOnePerVertexAsIfIndexed) {
    // Strips and fans have vertices of several triangles even then.
    const points zigzag{{0, 0, 0}, {0, 1, 0}, {1, 0, .2f}, {1, 1, .1f}, {2, 0, 3}, {2, 1, 3}};
    for (const UInt32 type : {GL_TRIANGLES, GL_TRIANGLE_STRIP, GL_TRIANGLE_FAN, GL_QUADS}) {
        for (const Real32 angle : {0.f, 40.f, 100.f}) {
            const GeometryRefPtr plain = makeCore(zigzag, {{type, 6}});
            const GeometryRefPtr indexed = makeCore(zigzag, {{type, 6}}, {0, 1, 2, 3, 4, 5});
            calcVertexNormals(plain, degrees(angle));
            calcVertexNormals(indexed, degrees(angle));
            EXPECT_EQ(plain->getIndices(), NullFC);
            EXPECT_EQ(mappingOf(plain), std::vector<UInt16>());
            EXPECT_EQ(normalsOf(plain).size(), 6u);
            EXPECT_EQ(cornerNormals(plain), cornerNormals(indexed)) << type << " " << angle;
        }
    }
}

TEST(Normals, SpareWhatIsMissingAndOthersHave) {
    calcVertexNormals(GeometryPtr());
    calcFaceNormals(GeometryPtr());
    const GeometryRefPtr bare(Geometry::create());
    calcVertexNormals(bare, 1.f);
    EXPECT_EQ(bare->getNormals(), NullFC);
    for (const Real32 angle : {1.f, 4.f, std::nanf("")}) {
        const GeometryRefPtr beyond = makeCore({{0, 0, 0}, {1, 0, 0}, {std::nanf(""), 1, 0}},
                                               {{GL_TRIANGLES, 9}, {GL_LINES, 2}},
                                               {0, 1, 2, 0, 1, 3, 0, 0xFFFFFFFFu, 1, 0, 1});
        calcVertexNormals(beyond, angle);
        for (const Vec3f& n : cornerNormals(beyond))
            EXPECT_TRUE(std::isnan(n[0]) || n.squareLength() < 1.01f);
    }
    const GeometryRefPtr first = makeTriangles(roofPoints()), second = makeTriangles(quadPoints());
    calcVertexNormals(first);
    second->setNormals(first->getNormals());
    calcVertexNormals(second);
    calcFaceNormals(first);
    EXPECT_EQ(normalsOf(first), (normals{up, up, up, side, side, side}));
    EXPECT_EQ(normalsOf(second), normals(6, up));
}

} // namespace
