// The conversions between the two worlds' values, crease normals.

#include "tests/support/test.h"

#include <numeric>

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_property_blocks.h>

using morva::osg::readBlock;

TEST(Set, CopiesComponentsOnly) {
    const ::osg::Vec3f expected(3, -0.0F, 1e30F);
    morva::float3 ours, from_point;
    ::osg::Vec3f vector;
    ::osg::Pnt3f point;
    morva::osg::set(ours, expected);
    morva::osg::set(point, ours);
    morva::osg::set(from_point, point);
    morva::osg::set(vector, from_point);
    for (unsigned i = 0; i < 3; ++i)
        EXPECT_EQ(bits_of(vector[i]), bits_of(expected[i]));
    const ::osg::Matrix matrix(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
    morva::math::transformation_matrix<float> stored;
    morva::osg::set(stored, matrix);
    for (unsigned i = 0; i < 16; ++i)
        EXPECT_EQ(stored[i], float(i));
}

// The scene graph itself makes them over an index; where there is none, each vertex has its own.
TEST(PropertyQueries, CreaseNormalsAreAsOverRunningIndices) {
    std::mt19937 rng(seedOf(8));
    for (int round = 0; round < roundsOf(80); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        mesh_data mesh = round % 2 == 0 ? soup(rng, rng() % 20) : mixture(rng, rng() % 8);
        const geometry_ref plain(geometryOf(mesh));
        plain->setNormals(::osg::GeoNormals3f::create()); // goes
        mesh.indices.resize(mesh.positions.size());
        std::iota(mesh.indices.begin(), mesh.indices.end(), 0U);
        const geometry_ref indexed(geometryOf(mesh)), twin(geometryOf(mesh));
        const float angle = round % 3 == 0 ? 0.0F : morva::osg::crease_angle;
        for (const geometry_ref& geometry : {plain, indexed})
            morva::osg::calcCreaseNormals(geometry.get(), angle);
        ::osg::calcVertexNormals(twin.get(), angle);

        std::vector<::osg::Vec3f> expected(mesh.positions.size()); // of the last triangle at each
        auto made = indexed->beginTriangles();
        for (auto it = twin->beginTriangles(); it != twin->endTriangles(); ++it, ++made) {
            for (::osg::Int32 k = 0; k < 3; ++k) {
                EXPECT_EQ(made.getNormal(k), it.getNormal(k));
                expected[std::size_t(it.getPositionIndex(k))] = it.getNormal(k);
            }
        }
        EXPECT_EQ(plain->getIndices(), ::osg::NullFC);
        EXPECT_EQ(plain->getMFIndexMapping()->size(), 0U);
        const auto normals = readBlock(plain->getNormals());
        EXPECT_EQ(std::vector<::osg::Vec3f>(normals.begin(), normals.end()), expected);
    }
    morva::osg::calcCreaseNormals(::osg::NullFC, 1.0F);
}
