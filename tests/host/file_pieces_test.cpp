// The parts that keep files whole, one by one.

#include <regex>

#include <gtest/gtest.h>

#include <morva/idmap/morva_osg_idmaphandler.h>

#include "file_moves.h"
#include "file_references.h"
#include "host_error.h"
#include "id_map_file.h"
#include "run_marker.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

using morva::host::runMarker;

TEST(RunMarker, TellsEndedRunsOfThisMachine) {
    const struct {
        const char *change, *to; ///< of our own mark; the first is a pattern
        bool ended;
    } rows[] = {{"", "", false}, // ours
                {"start .*", "start 1", true},
                {"process .*", "process 999999999", true},
                {"boot .*", "boot 00000000-0000-0000-0000-000000000000", true},
                {"host (.*)", "host $1-2", false},
                {"host .*\nboot .*", "host elsewhere\nboot 0", false},
                {"space .*\nprocess .*", "space pid:[1]\nprocess 999999999", false},
                {"boot .*", "boot ", false},
                {"process .*", "process 99999999999999999999", false},
                {"process .*", "process -1", false},
                {"process .*(\n.*)*", "process 999999999\nstart 1", false}, // being written
                {"morva run", "morva", false},
                {"space .*\n", "", false}};
    for (const auto& row : rows) {
        const std::string mark =
            std::regex_replace(runMarker(), std::regex(row.change, std::regex::multiline), row.to,
                               std::regex_constants::format_first_only);
        EXPECT_EQ(morva::host::isOfEndedRun(mark), row.ended) << mark;
    }
}

TEST(RunMarker, SweepsNothingButFoldersOfEndedRuns) {
    const temporary_folder folder;
    const std::regex start("start .*"), name_start("(.morva-[0-9]+)-[0-9]+-");
    const std::string ended = std::regex_replace(runMarker(), start, "start 1"),
                      ours = morva::host::runFolderName(),
                      unmarked = std::regex_replace(ours, name_start, "$1-1-");
    const std::tuple<std::string, std::string, bool> rows[] = {
        {".morva-ended", ended, false}, {".morva-ours", runMarker(), true},
        {".morva-other", "x", true},    {"m", ended, true},
        {unmarked, "", false},          {ours, "", true},
        {unmarked + "x", "", true},     {unmarked.substr(0, 40) + "YYYYYY", "", true},
        {".morva-empty", "", true},     {".morva-1-1--XXXXXX", "", true}};
    for (const auto& [name, text, stays] : rows) {
        std::filesystem::create_directory(folder.file(name));
        writeBytes(folder.file(name) + "/run", text);
    }
    std::filesystem::create_directory_symlink("m", folder.file(".morva-link"));
    morva::host::sweepEndedRuns(folder.path());
    for (const auto& [name, text, stays] : rows)
        EXPECT_EQ(std::filesystem::exists(folder.file(name)), stays) << name;
    EXPECT_TRUE(std::filesystem::exists(folder.file("m/run")));
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
        for (const std::size_t before : {0, 5, (1 << 20) - 20, (1 << 20) - 5, (1 << 20) - 1}) {
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

TEST(IdMap, ThatLostItsTreeOrItsEndIsFaulty) {
    const temporary_folder folder;
    const std::string node = "\t\"render\":\"true\",\n", start = "{\n\"tree\":\n{\n",
                      end = "}\n}\n\n";
    const std::pair<std::string, const char*> rows[] = {
        {start + node + node + end, ""},
        {start + node + end, "the tree in it is not whole"},
        {start + end, "the tree in it is not whole"},
        {node + node + start + end, "the tree in it is not whole"},
        {start + node + node + "}\n}\n", "the file is cut short"},
        {"", "the file is cut short"}};
    for (const auto& [text, fault] : rows) {
        writeBytes(folder.file("m.json"), text);
        EXPECT_EQ(morva::host::faultOfIdMap(folder.file("m.json"), 2), fault) << text;
    }
    writeBytes(folder.file("m.json"), rows[0].first);
    std::stringstream& tree = morva::osg::getIDmapHandler().tree;
    tree.setstate(std::ios::badbit); // what a stream without memory says
    EXPECT_EQ(morva::host::faultOfIdMap(folder.file("m.json"), 2), rows[1].second);
    tree.clear();
}

} // namespace
} // namespace morva_test
