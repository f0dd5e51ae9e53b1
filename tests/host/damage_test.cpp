#include "tests/support/test.h"

#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>

#include "tests/host/host_files.h"

namespace morva_test {
namespace {

/// Runs `work` in a process of its own; its exit code, or -1 if a signal ended it or it took
/// longer.
template <typename Work> int inChild(unsigned seconds, Work work) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(seconds);
        // What the importer prints about damage is not looked at.
        if (std::freopen("/dev/null", "w", stderr) == nullptr)
            _exit(98);
        _exit(work());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The import library alone, as the host calls it.
int importAlone(const std::string& path) {
    try {
        Assimp::Importer importer;
        if (importer.ReadFile(path, 0) != nullptr)
            importer.ApplyPostProcessing(aiProcess_Triangulate);
    } catch (const std::exception&) {
    }
    return 0;
}

/// Flips `flips` random bits of a file.
std::string damaged(std::string bytes, std::mt19937& rng, int flips) {
    std::uniform_int_distribution<std::size_t> place(0, bytes.size() - 1);
    std::uniform_int_distribution<int> bit(0, 7);
    for (int i = 0; i < flips; ++i) {
        char& byte = bytes[place(rng)];
        byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1u << bit(rng)));
    }
    return bytes;
}

/// A model's file, and how many damaged copies of it are tried.
using flip_case = std::pair<const char*, unsigned>;

class ByteFlips : public testing::TestWithParam<flip_case> {};

TEST_P(ByteFlips, CrashNothingOfOurs) {
    const auto& [file, seeds] = GetParam();
    const std::filesystem::path source = std::filesystem::path(MORVA_MODELS) / file;
    const std::string whole = bytesOf(source.string());
    ASSERT_FALSE(whole.empty());
    const temporary_folder folder;
    const std::string input = folder.file(source.filename().string()),
                      output = folder.file("out.glb");
    unsigned survived = 0, optimised = 0;
    for (unsigned seed = 0; seed < seeds; ++seed) {
        std::mt19937 rng(seed);
        writeBytes(input, damaged(whole, rng, 1 + static_cast<int>(seed % 8)));
        std::filesystem::remove(output);
        // A file that brings the import library itself down shows nothing about the host.
        if (inChild(2, [&] { return importAlone(input); }) != 0)
            continue;
        ++survived;
        const int code = inChild(60, [&] {
            return runMorva({"optimize", input, "-o", output, "-q"}).code;
        });
        EXPECT_TRUE(code == 0 || code == 1) << "seed " << seed << " gave " << code;
        EXPECT_EQ(std::filesystem::exists(output), code == 0) << "seed " << seed;
        optimised += code == 0 ? 1 : 0;
    }
    EXPECT_GT(survived, seeds / 2);
    EXPECT_GT(optimised, 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , ByteFlips,
    testing::Values(flip_case{"glTF2/BoxTextured-glTF-Binary/BoxTextured.glb", 250},
                    flip_case{"glTF2/BoxTextured-glTF-Embedded/BoxTextured.gltf", 50},
                    flip_case{"OBJ/box.obj", 50}, flip_case{"PLY/cube.ply", 50},
                    flip_case{"STL/Spider_binary.stl", 20},
                    flip_case{MORVA_SCENES "/geometry/osb-11-937.osb", 100},
                    flip_case{MORVA_SCENES "/osb/multi-index.osb", 50}));

} // namespace
} // namespace morva_test
