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

::osg::NodeRefPtr optimised(const ::osg::NodePtr& root, const std::string& parameters) {
    const stream_capture out(std::cout);
    return ::osg::NodeRefPtr(morva::osg::optTree(root, parameters));
}

/// Whether some geometry brings normals; where none does the optimiser makes them.
bool hasNormals(const ::osg::NodePtr& root) {
    const node_list nodes = geometryNodes(root);
    return std::any_of(nodes.begin(), nodes.end(), [](const ::osg::NodePtr& node) {
        return coreOf(node)->getNormals() != ::osg::NullFC;
    });
}

/// What is drawn, less the triangles that must not be kept.
world_mesh keptMesh(const ::osg::NodePtr& root, bool with_normals = true) {
    mesh_choice choice;
    choice.normals = with_normals;
    world_mesh mesh = worldMesh(root, choice);
    const auto rogue = [](const world_triangle& triangle) {
        ::osg::Pnt3f p[3];
        for (unsigned k = 0; k < 3; ++k)
            p[k] = ::osg::Pnt3f(triangle.corners[k].values.data());
        return morva::osg::is_rogue(p[0], p[1], p[2]);
    };
    mesh.erase(std::remove_if(mesh.begin(), mesh.end(), rogue), mesh.end());
    return mesh;
}

/// Triangles of the largest core below a node.
unsigned int largestCore(const ::osg::NodePtr& root) {
    unsigned int largest = 0;
    for (const ::osg::NodePtr& node : geometryNodes(root))
        largest = std::max(largest, morva::osg::counttriangles(coreOf(node)));
    return largest;
}

struct model_case {
    const char* name;
    std::string file;
    int level;
    unsigned int limit; ///< 0 for none
    const char* more = "";
};

void PrintTo(const model_case& row, std::ostream* out) { *out << row.name; }

class ModelRoad : public testing::TestWithParam<model_case> {};

TEST_P(ModelRoad, KeepsEveryTriangleWithItsAttributes) {
    const morva::host::model source = morva::host::readModel(GetParam().file);
    const bool normals = hasNormals(source.root);
    const world_mesh before = keptMesh(source.root, normals);
    ASSERT_GT(before.size(), 1000U);
    const auto result = optimised(source.root, "opt(" + std::to_string(GetParam().level) +
                                                   "),maxtris(" + std::to_string(GetParam().limit) +
                                                   "),deleteunusedtc(false)" + GetParam().more);
    if (GetParam().limit != 0) {
        EXPECT_LE(largestCore(result), GetParam().limit);
    }
    const world_mesh after = keptMesh(result, normals);

    const mesh_summary was = summaryOf(before);
    float size = 0.F;
    for (unsigned axis = 0; axis < 3; ++axis)
        size = std::max(size, was.max[axis] - was.min[axis]);
    // The winding is part of the comparison: corners stand in their cyclic order.
    EXPECT_EQ(firstDifference(before, after, {2e-6F * size, 1e-4F, 1e-6F}), "");
}

const model_case model_cases[] = {
    {"engine_level_0", engine, 0, 5000},
    {"engine_level_1", engine, 1, 5000},
    {"engine_level_2", engine, 2, 5000},
    {"engine_level_3", engine, 3, 5000},
    {"engine_whole", engine, 1, 2000000},
    {"house_level_0", house, 0, 5000},
    {"house_level_1", house, 1, 5000},
    {"house_level_2", house, 2, 500},
    {"house_level_3", house, 3, 5000},
    {"truck_level_0", truck, 0, 300},
    {"truck_level_1", truck, 1, 5000},
    {"truck_level_2", truck, 2, 5000},
    {"truck_level_3", truck, 3, 5000},
    {"engine_draw_order", engine, 1, 0, ",cacheopt(true)"},
    {"engine_workers", engine, 2, 0, ",cacheopt(true),numthreads(2)"},
    {"house_workers", house, 1, 0, ",cacheopt(true),numthreads(8)"},
    {"truck_workers", truck, 1, 300, ",numthreads(2)"},
};

INSTANTIATE_TEST_SUITE_P(, ModelRoad, testing::ValuesIn(model_cases),
                         [](const auto& instance) { return std::string(instance.param.name); });

} // namespace
