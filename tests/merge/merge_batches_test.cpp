#include <morva/merge/morva_osg_geomerge_stages.h>

#include "merge_scenes.h"

namespace {

using morva::osg::mergeGeometryInVector;

/// Triangles of each batch of a group.
std::vector<std::size_t> batchesOf(const ::osg::NodePtr& merged) {
    std::vector<std::size_t> sizes;
    for (::osg::UInt32 i = 0; i < merged->getNChildren(); ++i)
        sizes.push_back(shapeOf(merged->getChild(i)).size());
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
        const material_ref red(plain(0));
        node_list list;
        for (const unsigned count : c.nodes)
            list.push_back(part(red.get(), 100.0F * static_cast<float>(list.size()), count));
        const node_ref root(group(list));
        const node_ref merged(mergeGeometryInVector(red.get(), list, cells(1000), quiet(), 10));
        EXPECT_EQ(batchesOf(merged.get()), c.batches);
        EXPECT_EQ(firstDifference(shapeOf(root.get()), shapeOf(merged.get())), "");
        for (const ::osg::NodePtr& core : geometryNodes(merged.get()))
            EXPECT_EQ(coreOf(core)->getMaterial(), red.get());
    }
}

TEST(MergeGeometryInVector, LinesAndPointsHaveBatchesOfTheirOwn) {
    const node_list list = {meshNode(row(8, 1)), meshNode(row(8, 1)), meshNode(row(8, 1))};
    const node_ref root(group(list));
    const node_ref merged(mergeGeometryInVector(::osg::NullFC, list, cells(1000), quiet(), 5));
    // 4 + 4 lines exceed the limit, then the rest; 8 points do at each node.
    std::string kinds;
    for (const ::osg::NodePtr& node : geometryNodes(merged.get())) {
        kinds += (coreOf(node)->getTypes()->getValue(0) == 1 ? " lines " : " points ") +
                 std::to_string(coreOf(node)->getLengths()->getValue(0));
    }
    EXPECT_EQ(kinds, " points 8 lines 16 points 8 lines 8 points 8");

    mesh_data claims = row(2, 1); // far more than there is
    claims.primitives = {{1, 0x7ffffffeU}};
    const node_ref node(meshNode(claims));
    const morva::osg::primitive_sums sums = morva::osg::sumPrimitives({node.get()});
    EXPECT_EQ(sums.lines, 1U);
    EXPECT_EQ(sums.points, 2U);
}

TEST(MergeGeometryInVector, NothingToMerge) {
    const auto merge = [](const node_list& list) {
        return mergeGeometryInVector(::osg::NullFC, list, cells(9), quiet(), 5);
    };
    EXPECT_TRUE(merge({}) == ::osg::NullFC);
    const node_ref hollow(nodeOf(::osg::Geometry::create())), solid(part(plain(0), 0));
    const stream_capture out(std::cout);
    EXPECT_EQ(batchesOf(node_ref(merge({hollow.get()})).get()), std::vector<std::size_t>());
    const std::string empty = "Empty Geometry, no primitives found. \n";
    EXPECT_EQ(out.text(), empty);
    EXPECT_EQ(batchesOf(node_ref(merge({::osg::NodePtr(), solid.get()})).get()),
              std::vector<std::size_t>{1});
    EXPECT_EQ(out.text(), empty + "Morva_osg_geoset_tools::Extract: No Node\n"
                                  "Morva_osg_line_geoset_tools::Extract: No Node\n"
                                  "Morva_osg_point_geoset_tools::Extract: No Node\n");
}

} // namespace
