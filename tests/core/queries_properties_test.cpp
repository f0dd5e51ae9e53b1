// Blocks of property values, the conversions between the two worlds' values, crease normals.

#include "tests/support/test.h"

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_property_blocks.h>

using morva::osg::editSpan;
using morva::osg::property_block;
using morva::osg::readBlock;

namespace {

/// Fills properties of any form through the role, and compares the blocks with reading one by one.
template <typename... Forms, typename Value>
void expectBlocksAsReadOneByOne(const std::vector<Value>& values) {
    const auto check = [&values](const auto& created) {
        const ::osg::RefPtr<std::decay_t<decltype(created)>> property(created);
        EXPECT_TRUE(readBlock(property.get()).empty());
        for (const Value& value : values)
            property->addValue(value);
        const auto block = readBlock(property.get());
        ASSERT_EQ(block.size(), values.size());
        for (::osg::UInt32 i = 0; i < values.size(); ++i)
            EXPECT_EQ(block[i], static_cast<Value>(property->getValue(i)));
        EXPECT_EQ(block.end(), block.data() + values.size());
    };
    (check(Forms::create()), ...);
    using role_pointer = decltype(std::tuple_element_t<0, std::tuple<Forms...>>::create()->clone());
    EXPECT_TRUE(readBlock(role_pointer()).empty());
}

} // namespace

TEST(PropertyQueries, BlocksReadEveryStoredForm) {
    using namespace ::osg;
    expectBlocksAsReadOneByOne<GeoPositions3f, GeoPositions2f, GeoPositions4f, GeoPositions3d,
                               GeoPositions3s>(
        std::vector<Pnt3f>{{1, 2, 3}, {-4, 5, 0}, {7, 8, 9}});
    expectBlocksAsReadOneByOne<GeoNormals3f, GeoNormals3b, GeoNormals3s>(
        std::vector<Vec3f>{{1, 0, 0}, {0, -1, 0}, {0.5F, 0, 0.5F}});
    expectBlocksAsReadOneByOne<GeoColors3f, GeoColors4f, GeoColors3ub, GeoColors4ub>(
        std::vector<Color3f>{{1, 0, 0.5F}, {0, 1, 0.25F}});
    expectBlocksAsReadOneByOne<GeoTexCoords2f, GeoTexCoords1f, GeoTexCoords3f, GeoTexCoords4f>(
        std::vector<Vec2f>{{0.5F, 2}, {-1, 3}});
    const std::vector<UInt32> numbers = {4, 0, 7, 255};
    expectBlocksAsReadOneByOne<GeoIndicesUI32, GeoIndicesUI16>(numbers);
    expectBlocksAsReadOneByOne<GeoPLengthsUI32, GeoPLengthsUI16, GeoPLengthsUI8>(numbers);
    expectBlocksAsReadOneByOne<GeoPTypesUI8>(std::vector<UInt8>{4, 0, 7, 255});
    EXPECT_TRUE(editSpan(GeoPositions3fPtr(NullFC)).empty());
}

TEST(PropertyQueries, BlocksSeeWritesWhereTheFormIsPlainAndOutliveTheGeometry) {
    property_block<::osg::Pnt3f> block, copy;
    {
        const geometry_ref geometry(geometryOf(quads(1)));
        block = readBlock(geometry->getPositions());
        const auto plain = ::osg::GeoPositions3fPtr::dcast(geometry->getPositions());
        EXPECT_EQ(block.data(), &plain->editField()[0]); // no copy was made
        editSpan(plain)[2] = ::osg::Pnt3f(7, 8, 9);
        copy = block;
    }
    EXPECT_EQ(copy[2], ::osg::Pnt3f(7, 8, 9));

    const ::osg::RefPtr<::osg::GeoTexCoords1fPtr> ids(::osg::GeoTexCoords1f::create());
    ids->editField().resize(1000, 3.0F);
    property_block<::osg::Vec2f> converted = readBlock(ids.get());
    const property_block<::osg::Vec2f> kept = converted, moved_on = std::move(converted);
    EXPECT_EQ(kept[999], ::osg::Vec2f(3, 0));
    EXPECT_EQ(moved_on[999], ::osg::Vec2f(3, 0));
}

TEST(Set, CopiesComponentsOnly) {
    const float expected[] = {3, -0.0F, 1e30F};
    morva::float3 from_vector, from_point;
    morva::osg::set(from_vector, ::osg::Vec3f(3, -0.0F, 1e30F));
    morva::osg::set(from_point, ::osg::Pnt3f(3, -0.0F, 1e30F));
    ::osg::Vec3f vector;
    ::osg::Pnt3f point;
    morva::osg::set(vector, from_point);
    morva::osg::set(point, from_vector);
    EXPECT_EQ(std::memcmp(&vector, expected, sizeof expected), 0);
    EXPECT_EQ(std::memcmp(&point, expected, sizeof expected), 0);
    ::osg::Matrix matrix;
    for (unsigned i = 0; i < 16; ++i)
        matrix[i / 4][i % 4] = static_cast<float>(i) + 0.5F;
    morva::math::transformation_matrix<float> stored;
    morva::osg::set(stored, matrix);
    for (unsigned i = 0; i < 16; ++i)
        EXPECT_EQ(stored[i], static_cast<float>(i) + 0.5F);
}

namespace {

/// Normals of a soup, one triangle after the other.
std::vector<::osg::Vec3f> naiveFlatNormals(const std::vector<::osg::Pnt3f>& p) {
    std::vector<::osg::Vec3f> normals;
    ::osg::Vec3f last(0, 0, 0);
    for (std::size_t i = 0; i + 2 < p.size(); i += 3) {
        const ::osg::Vec3f u = p[i + 1] - p[i], v = p[i + 2] - p[i];
        const ::osg::Vec3f n(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                             u[0] * v[1] - u[1] * v[0]);
        const float length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (length > 0)
            last = length < 1e-6F ? n : n * (1.0F / length);
        normals.insert(normals.end(), 3, last);
    }
    return normals;
}

} // namespace

TEST(PropertyQueries, CreaseNormalsGiveUnindexedCornersTheNormalOfTheirTriangle) {
    std::mt19937 rng(8);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const mesh_data mesh = soup(rng, rng() % 20);
        const geometry_ref geometry(geometryOf(mesh));
        if (round % 2 == 0) // what was there goes
            geometry->setNormals(::osg::GeoNormals3f::create());
        morva::osg::calcCreaseNormals(geometry.get(), morva::osg::crease_angle);
        EXPECT_EQ(geometry->getIndices(), ::osg::NullFC);
        EXPECT_EQ(geometry->getMFIndexMapping()->size(), 0U);
        const std::vector<::osg::Vec3f> expected = naiveFlatNormals(mesh.positions);
        const auto normals = readBlock(geometry->getNormals());
        ASSERT_EQ(normals.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_EQ(normals[i], expected[i]) << i;
    }
}

TEST(PropertyQueries, CreaseNormalsSmoothIndexedGeometryUpToTheAngle) {
    // Two triangles that meet along the edge 0 1: at right angles, or nearly flat.
    const auto normalsAtEdge = [](const ::osg::Pnt3f& wing) {
        mesh_data mesh;
        mesh.primitives = {{4, 6}};
        mesh.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, wing};
        mesh.indices = {0, 1, 2, 1, 0, 3};
        const geometry_ref geometry(geometryOf(mesh));
        morva::osg::calcCreaseNormals(geometry.get(), morva::osg::crease_angle);
        auto it = geometry->beginTriangles();
        const ::osg::Vec3f first = it.getNormal(0);
        ++it;
        return std::make_pair(first, it.getNormal(1)); // both at position 0
    };
    const auto sharp = normalsAtEdge({0, 0, 1}), smooth = normalsAtEdge({0, -1, 0.1F});
    EXPECT_EQ(sharp.first, ::osg::Vec3f(0, 0, 1));
    EXPECT_EQ(sharp.second, ::osg::Vec3f(0, 1, 0));
    EXPECT_EQ(smooth.first, smooth.second);
    EXPECT_GT(smooth.first[1], 0.01F);
}

TEST(PropertyQueries, CreaseNormalsAcceptNothing) {
    const geometry_ref empty(::osg::Geometry::create()), lines(geometryOf(row(4, 1)));
    for (const ::osg::GeometryPtr& geometry : {::osg::GeometryPtr(), empty.get(), lines.get()})
        morva::osg::calcCreaseNormals(geometry, 1.0F);
    EXPECT_EQ(empty->getNormals(), ::osg::NullFC);
    EXPECT_EQ(lines->getNormals()->size(), 4U);
}
