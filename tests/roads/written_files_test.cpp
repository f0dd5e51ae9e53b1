// The command on real models: the same bytes in every run, and files that read back as told.

#include <nlohmann/json.hpp>

#include "../../host/statistics.h"
#include "models.h"
#include "tests/host/host_files.h"

namespace {

int optimize(const std::string& in, const std::string& out, const std::string& more = "") {
    const std::string command = std::string("'") + MORVA_COMMAND + "' optimize '" + in + "' -o '" +
                                out + "' --quiet " + more;
    return std::system(command.c_str());
}

TEST(WrittenFiles, AreTheSameBytesOverTenRuns) {
    const temporary_folder folder;
    std::string first;
    for (int run = 0; run < 10; ++run) {
        const std::string out = folder.file(std::to_string(run) + ".glb");
        ASSERT_EQ(optimize(roads::engine, out), 0);
        const std::string bytes = bytesOf(out);
        ASSERT_GT(bytes.size(), 100000U);
        if (run == 0)
            first = bytes;
        ASSERT_TRUE(bytes == first) << "run " << run;
    }
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

} // namespace
