// What the passes over whole scenes do when memory runs out: one allocation fails, each in turn.

#include "../support/shortage.h"
#include "tests/collision/solids.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_scene_rules.h>
#include <morva/driver/morva_osg_hierarchy_stage.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

/// A core at two places in two materials, one without normals, a hidden one, one with a child.
::osg::NodePtr model() {
    std::mt19937 rng(4);
    const ::osg::GeometryPtr shared = geometryOf(withColors(blockMesh(1), rng));
    return group({materialGroup(simple({1, 0, 0}), {named("a", nodeOf(shared))}),
                  moved({5, 0, 0}, {named("b", nodeOf(shared))}),
                  named("c", nodeOf(geometryOf(withAttributes(ballMesh(2), rng)),
                                    {named("d", meshNode(quads(3), simple({0, 1, 0})))})),
                  hidden(named("e", meshNode(quads(1))))});
}

/// Triangles in the world, and with `colored` their colours.
world_mesh meshOf(const ::osg::NodePtr& root, bool colored) {
    return worldMesh(root, {false, colored, false, false, morva::osg::is_rogue});
}

/// Destroys those that nobody has taken.
struct new_nodes {
    node_list list;
    ~new_nodes() {
        for (const ::osg::NodePtr& node : list)
            const node_ref held(node);
    }
};

/// Builds a scene geoset, and of it a tree or a list; after a failure nothing is built, and its
/// own list is as it was.
node_ref builtWith(const ::osg::NodePtr& root, bool with_geosets) {
    morva::osg::bih_scene_geoset scene;
    scene.with_geosets = with_geosets;
    scene.nodes = {root->getChild(1)->getChild(0)};
    try {
        scene.build(root, {2, 20});
    } catch (const std::bad_alloc&) {
        EXPECT_EQ(scene.nodes.size(), 1U);
        EXPECT_EQ(scene.node_count + scene.built_count + scene.element_count(), 0U);
        EXPECT_TRUE(scene.trees == nullptr && scene.geosets == nullptr &&
                    scene.element_min == nullptr && scene.element_max == nullptr);
        throw;
    }
    morva::bih_tree<float> tree;
    compile(scene, tree, {1, 20});
    const node_ref top(group());
    if (!with_geosets) {
        recBuild(top.get(), scene, tree, 0);
        return top;
    }
    new_nodes found;
    collectNodesFromSceneGeoset(scene, tree, 0, found.list);
    for (const ::osg::NodePtr& node : found.list)
        top->addChild(node);
    return top;
}

node_ref optimised(const ::osg::NodePtr& root, const char* parameters) {
    return node_ref(morva::osg::optTree(root, parameters));
}

enum class input { kept, reduced }; // what a failure leaves of it

struct scene_pass {
    const char* name;
    input after;
    node_ref (*run)(const ::osg::NodePtr& root);
};
using node = const ::osg::NodePtr&;

const scene_pass scene_passes[] = {
    {"recBuild", input::reduced, [](node r) { return builtWith(r, false); }},
    {"collected", input::kept, [](node r) { return builtWith(r, true); }},
    {"hierarchy of new nodes", input::kept,
     [](node r) { return node_ref(morva::osg::buildSceneHierarchy(r, false)); }},
    {"flat(false)", input::kept, [](node r) { return optimised(r, "maxtris(0),flat(false)"); }},
    {"merged, flat(false)", input::kept,
     [](node r) { return optimised(r, "maxtris(20),flat(false),idmapinroot(true)"); }},
    {"mergehierarchy", input::kept,
     [](node r) { return optimised(r, "maxtris(20),mergehierarchy(true)"); }},
    {"baked", input::kept,
     [](node r) {
         morva::osg::AddAmbientOcclusion(r, true, 1, 1);
         return node_ref(r);
     }},
    {"multiplied by three threads", input::kept,
     [](node r) {
         morva::osg::bakeOcclusion(r, false, 1, 3);
         return node_ref(r);
     }},
    {"gut out", input::reduced,
     [](node r) {
         morva::osg::gutOutModelPerAmbientOcclusion(r, 1, 0.9F, 1);
         return node_ref(r);
     }},
    {"hull", input::kept,
     [](node r) {
         morva::osg::mergeGeo_setup setup;
         setup.silent = true;
         return node_ref(morva::osg::buildModelHull(r, setup, 30, 1, true));
     }},
    {"hull by colours", input::reduced,
     [](node r) { return node_ref(morva::osg::buildModelHullWithVertexColors(r, 10)); }},
};

TEST(MemoryRunsOut, ScenePassesThrowOrEndAndLeaveNothingBehind) {
    for (const scene_pass& pass : scene_passes) {
        SCOPED_TRACE(pass.name);
        const stream_capture out(std::cout);
        const node_ref source(model());
        const world_mesh before = meshOf(source.get(), false);
        const node_ref whole = pass.run(source.get());
        const world_mesh expected = meshOf(whole.get(), true);
        const unsigned int containers = liveContainers();
        failInTurn(33, [&](const auto& starved) {
            const node_ref root(model());
            const stream_capture error(std::cerr);
            node_ref result;
            starved([&] { result = pass.run(root.get()); });
            // What ends without a word of a failure is whole.
            EXPECT_TRUE(result == ::osg::NullFC || !error.text().empty() ||
                        firstDifference(meshOf(result.get(), true), expected).empty());
            const world_mesh left = meshOf(root.get(), false);
            EXPECT_TRUE(std::includes(before.begin(), before.end(), left.begin(), left.end()));
            EXPECT_TRUE(pass.after == input::reduced || left.size() == before.size());
            EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
        });
        EXPECT_EQ(liveContainers(), containers);
    }
}

} // namespace
