// `morva simplify`: command lines with their outcome, and what becomes of scenes.

#include <filesystem>
#include <numeric>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/tools/morva_osg_simplify_limit.h>

#include "feature_ids.h"
#include "geometry_view.h"
#include "model.h"
#include "scene_walk.h"
#include "simplify_audit.h"
#include "simplify_scene.h"
#include "statistics.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::geometry_view;
using namespace morva::osg;

/// Hills of 2 * side * side triangles, with a colour, coordinates and an ID for each corner.
mesh_data hills(unsigned side, unsigned seed = 5) {
    std::mt19937 rng(seedOf(seed));
    mesh_data mesh;
    for (unsigned cell = 0; cell < side * side; ++cell) {
        const unsigned x = cell % side, y = cell / side;
        for (const auto& [u, v] : {std::pair(0, 0), {1, 0}, {1, 1}, {0, 0}, {1, 1}, {0, 1}}) {
            const float a = float(x + unsigned(u)), b = float(y + unsigned(v));
            mesh.positions.push_back({a, b, 0.3F * std::sin(a) * std::cos(0.7F * b)});
            mesh.ids.push_back(float(cell / 9));
        }
    }
    mesh = withCoordinates(withColors(std::move(mesh), rng), rng);
    mesh.primitives = {{4, unsigned(mesh.positions.size())}};
    return mesh;
}

/// Hills between a line strip and two points, each with corners of their own.
mesh_data mixedHills() {
    mesh_data mesh = hills(6, 9);
    mesh.primitives = {{3, 6}, mesh.primitives[0], {0, 3}};
    const auto spread = [](auto& list) {
        list.insert(list.begin(), list.begin(), list.begin() + 6);
        list.insert(list.end(), list.begin(), list.begin() + 3);
    };
    spread(mesh.positions);
    spread(mesh.colors);
    spread(mesh.coordinates);
    spread(mesh.ids);
    return mesh;
}

::osg::NodePtr yard() {
    const ::osg::GeometryPtr bolt = geometryOf(hills(9), simple({0, 1, 0}));
    ::osg::Matrix triple;
    triple.setScale(3.0F);
    return named(
        "yard",
        group({named("plate", meshNode(hills(14, 3), simple({1, 0, 0}))),
               named("small", nodeOf(bolt)), transformed(triple, {named("big", nodeOf(bolt))}),
               named("frame", meshNode(mixedHills(), simple({0, 0, 1}))),
               named("wire", meshNode(row(4, 1))), hidden(named("ghost", nodeOf(bolt))),
               hidden(named("dark", meshNode(hills(4)))), named("pair", meshNode(quads(1)))}));
}

struct simplify_case {
    std::string line;
    int code;
    std::string told;                 ///< in what is printed
    std::vector<std::string> files{}; ///< that are there afterwards
};

TEST(SimplifyCommand, AnswersAsTheTableSays) {
    const temporary_folder folder;
    modelFile(folder.file("m.osb"), yard());
    node_list ten;
    for (float shift = 0; shift < 10; ++shift) { // the same for all seeds
        mesh_data one = hills(3);
        for (::osg::Pnt3f& p : one.positions)
            p[2] = std::sin(p[0] + shift) * std::cos(p[1]);
        one.colors.clear();
        one.coordinates.clear();
        ten.push_back(meshNode(one));
    }
    modelFile(folder.file("ten.osb"), group(ten));
    std::filesystem::create_directory(folder.file("dir.lod2.osb"));
    const auto before = folder.entries();
    const std::string at = "simplify @m.osb -o @o.osb ";
    const simplify_case rows[] = {
        {at, 2, "needs --ratio, --triangles, --lods or --max-error"},
        {at + "--ratio 0", 2, "--ratio needs a number above 0 and at most 1, not '0'"},
        {at + "--ratio 1.01", 2, "not '1.01'"},
        {at + "--ratio nan", 2, "not 'nan'"},
        {at + "--ratio .5,.2", 2, "not '.5,.2'"},
        {at + "--ratio half", 2, "not 'half'"},
        {at + "--triangles 0", 2, "--triangles needs a whole number from 1 to 4294967295"},
        {at + "--triangles 2.5", 2, "not '2.5'"},
        {at + "--triangles=-3", 2, "not '-3'"},
        {at + "--triangles 4294967296", 2, "not '4294967296'"},
        {at + "--lods .5,.5", 2, "--lods needs numbers above 0 and at most 1, each below"},
        {at + "--lods .2,.5", 2, "not '.2,.5'"},
        {at + "--lods .5,,", 2, "not '.5,,'"},
        {at + "--max-error=-1", 2, "--max-error needs a number of at least 0, not '-1'"},
        {at + "--max-error inf", 2, "not 'inf'"},
        {at + "--ratio .5 --weld place", 2, "--weld"},
        {at + "--ratio .5 --triangles 7", 2, "excludes"},
        {at + "--ratio .5 --lods .5", 2, "excludes"},
        {at + "--lods .5 --report @o.lod1.osb", 2, "cannot be one file"},
        {"simplify @m.osb -o @o.txt --ratio .5", 2, "cannot write files like"},
        {"simplify @m.osb -o @m.osb --ratio .5", 2, "is the input: --overwrite replaces it"},
        {"simplify @no.osb -o @o.osb --ratio .5", 1, "no such file"},
        {"simplify @m.osb -o @dir.osb --lods .5,.2", 1, "dir.lod2.osb"},
        {at + "--ratio .5", 0, "ratio 0.5 ", {"o.osb"}},
        {at + "--ratio 1 --report @r.json", 0, "ratio 1 ", {"o.osb", "r.json"}},
        {at + "--triangles 300 --weld corner", 0, "\n300 triangles ", {"o.osb"}},
        // 9.5 a part: what one does not take goes to the next.
        {"simplify @ten.osb -o @o.osb --triangles 95", 0, " 180               95\n", {"o.osb"}},
        {at + "--triangles 1", 0, "1 triangle: floor reached in 3 parts, where", {"o.osb"}},
        {at + "--max-error .02",
         0,
         "distance 0.02: the largest distance ends 4 parts; ",
         {"o.osb"}},
        {at + "--lods .5,.25 --lock-borders", 0, "ratio 0.25 ", {"o.lod1.osb", "o.lod2.osb"}},
        {"simplify @m.osb -o @o.b.ply --lods .5", 0, "passed", {"o.b.lod1.ply"}},
        {at + "--ratio .5 -q", 0, "", {"o.osb"}}};
    for (const simplify_case& row : rows) {
        SCOPED_TRACE(row.line);
        const command_result result = runMorva(wordsOf(row.line, folder));
        EXPECT_EQ(result.code, row.code) << result.err;
        const std::string told = result.out + result.err;
        EXPECT_NE(told.find(row.told), std::string::npos) << told;
        EXPECT_TRUE(row.code == 0 || result.out.empty());
        EXPECT_TRUE(row.line.find("-q") == std::string::npos || told.empty());
        for (const std::string& file : row.files)
            EXPECT_TRUE(std::filesystem::remove(folder.file(file))) << file;
        EXPECT_EQ(folder.entries(), before);
    }
}

std::uint64_t trianglesOf(const ::osg::NodePtr& node) {
    std::uint64_t count = 0;
    forEachTriangle(geometry_view(coreOf(node)), [&](auto, auto, auto) { ++count; });
    return count;
}

/// Colour, coordinates and ID of each corner of the triangles.
std::set<std::vector<float>> attributesOf(const ::osg::NodePtr& node) {
    const geometry_view view(coreOf(node));
    std::set<std::vector<float>> all;
    forEachTriangle(view, [&](auto a, auto b, auto c) {
        for (const std::size_t corner : {a, b, c}) {
            const auto color = view.colors.valueOf<::osg::Color3f>(corner);
            const auto place = view.coordinates[0].valueOf<::osg::Vec2f>(corner);
            all.insert({color[0], color[1], color[2], place[0], place[1],
                        *view.coordinates[7].at(view.coordinates[7].row(corner))});
        }
    });
    return all;
}

TEST(SimplifyCommand, ChangesTheTrianglesOfPartsAndNothingElse) {
    const temporary_folder folder;
    modelFile(folder.file("m.osb"), yard());
    const node_ref was(::osg::SceneFileHandler::the().read(folder.file("m.osb").c_str()));
    for (unsigned round = 0; round < roundsOf(6U); ++round) {
        const auto form = round % 2 == 0 ? simplify_weld::position : simplify_weld::corner;
        const double ratio = round < 2 ? 0.6 : round < 4 ? 0.77 : 0.83;
        const std::string weld = form == simplify_weld::position ? "position" : "corner";
        const command_result result =
            runMorva(wordsOf("simplify @m.osb -o @o.osb --overwrite --report @r.json --weld " +
                                 weld + " --ratio " + std::to_string(ratio),
                             folder));
        ASSERT_EQ(result.code, 0) << result.err;
        const node_ref is(::osg::SceneFileHandler::the().read(folder.file("o.osb").c_str()));
        const auto node = [&](const char* name) { return nodeNamed(is.get(), name); };
        const auto former = [&](const char* name) { return nodeNamed(was.get(), name); };
        EXPECT_EQ(textOf(is.get()), "yard(plate small -(big) frame(frame) wire ghost dark pair)");
        EXPECT_EQ(node("small")->getCore(), node("big")->getCore());
        EXPECT_EQ(node("small")->getCore(), node("ghost")->getCore()) << "though it is hidden";
        const auto report = nlohmann::json::parse(bytesOf(folder.file("r.json")))["simplified"];
        for (const auto& [name, place] :
             {std::pair<const char*, unsigned>("plate", 0), {"small", 1}, {"frame", 2}}) {
            const auto part = report["levels"][0]["parts"][place];
            const simplification run = simplify(coreOf(former(name)), {1}, {form, false});
            const auto nearest = [&, asked = ratio * run.live](double best, const auto& step) {
                return std::abs(step.live - asked) < std::abs(best - asked) ? step.live : best;
            };
            const double live =
                std::accumulate(run.steps.begin(), run.steps.end(), double(run.live), nearest);
            EXPECT_EQ(part["live"], live) << name;
            EXPECT_EQ(part["triangles"], trianglesOf(node(name)));
            const auto before = attributesOf(former(name)), after = attributesOf(node(name));
            EXPECT_TRUE(std::includes(before.begin(), before.end(), after.begin(), after.end()));
        }
        EXPECT_EQ(trianglesOf(node("pair")), ratio < 0.7 ? 1U : 2U);
        EXPECT_EQ(report["levels"][0]["parts"][1]["places"], 2);
        for (const char* name : {"wire", "dark"})
            EXPECT_EQ(firstDifference(worldMesh(former(name)), worldMesh(node(name))), "");
        const geometry_view frame(coreOf(former("frame"))),
            rest(coreOf(node("frame")->getChild(0)));
        ASSERT_EQ(rest.runs.size(), 2U);
        for (std::size_t i = 0; i < 9; ++i) {
            const std::size_t corner = i < 6 ? i : frame.runs[2].first + i - 6;
            EXPECT_EQ(*rest.positions.find<::osg::Pnt3f>(i),
                      *frame.positions.find<::osg::Pnt3f>(corner));
            EXPECT_EQ(rest.normals.present, frame.normals.present);
        }
    }
}

TEST(SimplifyCommand, KeepsThePartsThatAFileTellsOf) {
    const temporary_folder folder;
    modelFile(folder.file("m.osb"), group({named("a", meshNode(hills(7), simple({1, 0, 0}))),
                                           named("b", meshNode(hills(5), simple({1, 0, 0})))}));
    for (const char* line : {"optimize @m.osb -o @in.glb -q -p maxtris(5000),idmap(@map)",
                             "simplify @in.glb -o @out.glb -q --ratio .7"})
        ASSERT_EQ(runMorva(wordsOf(line, folder)).code, 0);
    std::map<std::string, unsigned> counts[2];
    for (const char* name : {"in.glb", "out.glb"}) {
        const morva::host::model read = morva::host::readModel(folder.file(name));
        const auto features = morva::host::readFeatureIds(folder.file(name), read);
        for (const ::osg::NodePtr& node : geometryNodes(read.root.get()))
            for (std::size_t t = 0; t < trianglesOf(node); ++t) {
                const auto* const part = features.partOf(node, t);
                ++counts[name[0] == 'o' ? 1 : 0][part != nullptr ? part->path : "none"];
            }
    }
    EXPECT_EQ(counts[0], (std::map<std::string, unsigned>{{"#0/a", 98}, {"#0/b", 50}}));
    EXPECT_EQ(counts[1].size(), 2U);
    for (const auto& [path, count] : counts[1])
        EXPECT_LT(count, counts[0][path]);
}

TEST(SimplifyCommand, TellsDistancesInTheWorldAndKeepsWithinThem) {
    const temporary_folder folder;
    ::osg::Matrix askew;
    askew.setScale(1.0F, 5.0F, 2.0F);
    const geometry_ref held(geometryOf(hills(9)));
    const ::osg::GeometryPtr core = held.get();
    ::osg::Matrix triple;
    triple.setScale(3.0F);
    modelFile(folder.file("m.osb"), group({nodeOf(core), transformed(triple, {nodeOf(core)}),
                                           transformed(askew, {nodeOf(core)})}));
    linear_map uniform{}, other{};
    for (unsigned i = 0; i < 3; ++i) {
        uniform[i][i] = 3.0F;
        other[i][i] = askew[i][i];
    }
    const simplification run = simplify(core, {60});
    unsigned between = 0;
    for (const double limit : {1e9, 6.0, 4.0, 3.0, 0.0}) {
        std::ostringstream line;
        line
            << "simplify @m.osb -o @o.osb --triangles 180 --overwrite --report @r.json --max-error "
            << limit;
        ASSERT_EQ(runMorva(wordsOf(line.str(), folder)).code, 0);
        const std::size_t steps =
            longestWithin(run, run.stops[0].collapses, limit, {uniform, other});
        surface_distance sum;
        for (const auto& [map, times] : {std::pair(uniform, 0.0), {uniform, 1.0}, {other, 1.0}}) {
            linear_map own = map;
            for (unsigned i = 0; i < 3 && times == 0.0; ++i)
                own[i][i] = 1.0F;
            const measured_surface source(simplifiedTriangles(run, 0), &own),
                result(simplifiedTriangles(run, steps), &own);
            sum = sum + distanceToSource(result, source) + distanceToResult(source, result);
        }
        const auto level =
            nlohmann::json::parse(bytesOf(folder.file("r.json")))["simplified"]["levels"][0];
        EXPECT_EQ(level["live"], 3 * run.liveAfter(steps)) << limit;
        EXPECT_NEAR(level["largest_distance"].get<double>(), sum.largest,
                    1e-5 * sum.largest + 1e-12);
        EXPECT_NEAR(level["mean_distance"].get<double>(), sum.mean(), 1e-4 * sum.mean() + 1e-12);
        EXPECT_LE(level["largest_distance"].get<double>(), limit * 1.0001);
        EXPECT_EQ(level["parts_at_max_error"], steps < run.stops[0].collapses ? 1 : 0);
        between += steps > 0 && steps < run.stops[0].collapses ? 1 : 0;
    }
    EXPECT_GT(between, 0U);
}

TEST(SimplifyAudit, FindsWhatIsNotAsItShouldBe) {
    const auto failsAfter = [](const std::function<void(const ::osg::NodePtr&)>& harm) {
        const node_ref root(yard());
        auto parts = morva::host::partsToSimplify(root.get(), {});
        const morva::host::simplify_audit audit(root.get(), parts);
        morva::host::simplify_request request;
        request.levels = {{0.5, std::nullopt}};
        simplifyParts(parts, request, [](std::size_t, std::size_t) {});
        showLevel(parts, 0);
        harm(root.get());
        return !audit.judge(parts, 0).differences.empty();
    };
    const auto plate = [](const ::osg::NodePtr& root) { return nodeNamed(root, "plate"); };
    EXPECT_FALSE(failsAfter([](const auto&) {}));
    EXPECT_TRUE(failsAfter([&](const auto& root) {
        ::osg::GeoPositions3fPtr::dcast(coreOf(plate(root))->getPositions())->editField()[4][2] = 9;
    })) << "out of the box";
    EXPECT_TRUE(failsAfter([&](const auto& root) {
        coreOf(plate(root))->getLengths()->setValue(3, 0);
    })) << "triangles are missing";
    EXPECT_TRUE(failsAfter([&](const auto& root) {
        coreOf(plate(root))->setTexCoords7(::osg::NullFC);
    })) << "no IDs";
    EXPECT_TRUE(failsAfter([&](const auto& root) {
        coreOf(plate(root))->setMaterial(simple({1, 0, 0}));
    }));
    EXPECT_TRUE(failsAfter([](const auto& root) { root->subChild(nodeNamed(root, "wire")); }));
    EXPECT_TRUE(failsAfter([](const auto& root) {
        coreOf(nodeNamed(root, "frame")->getChild(0))->getTypes()->setValue(1, 1);
    })) << "points are gone";
    EXPECT_TRUE(failsAfter([&](const auto& root) { named("other", plate(root)); }));
}

class SimplifyModels : public testing::TestWithParam<const char*> {};

TEST_P(SimplifyModels, ComeDownToWhatIsAskedOrToAFloor) {
    const temporary_folder folder;
    const std::string model = std::string(MORVA_MODELS) + "/" + GetParam();
    for (const char* wish : {"--ratio .8", "--ratio .5", "--ratio .2", "--triangles 2500"}) {
        SCOPED_TRACE(wish);
        const command_result result = runMorva(wordsOf(
            "simplify " + model + " -o @o.glb --overwrite --report @r.json " + wish, folder));
        ASSERT_EQ(result.code, 0) << result.err;
        const auto level =
            nlohmann::json::parse(bytesOf(folder.file("r.json")))["simplified"]["levels"][0];
        const double asked = level["asked"].get<double>(), live = level["live"].get<double>();
        const bool floor = result.err.find("floor reached") != std::string::npos;
        EXPECT_EQ(floor, level["parts_at_floor"] != 0);
        EXPECT_TRUE(std::abs(live - asked) <= 0.01 * asked || (floor && live > asked)) << live;
        EXPECT_TRUE(level["audit"]["passed"]);
        const morva::host::model read = morva::host::readModel(folder.file("o.glb"));
        EXPECT_EQ(morva::host::measureScene(read.root.get()).triangles,
                  level["after"]["triangles"]);
    }
}

INSTANTIATE_TEST_SUITE_P(All, SimplifyModels,
                         testing::Values("glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb",
                                         "IFC/AC14-FZK-Haus.ifc",
                                         "glTF/CesiumMilkTruck/CesiumMilkTruck.gltf"));

} // namespace
} // namespace morva_test
