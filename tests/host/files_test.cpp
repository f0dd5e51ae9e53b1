// What command lines leave on the disk, whatever happens.

#include <chrono>
#include <regex>

#include <sys/stat.h>
#include <sys/wait.h>

#include "host_error.h"
#include "output_set.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

namespace fs = std::filesystem;

/// Everything in a folder: bytes of files, targets of links. "*" stands behind the names of files
/// that all may read and none but the owner change, and the group not even read.
using snapshot = std::map<std::string, std::string>;

snapshot snapshotOf(const std::string& folder) {
    snapshot all;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        if (entry.is_symlink())
            all[name] = fs::read_symlink(entry.path()).string();
        else if (entry.is_regular_file())
            all[name + (entry.status().permissions() == fs::perms(0604) ? "*" : "")] =
                bytesOf(entry.path());
        else
            all[name] = "";
    }
    return all;
}

/// "!other +new -gone", sorted, prints of contents as "#".
std::string changes(const snapshot& before, const snapshot& after) {
    std::set<std::string> found;
    for (const auto& [name, bytes] : before)
        if (after.count(name) == 0 || after.at(name) != bytes)
            found.insert((after.count(name) == 0 ? " -" : " !") + name);
    for (const auto& [name, bytes] : after)
        if (before.count(name) == 0)
            found.insert(" +" + name);
    std::string text;
    for (const std::string& one : found)
        text += one;
    return std::regex_replace(text.substr(text.empty() ? 0 : 1), std::regex("\\.[0-9a-f]{16}\\."),
                              ".#.");
}

::osg::NodePtr texturedScene() {
    std::mt19937 rng(seedOf(3));
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 4, 4);
    return group(
        {named("a", meshNode(withCoordinates(soup(rng, 40), rng), chunked({1, 1, 1, 1}, image))),
         named("b", meshNode(strip(8), simple({0, 0, 1})))});
}

/// One model in three formats, two of them in two copies and the first under three more names; and
/// inputs that are none.
void fill(const temporary_folder& folder) {
    for (const char* name : {"in.glb", "in.gltf", "in.obj"})
        modelFile(folder.file(name), texturedScene());
    fs::permissions(folder.file("in.glb"), fs::perms(0604));
    fs::copy_file(folder.file("in.gltf"), folder.file("twin.gltf"));
    fs::copy_file(folder.file("in.obj"), folder.file("twin.obj"));
    fs::create_hard_link(folder.file("in.glb"), folder.file("hard.glb"));
    for (const std::string& name : folder.entries())
        if (fs::path(name).extension() == ".bin")
            fs::create_symlink(name, folder.file("buffer"));
    for (const auto& [to, name] :
         {std::pair("in.glb", "link.glb"), std::pair("sub/n", "away.gltf"),
          std::pair("circle.glb", "circle.glb"), std::pair("sub/a(,b)/m", "odd.json")})
        fs::create_symlink(to, folder.file(name));
    fs::create_directories(folder.file("sub/folder.glb"));
    fs::create_directory(folder.file("sub/a(,b)"));
    modelFile(folder.file("own.gltf"), texturedScene()); // whose buffer another folder's reads, too
    writeBytes(folder.file("sub/up.gltf"), std::regex_replace(bytesOf(folder.file("own.gltf")),
                                                              std::regex("own\\."), "../own."));
    mkfifo(folder.file("pipe").c_str(), 0600);

    const std::string whole = bytesOf(folder.file("in.glb"));
    mesh_data endless = quads(2);
    for (::osg::Pnt3f& position : endless.positions)
        position[1] = std::numeric_limits<float>::infinity();
    modelFile(folder.file("endless.osb"), group({meshNode(endless)}));
    mesh_data tiles = quads(1);
    tiles.coordinates = {{0, 0}, {40, 0}, {40, 40}, {0, 40}};
    modelFile(
        folder.file("tiles.osb"),
        group({meshNode(tiles, chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, 4, 4)))}));
    const auto seen = [](int side) {
        mesh_data mesh = quads(1);
        mesh.coordinates = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
        return meshNode(mesh, chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGB_PF, side, side)));
    };
    modelFile(folder.file("pair.osb"), group({seen(4), seen(8)}));
    modelFile(folder.file("nameless.osb"),
              group({meshNode(quads(3)), named("z", meshNode(quads(1)))}));
    modelFile(folder.file("cloud.osb"), group({meshNode(row(5, 0))}));
    const std::pair<const char*, std::string> texts[] = {
        {"cloud.ply", "ply\nformat ascii 1.0\nelement vertex 2\nproperty float x\n"
                      "property float y\nproperty float z\nend_header\n0 0 0\n1 2 3\n"},
        {"faces.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\n"
                      "property float y\nproperty float z\nelement face 1\n"
                      "property list uchar int vertex_indices\nend_header\n"
                      "0 0 0\n1 0 0\n0 1 0\n4 0 1 2 999999999\n"},
        {"x.mtl", "someone's"},
        {"empty.glb", ""},
        {"half.glb", whole.substr(0, whole.size() / 2)},
        {"rubbish.osb", "hello"},
        {"unknown.xyz", "hello"},
        {"bare.gltf", R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],)"
                      R"("nodes":[{"name":"empty"}]})"}};
    for (const auto& [name, text] : texts)
        writeBytes(folder.file(name), text);
}

struct file_case {
    const char* commands; ///< the last one counts; "@" is the folder
    int code;
    const char* message; ///< on the error stream, behind "morva: "
    const char* changes; ///< by the last command
};

const file_case file_cases[] = {
    // The input under any name.
    {"optimize @in.glb -o @in.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @./sub/../in.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @link.glb", 2, "--overwrite", ""},
    {"optimize @link.glb -o @hard.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @in.glb --overwrite", 0, "", "!in.glb*"},
    {"optimize @in.glb -o @link.glb --overwrite", 0, "", "!in.glb*"},
    {"optimize @in.glb -o @o.glb --overwrite --report @hard.glb", 2, "is the input", ""},
    {"info @in.glb --report @link.glb", 2, "is the input", ""},
    // What the reader opened for it.
    {"info @in.gltf --report @buffer", 1, "the input refers to it", ""},
    {"info @in.obj --report @sub/../in.mtl", 1, "the input refers to it", ""},
    {"optimize @in.obj -o @o.glb --overwrite --report @in_1.png", 1, "the input refers to it", ""},
    {"optimize @twin.obj -o @in.obj --overwrite -p mostusedmaterial(true)", 1,
     "the input refers to it", ""},
    // Two outputs.
    {"optimize @in.glb -o @o.glb --report @sub/../o.glb", 2, "cannot be one file", ""},
    {"optimize @in.glb -o @o.glb --report @o.json -p idmap(@./o)", 2, "cannot be one file", ""},
    {"optimize @in.glb -o @away.gltf --report @sub/n", 2, "cannot be one file", ""},
    {"optimize @in.glb -o @o.obj --report @o.mtl", 1, "goes there", ""},
    // Files that belong to an output.
    {"optimize @in.glb -o @x.obj", 1, "--overwrite", ""},
    {"optimize @in.glb -o @x.obj --overwrite", 0, "", "!x.mtl +x.obj +x_1.png"},
    {"optimize @in.glb -o @o.obj; optimize @in.glb -o @o.obj -p mostusedmaterial(true)", 0, "",
     "!o.mtl !o.obj"},
    {"optimize @in.glb -o @o.gltf", 0, "", "+o.#.bin +o.gltf"},
    {"optimize @in.glb -o @away.gltf; optimize @in.glb -o @sub/away.gltf", 0, "",
     "+sub/away.gltf"}, // the buffer is there
    {"optimize @in.glb -o @o.gltf; optimize @in.glb -o @o.gltf -p maxtris(9)", 0, "",
     "!o.gltf +o.#.bin -o.#.bin"},
    {"optimize @in.gltf -o @in.gltf --overwrite -p maxtris(9)", 0, "", "!in.gltf +in.#.bin"},
    {"optimize @sub/up.gltf -o @own.gltf --overwrite -p maxtris(9)", 0, "", "!own.gltf +own.#.bin"},
    // Links, places that are no files, and no map.
    {"optimize @in.glb -o @away.gltf", 0, "", "+sub/away.#.bin +sub/n"},
    {"optimize @in.glb -o @circle.glb", 1, "circle", ""},
    {"info @in.glb --report @pipe", 1, "no plain file", ""},
    {"info @in.glb --report /proc/report", 1, "cannot write in the folder", ""},
    {"optimize @in.glb -o @o.glb -p idmap(@m)", 0, "no ID map file is written", "+o.glb"},
    {"optimize @in.glb -o @o.glb -p maxtris(9),idmap(@odd)", 1, "parameters can't hold", ""},
    {"optimize @in.glb -o @o.glb -p ((,maxtris,)(,", 0, "'maxtris' is not of the form", "+o.glb"},
    {"optimize @in.glb -o @o.glb -p bananas(7)", 0, "'bananas(7)' has an unknown key", "+o.glb"},
    {"optimize @in.glb -o @o.glb -p opt(1),opt(2)", 0, "'opt(2)' repeats a key", "+o.glb"},
    {"optimize @in.glb -o @o.glb -p maxtris(9),idmap(@m) --report @r", 0, "", "+m.json +o.glb +r"},
    {"optimize @nameless.osb -o @o.glb --names keep -p maxtris(100),idmap(@m)", 0,
     "morva: note: 1 part has no name: where it is merged with named ones, the ID map lists it "
     "under the first named part, 'z'\n",
     "+m.json +o.glb"},
    // Pictures of atlases.
    {"optimize @pair.osb -o @o.glb -p maxtexturesize(64),maxtris(9) --contact-sheet @s.PNG", 0, "",
     "+o.glb +s.PNG"},
    {"optimize @in.glb -o @o.glb -p maxtexturesize(64),maxtris(9) --contact-sheet @s.png", 0,
     "no contact sheet is written", "+o.glb"},
    {"optimize @in.obj -o @o.glb -p maxtexturesize(64) --contact-sheet @in_1.png", 1,
     "the input refers to it", ""},
    {"optimize @pair.osb -o @o.obj -p maxtexturesize(64),maxtris(9) --contact-sheet @o_1.png", 1,
     "goes there", ""},
    {"optimize @pair.osb -o @o.glb -p maxtexturesize(64) --report @s.png --contact-sheet @./s.png",
     2, "cannot be one file", ""},
    {"optimize @pair.osb -o @o.glb -p maxtexturesize(64) --contact-sheet @s.jpg", 2,
     "does not end in .png", ""},
    {"optimize @pair.osb -o @o.glb -p maxtexturesize(0) --contact-sheet @s.png", 2,
     "--contact-sheet goes with the parameter maxtexturesize(SIDE)", ""},
    // Cells.
    {"divide @in.glb --cells @c --triangles 30", 0, "",
     "+c +c/cell_0000.glb +c/cell_0001.glb +c/cell_0002.glb +c/manifest.json"},
    {"divide @in.glb --cells @c --triangles 20; divide @in.glb --cells @c --triangles 100", 2,
     "is not empty: --overwrite", ""},
    {"divide @in.glb --cells @c --triangles 20 --format .obj; "
     "divide @in.glb --cells @c --triangles 30 --overwrite --format obj",
     0, "",
     "!c/cell_0001.mtl !c/cell_0001.obj !c/cell_0002.mtl !c/cell_0002.obj !c/manifest.json "
     "-c/cell_0002_1.png -c/cell_0003.mtl -c/cell_0003.obj"},
    {"divide @in.glb --cells @sub --overwrite --triangles 100", 0, "",
     "+sub/cell_0000.glb +sub/manifest.json"},
    {"divide @in.glb --cells @c --triangles 20; divide @c/cell_0002.glb --cells @c --overwrite "
     "--size 1000",
     0, "",
     "!c/cell_0000.glb !c/manifest.json -c/cell_0001.glb -c/cell_0003.glb"}, // not what was read
    {"divide @in.glb --cells @c --triangles 20; divide @c/cell_0000.glb --cells @c --overwrite "
     "--triangles 9",
     1, "the input refers to it", ""},
    {"divide @in.glb --plan --indices 60", 0, "", ""},
    {"divide @in.glb --cells @x.mtl --size 1", 1, "cannot make the folder", ""},
    {"divide @in.glb --cells @none/c --size 1", 1, "cannot make the folder", ""},
    {"divide @endless.osb --cells @c --size 1", 1, "nothing to divide", ""},
    {"divide @in.glb --cells @c --size 1e-6 --straddle cut", 1, "choose a larger limit", ""},
    {"divide @in.glb --cells @c", 2, "needs --triangles, --size or --indices", ""},
    {"divide @in.glb --size 1", 2, "needs --cells DIR, or --plan", ""},
    {"divide @in.glb --plan --size 1 --indices 9", 2, "excludes", ""},
    {"divide @in.glb --plan --triangles 0", 2, "at least 1", ""},
    {"divide @in.glb --plan --triangles 2.5", 2, "whole number", ""},
    {"divide @in.glb --plan --indices 2", 2, "at least 3", ""},
    {"divide @in.glb --plan --size -0", 2, "above 0", ""},
    {"divide @in.glb --plan --size nan", 2, "not finite", ""},
    {"divide @in.glb --cells @c --size 1 --format exe", 2, "known extensions", ""},
    // Command lines and inputs that are wrong.
    {" ", 2, "subcommand", ""},
    {"optimize @in.glb -o @o.glb --fast", 2, "--fast", ""},
    {"optimize @in.glb", 2, "--output", ""},
    {"optimize @in.glb -o @o.txt", 2, "known extensions", ""},
    {"optimize @in.glb -o @o.glb -q -v", 2, "exclude each other", ""},
    {"optimize @in.glb -o @o.glb -p idmap(@none/m)", 1, "there is no folder", ""},
    {"optimize @in.glb -o @none/o.glb", 1, "there is no folder", ""},
    {"optimize @in.glb -o @empty.glb/o.glb", 1, "is no folder", ""},
    {"optimize @in.glb -o @sub/folder.glb", 1, "is a folder", ""},
    {"optimize @none.glb -o @o.glb", 1, "no such file", ""},
    {"optimize @sub/folder.glb -o @o.glb", 1, "is a folder", ""},
    {"optimize @empty.glb -o @o.glb", 1, "is empty", ""},
    {"optimize @unknown.xyz -o @o.glb", 1, "cannot read", ""},
    {"optimize @rubbish.osb -o @o.glb", 1, "cannot read", ""},
    {"optimize @half.glb -o @o.glb", 1, "cannot read", ""},
    {"optimize @bare.gltf -o @o.glb", 1, "nothing to draw", ""},
    {"optimize @endless.osb -o @o.glb", 1, "nothing is left to draw", ""},
    {"optimize @cloud.osb -o @o.glb", 1, "points alone, 5 of them, and those are not merged", ""},
    {"optimize @cloud.osb -o @o.glb -p maxtris(0)", 0, "", "+o.glb"},
    {"optimize @cloud.osb -o @o.stl -p maxtris(0)", 1, "a .stl keeps none of them", ""},
    {"optimize @cloud.ply -o @o.glb", 1, "points alone, 2 of them, and no faces", ""},
    {"optimize @faces.ply -o @o.glb", 1, "uses vertex 999999999 of 3", ""},
    // Formats and limits.
    {"optimize @in.glb -o @o.fbx", 2, "--formats", ""},
    {"optimize @tiles.osb -o @o.glb", 1, "2 that went in (--max-growth)", ""},
    {"optimize @tiles.osb -o @o.glb --max-growth 2000", 0, "", "+o.glb"},
    {"optimize @in.glb -o @o.glb --max-growth 0.5", 2, "--max-growth", ""},
    {"info @in.glb --max-memory lots", 2, "a size from 64M on", ""},
    {"info @in.glb --max-memory 1M", 2, "a size from 64M on", ""}};

TEST(CommandLine, LeavesTheFilesThatItShould) {
    for (const file_case& row : file_cases) {
        SCOPED_TRACE(row.commands);
        const temporary_folder folder;
        fill(folder);
        command_result result;
        snapshot before;
        std::istringstream commands(row.commands);
        for (std::string one; std::getline(commands, one, ';');) {
            before = snapshotOf(folder.path());
            result = runMorva(wordsOf(one, folder));
        }
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
        EXPECT_EQ(result.err.find("morva: ") == std::string::npos, result.err.empty());
        EXPECT_EQ(result.out.empty(), row.code != 0);
        EXPECT_EQ(changes(before, snapshotOf(folder.path())), row.changes);
    }
}

/// Runs a command of the shell in a folder; "morva" is the one that was built.
int shell(const std::string& folder, const std::string& command) {
    const std::string name = "morva() { \"" MORVA_COMMAND "\" \"$@\"; }; ";
    const int status = std::system((name + "cd " + folder + " && " + command).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(FullDisk, LeavesAllOldFilesOrNone) {
    if (std::system("unshare -Urm true 2>/dev/null") != 0)
        GTEST_SKIP() << "no small disk can be made here";
    const temporary_folder folder;
    modelFile(folder.file("in.glb"), texturedScene());
    std::filesystem::create_directory(folder.file("d(,k")); // as no value of a parameter may be
    // "old.old.old." is all that a failed run may leave.
    writeBytes(folder.file("replace.sh"),
               "mount -t tmpfs -o size=$1k none 'd(,k'; cd 'd(,k'\n"
               "for f in $2; do echo old >$f || exit 3; done\n" MORVA_COMMAND
               " $3 ../in.glb -q 2>../err && exit 0\n"
               "grep -q 'cannot write' ../err && "
               "test $(cat $(ls -A) | tr '\\n' .) = old.old.old. && exit 1\n");
    std::map<std::string, std::string> commands = {{"divide --cells . --overwrite --triangles 9",
                                                    "cell_0000.glb cell_0004.glb manifest.json"}};
    for (const std::string name : {"o.glb", "o.gltf", "o.obj", "o.ply", "o.osb"})
        commands["optimize --report r.json -p maxtris(9),idmap(m) -o " + name] =
            "m.json r.json " + name;
    for (const auto& [command, names] : commands) {
        std::map<int, int> codes;
        for (int size = 16; codes[0] == 0 && size < 200; size += 4) // KiB
            ++codes[shell(folder.path(), "unshare -Urm sh replace.sh " + std::to_string(size) +
                                             " '" + names + "' '" + command + "'")];
        EXPECT_EQ(codes[0], 1) << command;
        EXPECT_GT(codes[1], 3) << command;
        EXPECT_EQ(codes.size(), 2U) << command;
    }
}

TEST(StandardOutput, ThatTakesNothingIsAFailureThatLeavesNothing) {
    const temporary_folder folder;
    modelFile(folder.file("in.glb"), texturedScene());
    for (const char* command :
         {"morva --help >/dev/full", "morva info in.glb >/dev/full", "morva info in.glb >&-",
          "morva optimize in.glb -o o.glb >/dev/full",
          "morva optimize in.glb -o o.glb -v --report r.json >/dev/full",
          "morva divide in.glb --cells c --triangles 9 >/dev/full"})
        EXPECT_EQ(shell(folder.path(), command + std::string(" 2>/dev/null")), 1) << command;
    EXPECT_EQ(folder.entries(), std::vector<std::string>{"in.glb"});
}

TEST(Progress, IsShownOnATerminalWhereverTheLinesGo) {
    const temporary_folder folder;
    modelFile(folder.file("in.glb"), texturedScene());
    EXPECT_EQ(shell(folder.path(), // a lock that is taken twice would wait for ever
                    "timeout 60 script -qec \"" MORVA_COMMAND " optimize in.glb -v -o o.glb -p "
                    "'cacheopt(true),maxtris(10),numthreads(1)' >out\" log </dev/null >/dev/null"),
              0);
    EXPECT_NE(bytesOf(folder.file("log")).find("\r\033[Koptimise ... 0% "), std::string::npos);
    EXPECT_EQ(bytesOf(folder.file("out")).find('\r'), std::string::npos);
}

TEST(Signal, AtAnyMomentLeavesAWholeModelAndNoFolder) {
    const temporary_folder old;
    std::mt19937 rng(seedOf(50));
    modelFile(old.file("in.glb"), group({meshNode(soup(rng, 3000))}));
    const std::string optimise = MORVA_COMMAND " optimize in.glb -q -o o.gltf -p maxtris";
    ASSERT_EQ(shell(old.path(), optimise + "'(5000)'"), 0);
    const std::pair<const char*, int> signals[] = {
        {"INT", 130}, {"TERM", 143}, {"HUP", 129}, {"PIPE", 141}, {"KILL", 137}};
    double whole = 60; // seconds that the quickest run took; the first one is not stopped
    std::uniform_real_distribution<double> moment(0.0, 1.0);
    const snapshot before = snapshotOf(old.path());
    snapshot done;
    int stopped = 0;
    for (int round = 0; round < roundsOf(51); ++round) {
        const temporary_folder folder;
        fs::copy(old.path(), folder.path());
        const auto& [name, ended] = signals[round % 5];
        const double after = round == 0 ? whole : whole * moment(rng);
        SCOPED_TRACE(testing::Message() << name << " after " << after);
        const auto start = std::chrono::steady_clock::now();
        // In the foreground it outlives what it kills: nothing of that runs on.
        std::string timed = "timeout --foreground --preserve-status -s ";
        timed.append(name).append(" ").append(std::to_string(after)).append(" ").append(optimise);
        const int code = shell(folder.path(), timed + "'(500)'");
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        snapshot now = snapshotOf(folder.path());
        EXPECT_TRUE(code == 0 || code == ended) << code;
        stopped += code == ended ? 1 : 0;
        if (code == 0)
            whole = std::min(whole, taken.count());
        if (round == 0)
            done = now;
        const auto holds = [&](const snapshot& all) {
            return std::includes(now.begin(), now.end(), all.begin(), all.end());
        };
        if (code == 137) { // what a process that is killed leaves goes with the next run
            EXPECT_TRUE(holds(before) || holds(done)) << changes(before, now);
            EXPECT_EQ(shell(folder.path(), optimise + "'(500)'"), 0);
            now = snapshotOf(folder.path());
            const std::string more = changes(done, now);
            EXPECT_TRUE(more.empty() || more == "+o.#.bin") << more;
        } else
            EXPECT_TRUE(now == done || (now == before && code != 0)) << changes(before, now);
    }
    EXPECT_GT(stopped, 10);
    EXPECT_NE(changes(before, done), "");
}

TEST(Signal, AtAnyMomentLeavesAllCellsOrNoFolder) {
    const temporary_folder folder;
    std::mt19937 rng(seedOf(51));
    modelFile(folder.file("in.glb"), group({meshNode(soup(rng, 3000))}));
    int stopped = 0;
    for (int round = 0; round < roundsOf(30); ++round) {
        const std::string after = std::to_string(0.002 * (1 + round));
        const int code = shell(folder.path(),
                               "timeout --foreground --preserve-status -s TERM " + after +
                                   " " MORVA_COMMAND " divide in.glb -q --cells c --triangles 40");
        SCOPED_TRACE(after);
        EXPECT_TRUE(code == 0 || code == 143) << code;
        stopped += code == 143 ? 1 : 0;
        EXPECT_EQ(fs::exists(folder.file("c")), fs::exists(folder.file("c/manifest.json")));
        EXPECT_TRUE(code != 0 || fs::exists(folder.file("c")));
        fs::remove_all(folder.file("c"));
        EXPECT_EQ(folder.entries(), std::vector<std::string>{"in.glb"});
    }
    EXPECT_GT(stopped, 2);
}

TEST(OutputSet, WritesTheReportAloneWhereTheModelIsDropped) {
    const temporary_folder folder;
    writeBytes(folder.file("o.glb"), "old");
    morva::host::output_set outputs(folder.file("in.glb"), false);
    const auto& model = outputs.addModel(folder.file("o.glb"));
    const auto& report = outputs.add(folder.file("r.json"));
    writeBytes(model.path(), "new");
    writeBytes(report.path(), "new");
    outputs.drop(model);
    outputs.commit();
    EXPECT_EQ(bytesOf(folder.file("o.glb")) + bytesOf(folder.file("r.json")), "oldnew");
}

} // namespace
} // namespace morva_test
