// What becomes of a group: batches along the list of its nodes, or along a tree over them.

#include "tests/support/merge_scenes.h"

#include <morva/merge/morva_osg_geomerge_stages.h>

namespace {

using morva::osg::mergeGeometryInVector;
using morva::osg::mergeGeometryInVectorWithHierarchy;

/// Merged cores as "4:15 ", a primitive of a type and its vertices; in brackets if a node has
/// several below it.
std::string textOfCores(const ::osg::NodePtr& node) {
    if (coreOf(node) != ::osg::NullFC)
        return std::to_string(coreOf(node)->getTypes()->getValue(0)) + ":" +
               std::to_string(coreOf(node)->getLengths()->getValue(0)) + " ";
    std::string text;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        text += textOfCores(node->getChild(i));
    return node->getNChildren() < 2 ? text : "(" + text + ")";
}

TEST(MergeGeometryInVector, BatchesGoAlongTheListOrDownTheTree) {
    const material_ref red(plain(0));
    const struct {
        std::vector<int> sizes; ///< triangles of a node, or so many lines if negative
        unsigned limit;
        const char *by_list, *by_tree;
    } rows[] = {
        {{}, 3, "", ""},
        {{0, 0}, 3, "", ""},
        {{1, 2, 3}, 1000, "4:18 ", "4:18 "},
        // A batch ends with the node that takes it over the limit, not with one that reaches it.
        {{2, 2, 2, 2, 2}, 4, "(4:18 4:12 )", "((4:6 4:6 )((4:6 4:6 )4:6 ))"},
        {{2, 2, 1, 4, 0}, 4, "(4:15 4:12 )", "(((4:6 4:6 )4:3 )(4:12 ))"},
        {{5, -2, 1, -3, -1},
         4,
         "(4:15 1:10 0:10 4:3 1:2 0:2 )",
         "((4:15 (4:3 1:10 0:10 ))(1:2 0:2 ))"},
        {{1, -4, 2}, 0, "(4:3 1:8 0:8 4:6 )", "((4:3 (1:8 0:8 ))4:6 )"}};
    for (const auto& [sizes, limit, by_list, by_tree] : rows) {
        SCOPED_TRACE(testing::PrintToString(sizes));
        const node_ref root(group());
        std::uint64_t triangles = 0, lines = 0;
        for (const int size : sizes) {
            const unsigned count = std::abs(size);
            root->addChild(meshNode(size < 0 ? row(2 * count, 1)
                                             : rowOfTriangles(count, 10 * root->getNChildren()),
                                    red.get()));
            (size < 0 ? lines : triangles) += count;
        }
        const node_list nodes = geometryNodes(root.get());
        const morva::osg::primitive_sums found = morva::osg::sumPrimitives(nodes);
        EXPECT_EQ(std::tuple(found.triangles, found.lines, found.points),
                  std::tuple(triangles, lines, 2 * lines));
        for (const bool along_tree : {false, true}) {
            const stream_capture out(std::cout);
            const node_ref merged((
                along_tree ? mergeGeometryInVectorWithHierarchy(red.get(), nodes, cells(1000),
                                                                quiet(), limit)
                           : mergeGeometryInVector(red.get(), nodes, cells(1000), quiet(), limit)));
            ASSERT_EQ(merged == ::osg::NullFC, nodes.empty());
            if (nodes.empty())
                continue;
            const bool is_hollow = out.text() == "Empty Geometry, no primitives found. \n";
            EXPECT_TRUE(along_tree || is_hollow == (triangles + lines == 0));
            EXPECT_EQ(textOfCores(merged.get()), along_tree ? by_tree : by_list);
            EXPECT_EQ(firstDifference(shapeOf(root.get()), shapeOf(merged.get())), "");
            for (const ::osg::NodePtr& core : geometryNodes(merged.get()))
                EXPECT_EQ(coreOf(core)->getMaterial(), red.get());
        }
    }
}

} // namespace
