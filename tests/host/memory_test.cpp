// The command when memory runs out: the whole output or none, and never a signal.

#include <mutex>
#include <regex>

#include <sys/wait.h>

#include <nlohmann/json.hpp>

#include "parallel.h"
#include "tests/host/host_files.h"

namespace morva_test {
namespace {

/// What a run of the program left: code and files by name, the report without its times.
struct program_run {
    int code = 0;
    std::string err;
    std::map<std::string, std::string> files;
};

program_run runProgram(const std::string& before, const std::string& arguments) {
    const temporary_folder folder, told;
    const std::string call = "cd " + folder.path() + " && " + before + " " MORVA_PROGRAM " " +
                             arguments + " 2>" + told.file("err") + " >/dev/null";
    program_run run;
    const int status = std::system(call.c_str());
    run.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    run.err = bytesOf(told.file("err"));
    for (const std::string& name : folder.entries()) {
        const bool is_folder = std::filesystem::is_directory(folder.file(name));
        std::string& bytes = run.files[name] = is_folder ? "" : bytesOf(folder.file(name));
        if (name == "r.json") {
            nlohmann::json report = nlohmann::json::parse(bytes, nullptr, false);
            report.erase("stages");
            bytes = report.dump();
        }
    }
    return run;
}

/// What is wrong with a run beside one that had all the memory it wanted; empty if nothing is.
std::string faultOf(const program_run& run, const program_run& whole) {
    if (run.code == 0)
        return run.files == whole.files ? "" : "good, and another output";
    // The C library ends the process itself where a thread has no room for a destructor.
    if (run.err.find("failed to register TLS destructor") != std::string::npos)
        return run.files.size() <= whole.files.size() ? "" : "left more than there is";
    if (run.code != 1 || run.err.find("morva: ") == std::string::npos)
        return "code " + std::to_string(run.code) + ": " + run.err;
    for (const auto& [name, bytes] : run.files) {
        const auto found = whole.files.find(name);
        if (found == whole.files.end() || found->second != bytes)
            return "left " + name;
    }
    return run.err.find("damaged") == std::string::npos ? "" : "called the file damaged";
}

/// A textured part that is cut, and another one with a transform.
::osg::NodePtr twoParts() {
    mesh_data tiled = quads(1);
    tiled.coordinates = {{0, 0}, {5, 0}, {5, 5}, {0, 5}};
    return group({named("a", meshNode(tiled, chunked({1, 1, 1, 1}, imageOf(6407, 4, 4)))),
                  moved({5, 0, 0}, {named("b", meshNode(quads(2), simple({1, 0, 0})))})});
}

TEST(Memory, EachAllocationThatFailsGivesTheWholeOutputOrNone) {
    const char* const wish = std::getenv("MORVA_ALLOCATION_STEP");
    const std::size_t step = wish != nullptr ? std::stoul(wish) : 20;
    const temporary_folder folder;
    const std::string optimise = // with two workers wherever it runs
        " -o o.glb --report r.json -p 'maxtris(500),optimizetc(2),idmap(m),numthreads(2)'";
    for (const auto& [format, arguments] :
         {std::pair("obj", "optimize @" + optimise), std::pair("osb", "optimize @" + optimise),
          std::pair("osb", std::string("divide @ --cells . --triangles 4 --straddle cut"))}) {
        const std::string in = modelFile(folder.file(std::string("in.") + format), twoParts());
        const std::string command = std::regex_replace(arguments, std::regex("@"), in);
        const auto failing = [&](std::size_t number) {
            return runProgram("LD_PRELOAD=" MORVA_FAILING_ALLOCATION " FAILING_ALLOCATION=" +
                                  std::to_string(number) +
                                  " ALLOCATION_COUNT=" + folder.file("count"),
                              command);
        };
        const program_run whole = failing(0);
        ASSERT_EQ(whole.code, 0) << whole.err;
        ASSERT_GE(whole.files.size(), 3u);
        const std::size_t count = std::stoul(bytesOf(folder.file("count")));
        EXPECT_GT(count, 1000u);
        std::mutex lock;
        std::map<std::size_t, std::string> faults;
        std::size_t stopped = 0;
        morva::host::runParallel(count / step, [&](std::size_t i) {
            const program_run run = failing(1 + i * step);
            const std::string fault = faultOf(run, whole);
            const std::lock_guard<std::mutex> held(lock);
            stopped += run.code == 1 ? 1 : 0;
            if (!fault.empty())
                faults[1 + i * step] = fault;
        });
        EXPECT_EQ(faults, decltype(faults)()) << "of " << count << " with " << command;
        EXPECT_GT(stopped, count / step / 2);
    }
}

/// A glTF file with a chain of nodes, the last of which draws a triangle.
void writeChain(const std::string& path, int levels) {
    nlohmann::json file = nlohmann::json::parse(
        R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"meshes":[{"primitives":[
        {"attributes":{"POSITION":0}}]}],"accessors":[{"bufferView":0,"componentType":5126,
        "count":3,"type":"VEC3"}],"bufferViews":[{"buffer":0,"byteLength":36}],"buffers":[
        {"byteLength":36,"uri":"data:;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}]})");
    for (int i = 1; i < levels; ++i)
        file["nodes"].push_back({{"children", {i}}, {"name", "n"}});
    file["nodes"].push_back({{"mesh", 0}, {"translation", {1, 0, 0}}});
    writeBytes(path, file.dump());
}

TEST(Stack, ATreeThatIsTooDeepForItIsRefused) {
    const temporary_folder folder;
    const struct {
        const char* stack; ///< KiB
        int levels;
        const char* message; ///< null: good
    } rows[] = {{"100", 3, "the stack limit of 100 KiB is too low"},
                {"256", 80, nullptr},
                {"256", 90, "deeper than 85 levels, the most for a stack limit of 256 KiB"},
                {"256", 20000, "deeper than 85 levels"},
                {"8192", 1990, nullptr},
                {"8192", 2010, "deeper than 2000 levels\n"}};
    for (const auto& row : rows) {
        writeChain(folder.file("in.gltf"), row.levels);
        for (const char* out : {"o.dae", "o.glb", "o.osb"}) {
            SCOPED_TRACE(testing::Message() << row.stack << " " << row.levels << " " << out);
            const program_run run =
                runProgram(std::string("ulimit -s ") + row.stack + " &&",
                           "optimize " + folder.file("in.gltf") + " -p 'opt(1)' -o " + out);
            EXPECT_EQ(run.code, row.message == nullptr ? 0 : 1) << run.err;
            EXPECT_NE(run.err.find(row.message == nullptr ? "" : row.message), std::string::npos)
                << run.err;
        }
    }
}

/// Each node lists the next one twice: the import library makes two to the power of `levels`.
std::string doublingNodes(int levels) {
    std::string nodes;
    for (int i = 1; i <= levels; ++i)
        nodes += R"({"children":[)" + std::to_string(i) + "," + std::to_string(i) + "]},";
    return R"({"asset":{"version":"2.0"},"scene":0,"scenes":[{"nodes":[0]}],"nodes":[)" + nodes +
           R"({"name":"end"}]})";
}

TEST(Memory, ARunEndsInOneLineAtItsLimit) {
    const temporary_folder folder;
    writeBytes(folder.file("bomb.gltf"), doublingNodes(40));
    const std::string engine =
        MORVA_MODELS "/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb";
    for (const auto& [input, size, code] :
         {std::tuple(folder.file("bomb.gltf"), "256M", 1), std::tuple(engine, "2G", 0)}) {
        const program_run run =
            runProgram("", "optimize " + input + " -o o.glb --max-memory " + size);
        EXPECT_EQ(run.code, code) << input << " " << size << "\n" << run.err;
        EXPECT_EQ(run.files.size(), code == 0 ? 1u : 0u);
        EXPECT_EQ(run.err.find("of memory (--max-memory)\n") != std::string::npos, code != 0)
            << run.err;
    }
}

TEST(Memory, ALimitGivesTheWholeOutputOrNone) {
    const std::string arguments =
        "optimize " MORVA_MODELS "/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb -o o.glb "
        "-p 'maxtris(5000),numthreads(1)'"; // a thread takes 8 MB for its stack
    const program_run whole = runProgram("", arguments);
    ASSERT_EQ(whole.files.size(), 1u);
    std::map<int, std::string> faults;
    int good = 0, begun = 0;
    for (int megabytes = 24; megabytes <= 80; megabytes += 4) {
        const std::string limit = "ulimit -v " + std::to_string(megabytes * 1024) + " &&";
        if (runProgram(limit, "--version").code != 0)
            continue; // libraries that it links end it before it begins
        ++begun;
        const program_run run = runProgram(limit, arguments);
        good += run.code == 0 ? 1 : 0;
        if (const std::string fault = faultOf(run, whole); !fault.empty())
            faults[megabytes] = fault;
    }
    EXPECT_EQ(faults, decltype(faults)());
    EXPECT_TRUE(good > 2 && good < begun) << good << " of " << begun;
}

} // namespace
} // namespace morva_test
