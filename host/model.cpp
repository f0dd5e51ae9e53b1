#include "model.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <utility>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGSceneFileHandler.h>

#include "assimp_import.h"
#include "facet_normals.h"
#include "glb_reader.h"
#include "host_error.h"
#include "memory_limit.h"
#include "memory_watch.h"
#include "mirrored_parts.h"
#include "scene_walk.h"
#include "stack_room.h"
#include "text.h"

namespace morva::host {

namespace {

/// Says why a file cannot be opened, before a library says it less clearly.
std::uint64_t checkedSize(const std::string& path) {
    std::error_code error;
    const std::filesystem::file_status status = std::filesystem::status(path, error);
    if (!std::filesystem::exists(status))
        throw host_error("no such file: '" + path + "'");
    if (std::filesystem::is_directory(status))
        throw host_error("'" + path + "' is a folder, not a file");
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw host_error("cannot open '" + path + "': " + std::strerror(errno));
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    if (!error && size == 0)
        throw host_error("'" + path + "' is empty");
    return error ? 0 : size;
}

/// Notes the files that images are named after: the scene graph may have read their pixels there.
void notePictures(const std::string& path, model& target) {
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    std::set<std::string> names;
    for (const drawn_node& drawn : drawnNodes(target.root.get())) {
        for (const ::osg::ImagePtr& image : imagesOf(drawn.material))
            names.insert(image->getName());
    }
    names.erase(std::string());
    for (const std::string& name : names)
        target.files_read.insert(target.files_read.end(), {name, (folder / name).string()});
}

void readSceneFile(const std::string& path, model& target) {
    const ::osg::NodePtr root = ::osg::SceneFileHandler::the().read(path.c_str(), nullptr);
    if (root == ::osg::NullFC)
        throw host_error("cannot read '" + path + "': it is damaged or no scene file");
    target.root = ::osg::NodeRefPtr(root);
    notePictures(path, target);
    if (::osg::GeometryPtr::dcast(root->getCore()) == ::osg::NullFC)
        return;
    const ::osg::NodePtr group = ::osg::Node::create();
    group->setCore(::osg::Group::create());
    group->addChild(root);
    target.root = ::osg::NodeRefPtr(group);
}

/// Most of the import library copes without memory, the parser of glTF does not: a file that will
/// not fit is refused before.
void importWatched(const std::string& path, const std::string& doing, model& target) {
    memory_watch::require((std::size_t{16} << 20) + 2 * target.file_bytes, doing);
    importThroughAssimp(path, target);
    const std::size_t mended = extensionOf(path) == "stl" ? mendFacetNormals(target.root.get()) : 0;
    if (mended != 0)
        target.notes.push_back("normals that are 0 or against the winding are made anew for " +
                               withCommas(mended) + " triangles");
}

bool isTooDeep(const ::osg::NodePtr& root) {
    std::vector<std::pair<::osg::NodePtr, std::size_t>> todo = {{root, 1}};
    while (!todo.empty()) {
        const auto [node, level] = todo.back();
        todo.pop_back();
        if (level > mostLevels())
            return true;
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            todo.emplace_back(node->getChild(i), level + 1);
    }
    return false;
}

bool drawsSomething(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    if (core != ::osg::NullFC && core->getTypes() != ::osg::NullFC &&
        core->getTypes()->getSize() != 0 && core->getPositions() != ::osg::NullFC &&
        core->getPositions()->getSize() != 0)
        return true;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        if (drawsSomething(node->getChild(i)))
            return true;
    }
    return false;
}

} // namespace

model readModel(const std::string& path) {
    model result;
    result.file_bytes = checkedSize(path);
    result.files_read.push_back(path);
    checkStack();
    const std::string doing = "reading '" + path + "'";
    errno = 0;
    try {
        if (extensionOf(path) == "osb")
            readSceneFile(path, result);
        else if (extensionOf(path) != "glb" || !readGlb(path, result))
            importWatched(path, doing, result);
    } catch (const std::bad_alloc&) {
        throw host_error(outOfMemory(doing));
    } catch (const host_error&) {
        // What looks like damage may be what lacking memory leaves.
        if (errno == ENOMEM)
            throw host_error(outOfMemory(doing));
        memory_watch::check(doing);
        throw;
    }
    memory_watch::check(doing);
    if (isTooDeep(result.root.get()))
        throw host_error(tooDeep());
    if (!drawsSomething(result.root.get()) && result.loose_points != 0)
        throw host_error("'" + path + "' holds nothing to draw: points alone, " +
                         withCommas(result.loose_points) + " of them, and no faces or lines");
    if (!drawsSomething(result.root.get()))
        throw host_error("'" + path + "' holds nothing to draw: no triangles, lines or points");
    uprightMirroredParts(result.root.get());
    memory_watch::check(doing);
    return result;
}

} // namespace morva::host
