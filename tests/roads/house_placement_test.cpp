// The house fitted into a box, moved to a centre and to the origin.

#include <algorithm>
#include <cmath>
#include <string>

#include <gtest/gtest.h>

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_placement.h>

#include "../support/mesh_multiset.h"
#include "../support/scene_builders.h"
#include "models.h"

namespace {

using namespace morva_test;

double extent(const mesh_summary& mesh, unsigned axis) {
    return static_cast<double>(mesh.max[axis]) - static_cast<double>(mesh.min[axis]);
}

TEST(HouseRoad, FitsIntoABoxWithItsProportions) {
    const morva::host::model source = morva::host::readModel(roads::house);
    const auto house = roads::optimised(source.root, "maxtris(5000),alphageometry(true)");
    const mesh_summary before = summaryOf(worldMesh(house));
    const stream_capture out(std::cout);
    morva::osg::transformSceneBB(house, ::osg::Pnt3f(100, 200, 300), ::osg::Pnt3f(104, 206, 308));
    EXPECT_EQ(out.text(), "");
    const mesh_summary after = summaryOf(worldMesh(house));

    double scale = 1e9;
    for (unsigned axis = 0; axis < 3; ++axis)
        scale = std::min(scale, (4.0 + 2.0 * axis) / extent(before, axis));
    for (unsigned axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(after.min[axis], 100.0F * static_cast<float>(axis + 1), 1e-4);
        EXPECT_NEAR(extent(after, axis), scale * extent(before, axis), 1e-4);
    }
    EXPECT_EQ(after.triangles, before.triangles);
    EXPECT_NEAR(after.area, before.area * scale * scale, 1e-4 * after.area);
}

TEST(HouseRoad, CentreAndBase) {
    const morva::host::model source = morva::host::readModel(roads::house);
    const ::osg::NodePtr root = source.root;
    const world_mesh mesh = worldMesh(root);
    const mesh_summary before = summaryOf(mesh);
    {
        const stream_capture out(std::cout);
        morva::osg::baseGeoPositions(root);
        EXPECT_EQ(out.text(), "");
        EXPECT_EQ(firstDifference(mesh, worldMesh(root)), "") << "transforms stand above";
        morva::osg::centerGeoPositions(root, "100.5:-200.25:300");
        EXPECT_EQ(
            out.text().find("New Model Center: [100.5/-200.25/300]\nModel will be moved by: ["),
            0U);
    }
    const mesh_summary centred = summaryOf(worldMesh(root));
    const float centre[3] = {100.5F, -200.25F, 300};
    for (unsigned axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(0.5F * (centred.min[axis] + centred.max[axis]), centre[axis], 1e-3);
        EXPECT_NEAR(extent(centred, axis), extent(before, axis), 1e-3);
    }
    EXPECT_EQ(centred.triangles, before.triangles);
    EXPECT_NEAR(centred.area, before.area, 1e-4 * before.area);

    morva::osg::baseGeoPositions(root);
    const mesh_summary based = summaryOf(worldMesh(root));
    for (unsigned axis = 0; axis < 3; ++axis) {
        EXPECT_GE(based.min[axis], 0.0F);
        EXPECT_LT(based.min[axis], 1.0F);
        EXPECT_NEAR(based.min[axis], centred.min[axis] - std::floor(centred.min[axis]), 1e-5);
    }
}

} // namespace
