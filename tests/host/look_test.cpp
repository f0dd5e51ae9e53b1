// `morva pick` and `morva collide`: command lines with their answers.

#include <nlohmann/json.hpp>

#include "part_lookup.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

::osg::NodePtr boxAt(const ::osg::Vec3f& place, const std::string& name, float scale = 1.f) {
    ::osg::Matrix matrix;
    matrix.setScale(scale);
    matrix.setTranslate(place[0], place[1], place[2]);
    return transformed(matrix, {named(name, meshNode(cube(), simple({1, 0, 0})))});
}

/// A floor of 4 squares below a lid that sees it, two boxes that cut into each other, and a pin
/// inside a hull.
::osg::NodePtr yard() {
    return named(
        "yard",
        group({named("floor", meshNode(quads(4), simple({0, 1, 0}))),
               moved({0, 0, 2}, {named("lid", meshNode(quads(1)))}),
               named("left", boxAt({0, 5, 0}, "box")),
               named("right", boxAt({.5f, 5.25f, .25f}, "box")),
               named("pin", boxAt({10, 0, 0}, "pin")), named("coat", boxAt({9, -1, -1}, "hull", 3)),
               moved({0, 0, 1.5f}, {named("pane", meshNode(quads(1), chunked({1, 1, 1, .5f})))}),
               named("ca\"mera", group())}));
}

/// A command line below the folder, and what has to come of it.
struct look_case {
    const char* name;
    std::string line;
    int code;
    /// Of code 0 what goes to standard output; with --json one value a line, but for "seconds" and
    /// "core". Of other codes what the error has in it.
    std::string expected;
};

/// Takes out what differs from run to run.
void dropTimesAndCores(nlohmann::json& value) {
    if (value.is_object()) {
        EXPECT_GE(value.value("seconds", 0.0), 0.0);
        EXPECT_NE(value.value("core", "-"), "");
        value.erase("seconds");
        value.erase("core");
    }
    for (auto& inner : value) {
        if (inner.is_structured())
            dropTimesAndCores(inner);
    }
}

std::vector<nlohmann::json> valuesOf(const std::string& text) {
    std::vector<nlohmann::json> values;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        values.push_back(nlohmann::json::parse(line));
        dropTimesAndCores(values.back());
    }
    return values;
}

/// Puts a T in the place of each number of milliseconds.
std::string withoutTimes(std::string text) {
    for (std::size_t end = text.find(" ms"); end != std::string::npos;
         end = text.find(" ms", end)) {
        const std::size_t start = text.find_last_not_of("0123456789.", end - 1) + 1;
        text.replace(start, end - start, "T");
        end = start + 1 + 3;
    }
    return text;
}

void expectAnswers(const std::vector<look_case>& rows, const temporary_folder& folder) {
    const auto entries = folder.entries();
    for (const look_case& row : rows) {
        SCOPED_TRACE(row.name);
        const command_result result = runMorva(wordsOf(row.line, folder));
        EXPECT_EQ(result.code, row.code) << result.err;
        if (row.code != 0) {
            EXPECT_NE(result.err.find(row.expected), std::string::npos) << result.err;
            EXPECT_EQ(result.out, "");
        } else if (row.line.find("--json") != std::string::npos) {
            EXPECT_EQ(valuesOf(result.out), valuesOf(row.expected));
        } else {
            EXPECT_EQ(withoutTimes(result.out), row.expected);
        }
    }
    EXPECT_EQ(folder.entries(), entries) << "no file is written";
}

/// A hit as JSON; `place` is where x, y and z stand.
std::string hitOf(const std::string& path, const std::string& place, const std::string& distance,
                  int triangle, bool back = false) {
    return R"({"name":")" + path.substr(path.rfind('/') + 1) + R"(","path":")" + path +
           R"(","point":[)" + place + R"(],"normal":[0.0,0.0,1.0],"distance":)" + distance +
           R"(,"triangle":)" + std::to_string(triangle) + R"(,"back_face":)" +
           (back ? "true}" : "false}");
}

TEST(Pick, AnswersAsTheTableSays) {
    const temporary_folder folder;
    modelFile(folder.file("m.osb"), yard());
    writeBytes(folder.file("rays"),
               ".5 .25 9 0 0 -1\r\n\n \t\n1e3,0,0,0,+1,0\n.25 .5 1.75 0 0 1e-30");
    writeBytes(folder.file("zero"), "0 0 0 0 0 1\n\n0 0 0 0 -0 0\n");
    writeBytes(folder.file("word"), "0 0 0 0 0 1\n0 0 0 0 0 one\n");
    writeBytes(folder.file("few"), "0 0 0 0 1\n");
    writeBytes(folder.file("none"), "");
    const std::string lid = hitOf("yard/#1/lid", "0.5,0.25,2.0", "7.0", 0),
                      pane = hitOf("yard/#6/pane", "0.5,0.25,1.5", "7.5", 0),
                      floor = hitOf("yard/floor", "0.5,0.25,0.0", "9.0", 0),
                      behind = hitOf("yard/#1/lid", "0.25,0.5,2.0", "0.25", 1, true),
                      down = "pick @m.osb --from .5,.25,9 --dir 0,0,-3 ";
    const auto pair = [](const std::string& file, const std::string& result) {
        return R"({"file":)" + file + R"(,"result":)" + result + R"(,"same_part":)" +
               (file == result ? "true}" : "false}");
    };
    expectAnswers(
        {{"the first hit", down + "--json", 0, lid},
         {"through a point and beyond", "pick @m.osb --from .5,.25,9 --to .5,.25,5 --json", 0, lid},
         {"a miss", "pick @m.osb --from 0,0,-5 --dir 0,0,-1 --json", 0, "null"},
         {"no back faces", "pick @m.osb --from .25,.5,1.75 --dir 0,0,1", 0, "no hit\n"},
         {"all hits", down + "--all --json", 0,
          R"({"hits":[)" + lid + "," + pane + "," + floor + "]}"},
         {"all of none", "pick @m.osb --from .5,.25,9 --dir 0,0,1 --all --json", 0, "null"},
         {"text", "pick @m.osb --from 3.5,.25,-1 --to 3.5,.25,0 --both-sides", 0,
          "part      floor\npath      yard/floor\npoint     3.5 0.25 0\nnormal    0 0 1\n"
          "distance  1\ntriangle  6\nside      back\n"},
         {"a file of rays", "pick @m.osb --rays @rays --both-sides --json", 0,
          lid + "\nnull\n" + behind},
         {"a file without rays", "pick @m.osb --rays @none --json", 0, ""},
         {"beside a run", down + "--json -p maxtris(9),IDMap(@x)", 0, pair(lid, lid)},
         {"carried over in a new order", down + "--all --json -p maxtris(9),cacheopt(1)", 0,
          pair(R"({"hits":[)" + lid + "," + pane + "," + floor + "]}",
               R"({"hits":[)" + lid + "," + pane + "," + floor + "]}")},
         {"beside atlases, carried over in a new order",
          down + "--all --json -p maxtris(9),cacheopt(1),maxtexturesize(64)", 0,
          pair(R"({"hits":[)" + lid + "," + pane + "," + floor + "]}",
               R"({"hits":[)" + lid + "," + pane + "," + floor + "]}")},
         {"beside atlases alone", down + "--json -p maxtexturesize(64)", 0, pair(lid, lid)},
         {"beside a run that merges nothing", down + "--json -p opt(2)", 0, pair(lid, lid)},
         {"beside another part", down + "--json -p maxtris(9),toworld(0)", 0, pair(lid, pane)},
         {"beside nothing there",
          "pick @m.osb --from .25,5.5,9 --dir 0,0,-1 --json -p maxtris(9),toworld(0)", 0,
          pair(hitOf("yard/left/box", "0.25,5.5,1.0", "8.0", 11), "null")},
         {"beside no run", "pick @m.osb --rays @rays --json -p ,", 0,
          pair(lid, lid) + "\nnull\nnull"},
         {"a direction of length 0", "pick @m.osb --from 1,2,3 --to 1,2,3", 2, "length 0"},
         {"a number too many", "pick @m.osb --from 1,2,3,x --dir 1,2,3", 2, "here are 4"},
         {"NaN", "pick @m.osb --from 1,2,nan --dir 1,2,3", 2, "--from: 'nan' is not finite"},
         {"too far", "pick @m.osb --from 1,2,1e39 --dir 1,2,3", 2, "'1e+39' is out of range"},
         {"two numbers", "pick @m.osb --from 1,2,3 --dir 1,2", 2,
          "--dir: a point or direction has"},
         {"no ray", "pick @m.osb --json", 2, "pick needs --rays"},
         {"two ways", "pick @m.osb --rays @rays --from 1,2,3", 2, "excludes"},
         {"a zero in a file", "pick @m.osb --rays @zero", 2, "zero', line 3: the direction has"},
         {"a word in a file", "pick @m.osb --rays @word", 2, "word', line 2: 'one' is no number"},
         {"a short line", "pick @m.osb --rays @few", 2, "few', line 1: a ray has 6 numbers"},
         {"no such rays", "pick @m.osb --rays @x", 1, "cannot read"},
         {"no such model", "pick @x.osb --from 1,2,3 --dir 1,2,3", 1, "no such file"}},
        folder);
}

const std::string engine = MORVA_MODELS "/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";

/// The path of the part that each ray hits, "" for a miss; of runs of `pick` with --json.
std::vector<std::string> pathsOf(const command_result& run) {
    EXPECT_EQ(run.code, 0) << run.err;
    std::vector<std::string> paths;
    for (const nlohmann::json& hit : valuesOf(run.out)) {
        const nlohmann::json& told =
            hit.is_object() && hit.contains("result") ? hit["result"] : hit;
        paths.push_back(told.is_object() ? told["path"].get<std::string>() : "");
        EXPECT_EQ(hit.is_object() && !hit.value("same_part", true), false) << hit;
    }
    return paths;
}

TEST(Pick, TellsThePartsOfTheEngineInEveryForm) {
    const temporary_folder folder;
    std::mt19937 rng(seedOf(77));
    std::ostringstream rays;
    for (int i = 0; i < 6 * 400; ++i) // the engine is 800 long, around the origin
        rays << int(rng() % 801) - 400 << (i % 6 == 5 ? "\n" : " ");
    writeBytes(folder.file("rays"), rays.str());
    const auto pick = [&](const std::string& file, const std::string& more = "") {
        return pathsOf(runMorva(wordsOf("pick " + file + " --json --rays @rays" + more, folder)));
    };
    const std::vector<std::string> parts = pick(engine);
    EXPECT_EQ(parts.size(), 400u);
    EXPECT_GT(std::set<std::string>(parts.begin(), parts.end()).size(), 4u);
    EXPECT_EQ(pick(engine, " -p maxtris(10),cacheopt(true)"), parts);
    for (const char* const file : {"o.glb", "o.gltf", "o.osb"}) {
        SCOPED_TRACE(file);
        runMorva({"optimize", engine, "-o", folder.file(file), "-q", "-p",
                  "maxtris(5000),idmapinroot(1)"});
        EXPECT_EQ(pick(std::string("@") + file), parts);
    }
}

/// A name goes by its place only if each place is there.
TEST(ResultParts, AreKnownByTheirPlacesOrNotAtAll) {
    const node_ref source(group({named("a", meshNode(quads(1))), named("b", meshNode(quads(1)))}));
    const auto parts = morva::host::namedParts(source.get(), true);
    const morva::host::node_parts sources(parts);
    for (const std::size_t places : {1, 2, 3}) {
        node_list nodes;
        for (std::size_t i = 0; i < places; ++i)
            nodes.push_back(moved({0, 0, 0}, {meshNode(quads(1))}));
        const node_ref result(group(nodes));
        const morva::host::result_parts found(result.get(), sources,
                                              {parts[0].path, parts[1].path});
        for (std::size_t i = 0; i < places; ++i) {
            morva::osg::ray_hit hit;
            hit.node = nodes[i]->getChild(0);
            EXPECT_EQ(found.of(hit).path, places > 1 && i < 2 ? parts[i].path : "");
        }
    }
}

/// A question's answer as JSON; `contacts` are objects.
std::string answerOf(const std::string& a, const std::string& b, const std::string& contacts,
                     const std::string& inside = "", const std::string& open_b = "") {
    return R"({"a":")" + a + R"(","b":")" + b + R"(","collided":)" +
           (contacts.empty() ? "false" : "true") + R"(,"contacts":[)" + contacts +
           R"(],"a_inside_b":)" + (inside == "a" ? "true" : "false") + R"(,"b_inside_a":)" +
           (inside == "b" ? "true" : "false") + R"(,"open_a":[],"open_b":[)" + open_b + "]}";
}

TEST(Collide, AnswersAsTheTableSays) {
    const temporary_folder folder;
    modelFile(folder.file("m.osb"), yard());
    writeBytes(folder.file("poses"), "1 0 0 .25, 0 1 0 5.25, 0 0 1 .25, 0 0 0 1\n\n"
                                     "1 0 0 40 0 1 0 5 0 0 1 0 0 0 0 1\n"
                                     "9 0 0 -4 0 9 0 1 0 0 9 -4 0 0 0 1\n");
    writeBytes(folder.file("columns"), "1 0 0 0 0 1 0 0 0 0 1 0 40 5 0 1\n");
    writeBytes(folder.file("short"), "1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 1\n1 0 0 0\n");
    const std::string boxes =
        R"({"a":{"name":"box","path":"yard/left/box"},"b":{"name":"box","path":"yard/right/box"},)"
        R"("point":[1.0,5.75,0.25]})";
    expectAnswers(
        {{"contact", "collide @m.osb --a left --b yard/right --json", 0,
          answerOf("yard/left", "yard/right", boxes)},
         {"no contact", "collide @m.osb --a left --b pin", 0, "no contact\n"},
         {"with all else", "collide @m.osb --a left --b rest --json", 0,
          answerOf("yard/left", "rest", boxes, "", R"("yard/floor","yard/#1/lid","yard/#6/pane")")},
         {"open surfaces", "collide @m.osb --a floor --b rest", 0,
          "no contact\nopen surfaces in A, where contacts can be missed: 1\n  yard/floor\n"
          "open surfaces in B, where contacts can be missed: 2\n  yard/#1/lid\n  yard/#6/pane\n"},
         {"nothing in it", "collide @m.osb --a left --b ca_mera", 0, "no contact\n"},
         {"all pairs", "collide @m.osb --a coat --b yard/right --all", 0, "no contact\n"},
         {"inside", "collide @m.osb --a pin --b coat", 0, "no contact: A lies inside B\n"},
         {"around", "collide @m.osb --a coat --b pin --json", 0,
          answerOf("yard/coat", "yard/pin", "", "b")},
         {"poses", "collide @m.osb --a left --b right --poses @poses", 0,
          "pose 1, line 1, T ms: contact\n  a      yard/left/box\n  b      yard/right/box\n"
          "  point  1 6 0.25\npose 2, line 3, T ms: no contact\n"
          "pose 3, line 4, T ms: no contact: A lies inside B\n"},
         {"one name, two nodes", "collide @m.osb --a box --b pin", 2,
          "'box' is the name of 2 nodes; say which one by its path:\n"
          "morva:   yard/left/box\nmorva:   yard/right/box\n"},
         {"no such name", "collide @m.osb --a pin --b pan", 2, "'pan'"},
         {"one in the other", "collide @m.osb --a left --b yard/left/box", 2, "overlap"},
         {"the same", "collide @m.osb --a pin --b yard/pin", 2, "both"},
         {"nothing is left", "collide @m.osb --a yard --b rest", 2, "whole scene"},
         {"columns for rows", "collide @m.osb --a left --b right --poses @columns", 2,
          "columns', line 1: the last row of a pose is 0 0 0 1"},
         {"a short pose", "collide @m.osb --a left --b right --poses @short", 2,
          "short', line 2: a pose has 16 numbers, here are 4"},
         {"one side", "collide @m.osb --a left", 2, "--b is required"}},
        folder);
}

} // namespace
} // namespace morva_test
