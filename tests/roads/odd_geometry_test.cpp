// Small scenes of odd geometries: parts below parts, lengths that claim too much or are missing.

#include "../../host/audit.h"
#include "../../host/statistics.h"
#include "models.h"

namespace {

struct odd_scene {
    const char* name;
    std::uint64_t triangles, degenerate, lines;
};

TEST(OddGeometryRoad, EveryPartComesOutOnceAtEveryParameter) {
    const odd_scene scenes[] = {{"L1", 0, 0, 1},         {"L2", 1, 0, 1},
                                {"gchild", 2, 0, 0},     {"osb-11-347", 1, 0, 0},
                                {"osb-11-812", 4, 1, 0}, {"osb-11-937", 9, 1, 1}};
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
