#include <gtest/gtest.h>

#include <morva/driver/morva_osg_scenerebuild.h>

#include "audit.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

namespace morva_test {
namespace {

using morva::host::audit_plan;
using morva::host::audit_verdict;

/// Parts of every fate: degenerate triangles, transparent, hidden, below a switch, a cube map, a
/// strip of quads that the merge does not count.
::osg::NodePtr everyFate() {
    std::mt19937 rng(3);
    const ::osg::MaterialPtr glass = chunked({1, 1, 1, .5f});
    return named(
        "top",
        group({named("soup", meshNode(soup(rng, 60), simple({1, 0, 0}))),
               moved({3, 0, 0}, {named("glass", meshNode(soup(rng, 50), glass))}),
               hidden(named("hidden", meshNode(soup(rng, 40), simple({0, 1, 0})))),
               switched(0, {named("chosen", meshNode(soup(rng, 30))), meshNode(soup(rng, 20))}),
               named("cube map", meshNode(quads(5), cubeTextured())),
               named("quad strip", meshNode(strip(8, 8), simple({0, 0, 1}))),
               named("strip", meshNode(strip(8), simple({0, 0, 1})))}));
}

struct audited_run {
    audit_plan plan;
    audit_verdict verdict;
};

audited_run runAudit(const ::osg::NodePtr& scene, const std::string& parameters,
                     bool rename = true) {
    const stream_capture out(std::cout);
    const node_ref root(scene);
    const auto parts = morva::host::namedParts(root.get(), rename);
    audited_run run;
    run.plan = morva::host::planAudit(root.get(), parts, parameters);
    const node_ref result(morva::osg::optTree(root.get(), parameters));
    run.verdict = morva::host::judge(run.plan, result.get());
    return run;
}

TEST(Audit, PassesWhateverTheParametersAsk) {
    for (const char* parameters :
         {"maxtris(10)", "maxtris(100000)", "opt(0),maxtris(10)", "opt(2),maxtris(10)",
          "opt(3),maxtris(10)", "toworld(false),maxtris(10)", "alphageometry(true),maxtris(10)",
          "keeprenderfalse(true),maxtris(10)", "onegeometry(true)",
          "mostusedmaterial(true),maxtris(10)", "removeswitch(true),maxtris(10)",
          "vertexcolor(1000),maxtris(10)", "ignorematerial(true),maxtris(10)",
          "idmapinroot(true),maxtris(10)", "flat(true)", "rubbish", "maxtris(10),flat(false)"}) {
        SCOPED_TRACE(parameters);
        const audited_run run = runAudit(everyFate(), parameters);
        for (const std::string& difference : run.verdict.differences)
            ADD_FAILURE() << difference;
        EXPECT_GT(run.verdict.out, 0u);
    }
}

TEST(Audit, TellsTheFateOfEachPart) {
    const audited_run run = runAudit(everyFate(), "maxtris(10)");
    std::vector<std::pair<std::string, std::string>> fates;
    for (const auto& part : run.plan.parts)
        fates.emplace_back(part.name, morva::host::textOf(part.fate));
    const std::vector<std::pair<std::string, std::string>> expected = {
        {"top/soup", "merged"},         {"top/#1/glass", "carried over"},
        {"top/hidden", "left out"},     {"top/#3/chosen", "left out"},
        {"top/#3/#1", "left out"},      {"top/cube map", "left out"},
        {"top/quad strip", "left out"}, {"top/strip", "merged"}};
    EXPECT_EQ(fates, expected);
    EXPECT_EQ(run.verdict.least, run.verdict.most);
    EXPECT_GT(run.plan.parts[0].degenerate, 0u);
    EXPECT_EQ(run.verdict.in, 60u + 50 + 40 + 30 + 20 + 10 + 6 + 6);
}

TEST(Audit, WithAnIdMapEachPartIsCheckedOnItsOwn) {
    const auto scene = [] {
        return group({named("a", meshNode(quads(4), simple({1, 0, 0}))),
                      named("b", meshNode(quads(6), simple({1, 0, 0})))});
    };
    audited_run run = runAudit(scene(), "maxtris(100),idmapinroot(true)");
    EXPECT_TRUE(run.verdict.by_part);
    EXPECT_EQ(run.verdict.differences, std::vector<std::string>{});

    // Two triangles of a that came out under b: the sum is right, the parts are not.
    const stream_capture out(std::cout);
    const node_ref root(scene());
    const auto parts = morva::host::namedParts(root.get(), true);
    const std::string parameters = "maxtris(100),idmapinroot(true)";
    audit_plan plan = morva::host::planAudit(root.get(), parts, parameters);
    const node_ref result(morva::osg::optTree(root.get(), parameters));
    plan.parts[0].least = plan.parts[0].most = 10;
    plan.parts[1].least = plan.parts[1].most = 10;
    const audit_verdict verdict = morva::host::judge(plan, result.get());
    EXPECT_EQ(verdict.differences.size(), 2u);
}

TEST(Audit, AMissingTriangleIsADifference) {
    audited_run run = runAudit(everyFate(), "maxtris(10)");
    ASSERT_TRUE(run.verdict.differences.empty());
    const node_ref fewer(group({meshNode(quads(1))}));
    const audit_verdict verdict = morva::host::judge(run.plan, fewer.get());
    ASSERT_EQ(verdict.differences.size(), 1u);
    EXPECT_NE(verdict.differences[0].find("but 2 came out"), std::string::npos);
}

TEST(Audit, DegenerateIsAskedWhereTheMergeAsks) {
    // Shrunk to a point in the world, sound in its own space.
    ::osg::Matrix tiny;
    tiny.setScale(1e-9f, 1e-9f, 1e-9f);
    const auto scene = [&] {
        return group({transformed(tiny, {named("dot", meshNode(quads(3)))}),
                      named("plate", meshNode(quads(1)))});
    };
    EXPECT_EQ(runAudit(scene(), "maxtris(10)").verdict.degenerate, 6u);
    EXPECT_EQ(runAudit(scene(), "maxtris(10),toworld(false)").verdict.degenerate, 0u);
    EXPECT_TRUE(runAudit(scene(), "maxtris(10)").verdict.differences.empty());
    EXPECT_TRUE(runAudit(scene(), "maxtris(10),toworld(false)").verdict.differences.empty());
}

} // namespace
} // namespace morva_test
