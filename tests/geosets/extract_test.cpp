// Extraction of triangles: the rules that the oracle for all kinds does not show.

#include "triangle_scenes.h"

namespace {

using namespace tri;

mesh_data withNormals(mesh_data mesh) {
    mesh.normals.assign(mesh.positions.size(), {1, 0, 0});
    return mesh;
}

::osg::Vec3f normalAt(const osg_geoset& geoset, ::osg::UInt32 row) {
    return geoset.geometry->getNormals()->getValue(row);
}

const ::osg::Vec3f along_x(1, 0, 0), along_y(0, 1, 0), along_z(0, 0, 1);

TEST(Extract, FieldsGrowByThreeTimesTheBudgetAndNewOnesByTheBudget) {
    osg_geoset geoset;
    const ::osg::GeometryPtr core = geoset.geometry.get();
    pour(elements(3, 10), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 30U);
    EXPECT_EQ(lengthOf(core->getPositions()), 30);
    EXPECT_EQ(lengthOf(core->getNormals()), -1);

    pour(withNormals(elements(3, 10)), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 60U);
    EXPECT_EQ(lengthOf(core->getPositions()), 180);
    EXPECT_EQ(lengthOf(core->getNormals()), 60);
    EXPECT_EQ(normalAt(geoset, 0), along_y);

    geoset.setup();
    EXPECT_EQ(lengthOf(core->getPositions()), 180);
    EXPECT_EQ(lengthOf(core->getNormals()), 180);
    EXPECT_EQ(lengthOf(core->getTypes()), 1);
    EXPECT_EQ(core->getTypes()->getValue(0), 4U);

    osg_geoset with_budget;
    with_budget.vertex_capacity = 1000;
    pour(elements(3, 10), with_budget);
    pour(elements(3, 10), with_budget);
    EXPECT_EQ(lengthOf(with_budget.geometry->getPositions()), 1000);
}

TEST(Extract, RogueTrianglesAreLeftOutAndCountedUntilSetup) {
    // Corners outside the source make one; attributes may lead nowhere and read zero.
    mesh_data wild = withNormals(elements(3, 2));
    wild.primitives = {{4, 9}};
    wild.indices = {0, 1, 2, 0, 1, 77, 3, 4, 4294967295U};
    wild.normals.resize(1);
    osg_geoset inside;
    EXPECT_EQ(pour(wild, inside), 2U);
    EXPECT_EQ(inside.geometry->getLengths()->getValue(0), 9U);
    EXPECT_EQ(inside.vertex_count, 3U);
    EXPECT_EQ(normalAt(inside, 0), along_x);
    EXPECT_EQ(normalAt(inside, 1), ::osg::Vec3f(0, 0, 0));
    inside.setup();
    EXPECT_EQ(inside.geometry->getLengths()->getValue(0), 3U);
}

TEST(Extract, ASourceThatSharesPropertiesWithTheGeosetIsSafe) {
    osg_geoset geoset;
    pour(elements(3, 40), geoset, set_up);
    const node_ref own(nodeOf(geoset.geometry.get()));
    EXPECT_EQ(pour(own.get(), geoset, {true, false, false, true, false}), 0U);
    EXPECT_GE(geoset.size, 80U);
    EXPECT_EQ(cornersOf(geoset, 40), cornersOf(geoset, 0));
    EXPECT_EQ(cornersOf(geoset, 79), cornersOf(geoset, 39));
}

TEST(ExtractWithoutNormals, MakesTheNormalsAnewOfWhatHasChanged) {
    osg_geoset geoset;
    pour(elements(3, 2), geoset, set_up);
    geoset.ModifyObject(::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(0, 1, 0), ::osg::Pnt3f(0, 0, 1), 1);
    EXPECT_EQ(normalAt(geoset, 3), along_z);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normalAt(geoset, 3), along_x);

    // Another property in the place of the normals starts from nothing known.
    const ::osg::GeoNormals3fPtr other = ::osg::GeoNormals3f::create();
    other->editField().resize(geoset.geometry->getPositions()->size());
    geoset.geometry->setNormals(other);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normalAt(geoset, 0), along_z);
}

TEST(FillFCwithValue, WritesEveryRowOfWhatNobodyHoldsYetAndAcceptsNull) {
    const ::osg::GeoColorsPtr colors = ::osg::GeoColors4f::create();
    const ::osg::GeoNormalsPtr normals = ::osg::GeoNormals3f::create();
    colors->resize(3);
    normals->resize(2);
    morva::osg::fillFCwithValue(colors, ::osg::Color3f(0.25F, 0.5F, 1.0F));
    morva::osg::fillFCwithValue(normals, ::osg::Vec3f(1, 2, 3));
    morva::osg::fillFCwithValue(::osg::GeoTexCoordsPtr(), ::osg::Vec2f(1, 2));
    const ::osg::RefPtr<::osg::GeoColorsPtr> held_colors(colors);
    const ::osg::RefPtr<::osg::GeoNormalsPtr> held_normals(normals);
    EXPECT_EQ(colors->getValue(2), ::osg::Color3f(0.25F, 0.5F, 1.0F));
    EXPECT_EQ(normals->getValue(1), ::osg::Vec3f(1, 2, 3));
}

} // namespace
