#include "flat_scenes.h"

#include <gtest/gtest.h>

#include <limits>

#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/trees/kd_tree.h>

namespace {

using morva::osg::extract;
using morva::osg::osg_point_geoset;

TEST(PointExtract, PointsAreTheVerticesOfLineRuns) {
    struct point_case {
        const char* name;
        std::vector<std::pair<int, unsigned>> primitives;
        std::vector<float> xs; ///< x of the expected points
    };
    for (const point_case& c :
         {point_case{"lines", {{1, 4}}, {0, 1, 2, 3}}, point_case{"one", {{1, 1}}, {0}},
          point_case{"true_points_count_for_nothing", {{0, 3}}, {}},
          point_case{"among_others", {{0, 2}, {1, 2}, {3, 2}, {1, 1}, {4, 3}}, {2, 3, 6}}}) {
        SCOPED_TRACE(c.name);
        std::vector<::osg::Pnt3f> positions;
        for (int i = 0; i < 10; ++i)
            positions.emplace_back(static_cast<float>(i), 0.0F, 0.0F);
        const ::osg::NodeRefPtr node(flat::nodeOf(flat::geometryOf(c.primitives, positions)));
        osg_point_geoset points;
        extract(node.get(), points, false, false, false, true);
        ASSERT_EQ(points.vertex_count, c.xs.size());
        EXPECT_EQ(points.size, c.xs.size());
        for (::osg::UInt32 i = 0; i < c.xs.size(); ++i) {
            EXPECT_EQ(points.geometry->getPositions()->getValue(i)[0], c.xs[i]);
        }
        if (c.xs.empty())
            continue;
        EXPECT_EQ(points.geometry->getTypes()->getValue(0), 1); // as lines do
        EXPECT_EQ(points.geometry->getLengths()->getValue(0), c.xs.size());
        EXPECT_EQ(points.geometry->getPositions()->size(), c.xs.size());
    }
}

TEST(PointExtract, TellsWhyItDoesNothing) {
    osg_point_geoset points;
    const ::osg::NodeRefPtr bare(::osg::Node::create());
    testing::internal::CaptureStdout();
    extract(::osg::NullFC, points, true, true, true, true);
    extract(bare.get(), points, true, true, true, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Morva_osg_point_geoset_tools::Extract: No Node\n"
              "Morva_osg_point_geoset_tools::Extract: No Core\n");
    const ::osg::NodeRefPtr node(flat::nodeOf(flat::geometryOf({{1, 1}}, {{1, 2, 3}}), "p"));
    points.geometry = ::osg::GeometryPtr(::osg::NullFC);
    testing::internal::CaptureStdout();
    extract(node.get(), points, true, true, true, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Morva_osg_geoset_tools::Extract: No Geometry in geoset!\n");
}

TEST(PointExtract, CarriesColoursAndIds) {
    morva::osg::getIDmapHandler().reset();
    std::mt19937 rng(5);
    const ::osg::GeometryPtr source = flat::geometryOf({{1, 3}}, flat::gridPoints(rng, 3));
    source->setColors(flat::someColors(rng, 3));
    const ::osg::NodeRefPtr node(flat::nodeOf(source, "p"));
    std::string other = "other";
    ::osg::Pnt3f zero(0, 0, 0);
    morva::osg::getIDmapHandler().insertNodeName(other, zero, zero, ::osg::NullFC, "");
    osg_point_geoset points;
    extract(node.get(), points, true, false, true, true);
    for (::osg::UInt32 i = 0; i < 3; ++i) {
        EXPECT_EQ(points.geometry->getColors()->getValue(i), source->getColors()->getValue(i));
        EXPECT_EQ(points.geometry->getTexCoords7()->getValue(i)[0], 1.0F);
    }
    morva::osg::getIDmapHandler().reset();
}

void fill(osg_point_geoset& points, const std::vector<::osg::Pnt3f>& positions) {
    const ::osg::NodeRefPtr node(
        flat::nodeOf(flat::geometryOf({{1, static_cast<unsigned>(positions.size())}}, positions)));
    extract(node.get(), points, false, false, false, true);
}

TEST(PointGeoset, SetupClearAndSizes) {
    osg_point_geoset points;
    points.setup();
    EXPECT_EQ(points.size, 0U);
    fill(points, {{1, 2, 3}, {-1, 5, 3}});
    EXPECT_EQ(points.size, 2U);
    EXPECT_EQ(points.bbox.min[0], -1.0F);
    EXPECT_EQ(points.bbox.extent[1], 3.0F);
    EXPECT_EQ(points.bbox.extent[2], 0.0F); // flat stays flat
    points.setWishedSize(9);
    EXPECT_EQ(points.geometry->getPositions()->size(), 9U);
    EXPECT_TRUE(points.resizeFieldContainers(4));
    EXPECT_EQ(points.geometry->getPositions()->size(), 4U);
    points.clear();
    EXPECT_EQ(points.vertex_capacity, 500000U);
    EXPECT_EQ(points.bbox.min[0], 0.0F);
}

TEST(PointGeoset, PositionsOfAnotherFormAreSortedToo) {
    osg_point_geoset points;
    const ::osg::GeoPositions2fPtr flat_points = ::osg::GeoPositions2f::create();
    flat_points->editField().push_back(::osg::Pnt2f(4, 1));
    flat_points->editField().push_back(::osg::Pnt2f(2, 3));
    points.geometry->setPositions(flat_points);
    points.vertex_count = 2;
    points.setup();
    EXPECT_EQ(points.size, 2U);
    EXPECT_EQ(points.bbox.min[0], 2.0F);
    EXPECT_EQ(points.bbox.max[1], 3.0F);
}

TEST(PointTree, APointOnThePlaneGoesRight) {
    osg_point_geoset points;
    fill(points, {{0, 0, 0}, {2, 0, 0}, {4, 0, 0}});
    morva::kd_tree<float> tree;
    morva::compile(points, tree, {1, 1, 3, 1.0F, 2.0F, 0.95F, false},
                   morva::kd_strategy_ObjMedian());
    ASSERT_EQ(tree.node_count, 2U);
    EXPECT_EQ(tree.nodes[0].plane, 2.0F);
    EXPECT_EQ(tree.nodes[1].count, 1U);
    EXPECT_EQ(tree.nodes[2].count, 2U);
}

TEST(PointTree, ANanIsToldAndStaysInTheTree) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    osg_point_geoset points;
    fill(points, {{0, 0, 0}, {nan, 1, 0}, {4, 0, 0}});
    morva::kd_tree<float> tree;
    testing::internal::CaptureStdout();
    morva::compile(points, tree, {1, 1, 3, 1.0F, 2.0F, 0.95F, false},
                   morva::kd_strategy_ObjMedian());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Found NAN in kd_strategy_ObjMedian!\n"
                                                      "AXIS: 0 Index: 1 MIN: nan MAX: nan\n");
    EXPECT_EQ(morva::triangle_count(tree, 0), 3U);
}

} // namespace
