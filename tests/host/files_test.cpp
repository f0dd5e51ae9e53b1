// What command lines leave on the disk, whatever happens.

#include <csignal>
#include <regex>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host_error.h"
#include "output_set.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

namespace fs = std::filesystem;

/// Everything in a folder: permissions and bytes of files, targets of links.
using snapshot = std::map<std::string, std::pair<int, std::string>>;

snapshot snapshotOf(const std::string& folder) {
    snapshot all;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
        const std::string name = entry.path().lexically_relative(folder).string();
        if (entry.is_symlink())
            all[name] = {0, fs::read_symlink(entry.path()).string()};
        else if (entry.is_regular_file())
            all[name] = {static_cast<int>(entry.status().permissions()), bytesOf(entry.path())};
        else
            all[name] = {0, ""};
    }
    return all;
}

/// "+new -gone !other_bytes %other_permissions", sorted, prints of contents as "#".
std::string changes(const snapshot& before, const snapshot& after) {
    std::multiset<std::string> found;
    for (const auto& [name, file] : before) {
        const auto now = after.find(name);
        if (now == after.end())
            found.insert("-" + name);
        else if (now->second.second != file.second)
            found.insert("!" + name);
        if (now != after.end() && now->second.first != file.first)
            found.insert("%" + name);
    }
    for (const auto& [name, file] : after)
        if (before.count(name) == 0)
            found.insert("+" + name);
    std::string text;
    for (const std::string& one : found)
        text += (text.empty() ? "" : " ") + one;
    return std::regex_replace(text, std::regex("\\.[0-9a-f]{16}\\."), ".#.");
}

::osg::NodePtr texturedScene() {
    std::mt19937 rng(3);
    const ::osg::ImagePtr image = imageOf(::osg::Image::OSG_RGB_PF, 4, 4);
    return group(
        {named("a", meshNode(withCoordinates(soup(rng, 40), rng), chunked({1, 1, 1, 1}, image))),
         named("b", meshNode(strip(8), simple({0, 0, 1})))});
}

/// One model as .glb, .gltf and .obj, the second in two copies; the first under three more names.
void fill(const temporary_folder& folder) {
    for (const char* name : {"in.glb", "in.gltf", "in.obj"})
        modelFile(folder.file(name), texturedScene());
    fs::permissions(folder.file("in.glb"), fs::perms(0604));
    fs::copy_file(folder.file("in.gltf"), folder.file("twin.gltf"));
    fs::copy_file(folder.file("in.obj"), folder.file("twin.obj"));
    fs::create_hard_link(folder.file("in.glb"), folder.file("hard.glb"));
    fs::create_symlink("in.glb", folder.file("link.glb"));
    for (const std::string& name : folder.entries())
        if (fs::path(name).extension() == ".bin")
            fs::create_symlink(name, folder.file("buffer"));
    fs::create_directory(folder.file("sub"));
    fs::create_symlink("sub/new.gltf", folder.file("away.gltf"));
    fs::create_symlink("circle.glb", folder.file("circle.glb"));
    writeBytes(folder.file("x.mtl"), "someone's");
}

struct file_case {
    const char* commands; ///< the last one counts; "@" is the folder
    int code;
    const char* message;
    const char* changes; ///< by the last command
};

const file_case file_cases[] = {
    // The input under any name.
    {"optimize @in.glb -o @in.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @./sub/../in.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @link.glb", 2, "--overwrite", ""},
    {"optimize @link.glb -o @hard.glb", 2, "--overwrite", ""},
    {"optimize @in.glb -o @in.glb --overwrite", 0, "", "!in.glb"},
    {"optimize @in.glb -o @link.glb --overwrite", 0, "", "!in.glb"},
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
    {"optimize @in.glb -o @away.gltf --report @sub/new.gltf", 2, "cannot be one file", ""},
    {"optimize @in.glb -o @o.obj --report @o.mtl", 1, "goes there", ""},
    // Files that belong to an output.
    {"optimize @in.glb -o @x.obj", 1, "--overwrite", ""},
    {"optimize @in.glb -o @x.obj --overwrite", 0, "", "!x.mtl +x.obj +x_1.png"},
    {"optimize @in.glb -o @o.obj; optimize @in.glb -o @o.obj -p mostusedmaterial(true)", 0, "",
     "!o.mtl !o.obj"},
    {"optimize @in.glb -o @o.gltf", 0, "", "+o.#.bin +o.gltf"},
    {"optimize @in.glb -o @o.gltf; optimize @in.glb -o @o.gltf", 0, "", "!o.gltf"}, // names
    {"optimize @in.glb -o @o.gltf; optimize @in.glb -o @o.gltf -p maxtris(9)", 0, "",
     "!o.gltf +o.#.bin -o.#.bin"},
    {"optimize @in.gltf -o @in.gltf --overwrite -p maxtris(9)", 0, "", "!in.gltf +in.#.bin"},
    // Links, places that are no files, and no map.
    {"optimize @in.glb -o @away.gltf", 0, "", "+sub/away.#.bin +sub/new.gltf"},
    {"optimize @in.glb -o @circle.glb", 1, "circle", ""},
    {"info @in.glb --report /dev/null", 1, "no plain file", ""},
    {"info @in.glb --report /proc/report", 1, "cannot write in the folder", ""},
    {"optimize @in.glb -o @o.glb -p idmap(@m)", 0, "no ID map file is written", "+o.glb"},
    {"optimize @in.glb -o @o.glb -p maxtris(9),idmap(@m) --report @r", 0, "", "+m.json +o.glb +r"},
};

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
        EXPECT_EQ(changes(before, snapshotOf(folder.path())), row.changes);
    }
}

/// Runs `work` in a process of its own and returns its exit code.
template <typename Work> int inChild(const Work& work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The command on a disk that is full: 1 is what it should give.
int runOnFullDisk(const std::vector<std::string>& arguments) {
    const command_result result = runMorva(arguments);
    return result.code == 0 || result.err.find("cannot write") != std::string::npos ? result.code
                                                                                    : 99;
}

TEST(FullDisk, LeavesEveryFormatsOldFileAndNothingElse) {
    for (const char* name : {"o.glb", "o.gltf", "o.obj", "o.ply", "o.osb"}) {
        SCOPED_TRACE(name);
        const temporary_folder folder;
        const std::string in = modelFile(folder.file("in.glb"), texturedScene());
        writeBytes(folder.file(name), "old");
        const snapshot before = snapshotOf(folder.path());
        const int code = inChild([&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit = {600, 600}; // bytes, of each file
            setrlimit(RLIMIT_FSIZE, &limit);
            return runOnFullDisk({"optimize", in, "-q", "-o", folder.file(name)});
        });
        EXPECT_EQ(code, 1);
        EXPECT_EQ(changes(before, snapshotOf(folder.path())), "");
    }
}

/// Optimises over old files on a disk of `pages` pages: 0 if all files are new ones, 1 if it failed
/// and all are as before, 77 if no disk can be made here.
int replaceOnSmallDisk(const std::string& in, const temporary_folder& folder, unsigned pages) {
    const std::string size = "size=" + std::to_string(pages * 4096);
    const std::string user = "0 " + std::to_string(getuid()) + " 1",
                      users = "0 " + std::to_string(getgid()) + " 1";
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return 77;
    // Nobody may own files otherwise.
    writeBytes("/proc/self/setgroups", "deny");
    writeBytes("/proc/self/gid_map", users);
    writeBytes("/proc/self/uid_map", user);
    if (mount("none", folder.path().c_str(), "tmpfs", 0, size.c_str()) != 0)
        return 77;
    for (const char* name : {"o.glb", "m.json", "r.json"})
        writeBytes(folder.file(name), "old");
    const snapshot before = snapshotOf(folder.path());
    const int code =
        runOnFullDisk({"optimize", in, "-q", "-o", folder.file("o.glb"), "--report",
                       folder.file("r.json"), "-p", "maxtris(9),idmap(" + folder.file("m") + ")"});
    const std::string wanted = code == 0 ? "!m.json !o.glb !r.json" : "";
    return changes(before, snapshotOf(folder.path())) == wanted ? code : 98;
}

TEST(FullDisk, LeavesAllOldFilesOrAllNewOnes) {
    const temporary_folder folder, disk;
    const std::string in = modelFile(folder.file("in.glb"), texturedScene());
    std::set<int> codes;
    for (unsigned pages = 3; pages < 32; ++pages) {
        const int code = inChild([&] { return replaceOnSmallDisk(in, disk, pages); });
        if (code == 77)
            GTEST_SKIP() << "no small disk can be made here";
        codes.insert(code);
    }
    EXPECT_EQ(codes, (std::set<int>{0, 1}));
}

/// Starts the built command.
pid_t startMorva(const std::vector<std::string>& arguments, const char* output = "/dev/null") {
    const pid_t child = fork();
    if (child != 0)
        return child;
    dup2(open(output, O_WRONLY), STDOUT_FILENO);
    dup2(open("/dev/null", O_WRONLY), STDERR_FILENO);
    std::vector<char*> argv = {const_cast<char*>("morva")};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    execv(MORVA_COMMAND, argv.data());
    _exit(99);
}

int statusOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST(StandardOutput, ThatTakesNothingIsAFailureThatLeavesNothing) {
    const temporary_folder folder;
    const std::string in = modelFile(folder.file("in.glb"), texturedScene());
    for (const char* command : {"--help", "info @in.glb", "optimize @in.glb -o @o.glb",
                                "optimize @in.glb -o @o.glb -v --report @r.json"}) {
        EXPECT_EQ(WEXITSTATUS(statusOf(startMorva(wordsOf(command, folder), "/dev/full"))), 1);
        EXPECT_EQ(folder.entries(), std::vector<std::string>{"in.glb"}) << command;
    }
}

TEST(Signal, AtAnyMomentLeavesAWholeModelAndNoFolder) {
    const temporary_folder folder;
    fs::copy_file(MORVA_MODELS "/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb",
                  folder.file("in.glb"));
    const auto optimise = [&](const char* cores) {
        return startMorva(wordsOf("optimize @in.glb -q -o @o.gltf --report @r.json -p maxtris(" +
                                      std::string(cores) + ")",
                                  folder));
    };
    const auto wholeState = [&] {
        snapshot state = snapshotOf(folder.path());
        state.erase("r.json"); // its times differ
        return state;
    };
    std::vector<snapshot> states; // before, and after a whole run
    timespec start = {}, end = {};
    for (const char* cores : {"5000", "500"}) {
        clock_gettime(CLOCK_MONOTONIC, &start);
        ASSERT_EQ(statusOf(optimise(cores)), 0);
        clock_gettime(CLOCK_MONOTONIC, &end);
        states.push_back(wholeState());
    }
    const double seconds = static_cast<double>(end.tv_sec - start.tv_sec) +
                           1e-9 * static_cast<double>(end.tv_nsec - start.tv_nsec);
    std::mt19937 rng(50);
    std::uniform_real_distribution<double> moment(0.0, 1.1 * seconds);
    const int signals[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGKILL};
    for (int round = 0; round < 50; ++round) {
        if (wholeState() != states[0]) {
            ASSERT_EQ(statusOf(optimise("5000")), 0); // which also sweeps what was killed
            ASSERT_EQ(changes(states[0], wholeState()), "") << round;
        }
        const int signal = signals[round % 5];
        const pid_t child = optimise("500");
        usleep(static_cast<useconds_t>(1e6 * moment(rng)));
        kill(child, signal);
        const int status = statusOf(child);
        ASSERT_TRUE(status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == signal)) << status;
        const snapshot now = wholeState();
        const bool whole = changes(states[0], now).empty() || changes(states[1], now).empty();
        // Nothing can be done about a process that is killed, but the model is still whole.
        EXPECT_TRUE(whole || signal == SIGKILL) << round << ": " << changes(states[0], now);
        EXPECT_EQ(runMorva({"info", "-q", folder.file("o.gltf")}).code, 0);
    }
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
