// Any bytes as a model file of the kind that they look like, through the whole command with 512 MiB
// of memory. A file that brings the import library down by itself shows nothing about the host: a
// process of its own tries that first, and such files are counted and told at the end.

#include "entry.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>

#include <sys/wait.h>
#include <unistd.h>

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>

#include "feature_ids.h"
#include "host_error.h"
#include "model.h"
#include "tests/host/host_files.h"
#include "tests/support/shortage.h"

namespace {

using namespace morva_test;

const char* extensionFor(const std::string& bytes) {
    const std::array<std::array<const char*, 2>, 6> starts = {{{"glTF", "glb"},
                                                               {"{", "gltf"},
                                                               {"ply", "ply"},
                                                               {"OFF", "off"},
                                                               {"solid", "stl"},
                                                               {"OpenSG", "osb"}}};
    for (const auto& [start, extension] : starts) {
        if (bytes.compare(0, std::strlen(start), start) == 0)
            return extension;
    }
    return bytes.find('\0') == std::string::npos ? "obj" : "stl";
}

struct importer_count {
    unsigned files = 0, faults = 0;
    ~importer_count() {
        std::fprintf(stderr, "the import library alone failed on %u of %u files\n", faults, files);
    }
};

/// Whether the import library lives through a file of the folder, within two seconds.
bool importerCopes(const temporary_folder& folder, const std::string& path) {
    static importer_count count;
    const pid_t child = fork();
    if (child == 0) {
        std::signal(SIGALRM, SIG_DFL); // libFuzzer has one of its own
        alarm(2);
        // What libFuzzer keeps of a crash goes into the folder, and with it.
        if (chdir(folder.path().c_str()) != 0 || std::freopen("/dev/null", "w", stderr) == nullptr)
            _exit(1);
        try {
            Assimp::Importer importer;
            if (importer.ReadFile(path, 0) != nullptr)
                importer.ApplyPostProcessing(aiProcess_Triangulate);
        } catch (const std::exception&) {
            // as the host does
        }
        _exit(0);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    const bool good = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    ++count.files;
    count.faults += good ? 0 : 1;
    return good;
}

/// Reads what a file tells of its parts, and asks for each.
void readParts(const std::string& path) {
    try {
        const morva::host::model read = morva::host::readModel(path);
        const morva::host::feature_ids features = morva::host::readFeatureIds(path, read);
        for (const ::osg::NodePtr& node : geometryNodes(read.root.get())) {
            for (std::size_t triangle = 0; triangle < 1000; ++triangle)
                features.partOf(node, triangle);
        }
    } catch (const morva::host::host_error& error) {
        fuzz::require(*error.what() != '\0', "no reason is given");
    }
}

} // namespace

/// The import library loses memory on damaged files: leaks from below its calls are passed over.
extern "C" [[gnu::visibility("default")]] const char* __lsan_default_suppressions() {
    return "leak:libassimp";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_folder folder;
    shortage::limitTo(std::size_t{512} << 20);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string extension = extensionFor(bytes);
    const std::string input = folder.file("in." + extension), output = folder.file("out.glb");
    writeBytes(input, bytes);
    std::filesystem::remove(output);
    if (extension != "osb" && !importerCopes(folder, input))
        return 0;
    const fuzz::no_strays all_go;
    const command_result result = runMorva({"optimize", input, "-o", output, "-q", "-p",
                                            "maxtris(50),cacheopt(true),alphageometry(true)"});
    fuzz::require(result.code == 0 || result.code == 1, "exit code " + std::to_string(result.code));
    fuzz::require(std::filesystem::exists(output) == (result.code == 0), "an output, or none");
    fuzz::require(result.code == 0 || !result.err.empty(), "no reason is given");
    fuzz::require(result.err.find("audit:") == std::string::npos, result.err);
    if (result.code == 0)
        readParts(input);
    return 0;
}
