// The house fitted into a box, moved to a centre and to the origin.

#include "models.h"

#include <morva/driver/morva_osg_scene_placement.h>

namespace {

using triple = std::array<double, 3>;

double extent(const mesh_summary& mesh, unsigned axis) {
    return static_cast<double>(mesh.max[axis]) - static_cast<double>(mesh.min[axis]);
}

/// Returns what is below `root` now: `before` scaled, with its lowest corner at `low`.
mesh_summary expectAt(const ::osg::NodePtr& root, const mesh_summary& before, const triple& low,
                      double error, double scale = 1) {
    const mesh_summary now = summaryOf(worldMesh(root));
    for (unsigned axis = 0; axis < 3; ++axis) {
        EXPECT_NEAR(now.min[axis], low[axis], error);
        EXPECT_NEAR(extent(now, axis), scale * extent(before, axis), error);
    }
    EXPECT_EQ(now.triangles, before.triangles);
    EXPECT_NEAR(now.area, before.area * scale * scale, 1e-4 * now.area);
    return now;
}

TEST(HouseRoad, FitsIntoABoxWithItsProportions) {
    const morva::host::model source = morva::host::readModel(roads::house);
    const auto house = roads::optimised(source.root, "maxtris(5000),alphageometry(true)");
    const mesh_summary before = summaryOf(worldMesh(house));
    morva::osg::transformSceneBB(house, ::osg::Pnt3f(100, 200, 300), ::osg::Pnt3f(104, 206, 308));
    double scale = 1e9;
    for (unsigned axis = 0; axis < 3; ++axis)
        scale = std::min(scale, (4.0 + 2.0 * axis) / extent(before, axis));
    expectAt(house, before, {100, 200, 300}, 1e-4, scale);
}

TEST(HouseRoad, CentreAndBase) {
    const morva::host::model source = morva::host::readModel(roads::house);
    const world_mesh mesh = worldMesh(source.root);
    const mesh_summary before = summaryOf(mesh);
    morva::osg::baseGeoPositions(source.root);
    EXPECT_EQ(firstDifference(mesh, worldMesh(source.root)), "") << "transforms stand above";
    {
        const stream_capture out(std::cout);
        morva::osg::centerGeoPositions(source.root, "100.5:-200.25:300");
        EXPECT_EQ(out.text().find("New Model Center: [100.5/-200.25/300]\nModel will be moved"),
                  0U);
    }
    triple low = {100.5, -200.25, 300};
    for (unsigned axis = 0; axis < 3; ++axis)
        low[axis] -= 0.5 * extent(before, axis);
    const mesh_summary centred = expectAt(source.root, before, low, 1e-3);
    morva::osg::baseGeoPositions(source.root);
    for (unsigned axis = 0; axis < 3; ++axis)
        low[axis] = static_cast<double>(centred.min[axis] - std::floor(centred.min[axis]));
    expectAt(source.root, centred, low, 1e-4);
}

} // namespace
