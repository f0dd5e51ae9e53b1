#include "model_export.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <new>
#include <vector>

#include <OpenSG/OSGSceneFileHandler.h>

#include "assimp_export.h"
#include "gltf_writer.h"
#include "host_error.h"
#include "memory_limit.h"
#include "memory_watch.h"
#include "output_formats.h"
#include "text.h"

namespace morva::host {

namespace {

void writeSceneFile(const ::osg::NodePtr& root, const std::string& path) {
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    bool good = file && ::osg::SceneFileHandler::the().write(root, file, "osb");
    file.close();
    good = good && file;
    if (!good)
        throw host_error("cannot write '" + path.substr(path.rfind('/') + 1) + "': " +
                         (errno != 0 ? std::strerror(errno) : "the scene file writer failed"));
}

} // namespace

bool canWrite(const std::string& path) { return outputFormatOf(path) != nullptr; }

bool keepsRecords(const std::string& extension) {
    return extension == "glb" || extension == "gltf";
}

std::string writableExtensions() {
    std::string text;
    for (const output_format& format : outputFormats())
        text += (text.empty() ? "" : ", ") + std::string(format.extension);
    return text;
}

std::vector<std::string> writeModel(const ::osg::NodePtr& root, const image_sources& images,
                                    const std::string& path, const part_table* parts,
                                    const material_records* records, view_store* views) {
    const std::string extension = extensionOf(path);
    view_store own;
    std::vector<std::string> notes;
    try {
        if (keepsRecords(extension))
            notes = writeGltf(root, images, parts, records, views != nullptr ? *views : own, path);
        else if (extension == "osb")
            writeSceneFile(root, path);
        else
            writeThroughAssimp(root, images, path);
    } catch (const std::bad_alloc&) {
        throw host_error(outOfMemory("writing"));
    }
    memory_watch::check("writing");
    const std::string lost = lossesOf(*outputFormatOf(path), root);
    if (!lost.empty())
        notes.push_back(lost);
    return notes;
}

} // namespace morva::host
