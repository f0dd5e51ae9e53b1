#include <nlohmann/json.hpp>

#include "cell_audit.h"
#include "cell_neighbours.h"
#include "model.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using nlohmann::json;

/// Two of one core, one of them placed; what is under a switch, a level of detail and hidden.
::osg::NodePtr house() {
    std::mt19937 rng(seedOf(4));
    const ::osg::GeometryPtr window = geometryOf(withNormals(quads(6), rng), simple({0, 0, 1}));
    ::osg::Matrix mirrored;
    mirrored.setTransform(::osg::Vec3f(0, 5, 0));
    mirrored[0][0] = -2;
    return named(
        "house",
        group({named("window", nodeOf(window)),
               transformed(mirrored, {named("window", nodeOf(window))}),
               materialGroup(simple({1, 0, 0}), {named("wall", meshNode(soup(rng, 90)))}),
               named("wire", meshNode(row(9, 3))),
               switched(1, {named("day", meshNode(quads(1))), named("night", meshNode(quads(2)))}),
               detailed({named("fine", meshNode(strip(9))), named("coarse", meshNode(strip(4)))}),
               hidden(named("ghost", meshNode(quads(1))))}));
}

/// All that is drawn, without names.
world_mesh drawnIn(const std::string& file) {
    return worldMesh(morva::host::readModel(file).root.get(), {true, true, false, false});
}

TEST(Divide, KeepsPartsAndTellsOfThemInTheManifest) {
    for (const std::string format : {"osb", "glb"}) {
        for (const std::string more : {" --straddle centre", " --straddle cut"}) {
            SCOPED_TRACE(format + more);
            const temporary_folder folder;
            modelFile(folder.file("in.osb"), house());
            const command_result result = runMorva(wordsOf(
                "divide @in.osb --cells @c --triangles 40 --format " + format + more, folder));
            ASSERT_EQ(result.code, 0) << result.err;
            EXPECT_NE(result.err.find("3 parts that a viewer does not show"), std::string::npos);
            const json manifest = json::parse(bytesOf(folder.file("c/manifest.json")));
            EXPECT_EQ(manifest["left_out"],
                      json({"house/#4/day", "house/#5/coarse", "house/ghost"}));
            std::map<std::string, std::size_t> triangles;
            std::set<std::string> names;
            world_mesh all;
            for (const json& cell : manifest["cells"]) {
                const std::string file = folder.file("c/" + cell["file"].get<std::string>());
                EXPECT_EQ(cell["bytes"], std::filesystem::file_size(file));
                const world_mesh mesh = drawnIn(file);
                EXPECT_EQ(mesh.size(), cell["triangles"]);
                all.insert(all.end(), mesh.begin(), mesh.end());
                for (const json& part : cell["parts"]) {
                    triangles[part["name"]] += part["triangles"].get<std::size_t>();
                    EXPECT_EQ(manifest["parts"][part["part"].get<std::size_t>()]["name"],
                              part["name"]);
                    names.insert(part["name"]);
                }
                const morva::host::model read = morva::host::readModel(file);
                for (const ::osg::NodePtr& node : geometryNodes(read.root.get()))
                    EXPECT_TRUE(format == "glb" || names.count(getName(node)) != 0);
            }
            EXPECT_EQ(names,
                      (std::set<std::string>{"house/#1/window", "house/#2/wall", "house/#4/night",
                                             "house/#5/fine", "house/window", "house/wire"}));
            for (const json& part : manifest["parts"])
                EXPECT_EQ(triangles[part["name"]],
                          part["triangles"].get<std::size_t>() + part["pieces"].get<std::size_t>());
            if (more == " --straddle cut" || format == "glb")
                continue;
            // One cell of all is the model as a viewer shows it.
            ASSERT_EQ(runMorva(wordsOf("divide @in.osb --cells @one --triangles 1000 --format osb",
                                       folder))
                          .code,
                      0);
            std::sort(all.begin(), all.end());
            EXPECT_EQ(firstDifference(drawnIn(folder.file("one/cell_0000.osb")), all), "");
            EXPECT_EQ(all.size(), 12u + 12 + 90 + 4 + 7);
        }
    }
}

TEST(Divide, KeepsTheIdsOfAnOptimisedModel) {
    const std::pair<const char*, const char*> rows[] = {
        {"glb", "glb"}, {"osb", "osb"}, {"osb", "glb"}};
    for (const auto& [from, to] : rows) {
        SCOPED_TRACE(std::string(from) + " " + to);
        const temporary_folder folder;
        modelFile(folder.file("in.osb"), house());
        const auto run = [&](const std::string& line) {
            const command_result result = runMorva(wordsOf(line, folder));
            EXPECT_EQ(result.code, 0) << result.err;
            return result.out;
        };
        run(std::string("optimize @in.osb -o @o.") + from +
            " -p maxtris(1000),idmapinroot(true),flat(true)");
        run(std::string("divide @o.") + from + " --cells @c --triangles 20 --format " + to);
        // Rays onto the windows and the strip, against the whole and against each cell.
        unsigned told = 0;
        for (const char* ray :
             {" --from 0.7,0.4,9 --dir 0,0,-1", " --from -7.5,5.4,9 --dir 0,0,-1"}) {
            const std::string whole =
                run(std::string("pick @o.") + from + ray + " --json --both-sides");
            const json expected = json::parse(whole);
            std::set<std::string> found;
            for (const auto& entry : std::filesystem::directory_iterator(folder.file("c"))) {
                const std::string name = entry.path().filename().string();
                if (name == "manifest.json")
                    continue;
                const json hit = json::parse(run("pick @c/" + name + ray + " --json --both-sides"));
                if (!hit.is_null())
                    found.insert(hit["path"]);
            }
            told += found.count(expected["path"]) != 0 ? 1 : 0;
        }
        EXPECT_EQ(told, 2u);
    }
}

/// What the audit says if the cells are not those of the division.
std::string auditOf(const ::osg::NodePtr& root, bool cut,
                    const std::function<void(std::vector<node_ref>&)>& spoil) {
    const auto parts = morva::host::namedParts(root, true);
    std::vector<::osg::NodePtr> nodes;
    for (const auto& part : parts)
        nodes.push_back(part.node);
    using namespace morva::osg;
    const cell_division division = divideModel(
        nodes, {cell_measure::triangles, 6, cut ? cell_straddle::cut : cell_straddle::centre});
    std::vector<node_ref> scenes;
    for (std::size_t i = 0; i < division.cells.size(); ++i)
        scenes.emplace_back(cellScene(division, i));
    spoil(scenes);
    morva::host::cell_audit audit(parts, division, cut);
    for (std::size_t i = 0; i < scenes.size(); ++i)
        audit.add(i, scenes[i].get());
    std::string text;
    for (const std::string& difference : audit.judge())
        text += difference + "\n";
    return text;
}

::osg::GeometryPtr firstCore(const std::vector<node_ref>& scenes, std::size_t cell) {
    return coreOf(geometryNodes(scenes[cell].get()).front());
}

TEST(CellAudit, SeesWhatIsLostDoubledMovedAndOpen) {
    mesh_data sheet = quads(16);
    sheet.primitives.push_back({1, 2});
    sheet.positions.insert(sheet.positions.end(), {{0, 0, 0}, {0, 1, 0}});
    const auto shorten = [](unsigned primitive, unsigned by) {
        return [=](std::vector<node_ref>& scenes) {
            const auto lengths = firstCore(scenes, 0)->getLengths();
            lengths->setValue(lengths->getValue(primitive) - by, primitive);
        };
    };
    const auto move = [](float by, float scale) {
        return [=](std::vector<node_ref>& scenes) {
            const ::osg::GeoPositionsPtr places = firstCore(scenes, 1)->getPositions();
            for (::osg::UInt32 i = 0; i < places->size(); ++i)
                places->setValue(places->getValue(i) * scale + ::osg::Vec3f(by, 0, 0), i);
        };
    };
    const struct {
        const char* name;
        bool cut;
        std::function<void(std::vector<node_ref>&)> spoil;
        const char* message;
    } rows[] = {
        {"nothing", false, [](auto&) {}, ""},
        {"nothing, cut", true, [](auto&) {}, ""},
        {"a triangle", false, shorten(0, 3), "32 triangles, 1 lines and 0 points went in, 31"},
        {"a line", false, shorten(1, 2), "0 lines"},
        {"a cell", true, [](auto& scenes) { scenes[0] = node_ref(group()); }, "went in"},
        {"an area", true, move(0, 1.5F), "an area of 16"},
        {"a doubled cell", false, [](auto& scenes) { scenes[0] = scenes[1]; }, "are in cells"},
        {"a place", false, move(0.25F, 1), "are in no cell"},
        {"a seam", true, move(0.25F, 1), "cut points"},
        {"a stranger", false, [](auto& scenes) { named("x", geometryNodes(scenes[0].get())[0]); },
         "'x'"}};
    for (const auto& row : rows) {
        const node_ref root(group({meshNode(sheet)}));
        const std::string text = auditOf(root.get(), row.cut, row.spoil);
        EXPECT_EQ(text.empty(), *row.message == 0) << row.name << ": " << text;
        EXPECT_NE(text.find(row.message), std::string::npos) << row.name << ": " << text;
    }
}

TEST(Neighbours, AreTheBoxesThatTouch) {
    std::mt19937 rng(seedOf(9));
    for (int round = 0; round < roundsOf(200); ++round) {
        std::vector<morva::osg::model_cell> cells(rng() % 30);
        for (auto& cell : cells) {
            for (::osg::UInt32 a = 0; a < 3; ++a) {
                cell.box.low[a] = float(rng() % 6);
                cell.box.high[a] = cell.box.low[a] + float(rng() % 3);
            }
        }
        const auto found = morva::host::neighboursOf(cells);
        for (std::size_t i = 0; i < cells.size(); ++i) {
            std::vector<std::size_t> expected;
            for (std::size_t j = 0; j < cells.size(); ++j) {
                bool touching = i != j;
                for (::osg::UInt32 a = 0; a < 3; ++a)
                    touching = touching && cells[i].box.low[a] <= cells[j].box.high[a] &&
                               cells[j].box.low[a] <= cells[i].box.high[a];
                if (touching)
                    expected.push_back(j);
            }
            ASSERT_EQ(found[i], expected);
        }
    }
}

} // namespace
} // namespace morva_test
