// What becomes of a group: batches along the list of its nodes, or along a tree over them.

#include "tests/support/merge_scenes.h"

#include <morva/core/morva_osg.h>
#include <morva/merge/morva_osg_geomerge_stages.h>

namespace {

using morva::osg::mergeGeometryInVector;
using morva::osg::mergeGeometryInVectorWithHierarchy;
// Triangles, lines and points; those of lines are their ends.
constexpr std::size_t types[] = {4, 1, 0}, corners[] = {3, 2, 1};

/// What is not empty, in brackets if there are several.
std::string joined(const std::vector<std::string>& parts) {
    std::string text;
    for (const std::string& part : parts)
        text += part;
    const auto empty = std::count(parts.begin(), parts.end(), "");
    return long(parts.size()) - empty < 2 ? text : "(" + text + ")";
}

/// Merged cores as "4:15 ", a primitive of a type and its vertices.
std::string textOfCores(const ::osg::NodePtr& node) {
    std::vector<std::string> parts;
    if (coreOf(node) != ::osg::NullFC)
        parts.push_back(std::to_string(coreOf(node)->getTypes()->getValue(0)) + ":" +
                        std::to_string(coreOf(node)->getLengths()->getValue(0)) + " ");
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        parts.push_back(textOfCores(node->getChild(i)));
    return joined(parts);
}

/// A batch of each kind ends with the node that takes it over the limit.
std::string naiveBatches(const node_list& nodes, std::size_t limit) {
    std::vector<std::string> batches;
    std::size_t held[3] = {}; // vertices
    for (const ::osg::NodePtr& node : nodes) {
        for (std::size_t kind = 0; kind < 3; ++kind) {
            if ((coreOf(node)->getTypes()->getValue(0) == 4) == (kind == 0))
                held[kind] += coreOf(node)->getLengths()->getValue(0);
            if (held[kind] / corners[kind] > limit || (node == nodes.back() && held[kind] > 0))
                batches.push_back(std::to_string(types[kind]) + ":" +
                                  std::to_string(std::exchange(held[kind], 0U)) + " ");
        }
    }
    return joined(batches);
}

/// The tree form: counts by the list, batches by the list.
struct naive_hierarchy {
    const node_list& nodes;
    const morva::bih_tree<float>& tree;
    std::size_t limit;

    std::pair<std::size_t, std::size_t> rangeBelow(int node) const {
        const auto& here = tree.nodes[node];
        if (here.is_leaf())
            return {here.first, here.first + std::size_t(here.count)};
        return {rangeBelow(node + 1).first, rangeBelow(int(here.right)).second};
    }
    std::string merge(int node) const {
        const auto [first, end] = rangeBelow(node);
        const node_list batch(nodes.begin() + long(first), nodes.begin() + long(end));
        std::size_t triangles = 0;
        for (const ::osg::NodePtr& part : batch)
            triangles += morva::osg::getNumberOfTriangles(part);
        if (tree.nodes[node].is_leaf() || triangles < limit)
            return naiveBatches(batch, limit);
        return joined({merge(node + 1), merge(int(tree.nodes[node].right))});
    }
};

TEST(MergeGeometryInVector, BatchesGoAlongTheListOrDownTheTree) {
    std::mt19937 rng(seedOf(5300));
    const material_ref red(plain(0));
    for (int round = 0; round < roundsOf(200); ++round) {
        SCOPED_TRACE(round);
        const node_ref root(group());
        std::array<std::size_t, 3> sums{};
        for (unsigned i = rng() % 20; i > 0; --i) {
            const unsigned size = rng() % 9; // none among them
            const bool thin = rng() % 3 == 0;
            root->addChild(meshNode(
                thin ? row(2 * size, 1) : rowOfTriangles(size, float(rng() % 50)), red.get()));
            sums[thin ? 1 : 0] += size;
            sums[2] += thin ? 2 * size : 0;
        }
        const node_list nodes = geometryNodes(root.get());
        const morva::osg::primitive_sums found = morva::osg::sumPrimitives(nodes);
        EXPECT_EQ((std::array<std::size_t, 3>{found.triangles, found.lines, found.points}), sums);
        const unsigned limit = std::array<unsigned, 4>{0, 1, 12, 1000}[rng() % 4];
        morva::osg::bih_scene_geoset scene(root.get(), {1, 100}, false);
        morva::bih_tree<float> tree;
        compile(scene, tree, {1, 100});
        for (const bool by_tree : {false, true}) {
            const stream_capture out(std::cout);
            const auto setup = quiet();
            const node_ref merged(
                by_tree ? mergeGeometryInVectorWithHierarchy(red.get(), nodes, cells(1000), setup,
                                                             limit)
                        : mergeGeometryInVector(red.get(), nodes, cells(1000), setup, limit));
            ASSERT_EQ(merged == ::osg::NullFC, nodes.empty());
            if (nodes.empty())
                continue;
            const bool is_hollow = out.text() == "Empty Geometry, no primitives found. \n";
            EXPECT_TRUE(by_tree || is_hollow == (sums[0] + sums[2] == 0)) << out.text();
            const naive_hierarchy twin{nodes, tree, limit};
            EXPECT_EQ(textOfCores(merged.get()),
                      by_tree ? twin.merge(0) : naiveBatches(nodes, limit));
            EXPECT_EQ(firstDifference(shapeOf(root.get()), shapeOf(merged.get())), "");
            for (const ::osg::NodePtr& core : geometryNodes(merged.get()))
                EXPECT_EQ(coreOf(core)->getMaterial(), red.get());
        }
    }
}

} // namespace
