// Merging in batches by a tree over the nodes.

#include "tests/support/described_tree.h"
#include "tests/support/merge_scenes.h"

#include <morva/core/morva_osg.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::mergeGeometryInVector;
using morva::osg::mergeGeometryInVectorWithHierarchy;

/// The tree form once more: counts by the list, batches by the list.
struct naive_hierarchy {
    const node_list& nodes;
    const morva::bih_tree<float>& tree;
    unsigned limit;

    std::pair<std::size_t, std::size_t> rangeBelow(int node) const {
        const auto& here = tree.nodes[node];
        if (here.is_leaf())
            return {here.first, here.first + std::size_t(here.count)};
        return {rangeBelow(node + 1).first, rangeBelow(int(here.right)).second};
    }
    ::osg::NodePtr merge(int node) const {
        const auto [first, end] = rangeBelow(node);
        const node_list batch(nodes.begin() + long(first), nodes.begin() + long(end));
        std::uint32_t triangles = 0;
        for (const ::osg::NodePtr& part : batch)
            triangles += morva::osg::getNumberOfTriangles(part);
        if (tree.nodes[node].is_leaf() || triangles < limit)
            return mergeGeometryInVector(::osg::NullFC, batch, cells(1000), quiet(), limit);
        const ::osg::NodePtr out = group();
        for (const int child : {node + 1, int(tree.nodes[node].right)})
            out->addChild(merge(child));
        return out;
    }
};

TEST(MergeHierarchy, CountsGoDownTheTreeAndBatchesAlongTheList) {
    std::mt19937 rng(seedOf(5300));
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(round);
        const stream_capture out(std::cout);
        const node_ref root(group());
        for (unsigned i = rng() % 20; i > 0; --i)
            root->addChild(part(::osg::NullFC, float(rng() % 50), rng() % 9));
        const node_list nodes = geometryNodes(root.get());
        const unsigned limit = std::array<unsigned, 4>{0, 1, 12, 1000}[rng() % 4];
        const unsigned first = morva::osg::getIDmapHandler().mergedCount; // names are counted
        const node_ref merged(
            mergeGeometryInVectorWithHierarchy(::osg::NullFC, nodes, cells(1000), quiet(), limit));
        ASSERT_EQ(merged == ::osg::NullFC, nodes.empty());
        if (nodes.empty())
            continue;
        morva::osg::bih_scene_geoset scene(root.get(), {1, 100}, false);
        morva::bih_tree<float> tree;
        compile(scene, tree, {1, 100});
        morva::osg::getIDmapHandler().mergedCount = first;
        const node_ref twin(naive_hierarchy{nodes, tree, limit}.merge(0));
        std::ostringstream text, expected;
        describe(merged.get(), text);
        describe(twin.get(), expected);
        EXPECT_EQ(text.str(), expected.str());
    }
}

} // namespace
