// Any text as parameters: of a run over a small scene with parts of every kind and fate, which the
// audit must pass, and of what the host does with the text.

#include "entry.h"

#include <filesystem>

#include <unistd.h>

#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scenerebuild.h>

#include "../../host/audit.h"
#include "../../host/parameter_notes.h"
#include "tests/support/test.h"

namespace {

node_ref sceneOfEverything() {
    static const std::string bytes = bytesOf(MORVA_FUZZ_SCENE);
    std::istringstream in(bytes);
    return node_ref(::osg::SceneFileHandler::the().read(in, "osb", nullptr));
}

/// A run whose ID map goes to `map`, whatever name the text has for it.
void optimise(const std::string& given, const std::string& map) {
    const std::string text = morva::host::withThreads(morva::host::withValue(given, "idmap", map));
    std::string copy = text;
    const auto keys = morva::osg::parseOptTreeParams(copy);
    fuzz::require(keys.count("idmap") == 0 || keys.at("idmap") == map, "another ID map");
    morva::host::parameterNotes(given);

    const node_ref root = sceneOfEverything();
    fuzz::require(root != ::osg::NullFC, "no scene");
    const auto parts = morva::host::namedParts(root, true);
    const auto plan = morva::host::planAudit(root, parts, text);
    const node_ref result(morva::osg::optTree(root, text));
    fuzz::require(result != ::osg::NullFC, "no result");
    for (const std::string& difference : morva::host::judge(plan, result).differences)
        fuzz::require(false, text + ": " + difference);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string map = "fuzz-map-" + std::to_string(getpid());
    const fuzz::no_strays all_go;
    const stream_capture out(std::cout), errors(std::cerr);
    optimise(std::string(reinterpret_cast<const char*>(data), size), map);
    const node_ref empty(group()); // lets go of what stands in for parts
    node_list none;
    morva::osg::getGeometryNodes(empty, none, false);
    std::filesystem::remove(map + ".json");
    return 0;
}
