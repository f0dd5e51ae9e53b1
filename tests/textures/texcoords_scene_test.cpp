// Texture coordinates of nodes: a core of its own for each, and which of them repeat too often.

#include "texcoord_scenes.h"

#include "../support/live_containers.h"
#include "../support/mesh_multiset.h"
#include "../support/scene_builders.h"
#include "../support/stream_capture.h"

#include <gtest/gtest.h>

#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace {

using namespace morva_test;
using morva::osg::CollectNodesWithTexCoordsGreater;

::osg::ChunkMaterialPtr textured() { return chunked({1, 1, 1, 1}, imageOf(6407, 4, 4)); }

/// A row of squares, two triangles each, over which u and v run from 0 to `reach`.
mesh_data tiled(float reach, std::size_t squares = 1) {
    mesh_data mesh = quads(squares);
    for (std::size_t i = 0; i < squares; ++i) {
        mesh.coordinates.insert(mesh.coordinates.end(),
                                {{0, 0}, {reach, 0}, {reach, reach}, {0, reach}});
    }
    return mesh;
}

TEST(OptimizeTexCoordsOfANode, GivesANewUnindexedCoreThatDrawsTheSame) {
    const unsigned int live = liveContainers();
    {
        mesh_data indexed = tiled(1);
        indexed.primitives = {{5, 5}};
        indexed.indices = {0, 1, 3, 2, 0};
        mesh_data degenerate = tiled(1);
        degenerate.positions[2] = degenerate.positions[1];
        const struct {
            const char* name;
            mesh_data mesh;
            int max;
            unsigned int triangles; ///< drawn in the end
        } cases[] = {{"nothing to do", tiled(1, 2), 2, 4},
                     {"indexed", indexed, 2, 3},
                     {"no maximum", tiled(8), 0, 2},
                     {"halved", tiled(8), 4, 8},
                     {"one is degenerate", degenerate, 2, 1}};
        for (const auto& row : cases) {
            SCOPED_TRACE(row.name);
            const node_ref node(meshNode(row.mesh, textured()));
            const geometry_ref old(coreOf(node.get()));
            const mesh_choice kept = {false, true, row.max > 0 && row.triangles < 8, false,
                                      morva::osg::is_rogue};
            const world_mesh before = worldMesh(node.get(), kept);
            ::osg::NodePtr given = node.get();
            const int added = morva::osg::optimizeTexCoords(given, row.max, 50);
            const ::osg::GeometryPtr core = coreOf(given);
            ASSERT_TRUE(core != old.get());
            const world_mesh after = worldMesh(given, kept);
            EXPECT_EQ(after.size(), row.triangles);
            EXPECT_EQ(after.size(), before.size() + static_cast<std::size_t>(added));
            if (added == 0) {
                EXPECT_EQ(firstDifference(before, after), "");
            }
            EXPECT_NEAR(summaryOf(after).area, summaryOf(before).area, 1e-6);
            EXPECT_TRUE(core->getIndices() == ::osg::NullFC);
            EXPECT_TRUE(core->getMaterial() == old->getMaterial());
            EXPECT_EQ(core->getPositions()->size(), 3 * row.triangles) << "nothing to spare";
            EXPECT_EQ(core->getTexCoords()->size(), 3 * row.triangles);
            EXPECT_EQ(core->getNormals()->size(), 3 * row.triangles);
            EXPECT_EQ(core->getLengths()->getValue(0), 3 * row.triangles);
            EXPECT_FALSE(row.max > 0 &&
                         morva::osg::hasTCabove(given, static_cast<float>(row.max), false));
        }
    }
    EXPECT_EQ(liveContainers(), live);
}

TEST(OptimizeTexCoordsOfANode, TakesWhatItGets) {
    const unsigned int live = liveContainers();
    {
        // Without an image coordinates go, in the old core too, and nothing is halved.
        const node_ref plain(materialGroup(simple({1, 0, 0}), {meshNode(tiled(8))}));
        ::osg::NodePtr node = plain->getChild(0);
        const geometry_ref old(coreOf(node));
        EXPECT_EQ(morva::osg::optimizeTexCoords(node, 2, 50), 0);
        EXPECT_TRUE(coreOf(node) != old.get());
        EXPECT_TRUE(coreOf(node)->getTexCoords() == ::osg::NullFC);
        EXPECT_TRUE(old->getTexCoords() == ::osg::NullFC);
        EXPECT_TRUE(coreOf(node)->getMaterial() ==
                    ::osg::MaterialGroupPtr::dcast(plain->getCore())->getMaterial());

        const stream_capture told(std::cout);
        ::osg::NodePtr none = ::osg::NullFC;
        EXPECT_EQ(morva::osg::optimizeTexCoords(none, 2, 50), 0);
        EXPECT_TRUE(none == ::osg::NullFC);
        const node_ref parent(group());
        const ::osg::NodeCorePtr core = parent->getCore();
        ::osg::NodePtr no_geometry = parent.get();
        EXPECT_EQ(morva::osg::optimizeTexCoords(no_geometry, 2, 50), 0);
        EXPECT_TRUE(parent->getCore() == core);
        EXPECT_EQ(told.text(), "Morva_osg_geoset_tools::Extract: No Node\n"
                               "Morva_osg_geoset_tools::Extract: No GeometryCore\n");
    }
    EXPECT_EQ(liveContainers(), live);
}

TEST(CollectNodesWithTexCoordsGreater, TakesOutWhatRepeatsTooOften) {
    const unsigned int live = liveContainers();
    {
        const ::osg::ChunkMaterialPtr shared = textured();
        mesh_data away = tiled(1);
        for (::osg::Vec2f& value : away.coordinates)
            value += ::osg::Vec2f(30, -20);
        mesh_data wrapped = tiled(1);
        wrapped.coordinates[1] = ::osg::Vec2f(60, 0.5F);
        const node_ref root(group({named("small", meshNode(tiled(1), textured())),
                                   named("large", meshNode(tiled(8), textured())),
                                   named("away", meshNode(away, textured())),
                                   named("wrapped", meshNode(wrapped, textured())),
                                   named("no image", meshNode(tiled(8), simple({1, 0, 0}))),
                                   materialGroup(shared, {named("grouped", meshNode(tiled(3)))}),
                                   switched(0, {named("switched", meshNode(tiled(9), textured()))}),
                                   hidden(named("hidden", meshNode(tiled(9), textured())))}));
        for (const int limit : {-1, -1000, 8, 100})
            EXPECT_TRUE(CollectNodesWithTexCoordsGreater(root.get(), limit) == ::osg::NullFC);
        EXPECT_EQ(geometryNodes(root.get()).size(), 8U) << "nothing left its place";

        const node_ref found(CollectNodesWithTexCoordsGreater(root.get(), 2));
        ASSERT_TRUE(found != ::osg::NullFC);
        EXPECT_EQ(childNames(found.get()), (std::vector<std::string>{"large", "grouped"}));
        EXPECT_EQ(geometryNodes(root.get()).size(), 6U);
        const ::osg::GeometryPtr grouped = coreOf(found->getChild(1));
        EXPECT_TRUE(grouped->getMaterial() == shared) << "it brings its look along";
        EXPECT_EQ(grouped->getTexCoords()->size(), 4U) << "and its own core";

        // A root that is a geometry is asked itself.
        const ::osg::NodePtr large = found->getChild(0);
        EXPECT_TRUE(CollectNodesWithTexCoordsGreater(large, 8) == ::osg::NullFC);
        const node_ref alone(CollectNodesWithTexCoordsGreater(large, 7));
        ASSERT_TRUE(alone != ::osg::NullFC);
        EXPECT_TRUE(large->getParent() == alone.get());
        const node_ref rest(CollectNodesWithTexCoordsGreater(found.get(), 0));
        EXPECT_EQ(childNames(rest.get()), std::vector<std::string>{"grouped"});
        EXPECT_TRUE(CollectNodesWithTexCoordsGreater(found.get(), 0) == ::osg::NullFC);
        EXPECT_TRUE(CollectNodesWithTexCoordsGreater(::osg::NullFC, 0) == ::osg::NullFC);
    }
    EXPECT_EQ(liveContainers(), live);
}

} // namespace
