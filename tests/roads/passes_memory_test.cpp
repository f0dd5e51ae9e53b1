// What the passes over whole scenes do when memory runs out: one allocation fails, each in turn.

#include "tests/collision/solids.h"
#include "tests/support/shortage.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_scene_rules.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace {

/// A core at two places in two materials, one without normals, a hidden one, one with a child.
::osg::NodePtr model() {
    std::mt19937 rng(seedOf(4));
    const ::osg::GeometryPtr shared = geometryOf(withColors(blockMesh(1), rng));
    return group({materialGroup(simple({1, 0, 0}), {named("a", nodeOf(shared))}),
                  moved({5, 0, 0}, {named("b", nodeOf(shared))}),
                  named("c", nodeOf(geometryOf(withAttributes(ballMesh(2), rng)),
                                    {named("d", meshNode(quads(3), simple({0, 1, 0})))})),
                  hidden(named("e", meshNode(quads(1))))});
}

void optimise(node_ref& r, const char* parameters) {
    r = node_ref(morva::osg::optTree(r.get(), parameters));
}

const mesh_choice places{false, false, false, false, morva::osg::is_rogue};
const mesh_choice coloured{false, true, false, false, morva::osg::is_rogue};

const struct {
    const char* name;
    bool reduces; ///< what a failure leaves of the input may be less
    void (*run)(node_ref& scene);
} scene_passes[] = {
    {"scene geoset", false,
     [](node_ref& r) {
         morva::osg::bih_scene_geoset scene;
         try {
             scene.build(r.get(), {2, 20});
         } catch (const std::bad_alloc&) {
             EXPECT_TRUE(scene.nodes.empty() && scene.geosets == nullptr && scene.trees == nullptr);
             throw;
         }
     }},
    {"merged, flat(false)", false,
     [](node_ref& r) { optimise(r, "maxtris(20),flat(false),idmapinroot(true)"); }},
    {"mergehierarchy", false, [](node_ref& r) { optimise(r, "maxtris(20),mergehierarchy(true)"); }},
    {"baked", false, [](node_ref& r) { morva::osg::AddAmbientOcclusion(r.get(), true, 1, 1); }},
    {"multiplied by three threads", false,
     [](node_ref& r) { morva::osg::bakeOcclusion(r.get(), false, 1, 3); }},
    {"gut out", true,
     [](node_ref& r) { morva::osg::gutOutModelPerAmbientOcclusion(r.get(), 1, 0.9F, 1); }},
    {"hull", false, [](node_ref& r) { r = node_ref(morva::osg::hullOf(r.get(), {}, 30, 1, 1)); }},
    {"hull by colours", true,
     [](node_ref& r) { r = node_ref(morva::osg::buildModelHullWithVertexColors(r.get(), 10)); }}};

TEST(MemoryRunsOut, ScenePassesThrowOrEndAndLeaveNothingBehind) {
    for (const auto& pass : scene_passes) {
        SCOPED_TRACE(pass.name);
        const stream_capture out(std::cout);
        node_ref whole(model());
        const world_mesh before = worldMesh(whole.get(), places);
        pass.run(whole);
        const world_mesh expected = worldMesh(whole.get(), coloured);
        const unsigned int containers = liveContainers();
        failInTurn(33, [&](const auto& starved) {
            const node_ref root(model());
            const stream_capture error(std::cerr);
            node_ref result = root;
            bool ended = false;
            starved([&] {
                pass.run(result);
                ended = true;
            });
            // What ends without a word of a failure is whole.
            EXPECT_TRUE(!ended || !error.text().empty() ||
                        firstDifference(worldMesh(result.get(), coloured), expected).empty());
            const world_mesh left = worldMesh(root.get(), places);
            EXPECT_TRUE(std::includes(before.begin(), before.end(), left.begin(), left.end()));
            EXPECT_TRUE(pass.reduces || left.size() == before.size());
            EXPECT_EQ(morva::osg::broken_rule_of(root.get()), "");
        });
        EXPECT_EQ(liveContainers(), containers);
    }
}

} // namespace
