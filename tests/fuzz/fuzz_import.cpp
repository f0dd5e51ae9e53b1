// Any bytes as a model file of the kind that they look like, through the whole command with 512 MiB
// of memory.

#include "entry.h"

#include <csignal>

#include <pthread.h>
#include <unistd.h>

#include "feature_ids.h"
#include "host_error.h"
#include "model.h"
#include "tests/host/host_files.h"
#include "tests/support/shortage.h"

namespace {

using namespace morva_test;

const char* extensionFor(const std::string& bytes) {
    const std::pair<const char*, const char*> starts[] = {{"glTF", "glb"},  {"{", "gltf"},
                                                          {"ply", "ply"},   {"OFF", "off"},
                                                          {"solid", "stl"}, {"OpenSG", "osb"}};
    for (const auto& [start, extension] : starts) {
        if (bytes.compare(0, std::strlen(start), start) == 0)
            return extension;
    }
    return bytes.find('\0') == std::string::npos ? "obj" : "stl";
}

/// Files that keep the import library busy for ever are none of the command's faults.
void endSlowImports() {
    std::signal(SIGALRM, SIG_DFL); // libFuzzer has one of its own
    alarm(2);
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

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const temporary_folder folder;
    static const int told = pthread_atfork(nullptr, nullptr, &endSlowImports);
    fuzz::require(told == 0, "the import library cannot be watched");
    shortage::limitTo(std::size_t{512} << 20);
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    const std::string extension = extensionFor(bytes);
    const std::string input = folder.file("in." + extension), output = folder.file("out.glb");
    writeBytes(input, bytes);
    std::filesystem::remove(output);
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
