// The command on real models: the same bytes in every run, and files that read back as told.

#include <nlohmann/json.hpp>

#include "../../host/parameter_notes.h"
#include "../../host/part_names.h"
#include "../../host/statistics.h"
#include "models.h"
#include "tests/host/host_files.h"

namespace {

int optimize(const std::string& in, const std::string& out, const std::string& more = "") {
    const std::string command = std::string("'") + MORVA_COMMAND + "' optimize '" + in + "' -o '" +
                                out + "' --quiet " + more;
    return std::system(command.c_str());
}

/// The bytes of all files that a run leaves, the ID map among them; the report without its clock.
std::string bytesAfter(const std::string& in, const std::string& format,
                       const std::string& parameters) {
    const morva_test::temporary_folder folder;
    EXPECT_EQ(optimize(in, folder.file("out." + format),
                       "--report '" + folder.file("report.json") + "' -p '" + parameters +
                           ",idmap(" + folder.file("map") + ")'"),
              0);
    std::vector<std::string> names = folder.entries();
    std::sort(names.begin(), names.end());
    std::string all;
    for (const std::string& name : names) {
        if (name != "report.json")
            all += name + bytesOf(folder.file(name));
    }
    const auto report = nlohmann::json::parse(bytesOf(folder.file("report.json")));
    return all + report.at("parts").dump() + report.at("after").dump();
}

TEST(WrittenFiles, AreTheSameBytesInEveryRunOnAnyNumberOfThreads) {
    const morva_test::temporary_folder folder;
    const std::string sixteen =
        morva_test::modelFile(folder.file("sixteen.glb"), roads::sixteenEngines());
    struct run_case {
        const std::string &in, format, parameters;
        int rounds;
    };
    for (const run_case& c : {run_case{roads::engine, "glb", "maxtris(5000)", 2},
                              {roads::engine, "obj", "opt(2),maxtris(700),prefix(e)", 1},
                              {roads::house, "glb", "cacheopt(1),alphageometry(1)", 2},
                              {roads::house, "obj", "maxtris(300),vertexcolor(900)", 1},
                              {sixteen, "glb", "cacheopt(1)", 1}}) {
        SCOPED_TRACE(c.in + " to " + c.format + " with " + c.parameters);
        const std::string alone = bytesAfter(c.in, c.format, c.parameters + ",numthreads(1)");
        ASSERT_GT(alone.size(), 100000U);
        for (int round = 0; round < c.rounds; ++round) {
            for (const char* threads : {"", ",numthreads(2)", ",numthreads(8)"})
                ASSERT_TRUE(bytesAfter(c.in, c.format, c.parameters + threads) == alone) << threads;
        }
    }
}

TEST(WrittenFiles, TakeAsManyThreadsAsProcessorsUnlessTold) {
    const std::string processors = std::to_string(std::thread::hardware_concurrency());
    for (const auto& [given, expected] : {std::pair<std::string, std::string>{"", ""},
                                          {"opt(1)", "opt(1),numthreads(" + processors + ")"},
                                          {"NumThreads(1),opt(1)", "NumThreads(1),opt(1)"}})
        EXPECT_EQ(morva::host::withThreads(given), expected);
}

TEST(WrittenFiles, ReadBackWithTheCountsOfTheReport) {
    const temporary_folder folder;
    const std::string report = folder.file("report.json");
    for (const std::string& file : {roads::engine, roads::house, roads::truck}) {
        for (const char* format : {"glb", "gltf", "osb"}) {
            SCOPED_TRACE(file + " to " + format);
            const std::string out = folder.file(std::string("model.") + format);
            ASSERT_EQ(optimize(file, out, "--report '" + report + "'"), 0);
            const auto after = nlohmann::json::parse(bytesOf(report)).at("after");
            const morva::host::model read = morva::host::readModel(out);
            const auto counted = morva::host::measureScene(read.root);
            EXPECT_EQ(counted.triangles, after.at("triangles").get<std::uint64_t>());
            EXPECT_EQ(counted.lines, after.at("lines").get<std::uint64_t>());
            EXPECT_EQ(counted.draw_calls, after.at("draw_calls").get<std::uint64_t>());
            EXPECT_EQ(counted.vertices, after.at("vertices").get<std::uint64_t>());
            EXPECT_EQ(counted.faulty_cores, 0U);
        }
    }
}

TEST(WrittenFiles, NameEveryPartInTheIdMap) {
    const temporary_folder folder;
    ASSERT_EQ(runMorva(wordsOf("optimize " + roads::house +
                                   " -q -o @h.glb --report @r.json -p "
                                   "maxtris(500),alphageometry(true),idmap(@m)",
                               folder))
                  .code,
              0);
    const nlohmann::json map = nlohmann::json::parse(bytesOf(folder.file("m.json")));
    const nlohmann::json report = nlohmann::json::parse(bytesOf(folder.file("r.json")));
    const morva::host::model out = morva::host::readModel(folder.file("h.glb"));

    const std::vector<std::string> names = namesOf(geometryNodes(out.root));
    const std::set<std::string> written(names.begin(), names.end());
    std::map<std::string, const nlohmann::json*> blocks;
    for (const nlohmann::json& block : map["mapping"])
        blocks[block["name"]] = &block;

    const morva::host::model source = morva::host::readModel(roads::house);
    const auto parts = morva::host::namedParts(source.root, true);
    ASSERT_GT(parts.size(), 200U);
    ASSERT_EQ(blocks.size(), parts.size());
    EXPECT_EQ(map["numberOfIDs"], parts.size());
    std::set<std::string> used;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        SCOPED_TRACE(parts[i].name);
        ASSERT_EQ(blocks.count(parts[i].name), 1U);
        const nlohmann::json& block = *blocks[parts[i].name];
        EXPECT_FALSE(block["usage"].empty());
        for (const nlohmann::json& core : block["usage"]) {
            EXPECT_EQ(written.count(core), 1U) << core;
            used.insert(core);
        }
        const nlohmann::json& part = report["parts"][i];
        EXPECT_EQ(part["name"], parts[i].name);
        EXPECT_EQ(part["original_name"], parts[i].original_name);
        EXPECT_EQ(part["cores"], block["usage"]);
        EXPECT_EQ(part["triangles_out"].get<int>(),
                  part["triangles"].get<int>() - part["degenerate"].get<int>());
    }
    EXPECT_EQ(used, written) << "no core without a part";
}

} // namespace
