// The command on real models: the same bytes in every run, and files that read back as told.

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "../../host/statistics.h"
#include "models.h"

namespace {

namespace fs = std::filesystem;

/// A folder of its own that goes with the test.
class WrittenFiles : public testing::Test {
  protected:
    void SetUp() override {
        std::string pattern = (fs::temp_directory_path() / "morva-roads-XXXXXX").string();
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        folder = pattern;
    }
    void TearDown() override { fs::remove_all(folder); }

    int optimize(const std::string& in, const fs::path& out, const std::string& more = "") {
        const std::string command = std::string("'") + MORVA_COMMAND + "' optimize '" + in +
                                    "' -o '" + out.string() + "' --quiet " + more;
        return std::system(command.c_str());
    }
    static std::string bytesOf(const fs::path& file) {
        std::ifstream in(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    fs::path folder;
};

TEST_F(WrittenFiles, AreTheSameBytesOverTenRuns) {
    std::string first;
    for (int run = 0; run < 10; ++run) {
        const fs::path out = folder / (std::to_string(run) + ".glb");
        ASSERT_EQ(optimize(roads::engine, out), 0);
        const std::string bytes = bytesOf(out);
        ASSERT_GT(bytes.size(), 100000U);
        if (run == 0)
            first = bytes;
        ASSERT_TRUE(bytes == first) << "run " << run;
    }
}

TEST_F(WrittenFiles, ReadBackWithTheCountsOfTheReport) {
    for (const std::string& file : {roads::engine, roads::house, roads::truck}) {
        for (const char* format : {"glb", "gltf", "osb"}) {
            SCOPED_TRACE(file + " to " + format);
            const fs::path out = folder / (std::string("model.") + format);
            const fs::path report = folder / "report.json";
            ASSERT_EQ(optimize(file, out, "--report '" + report.string() + "'"), 0);
            const auto after = nlohmann::json::parse(bytesOf(report)).at("after");
            const morva::host::model read = morva::host::readModel(out.string());
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
