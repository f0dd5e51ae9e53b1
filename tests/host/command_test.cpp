#include <unistd.h>

#include <nlohmann/json.hpp>

#include "tests/host/host_files.h"

namespace morva_test {
namespace {

/// Three parts of two materials, one of them twice under a name with a quote.
::osg::NodePtr smallScene() {
    std::mt19937 rng(20); // what is counted and noted below is this scene
    return group({named("a\"b", meshNode(soup(rng, 40), simple({1, 0, 0}))),
                  moved({5, 0, 0}, {named("a\"b", meshNode(quads(3), simple({1, 0, 0})))}),
                  named("c", meshNode(strip(8), simple({0, 0, 1})))});
}

TEST(Command, PrintsTheTableAndNothingOfTheOptimiserAndReports) {
    const temporary_folder folder;
    modelFile(folder.file("in.glb"), smallScene());
    std::vector<std::string> arguments =
        wordsOf("optimize @in.glb -o @o.glb --report @r.json -p maxtris(10)", folder);
    const command_result result = runMorva(arguments);
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.out.find("draw calls"), std::string::npos);
    EXPECT_NE(result.out.find("passed"), std::string::npos);
    EXPECT_EQ(result.out.find("Optimizing Tree"), std::string::npos);
    EXPECT_EQ(result.err.find("morva: note: geometry bytes grow: each core of at most maxtris"),
              0u);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    const auto report = nlohmann::json::parse(bytesOf(folder.file("r.json")));
    EXPECT_EQ(report["parameters"], "maxtris(10)");
    std::string stages;
    for (const auto& stage : report["stages"])
        stages += stage["name"].get<std::string>() + " ";
    EXPECT_EQ(stages, "read measure optimise audit write ");

    arguments.push_back("-v");
    const std::string lines = runMorva(arguments).out;
    EXPECT_NE(lines.find("Optimizing Tree..."), std::string::npos);
    const bool terminal = isatty(STDOUT_FILENO) != 0; // carriage returns go there alone
    EXPECT_NE(lines.find(terminal ? "\rDone merging.        \n" : "\nDone merging.        \n"),
              std::string::npos);
    arguments.back() = "-q";
    EXPECT_EQ(runMorva(arguments).out, "");
}

/// Names as a careless exporter leaves them.
::osg::NodePtr badNames() {
    return named("to\"p", group({named("a\"b\\\t", meshNode(quads(1), simple({1, 0, 0}))),
                                 named("a\"b\\\t", meshNode(quads(2), simple({1, 0, 0}))),
                                 moved({0, 5, 0}, {named("\xFF", meshNode(row(4, 1)))}),
                                 named("glass", meshNode(quads(3), chunked({1, 1, 1, .5f})))}));
}

struct mapped_run {
    std::string map; ///< the ID map file
    nlohmann::json report;
};

mapped_run runWithMap(const std::string& names) {
    const temporary_folder folder;
    const command_result result =
        runMorva({"optimize", modelFile(folder.file("in.osb"), badNames()), "-o",
                  folder.file("o.glb"), "--report", folder.file("r.json"), "-p",
                  "maxtris(100),IDmap(" + folder.file("m") + "),toworld(true)", "--names", names});
    EXPECT_EQ(result.code, 0) << result.err;
    EXPECT_NE(result.out.find("passed, part by part"), std::string::npos);
    EXPECT_EQ(folder.entries().size(), 4u) << "input, output, report and map";
    return {bytesOf(folder.file("m.json")), nlohmann::json::parse(bytesOf(folder.file("r.json")))};
}

TEST(IdMap, OfBadNamesIsValidJsonAndLeadsBothWays) {
    const mapped_run run = runWithMap("unique");
    const auto map = nlohmann::json::parse(run.map);
    EXPECT_EQ(map["tree"]["name"], "to_p");
    const std::vector<std::string> names = {"to_p/a_b__", "to_p/a_b__~2", "to_p/#2/_"};
    std::multiset<std::string> mapped;
    for (const auto& entry : map["mapping"])
        mapped.insert(entry["name"].get<std::string>());
    EXPECT_EQ(mapped, std::multiset<std::string>(names.begin(), names.end()));

    const auto& report = run.report;
    EXPECT_EQ(report["id_map"]["bytes"], run.map.size());
    const std::vector<std::string> originals = {"a\"b\\\t", "a\"b\\\t", "_"}; // the report is UTF-8
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& part = report["parts"][i];
        EXPECT_EQ(part["name"], names[i]);
        EXPECT_EQ(part["original_name"], originals[i]);
        EXPECT_EQ(part["triangles_out"], part["triangles"]);
        const auto& id = report["ids"][part["id"].get<std::size_t>()];
        EXPECT_EQ(id["name"], names[i]);
        EXPECT_EQ(id["original_names"], nlohmann::json({originals[i]}));
        EXPECT_EQ(id["parts"], nlohmann::json({i}));
        EXPECT_EQ(id["cores"], part["cores"]);
    }
    EXPECT_FALSE(report["parts"][3].contains("id")) << "carried over, under its own name";
    EXPECT_EQ(report["parts"][3]["triangles_out"], 6);
    EXPECT_EQ(report["cores"].back()["name"], "to_p/glass");
    EXPECT_EQ(report["cores"].back()["ids"].size(), 0u);
}

TEST(IdMap, KeepsNamesOnRequest) {
    const mapped_run run = runWithMap("keep");
    EXPECT_FALSE(nlohmann::json::accept(run.map));
    EXPECT_NE(run.map.find("\"name\": \"a\"b\\\t\",\n"), std::string::npos);
    EXPECT_NE(run.map.find("\"name\": \"\xFF\",\n"), std::string::npos);
    EXPECT_NE(run.map.find("\"name\":\"to\"p\",\n"), std::string::npos);
    // Two parts under one name: together they are checked, one by one they cannot be told.
    const auto& report = run.report;
    const auto& id = report["ids"][report["parts"][0]["id"].get<std::size_t>()];
    EXPECT_EQ(id["parts"], nlohmann::json({0, 1}));
    EXPECT_FALSE(report["parts"][0].contains("triangles_out"));
    EXPECT_TRUE(report["audit"]["by_part"]);
}

} // namespace
} // namespace morva_test
