// Normals of vertices and faces.

#include <gtest/gtest.h>

#include <OpenSG/OSGGeoFunctions.h>

#include <cmath>
#include <cstring>
#include <map>
#include <random>
#include <set>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

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

GeometryRefPtr sharedRoof() {
    const GeometryRefPtr core = makeTriangles(roofPoints());
    createSharedIndex(core);
    return core;
}

TEST(VertexNormals, SumUnitNormalsPerPositionIndex) {
    const GeometryRefPtr quad = makeTriangles(quadPoints());
    createSharedIndex(quad);
    calcVertexNormals(quad);
    EXPECT_EQ(normalsOf(quad), (normals{up, up, up, none, up, none}));
    EXPECT_EQ(mappingOf(quad), std::vector<UInt16>());
    const GeometryRefPtr roof = sharedRoof();
    calcVertexNormals(roof);
    EXPECT_EQ(normalsOf(roof), (normals{slanted, slanted, up, none, none, side}));
    const GeometryRefPtr apart = makeTriangles(roofPoints());
    calcVertexNormals(apart, static_cast<Real32>(Pi));
    EXPECT_EQ(normalsOf(apart), (normals{up, up, up, side, side, side}));
    EXPECT_EQ(apart->getIndices(), NullFC);
}

TEST(VertexNormals, FollowThePositionsEntry) {
    const GeometryRefPtr core = makeCore({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}, {{GL_TRIANGLES, 3}},
                                         {0, 0, 0, 1, 0, 0, 2, 0, 0}, {1, 2 | 16, 4});
    core->setNormals(GeoNormals3b::create());
    calcVertexNormals(core);
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1 | 2, 16, 4}));
    EXPECT_NE(GeoNormals3bPtr::dcast(core->getNormals()), NullFC) << "the form stays";
    EXPECT_FLOAT_EQ(core->getNormals()->getValue(2)[2], 1.f);
}

TEST(CreaseNormals, GiveTheRoofAnEdge) {
    const struct {
        Real32 angle;
        numbers indices;
        normals values;
    } table[] = {
        {30, {0, 0, 1, 1, 2, 2, 1, 3, 0, 4, 5, 5}, {up, up, up, side, side, side}},
        {0, {0, 0, 1, 1, 2, 2, 1, 3, 0, 4, 5, 5}, {up, up, up, side, side, side}},
        {120, {0, 0, 1, 1, 2, 2, 1, 1, 0, 0, 5, 3}, {slanted, slanted, up, side}},
    };
    for (const auto& row : table) {
        const GeometryRefPtr core = sharedRoof();
        for (int again = 0; again < 2; ++again) { // the entry of the normals is used again
            calcVertexNormals(core, degrees(row.angle));
            EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1, 2}));
            EXPECT_EQ(indicesOf(core), row.indices) << row.angle;
            EXPECT_EQ(normalsOf(core), row.values) << row.angle;
        }
    }
    const GeometryRefPtr core = sharedRoof();
    calcVertexNormals(core, degrees(30));
    EXPECT_EQ(createSingleIndex(core), 6);
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{3}));
    EXPECT_EQ(indicesOf(core), (numbers{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ(core->getPositions()->getSize(), 6u);
}

TEST(CreaseNormals, KeepEveryPropertyIndexed) {
    const GeometryRefPtr core = sharedRoof();
    core->setIndices(makeProperty<GeoIndicesUI16>(indicesOf(core)));
    core->setTexCoords7(makeProperty<GeoTexCoords1f>(std::vector<Real32>{0, 1, 2, 3, 4, 5}));
    core->setSecondaryColors(makeProperty<GeoColors3f>(std::vector<Color3f>(6)));
    const GeometryRefPtr other = makeCore(roofPoints(), {{GL_TRIANGLES, 6}});
    other->setIndices(core->getIndices());
    calcVertexNormals(core, degrees(30));
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1 | 8 | 2048, 2}));
    forEachCorner(core, [](const TriangleIterator& it, Int32 k) {
        EXPECT_EQ(it.getTexCoords7(k)[0], static_cast<Real32>(it.getPositionIndex(k)));
    });
    EXPECT_EQ(indicesOf(other), (numbers{0, 1, 2, 1, 0, 5})) << "the other's index stays";
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
    core->setIndices(makeProperty<GeoIndicesUI16>(indices));
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
            const auto at = [&](int k) { return positions[static_cast<std::size_t>(f[k])]; };
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
                const auto entered =
                    known.emplace(std::make_pair(p, members), static_cast<UInt32>(values.size()));
                if (entered.second)
                    values.push_back(sum);
                number_of_corner.push_back(entered.first->second);
            }
        }
    }
};

TEST(CreaseNormals, AgreeWithASlowSearch) {
    std::mt19937 random(17);
    for (int round = 0; round < 120; ++round) {
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
        EXPECT_EQ(std::memcmp(values.data(), naive.values.data(), values.size() * sizeof(Vec3f)),
                  0);
        numbers numbered;
        forEachCorner(core, [&](const TriangleIterator& it, Int32 k) {
            numbered.push_back(static_cast<UInt32>(it.getNormalIndex(k)));
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
    calcVertexNormals(GeometryPtr(), 1.f);
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
    EXPECT_EQ(normalsOf(first), (normals{up, up, up, side, side, side}));
    EXPECT_EQ(normalsOf(second), normals(6, up));
}

TEST(FaceNormals, OnePerTriangle) {
    const GeometryRefPtr core = sharedRoof();
    calcFaceNormals(core);
    EXPECT_EQ(normalsOf(core), (normals{up, side}));
    EXPECT_EQ(mappingOf(core), (std::vector<UInt16>{1, 2}));
    const GeometryRefPtr apart = makeTriangles(roofPoints());
    calcFaceNormals(apart);
    EXPECT_EQ(normalsOf(apart), (normals{up, up, up, side, side, side}));
}

} // namespace
