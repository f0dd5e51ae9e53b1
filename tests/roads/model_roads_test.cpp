// optTree on real models keeps what is drawn, at every output level, in few bounded cores.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "../../host/audit.h"
#include "../../host/model.h"
#include "../../host/statistics.h"

namespace {

// Models of Debian's package assimp-testmodels: an engine of 115 parts and 34 materials of which 7
// are different, a house of 66 meshes and 11 materials, a truck with a texture and a plain colour.
const std::string models = "/usr/share/assimp/models/";
const std::string engine = models + "glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";
const std::string house = models + "IFC/AC14-FZK-Haus.ifc";
const std::string truck = models + "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf";

struct model_case {
    std::string file;
    int level;
    unsigned int limit; ///< triangles of a core; 0 for none
    const char* more = "";

    std::string parameters() const {
        return "opt(" + std::to_string(level) + "),maxtris(" + std::to_string(limit) +
               "),deleteunusedtc(false)" + more;
    }
};

void PrintTo(const model_case& row, std::ostream* out) { *out << row.file << row.parameters(); }

/// Along its longest axis.
float sizeOf(const world_mesh& mesh) {
    const mesh_summary all = summaryOf(mesh);
    return std::max({all.max[0] - all.min[0], all.max[1] - all.min[1], all.max[2] - all.min[2]});
}

class ModelRoad : public testing::TestWithParam<model_case> {};

TEST_P(ModelRoad, KeepsEveryTriangleWithItsAttributes) {
    const morva::host::model source = morva::host::readModel(GetParam().file);
    const node_list nodes = geometryNodes(source.root);
    mesh_choice kept;
    kept.dropped = morva::osg::is_rogue;
    // Where nothing brings normals the optimiser makes them.
    kept.normals = std::any_of(nodes.begin(), nodes.end(), [](const ::osg::NodePtr& node) {
        return coreOf(node)->getNormals() != ::osg::NullFC;
    });
    const world_mesh before = worldMesh(source.root, kept);
    ASSERT_GT(before.size(), 1000U);
    const stream_capture out(std::cout);
    const node_ref result(morva::osg::optTree(source.root, GetParam().parameters()));
    for (const ::osg::NodePtr& node : geometryNodes(result.get()))
        EXPECT_TRUE(GetParam().limit == 0 ||
                    morva::osg::counttriangles(coreOf(node)) <= GetParam().limit);

    // The winding is part of the comparison: corners stand in their cyclic order.
    EXPECT_EQ(firstDifference(before, worldMesh(result.get(), kept),
                              {2e-6F * sizeOf(before), 1e-4F, 1e-6F}),
              "");
}

std::vector<model_case> modelCases() {
    std::vector<model_case> cases = {{engine, 1, 2000000},
                                     {engine, 1, 0, ",cacheopt(true)"},
                                     {engine, 2, 0, ",cacheopt(true),numthreads(2)"},
                                     {house, 1, 0, ",cacheopt(true),numthreads(8)"},
                                     {truck, 1, 300, ",numthreads(2)"}};
    for (const std::string& file : {engine, house, truck}) {
        for (const int level : {0, 1, 2, 3})
            cases.push_back({file, level, level % 2 == 0 ? 500U : 5000U});
    }
    return cases;
}

INSTANTIATE_TEST_SUITE_P(, ModelRoad, testing::ValuesIn(modelCases()));

/// How a model goes through the automatic roads.
enum class automatic { plain, beside_others, by_ids };

class AutoModelRoad : public testing::TestWithParam<std::tuple<std::string, automatic>> {};

TEST_P(AutoModelRoad, KeepsEveryTriangle) {
    const auto& [file, way] = GetParam();
    const morva::host::model source = morva::host::readModel(file);
    const node_ref root(group({source.root.get()}));
    if (way != automatic::plain)
        root->addChild(named("cube", meshNode(quads(4), cubeTextured())));
    mesh_choice kept; // cells make normals anew, and atlases other coordinates
    kept.normals = kept.coordinates = false;
    kept.dropped = morva::osg::is_rogue;
    const world_mesh before = worldMesh(root.get(), kept);
    const stream_capture out(std::cout);
    morva::osg::mergeGeo_setup setup;
    setup.idmap = "names";
    morva::osg::getIDmapHandler().reset();
    if (way == automatic::by_ids)
        morva::osg::getIDmapHandler().writeTree(root.get(), 0);
    const node_ref result(
        way == automatic::by_ids
            ? morva::osg::optWithSkippedGeo(root.get(), setup,
                                            {25000, 100, 3, 1.0F, 2.0F, 0.95F, false}, true, false)
            : morva::osg::optTreeAuto(root.get()));
    morva::osg::getIDmapHandler().reset();
    EXPECT_EQ(
        firstDifference(before, worldMesh(result.get(), kept), {2e-6F * sizeOf(before), 1, 1e-6F}),
        "");
    if (way == automatic::plain)
        return;
    EXPECT_NE(nodeNamed(result.get(), "cube"), ::osg::NullFC);
    for (const ::osg::NodePtr& node : geometryNodes(result.get()))
        EXPECT_LE(morva::osg::counttriangles(coreOf(node)), 25000U);
}

INSTANTIATE_TEST_SUITE_P(, AutoModelRoad,
                         testing::Combine(testing::Values(engine, house, truck),
                                          testing::Values(automatic::plain,
                                                          automatic::beside_others,
                                                          automatic::by_ids)));

/// A model with a part of glass, one that is hidden, one below a switch, and all of it moved.
node_ref withAllFates(const std::string& file) {
    const morva::host::model source = morva::host::readModel(file);
    const node_list nodes = geometryNodes(source.root);
    const ::osg::GeometryPtr glass = coreOf(nodes[1])->clone();
    glass->setMaterial(chunked({1, 1, 1, 0.5F}));
    nodes[1]->setCore(glass);
    hidden(nodes[2]);
    ::osg::Matrix turned;
    turned.setTransform(::osg::Vec3f(3, -2, 5), ::osg::Quaternion(::osg::Vec3f(1, 2, 3), 0.7F));
    return node_ref(group({transformed(turned, {source.root.get()}),
                           switched(0, {named("choice", meshNode(quads(2)))})}));
}

class FlatRoad : public testing::TestWithParam<std::tuple<std::string, std::string>> {};

TEST_P(FlatRoad, AHierarchyHoldsWhatAFlatSceneDoes) {
    const auto& [file, parameters] = GetParam();
    const bool merges = parameters.find("maxtris(0)") == std::string::npos;
    const bool keeps = parameters.find("keeprenderfalse") != std::string::npos;
    node_ref roots[2], results[2];
    for (const bool flat : {false, true}) {
        roots[flat] = withAllFates(file);
        const std::string all = parameters + (flat ? ",flat(true)" : ",flat(false)");
        const stream_capture out(std::cout);
        const auto parts = morva::host::namedParts(roots[flat].get(), true);
        const auto plan = morva::host::planAudit(roots[flat].get(), parts, all);
        results[flat] = node_ref(morva::osg::optTree(roots[flat].get(), all));
        const auto verdict = morva::host::judge(plan, results[flat].get());
        EXPECT_EQ(verdict.differences, std::vector<std::string>());
        EXPECT_EQ(verdict.notes.size(), merges || flat ? 0U : 1U);
    }
    // Without a merge, what is hidden or below a switch stays behind, and the input stays whole.
    node_ref expected = results[true];
    if (!merges) {
        expected = withAllFates(file);
        morva::osg::deleteTravMaskZeroNodes(expected.get());
        expected->subChild(1);
        EXPECT_EQ(firstDifference(worldMesh(roots[true].get()), worldMesh(roots[false].get())), "");
    }
    EXPECT_EQ(firstDifference(worldMesh(expected.get()), worldMesh(results[false].get())), "");
    std::multiset<std::string> colors[2];
    for (const bool flat : {false, true}) {
        for (const ::osg::NodePtr& node :
             geometryNodes(flat ? expected.get() : results[false].get())) {
            ::osg::Color4f diffuse, rest;
            float shininess = 0;
            morva::osg::getColor(node, diffuse, rest, rest, rest, shininess);
            std::ostringstream text;
            text << diffuse << (node->getTravMask() == 0 ? " hidden" : "");
            colors[flat].insert(text.str());
        }
    }
    EXPECT_EQ(colors[false], colors[true]);
    const auto figures = morva::host::measureScene(results[false].get());
    EXPECT_GT(figures.levels, 3U);
    EXPECT_LT(figures.levels, 155U); // halves of halves, down to one part
    EXPECT_EQ(figures.leaves, geometryNodes(results[false].get()).size());
    EXPECT_TRUE(keeps || !merges || figures.draw_calls == figures.leaves);
}

INSTANTIATE_TEST_SUITE_P(, FlatRoad,
                         testing::Combine(testing::Values(engine, house, truck),
                                          testing::Values("maxtris(0)",
                                                          "maxtris(300),idmapinroot(1)",
                                                          "maxtris(300),keeprenderfalse(true)",
                                                          "maxtris(9),cacheopt(true),toworld(0)",
                                                          "maxtris(500),mergehierarchy(true)")));

} // namespace
