// Baking, interior removal and hulls by the command: what comes out, what is told of it.

#include <nlohmann/json.hpp>

#include "model.h"
#include "tests/collision/solids.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

mesh_data scaledBlock(const ::osg::Vec3f& by, const ::osg::Vec3f& to) {
    return baked(blockMesh(2), scaled(by, to));
}

/// A room without a ceiling from -1 to 1, with a floor at 0 that has a vertex in the middle, and a
/// box on it beside the ways of the rays from there.
::osg::NodePtr room() {
    mesh_data walls = scaledBlock({1, 1, 1}, {0, 0, 0});
    std::vector<::osg::Pnt3f> sides;
    for (std::size_t i = 0; i < walls.positions.size(); i += 3) {
        const auto* p = &walls.positions[i];
        if (!(p[0][2] == p[1][2] && p[1][2] == p[2][2]))
            sides.insert(sides.end(), {p[0], p[2], p[1]});
    }
    const ::osg::Pnt3f m(0, 0, 0), a(-1, -1, 0), b(1, -1, 0), c(1, 1, 0), d(-1, 1, 0);
    const std::vector<::osg::Pnt3f> floor = {m, a, b, m, b, c, m, c, d, m, d, a};
    return group({named("walls", meshNode(triangles(sides))),
                  named("floor", meshNode(triangles(floor))),
                  named("box", meshNode(scaledBlock({0.05F, 0.05F, 0.05F}, {0.8F, 0, 0.05F}),
                                        simple({0.5F, 1, 0})))});
}

::osg::Color3f colorAt(const ::osg::NodePtr& root, const std::string& name,
                       const ::osg::Pnt3f& place) {
    for (const ::osg::NodePtr& node : geometryNodes(root)) {
        const std::string own = ::osg::getName(node);
        const auto& core = *coreOf(node);
        for (::osg::UInt32 i = 0;
             own.substr(own.rfind('/') + 1) == name && i < core.getPositions()->size(); ++i) {
            if (core.getPositions()->getValue(i) == place &&
                (name == "floor" || core.getNormals()->getValue(i)[2] > 0.9F))
                return core.getColors()->getValue(i);
        }
    }
    return ::osg::Color3f(-1, -1, -1);
}

TEST(Occlusion, OfABoxInARoomHasTheValuesThatAreThere) {
    const temporary_folder folder;
    modelFile(folder.file("in.osb"), room());
    const ::osg::Pnt3f middle(0, 0, 0), top(0.8F, 0, 0.1F);
    for (const bool replace : {false, true}) {
        std::vector<std::string> words =
            wordsOf("optimize @in.osb -o @out.osb --overwrite -p ambientocclusion(3)", folder);
        if (replace)
            words.push_back("--ao-replace");
        const command_result done = runMorva(words);
        ASSERT_EQ(done.code, 0) << done.err;
        EXPECT_NE(done.err.find("note: baking fires 64 rays for each of "), std::string::npos);
        const auto out = morva::host::readModel(folder.file("out.osb"));
        EXPECT_EQ(colorAt(out.root, "floor", middle)[0], 0.5625F) << "28 of 64 rays hit a wall";
        const ::osg::Color3f box = colorAt(out.root, "box", top);
        EXPECT_NEAR(box[1], 0.375F, 1e-6F) << "40 of 64, since a wall is near";
        EXPECT_NEAR(box[0], (replace ? 0.375F : 0.1875F), 1e-6F) << "its colour stays";
    }
}

TEST(Occlusion, RemovedPartsAreNamedAndCanBeKept) {
    const temporary_folder folder;
    const mesh_data shell = hollowed(ballMesh(6));
    const ::osg::MaterialRefPtr held(simple({1, 0, 0}));
    const ::osg::MaterialPtr red = held.get();
    const auto scene = [&](bool with_kernel) {
        node_list parts = {named("shell", meshNode(shell, red)),
                           moved({60, 0, 0}, {named("far", meshNode(blockMesh(1), red))})};
        if (with_kernel)
            parts.push_back(
                moved({0.1F, 0, 0},
                      {materialGroup(red, {named("kernel", meshNode(scaledBlock({0.2F, 0.2F, 0.2F},
                                                                                {0, 0, 0})))})}));
        return group(parts);
    };
    modelFile(folder.file("in.osb"), scene(true));
    modelFile(folder.file("open.osb"), scene(false));
    const std::string keys = "ambientgutout(1),maxtris(40),idmapinroot(1)";
    const command_result done = runMorva(wordsOf(
        "optimize @in.osb -o @out.glb --removed @gone.osb --report @r.json -p " + keys, folder));
    ASSERT_EQ(done.code, 0) << done.err;
    EXPECT_NE(done.out.find("48 removed, "), std::string::npos) << done.out;
    const auto report = nlohmann::json::parse(bytesOf(folder.file("r.json")));
    EXPECT_EQ(report["audit"]["removed"], 48);
    std::vector<std::string> fates;
    for (const auto& part : report["parts"])
        fates.push_back(part["original_name"].get<std::string>() + " " +
                        part["fate"].get<std::string>());
    EXPECT_EQ(fates, (std::vector<std::string>{"shell merged", "far merged", "kernel removed"}));
    const auto gone = morva::host::readModel(folder.file("gone.osb"));
    const node_ref whole(scene(true)), rest(scene(false));
    const mesh_choice places{false, false, false, false, nullptr};
    world_mesh both = worldMesh(gone.root, places);
    EXPECT_EQ(both.size(), 48U);
    const world_mesh more = worldMesh(rest.get(), places);
    both.insert(both.end(), more.begin(), more.end());
    std::sort(both.begin(), both.end());
    EXPECT_EQ(firstDifference(worldMesh(whole.get(), places), both), "");

    const command_result none =
        runMorva(wordsOf("optimize @open.osb -o @o2.glb --removed @g2.osb -p " + keys, folder));
    EXPECT_EQ(none.code, 0) << none.err;
    EXPECT_NE(none.err.find("no part was removed"), std::string::npos);
    EXPECT_FALSE(std::ifstream(folder.file("g2.osb")).good());
    EXPECT_EQ(runMorva(wordsOf("optimize @in.osb -o @o3.glb --removed @g3.osb", folder)).code, 2);
}

TEST(Occlusion, HullsPassTheAudit) {
    const temporary_folder folder;
    modelFile(folder.file("in.osb"), room());
    for (const std::string keys :
         {"buildhull(1),maxtris(20),idmapinroot(1)", "buildhull(1),maxtris(20),toworld(0)",
          "ambientocclusion(2),buildhullwithcolors(1),maxtris(9)", "buildhull(1)",
          "ambientgutout(1),buildhull(1),maxtris(30)", "buildhullwithcolors(1),maxtris(9)"}) {
        const command_result done =
            runMorva(wordsOf("optimize @in.osb -o @out.osb --overwrite -p " + keys, folder));
        const bool empty = keys == "buildhullwithcolors(1),maxtris(9)";
        EXPECT_EQ(done.code, empty ? 1 : 0) << keys << done.err;
        EXPECT_TRUE(!empty || (done.err.find("left out of the hull: '") != std::string::npos &&
                               done.err.find("open enough for the hull") != std::string::npos));
    }
}

} // namespace
} // namespace morva_test
