// optTree on real models keeps what is drawn, at every output level, in few bounded cores.

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "../../host/audit.h"
#include "../../host/statistics.h"
#include "models.h"

namespace {

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
    const auto result =
        roads::optimised(source.root, "opt(" + std::to_string(GetParam().level) + "),maxtris(" +
                                          std::to_string(GetParam().limit) +
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
    {"engine_level_0", roads::engine, 0, 5000},
    {"engine_level_1", roads::engine, 1, 5000},
    {"engine_level_2", roads::engine, 2, 5000},
    {"engine_level_3", roads::engine, 3, 5000},
    {"engine_whole", roads::engine, 1, 2000000},
    {"house_level_0", roads::house, 0, 5000},
    {"house_level_1", roads::house, 1, 5000},
    {"house_level_2", roads::house, 2, 500},
    {"house_level_3", roads::house, 3, 5000},
    {"truck_level_0", roads::truck, 0, 300},
    {"truck_level_1", roads::truck, 1, 5000},
    {"truck_level_2", roads::truck, 2, 5000},
    {"truck_level_3", roads::truck, 3, 5000},
    {"engine_draw_order", roads::engine, 1, 0, ",cacheopt(true)"},
    {"engine_workers", roads::engine, 2, 0, ",cacheopt(true),numthreads(2)"},
    {"house_workers", roads::house, 1, 0, ",cacheopt(true),numthreads(8)"},
    {"truck_workers", roads::truck, 1, 300, ",numthreads(2)"},
};

INSTANTIATE_TEST_SUITE_P(, ModelRoad, testing::ValuesIn(model_cases),
                         [](const auto& instance) { return std::string(instance.param.name); });

TEST(EngineRoad, HasOneCorePerMaterialWhenNothingIsCut) {
    const morva::host::model source = morva::host::readModel(roads::engine);
    EXPECT_EQ(morva::host::measureScene(source.root).materials, 34U);
    const auto result = roads::optimised(source.root, "opt(1),maxtris(2000000)");
    const auto after = morva::host::measureScene(result);
    EXPECT_EQ(after.materials, 7U);
    EXPECT_EQ(after.draw_calls, 7U) << "so that each material has one core";
}

/// Parts below parts, lengths that claim too much or are missing, indices without entries.
struct odd_scene {
    const char* name;
    std::uint64_t triangles, degenerate, lines;
};

TEST(OddGeometryRoad, EveryPartComesOutOnceAtEveryParameter) {
    const odd_scene scenes[] = {{"L1", 0, 0, 1},
                                {"L2", 1, 0, 1},
                                {"gchild", 2, 0, 0},
                                {"osb-11-347", 1, 0, 0},
                                {"osb-11-812", 4, 1, 0},
                                {"osb-11-937", 9, 1, 1},
                                {"../osb/integers", 3, 0, 1}};
    const char* const parameters[] = {"maxtris(0)",
                                      "maxtris(5)",
                                      "opt(2),maxtris(5000)",
                                      "opt(3),maxtris(5),cacheopt(true)",
                                      "maxtris(5000),alphageometry(true)",
                                      "maxtris(5),keeprenderfalse(true),numthreads(4)",
                                      "maxtris(5000),onegeometry(true)",
                                      "maxtris(5),vertexcolor(1000),toworld(false)"};
    for (const odd_scene& scene : scenes) {
        for (const std::string text : parameters) {
            SCOPED_TRACE(scene.name + (" " + text));
            const auto source =
                morva::host::readModel(std::string(MORVA_ODD_SCENES) + scene.name + ".osb");
            const auto parts = morva::host::namedParts(source.root, true);
            const auto plan = morva::host::planAudit(source.root, parts, text);
            const auto result = roads::optimised(source.root, text);
            const auto drawn = morva::host::measureScene(result);
            EXPECT_EQ(drawn.triangles,
                      scene.triangles - (text == "maxtris(0)" ? 0 : scene.degenerate));
            EXPECT_EQ(drawn.lines, scene.lines);
            EXPECT_TRUE(morva::host::judge(plan, result).differences.empty());
        }
    }
}

} // namespace
