// Blocks of property values, the conversions between the two worlds' values, crease normals, and
// the optimiser call that differs between releases.

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_platform.h>
#include <morva/core/morva_osg_property_blocks.h>

#include <cmath>
#include <limits>

#include <OpenSG/OSGTriangleIterator.h>
#include <gtest/gtest.h>

#include "tests/support/live_containers.h"
#include "tests/support/mesh_multiset.h"
#include "tests/support/scene_builders.h"

using namespace morva_test;
using morva::osg::editSpan;
using morva::osg::property_block;
using morva::osg::readBlock;

namespace {

/// Fills a property of any form through the role, and compares the block with reading one by one.
template <typename Property, typename Value>
void expectBlockAsReadOneByOne(const std::vector<Value>& values) {
    const ::osg::RefPtr<typename Property::PtrType> property(Property::create());
    EXPECT_TRUE(readBlock(property.get()).empty());
    for (const Value& value : values)
        property->addValue(value);
    const property_block<Value> block = readBlock(property.get());
    ASSERT_EQ(block.size(), values.size());
    for (::osg::UInt32 i = 0; i < values.size(); ++i) {
        const Value one = property->getValue(i);
        EXPECT_EQ(block[i], one);
        EXPECT_EQ(block.data()[i], one);
    }
}

} // namespace

TEST(PropertyBlock, ReadsEveryStoredForm) {
    const std::vector<::osg::Pnt3f> points = {{1, 2, 3}, {-4, 5, 0}, {7, 8, 9}};
    expectBlockAsReadOneByOne<::osg::GeoPositions3f>(points);
    expectBlockAsReadOneByOne<::osg::GeoPositions2f>(points);
    expectBlockAsReadOneByOne<::osg::GeoPositions4f>(points);
    expectBlockAsReadOneByOne<::osg::GeoPositions3d>(points);
    expectBlockAsReadOneByOne<::osg::GeoPositions3s>(points);
    const std::vector<::osg::Vec3f> normals = {{1, 0, 0}, {0, -1, 0}, {0.5F, 0, 0.5F}};
    expectBlockAsReadOneByOne<::osg::GeoNormals3f>(normals);
    expectBlockAsReadOneByOne<::osg::GeoNormals3b>(normals);
    expectBlockAsReadOneByOne<::osg::GeoNormals3s>(normals);
    const std::vector<::osg::Color3f> colors = {{1, 0, 0.5F}, {0, 1, 0.25F}};
    expectBlockAsReadOneByOne<::osg::GeoColors3f>(colors);
    expectBlockAsReadOneByOne<::osg::GeoColors4f>(colors);
    expectBlockAsReadOneByOne<::osg::GeoColors3ub>(colors);
    expectBlockAsReadOneByOne<::osg::GeoColors4ub>(colors);
    const std::vector<::osg::Vec2f> coordinates = {{0.5F, 2}, {-1, 3}};
    expectBlockAsReadOneByOne<::osg::GeoTexCoords1f>(coordinates);
    expectBlockAsReadOneByOne<::osg::GeoTexCoords2f>(coordinates);
    expectBlockAsReadOneByOne<::osg::GeoTexCoords3f>(coordinates);
    expectBlockAsReadOneByOne<::osg::GeoTexCoords4f>(coordinates);
    const std::vector<::osg::UInt32> numbers = {4, 0, 7, 255};
    expectBlockAsReadOneByOne<::osg::GeoIndicesUI32>(numbers);
    expectBlockAsReadOneByOne<::osg::GeoIndicesUI16>(numbers);
    expectBlockAsReadOneByOne<::osg::GeoPLengthsUI32>(numbers);
    expectBlockAsReadOneByOne<::osg::GeoPLengthsUI16>(numbers);
    expectBlockAsReadOneByOne<::osg::GeoPLengthsUI8>(numbers);
    expectBlockAsReadOneByOne<::osg::GeoPTypesUI8>(numbers);
}

TEST(PropertyBlock, IsEmptyForNull) {
    EXPECT_TRUE(readBlock(::osg::GeoPositionsPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoNormalsPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoColorsPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoTexCoordsPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoIndicesPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoPLengthsPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(readBlock(::osg::GeoPTypesPtr(::osg::NullFC)).empty());
    EXPECT_TRUE(editSpan(::osg::GeoPositions3fPtr(::osg::NullFC)).empty());
}

TEST(PropertyBlock, SeesWritesWhereTheFormIsPlainAndHoldsTheProperty) {
    const unsigned int before = liveContainers();
    {
        property_block<::osg::Pnt3f> block, copy;
        {
            const geometry_ref geometry(geometryOf(quads(1)));
            block = readBlock(geometry->getPositions());
            const auto plain = ::osg::GeoPositions3fPtr::dcast(geometry->getPositions());
            EXPECT_EQ(block.data(), &plain->editField()[0]); // no copy was made
            editSpan(plain)[2] = ::osg::Pnt3f(7, 8, 9);
            copy = block;
        }
        EXPECT_EQ(copy[2], ::osg::Pnt3f(7, 8, 9)); // the geometry is gone
        EXPECT_EQ(copy.size(), 4U);
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(PropertyBlock, KeepsConvertedValuesThroughCopyAndMove) {
    const ::osg::RefPtr<::osg::GeoTexCoords1fPtr> ids(::osg::GeoTexCoords1f::create());
    ids->editField().resize(1000, 3.0F);
    property_block<::osg::Vec2f> block = readBlock(ids.get());
    const property_block<::osg::Vec2f> copy = block;
    const property_block<::osg::Vec2f> moved_on = std::move(block);
    EXPECT_EQ(copy[999], ::osg::Vec2f(3, 0));
    EXPECT_EQ(moved_on[999], ::osg::Vec2f(3, 0));
}

TEST(Set, CopiesComponentsOnly) {
    const float nan_value = std::numeric_limits<float>::quiet_NaN();
    morva::float3 plain;
    morva::osg::set(plain, ::osg::Vec3f(3, -4, 1e30F));
    EXPECT_EQ(plain[0], 3.0F);
    EXPECT_EQ(plain[1], -4.0F);
    EXPECT_EQ(plain[2], 1e30F);
    morva::osg::set(plain, ::osg::Pnt3f(0.5F, nan_value, -0.0F));
    EXPECT_EQ(plain[0], 0.5F);
    EXPECT_TRUE(std::isnan(plain[1]));
    EXPECT_TRUE(std::signbit(plain[2]));
    ::osg::Vec3f vector;
    ::osg::Pnt3f point;
    plain = morva::float3{1, 2, 3};
    morva::osg::set(vector, plain);
    morva::osg::set(point, plain);
    EXPECT_EQ(vector, ::osg::Vec3f(1, 2, 3));
    EXPECT_EQ(point, ::osg::Pnt3f(1, 2, 3));

    ::osg::Matrix matrix;
    for (unsigned i = 0; i < 16; ++i)
        matrix[i / 4][i % 4] = static_cast<float>(i) + 0.5F;
    morva::math::transformation_matrix<float> stored;
    morva::osg::set(stored, matrix);
    for (unsigned i = 0; i < 16; ++i)
        EXPECT_EQ(stored[i], matrix.getValues()[i]);
}

namespace {

constexpr float thirty_degrees = 0.5235988F;

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

TEST(CalcCreaseNormals, GivesUnindexedCornersTheNormalOfTheirTriangle) {
    std::mt19937 rng(8);
    for (int round = 0; round < 40; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const mesh_data mesh = soup(rng, rng() % 20);
        const geometry_ref geometry(geometryOf(mesh));
        if (round % 2 == 0) // what was there goes
            geometry->setNormals(::osg::GeoNormals3f::create());
        morva::osg::calcCreaseNormals(geometry.get(), thirty_degrees);
        EXPECT_EQ(geometry->getIndices(), ::osg::NullFC);
        EXPECT_EQ(geometry->getMFIndexMapping()->size(), 0U);
        const std::vector<::osg::Vec3f> expected = naiveFlatNormals(mesh.positions);
        const auto normals = readBlock(geometry->getNormals());
        ASSERT_EQ(normals.size(), expected.size());
        for (std::size_t i = 0; i < expected.size(); ++i)
            EXPECT_EQ(normals[i], expected[i]) << i;
    }
}

TEST(CalcCreaseNormals, SmoothsIndexedGeometryUpToTheAngle) {
    // Two triangles that meet along the edge 0 1: at right angles, or nearly flat.
    const auto normalsAtEdge = [](const ::osg::Pnt3f& wing) {
        mesh_data mesh;
        mesh.primitives = {{4, 6}};
        mesh.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, wing};
        mesh.indices = {0, 1, 2, 1, 0, 3};
        const geometry_ref geometry(geometryOf(mesh));
        morva::osg::calcCreaseNormals(geometry.get(), thirty_degrees);
        auto it = geometry->beginTriangles();
        const ::osg::Vec3f first = it.getNormal(0);
        ++it;
        return std::make_pair(first, it.getNormal(1)); // both at position 0
    };
    const auto sharp = normalsAtEdge({0, 0, 1});
    EXPECT_EQ(sharp.first, ::osg::Vec3f(0, 0, 1));
    EXPECT_EQ(sharp.second, ::osg::Vec3f(0, 1, 0));
    const auto smooth = normalsAtEdge({0, -1, 0.1F});
    EXPECT_EQ(smooth.first, smooth.second);
    EXPECT_GT(smooth.first[1], 0.01F);
}

TEST(CalcCreaseNormals, AcceptsNothing) {
    morva::osg::calcCreaseNormals(::osg::NullFC, 1.0F);
    const geometry_ref empty(::osg::Geometry::create());
    morva::osg::calcCreaseNormals(empty.get(), 1.0F);
    EXPECT_EQ(empty->getNormals(), ::osg::NullFC);
    const geometry_ref lines(geometryOf(row(4, 1)));
    morva::osg::calcCreaseNormals(lines.get(), 1.0F);
    EXPECT_EQ(lines->getNormals()->size(), 4U);
}

TEST(CreateOptimizedPrimitives, KeepsTheTrianglesUnderEitherRelease) {
    std::mt19937 rng(9);
    mesh_data mesh = quads(20);
    mesh.primitives = {{4, 120}};
    for (::osg::UInt32 quad = 0; quad < 20; ++quad) {
        for (const ::osg::UInt32 corner : {0, 1, 2, 0, 2, 3})
            mesh.indices.push_back(4 * quad + corner);
    }
    const node_ref node(meshNode(mesh));
    const world_mesh before = worldMesh(node.get());
    morva::osg::createOptimizedPrimitives(coreOf(node), 1, true, false, 16, false, true, false);
    EXPECT_EQ(firstDifference(before, worldMesh(node.get())), "");
    EXPECT_LT(coreOf(node)->getIndices()->size(), 120U);
}
