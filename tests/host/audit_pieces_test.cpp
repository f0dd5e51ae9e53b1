// Parts that the merge cuts at their texture coordinates: any number of pieces, the same area.

#include "tests/support/test.h"

#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"

namespace morva_test {
namespace {

using texts = std::vector<std::string>;

/// A tiled floor of two triangles, an untiled wall, and a wild plate without image.
::osg::NodePtr tiledRoom(float away) {
    const ::osg::MaterialPtr tiles = chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 2, 2));
    const auto plate = [](float u, float v) {
        mesh_data mesh = quads(1);
        mesh.coordinates = {{0, 0}, {u, 0}, {u, v}, {0, v}};
        return mesh;
    };
    mesh_data floor = plate(9, 7.5F);
    floor.positions = {{0, 0, 0}, {5, 1.7F, 1.1F}, {6.3F, 5.9F, 2.3F}, {-1.3F, 4.1F, 0.7F}};
    return group({moved({away, 0, 0}, {named("floor", meshNode(floor, tiles))}),
                  named("wall", meshNode(plate(1, 1), tiles)),
                  named("plate", meshNode(plate(30, 30), simple({1, 0, 0})))});
}

struct cut_run {
    node_ref root, result;
    morva::host::audit_plan plan;
    morva::host::audit_verdict verdict;
};

cut_run runCut(const std::string& parameters, float away = 500) {
    const stream_capture out(std::cout);
    cut_run run;
    run.root = node_ref(tiledRoom(away));
    const auto parts = morva::host::namedParts(run.root.get(), true);
    run.plan = morva::host::planAudit(run.root.get(), parts, parameters);
    run.result = node_ref(morva::osg::optTree(run.root.get(), parameters));
    run.verdict = morva::host::judge(run.plan, run.result.get());
    return run;
}

TEST(AuditOfPieces, PassesPartsThatAreCut) {
    for (const std::string parameters :
         {"maxtris(100)", "maxtris(100),idmapinroot(true)", "maxtris(100),toworld(false)",
          "maxtris(100),optimizetc(4),idmapinroot(true)", "onegeometry(true)"}) {
        SCOPED_TRACE(parameters);
        const cut_run run = runCut(parameters);
        EXPECT_EQ(run.verdict.differences, texts{});
        EXPECT_GT(run.verdict.out, 6U + 4U) << "the floor must be cut";
    }
    // Floats are a sixteenth apart there, and pieces fit roughly; nowhere, they do not at all.
    for (const float away : {1e6F, std::numeric_limits<float>::quiet_NaN()})
        EXPECT_EQ(runCut("maxtris(100),idmapinroot(true)", away).verdict.differences, texts{});
    for (const std::string parameters :
         {"maxtris(100),optimizetc(-1)", "maxtris(100),optimizetc(9)"}) {
        const cut_run run = runCut(parameters);
        EXPECT_EQ(run.verdict.differences, texts{});
        EXPECT_EQ(run.verdict.out, 6U);
    }
    // Only coordinates that an image needs, and that reach too far, can have a part cut.
    const cut_run run = runCut("maxtris(100)");
    ASSERT_EQ(run.plan.parts.size(), 3U);
    EXPECT_TRUE(run.plan.parts[0].cut);
    EXPECT_FALSE(run.plan.parts[1].cut);
    EXPECT_FALSE(run.plan.parts[2].cut);
}

TEST(AuditOfPieces, SeesAPieceThatIsNotWhatItWas) {
    for (const char* parameters :
         {"opt(0),maxtris(100)", "opt(0),maxtris(100),idmapinroot(true)"}) {
        for (const float x : {0.0F, 9.0F}) { // a piece that shrinks, or grows
            SCOPED_TRACE(testing::Message() << parameters << ", " << x);
            cut_run run = runCut(parameters);
            for (const ::osg::NodePtr& node : geometryNodes(run.result.get())) {
                const ::osg::GeoPositionsPtr points = coreOf(node)->getPositions();
                if (points->size() > 30) // the floor's
                    points->setValue(points->getValue(1) + ::osg::Vec3f(0, 0, x), 0);
            }
            const auto verdict = morva::host::judge(run.plan, run.result.get());
            ASSERT_EQ(verdict.differences.size(), 1U);
            EXPECT_NE(verdict.differences[0].find(": cut into pieces, an area of "),
                      std::string::npos)
                << verdict.differences[0];
        }
    }
}

} // namespace
} // namespace morva_test
