// Texture coordinates of nodes, also when memory runs out: one large allocation fails, every one
// in turn.

#include "tests/support/shortage.h"
#include "tests/support/triangle_scenes.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/textures/morva_osg_texcoords.h>

namespace {

using morva::osg::CollectNodesWithTexCoordsGreater;
using morva::osg::osg_geoset;

::osg::ChunkMaterialPtr textured() { return chunked({1, 1, 1, 1}, imageOf(6407, 4, 4)); }

/// A row of squares, two triangles each, over which u and v run from 0 to `reach`.
mesh_data tiled(float reach, std::size_t squares = 1) {
    mesh_data mesh = quads(squares);
    const float r = reach;
    for (std::size_t i = 0; i < squares; ++i)
        mesh.coordinates.insert(mesh.coordinates.end(), {{0, 0}, {r, 0}, {r, r}, {0, r}});
    return mesh;
}

TEST(OptimizeTexCoordsOfANode, TakesCoordinatesOffWithoutAnImageInTheOldCoreToo) {
    const node_ref grouped(materialGroup(simple({1, 0, 0}), {meshNode(tiled(8))}));
    ::osg::NodePtr node = grouped->getChild(0), none = ::osg::NullFC, no_geometry = grouped.get();
    const geometry_ref old(coreOf(node));
    old->setTexCoords3(old->getTexCoords());
    ::osg::setName(old.get(), "core");
    const stream_capture told(std::cout);
    for (::osg::NodePtr* one : {&node, &none, &no_geometry})
        EXPECT_EQ(morva::osg::optimizeTexCoords(*one, 2, 50), 0);
    for (const ::osg::GeometryPtr& core : {old.get(), coreOf(node)})
        EXPECT_EQ(tri::lengthOf(core->getTexCoords()) + tri::lengthOf(core->getTexCoords3()), -2);
    const auto look = ::osg::MaterialGroupPtr::dcast(grouped->getCore())->getMaterial();
    EXPECT_TRUE(coreOf(node) != old.get() && coreOf(node)->getMaterial() == look);
    EXPECT_STREQ(::osg::getName(coreOf(node)), "core");
}

TEST(CollectNodesWithTexCoordsGreater, TakesOutWhatRepeatsTooOften) {
    const ::osg::ChunkMaterialPtr shared = textured();
    mesh_data wrapped = tiled(1);
    wrapped.coordinates[1] = ::osg::Vec2f(60, 0.5F);
    const node_ref root(
        group({meshNode(wrapped, textured()), named("large", meshNode(tiled(8), textured())),
               meshNode(tiled(8), simple({1, 0, 0})), // no image
               materialGroup(shared, {named("grouped", meshNode(tiled(3)))}),
               switched(0, {meshNode(tiled(9), shared)})}));
    for (const int limit : {-1, 8})
        EXPECT_TRUE(CollectNodesWithTexCoordsGreater(root.get(), limit) == ::osg::NullFC);
    const node_ref found(CollectNodesWithTexCoordsGreater(root.get(), 2));
    EXPECT_EQ(textOf(found.get()), "-(large grouped)");
    const ::osg::NodePtr large = found->getChild(0), grouped = found->getChild(1);
    EXPECT_TRUE(coreOf(grouped)->getMaterial() == shared) << "it brings its look along";
    // A root that is a geometry is asked itself.
    EXPECT_TRUE(CollectNodesWithTexCoordsGreater(large, 8) == ::osg::NullFC);
    const node_ref alone(CollectNodesWithTexCoordsGreater(large, 7));
    EXPECT_TRUE(large->getParent() == alone.get());
    EXPECT_TRUE(CollectNodesWithTexCoordsGreater(::osg::NullFC, 0) == ::osg::NullFC);
}

TEST(TexCoords, StaySoundWhereverMemoryRunsOut) {
    for (int what = 0; what < 4; ++what) {
        SCOPED_TRACE(what);
        failInTurn(256, [&](const auto& starved) {
            mesh_data mesh = tiled(8, 30);
            for (std::size_t i = 0; i < 24; ++i)
                mesh.positions[i][1] *= 0.05F; // slivers
            const node_ref root(materialGroup(textured(), {meshNode(mesh)}));
            ::osg::NodePtr node = root->getChild(0);
            osg_geoset geoset;
            node_ref found;
            if (what < 2)
                morva::osg::extract(node, geoset, false, false, false, true, false);
            const stream_capture out(std::cout), err(std::cerr);
            const bool failed = starved([&] {
                if (what == 0)
                    morva::osg::optimizeTexCoords(geoset, 2, 50);
                else if (what == 1)
                    morva::osg::optimizeTexCoordsSmart(geoset, 2, 50);
                else if (what == 2)
                    morva::osg::optimizeTexCoords(node, 2, 50);
                else
                    found = CollectNodesWithTexCoordsGreater(root.get(), 2);
            });
            EXPECT_EQ(tri::broken_rule_of(geoset), "");
            EXPECT_TRUE(failed || what > 1 || geoset.size > 200);
            EXPECT_TRUE(failed || what < 3 || node->getParent() == found.get());
            // The node draws its triangles, halved or not, from rows that are there.
            const ::osg::GeometryPtr core = coreOf(node);
            EXPECT_GE(morva::osg::counttriangles(core), 60U);
            EXPECT_LE(core->getLengths()->getValue(0), core->getPositions()->size());
            EXPECT_EQ(core->getTexCoords()->size(), core->getPositions()->size());
        });
    }
}

} // namespace
