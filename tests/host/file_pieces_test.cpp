// The parts that keep files whole, one by one.

#include <regex>

#include "file_moves.h"
#include "file_references.h"
#include "host_error.h"
#include "run_marker.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::runMarker;

TEST(RunMarker, SweepsNothingButFoldersOfEndedRuns) {
    const std::string ours = morva::host::runFolderName(),
                      other = std::regex_replace(ours, std::regex("-[0-9]+-[0-9]+-"), "-1-1-"),
                      gone = "process 999999999";
    const char* const all = "(.|\n)*";
    const struct {
        std::string name;    ///< of the folder
        const char* pattern; ///< in our own mark
        std::string change;  ///< what takes the pattern's place
        bool stays;
    } rows[] = {{".morva-a", "^", "", true}, // ours
                {".morva-b", "start .*", "start 1", false},
                {".morva-c", "process .*", gone, false},
                {".morva-d", "boot .*", "boot 0-0", false},
                {".morva-e", "host (.*)", "host $1-2", true},
                {".morva-f", "host .*\nboot .*", "host elsewhere\nboot 0", true},
                {".morva-g", "space .*\nprocess .*", "space pid:[1]\n" + gone, true},
                {".morva-h", "boot .*", "boot ", true},
                {".morva-i", "process .*", "process 99999999999999999999", true},
                {".morva-j", "process .*", "process -1", true},
                {".morva-k", "process .*\n.*\n", gone + "\nstart 1", true}, // being written
                {".morva-l", "morva run", "morva", true},
                {".morva-m", "space .*\n", "", true},
                {"n", "start .*", "start 1", true},
                {ours, all, "", true},
                {other, all, "", false},
                {other + "x", all, "", true},
                {".morva-1-1--XXXXXX", all, "", true}};
    const temporary_folder folder;
    for (const auto& row : rows) {
        std::filesystem::create_directory(folder.file(row.name));
        writeBytes(folder.file(row.name) + "/run",
                   std::regex_replace(runMarker(), std::regex(row.pattern), row.change,
                                      std::regex_constants::format_first_only));
    }
    std::filesystem::create_directory_symlink("n", folder.file(".morva-link"));
    morva::host::sweepEndedRuns(folder.path());
    for (const auto& row : rows)
        EXPECT_EQ(std::filesystem::exists(folder.file(row.name + "/run")), row.stays) << row.name;
}

TEST(MoveAll, UndoesWhatItDidWhereAMoveFails) {
    const temporary_folder folder;
    for (const char* name : {"a", "b", "old a", "old d"})
        writeBytes(folder.file(name), name);
    const auto move = [&](const char* from, const char* to) {
        return morva::host::file_move{folder.file(from), folder.file(to),
                                      folder.file(std::string(to) + " kept")};
    };
    EXPECT_THROW(morva::host::moveAll({move("a", "old a"), move("b", "c"), move("none", "old d")}),
                 morva::host::host_error);
    EXPECT_EQ(bytesOf(folder.file("old a")) + bytesOf(folder.file("old d")), "old aold d");
    EXPECT_FALSE(std::filesystem::exists(folder.file("c")));
}

TEST(ReferredFiles, AreNamedAsAWholeAndThroughOthers) {
    const std::pair<std::string, bool> rows[] = {
        {"mtllib a b.mtl\n", true},   {"\"uri\": \"sub/a%20b.mtl\"", true}, {"a b.mtl", true},
        {"mtllib xa b.mtl\n", false}, {"mtllib a b.mtl2\n", false},         {"", false}};
    const temporary_folder folder;
    for (const auto& [text, found] : rows) {
        for (const std::size_t before : {0, 5, (1 << 20) - 21, (1 << 20) - 14, (1 << 20) - 1}) {
            const std::string padding = std::string(before, ' ');
            writeBytes(folder.file("m.obj"), padding + text);
            EXPECT_EQ(morva::host::referredFiles(folder.file("m.obj"), {"a b.mtl"}).size(), found)
                << before << text;
        }
    }
    writeBytes(folder.file("m.obj"), "mtllib m.mtl");
    writeBytes(folder.file("m.mtl"), "map_Kd m_1.png");
    EXPECT_EQ(morva::host::referredFiles(folder.file("m.obj"), {"m.mtl", "m_1.png", "m_2.png"}),
              (std::set<std::string>{"m.mtl", "m_1.png"}));
}

} // namespace
} // namespace morva_test
