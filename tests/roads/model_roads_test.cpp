// optTree on real models keeps what is drawn, at every output level, in few bounded cores.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "../../host/model.h"

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

    const mesh_summary was = summaryOf(before);
    float size = 0.F;
    for (unsigned axis = 0; axis < 3; ++axis)
        size = std::max(size, was.max[axis] - was.min[axis]);
    // The winding is part of the comparison: corners stand in their cyclic order.
    EXPECT_EQ(firstDifference(before, worldMesh(result.get(), kept), {2e-6F * size, 1e-4F, 1e-6F}),
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

} // namespace
