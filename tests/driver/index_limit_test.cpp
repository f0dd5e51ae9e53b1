// Geometry cut until no index is too long.

#include "tests/support/merge_scenes.h"
#include "tests/support/random_scenes.h"

#include <pthread.h>

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
    mesh_data mesh = shapes[std::min<std::size_t>(rng() % 8, 4)];
    if (rng() % 2 == 0)
        mesh = withNormals(mesh, rng);
    if (rng() % 8 == 0)
        return mesh;
    return rng() % 2 == 0 ? withIndex(mesh, rng) : withIndexPerProperty(mesh, rng);
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
        const world_mesh before = shapeOf(root.get());
        const unsigned count = maxGeoIndexSize(start, limit, 1 + int(rng() % 3), false);
        EXPECT_EQ(firstDifference(before, shapeOf(root.get())), "");
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
        if (start == root.get())
            EXPECT_EQ(maxGeoIndexSize(root.get(), limit, 2, false), 0U);
        for (const NodePtr& node : geometryNodes(root.get()))
            if (std::find(nodes.begin(), nodes.end(), node) == nodes.end())
                EXPECT_EQ(maxGeoIndexSize(node, limit, 2, false), 0U);
    }
    EXPECT_GT(cuts, 1000U);
    EXPECT_GT(from_below, 300U);
    EXPECT_EQ(maxGeoIndexSize(::osg::NullFC, 0, 1, true), 0U);
}

TEST(MaxGeoIndexSize, TakesTimeAndStackForWhatIsCut) {
    const node_ref root(group());
    mesh_data mesh = quads(12);
    for (unsigned i = 0; i < 48; ++i)
        mesh.indices.push_back(i);
    const geometry_ref core(geometryOf(mesh));
    for (unsigned i = 0; i < 10000; ++i)
        root->addChild(nodeOf(core.get()));
    NodePtr deep = root.get();
    for (unsigned i = 0; i < 20000; ++i, deep = deep->getChild(deep->getNChildren() - 1))
        deep->addChild(group());
    deep->addChild(nodeOf(core.get()));
    const stream_capture out(std::cout);
    std::pair<NodePtr, unsigned> task(root.get(), 0);
    const auto run = [](void* argument) -> void* {
        auto& [top, cuts] = *static_cast<std::pair<NodePtr, unsigned>*>(argument);
        cuts = maxGeoIndexSize(top, 47, 1, false);
        return nullptr;
    };
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, 256 * 1024);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &small, run, &task), 0);
    pthread_join(thread, nullptr);
    EXPECT_EQ(task.second,
              3U * 10001U); // quarters: two indices per corner, since there are normals
    EXPECT_EQ(root->getNChildren(), 10001U);
    EXPECT_EQ(coreOf(root->getChild(1)), ::osg::NullFC);
}

} // namespace
