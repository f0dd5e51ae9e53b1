// Geometry cut until no index is too long.

#include "tests/support/merge_scenes.h"
#include "tests/support/random_scenes.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_auto.h>

namespace {

using morva::osg::maxGeoIndexSize;
using ::osg::NodePtr;

/// A mesh with an index: single triangles, lines and points among them.
mesh_data someMesh(std::mt19937& rng) {
    const unsigned size = 1 + rng() % 60;
    const mesh_data shapes[] = {row(size, rng() % 4), mixture(rng, 1 + size / 6),
                                strip(size + 3, 5 + 3 * (rng() % 2)), quads(size), soup(rng, size)};
    const mesh_data mesh = withNormals(shapes[std::min<std::size_t>(rng() % 8, 4)], rng);
    if (rng() % 8 == 0)
        return mesh;
    return rng() % 2 == 0 ? withIndex(mesh, rng) : withIndexPerProperty(mesh, rng);
}

/// Lines and points below a node.
std::size_t thinBelow(const NodePtr& root) {
    std::size_t sum = 0;
    for (const NodePtr& node : geometryNodes(root))
        sum += thinOnes(node)[0] + thinOnes(node)[1];
    return sum;
}

bool isOver(const NodePtr& node, unsigned limit) {
    const ::osg::GeoIndicesPtr indices = coreOf(node)->getIndices();
    return indices != ::osg::NullFC && indices->size() > limit;
}

TEST(MaxGeoIndexSize, CutsWhatIsTooLongUntilNothingCanBeCut) {
    const stream_capture out(std::cout);
    const palette colors;
    unsigned cuts = 0, from_below = 0;
    std::mt19937 rng(seedOf(1500));
    for (unsigned round = 0; round < roundsOf(1500U); ++round) {
        SCOPED_TRACE(round);
        const node_ref root(sceneOf("g(" + randomScene(rng, 3) + ")", colors.names));
        const node_list nodes = geometryNodes(root.get());
        for (const NodePtr& node : nodes)
            node->setCore(geometryOf(someMesh(rng), coreOf(node)->getMaterial()));
        const std::vector<node_ref> held(nodes.begin(), nodes.end());
        const unsigned limit = rng() % 3 == 0 ? rng() % 4 : rng() % 90;
        const NodePtr start = rng() % 2 == 0 ? root.get() : nodes[rng() % nodes.size()];
        const mesh_choice kept = {true, false, false, false, morva::osg::is_rogue};
        const world_mesh before = worldMesh(root.get(), kept);
        const std::size_t thin = thinBelow(root.get());
        const unsigned count = maxGeoIndexSize(start, limit, 1 + int(rng() % 3), false);
        EXPECT_EQ(firstDifference(before, worldMesh(root.get(), kept)), "");
        EXPECT_GE(thinBelow(root.get()), thin);
        std::size_t gone = 0;
        for (const NodePtr& node : nodes) {
            if (node->getParent() == ::osg::NullFC) {
                ++gone;
                EXPECT_TRUE(isOver(node, limit));
            }
            EXPECT_NE(nodeNamed(root.get(), ::osg::getName(node)), ::osg::NullFC);
        }
        EXPECT_TRUE(count >= gone && (count > 0) == (gone > 0));
        from_below += start != root.get() ? count : 0;
        cuts += count;
        // Neither the whole nor a part of a cut has something left.
        EXPECT_EQ(start == root.get() ? maxGeoIndexSize(start, limit, 2, false) : 0U, 0U);
        for (const NodePtr& node : geometryNodes(root.get())) {
            const bool is_part = std::find(nodes.begin(), nodes.end(), node) == nodes.end();
            EXPECT_EQ(is_part ? maxGeoIndexSize(node, limit, 2, false) : 0U, 0U);
        }
    }
    EXPECT_GT(cuts, 1000U);
    EXPECT_GT(from_below, 300U);
    EXPECT_EQ(maxGeoIndexSize(::osg::NullFC, 0, 1, true), 0U);
}

} // namespace
