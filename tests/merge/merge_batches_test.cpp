#include "merge_scenes.h"

#include <gtest/gtest.h>

namespace {

using morva::osg::mergeGeometryInVector;

/// Triangles of each batch of a group.
std::vector<std::size_t> batchesOf(const ::osg::NodePtr& group) {
    std::vector<std::size_t> sizes;
    for (::osg::UInt32 i = 0; i < group->getNChildren(); ++i) {
        sizes.push_back(scene::worldTriangles(group->getChild(i)).size());
    }
    return sizes;
}

TEST(MergeGeometryInVector, ABatchEndsWithTheNodeThatExceedsTheLimit) {
    struct batch_case {
        std::vector<unsigned> nodes; ///< triangles of each
        std::vector<std::size_t> batches;
    };
    for (const batch_case& c : {batch_case{{4, 6}, {10}},
                                {{4, 7, 1}, {11, 1}},
                                {{30, 1, 1}, {30, 2}},
                                {{5, 5, 5, 5, 5}, {15, 10}},
                                {{11}, {11}},
                                {{0, 3, 0}, {3}}}) {
        const ::osg::MaterialRefPtr red(scene::plain(0));
        const ::osg::NodeRefPtr root(scene::group({}));
        scene::nodes list;
        for (std::size_t i = 0; i < c.nodes.size(); ++i) {
            list.push_back(scene::strip(red.get(), 100.0F * static_cast<float>(i), c.nodes[i]));
            root->addChild(list.back());
        }
        const ::osg::NodeRefPtr group(
            mergeGeometryInVector(red.get(), list, scene::cells(1000), scene::quiet(), 10));
        EXPECT_EQ(batchesOf(group.get()), c.batches);
        EXPECT_EQ(scene::worldTriangles(group.get()), scene::worldTriangles(root.get()));
        const scene::nodes cores = morva_test::geometryNodes(group.get());
        for (const ::osg::NodePtr& core : cores) {
            EXPECT_EQ(scene::coreOf(core)->getMaterial(), red.get());
        }
    }
}

TEST(MergeGeometryInVector, LinesAndPointsHaveBatchesOfTheirOwn) {
    std::mt19937 rng(5104);
    const ::osg::NodeRefPtr root(scene::group({}));
    scene::nodes list;
    for (int i = 0; i < 3; ++i) {
        list.push_back(flat::nodeOf(flat::geometryOf({{1, 8}}, flat::gridPoints(rng, 8))));
        root->addChild(list.back());
    }
    const ::osg::NodeRefPtr group(
        mergeGeometryInVector(::osg::NullFC, list, scene::cells(1000), scene::quiet(), 5));
    // 4 + 4 lines exceed the limit, then the rest; 8 points do at each node.
    std::string kinds;
    for (::osg::UInt32 i = 0; i < group->getNChildren(); ++i) {
        const ::osg::GeometryPtr core = scene::coreOf(group->getChild(i)->getChild(0));
        kinds += (core->getTypes()->getValue(0) == 1 ? " lines " : " points ") +
                 std::to_string(core->getLengths()->getValue(0));
    }
    EXPECT_EQ(kinds, " points 8 lines 16 points 8 lines 8 points 8");
}

TEST(MergeGeometryInVector, NothingToMerge) {
    EXPECT_TRUE(mergeGeometryInVector(::osg::NullFC, {}, scene::cells(9), scene::quiet(), 5) ==
                ::osg::NullFC);
    const ::osg::NodeRefPtr hollow(flat::nodeOf(::osg::Geometry::create()));
    testing::internal::CaptureStdout();
    const ::osg::NodeRefPtr group(
        mergeGeometryInVector(::osg::NullFC, {hollow.get()}, scene::cells(9), scene::quiet(), 5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Empty Geometry, no primitives found. \n");
    EXPECT_EQ(group->getNChildren(), 0U);
}

TEST(MergeGeometryInVector, DegenerateTrianglesAreAllThatGoes) {
    const ::osg::NodeRefPtr node(flat::nodeOf(flat::geometryOf({{4, 9}}, {{0, 0, 0},
                                                                          {1, 0, 0},
                                                                          {0, 1, 0},
                                                                          {2, 2, 2},
                                                                          {2, 2, 2},
                                                                          {0, 1, 0},
                                                                          {0, 0, 0},
                                                                          {1, 0, 0},
                                                                          {2, 0, 0}})));
    for (int opt = 0; opt <= 3; ++opt) {
        morva::osg::mergeGeo_setup setup = scene::quiet();
        setup.opt = opt;
        const ::osg::NodeRefPtr group(
            mergeGeometryInVector(::osg::NullFC, {node.get()}, scene::cells(9), setup, 5));
        EXPECT_EQ(batchesOf(group.get()), (std::vector<std::size_t>{1}));
    }
}

TEST(MergeGeometryInVector, AnEntryWithoutNodeIsToldAndPassedOver) {
    const ::osg::NodeRefPtr node(scene::strip(scene::plain(0), 0));
    testing::internal::CaptureStdout();
    const ::osg::NodeRefPtr group(mergeGeometryInVector(
        ::osg::NullFC, {::osg::NodePtr(), node.get()}, scene::cells(9), scene::quiet(), 5));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Morva_osg_geoset_tools::Extract: No Node\n"
              "Morva_osg_line_geoset_tools::Extract: No Node\n"
              "Morva_osg_point_geoset_tools::Extract: No Node\n");
    EXPECT_EQ(batchesOf(group.get()), (std::vector<std::size_t>{1}));
}

} // namespace
