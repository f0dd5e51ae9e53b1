#include "import_process.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <memory>
#include <new>
#include <set>

#include <assimp/DefaultIOSystem.h>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>

#include "host_error.h"
#include "memory_limit.h"
#include "memory_watch.h"
#include "stack_room.h"
#include "text.h"

namespace morva::host {

namespace {

/// Whether some face has more than three corners. Arrays that are not there have none.
bool hasPolygons(const aiScene& scene) {
    for (unsigned m = 0; scene.mMeshes != nullptr && m < scene.mNumMeshes; ++m) {
        const aiMesh* mesh = scene.mMeshes[m];
        if (mesh == nullptr || mesh->mFaces == nullptr)
            continue;
        // Importers tell what a mesh holds; glTF has no polygons, and is the large case.
        if (mesh->mPrimitiveTypes == aiPrimitiveType_TRIANGLE)
            continue;
        for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
            if (mesh->mFaces[f].mNumIndices > 3)
                return true;
        }
    }
    return false;
}

/// The file system, with a note of what was opened.
class noting_files : public Assimp::DefaultIOSystem {
  public:
    Assimp::IOStream* Open(const char* path, const char* mode) override {
        Assimp::IOStream* const stream = Assimp::DefaultIOSystem::Open(path, mode);
        if (stream != nullptr)
            opened_.emplace(path);
        return stream;
    }
    const std::set<std::string>& opened() const { return opened_; }

  private:
    std::set<std::string> opened_;
};

/// Bytes of the text that tells the node tree, at most; little for files that have none.
std::uint64_t bytesOfTree(const std::string& path, std::uint64_t file_bytes) {
    const std::string extension = extensionOf(path);
    if (extension == "obj" || extension == "ply" || extension == "stl")
        return 0;
    if (extension != "glb")
        return file_bytes;
    // Magic, version, length of the file, length of the first chunk, which is the text.
    std::uint32_t header[4] = {0, 0, 0, 0};
    std::ifstream(path, std::ios::binary).read(reinterpret_cast<char*>(header), sizeof header);
    return std::min<std::uint64_t>(header[3], file_bytes);
}

/// The importer's readers recurse over the tree as well. A level takes 13 bytes of a file and 1.3
/// KB of the stack in COLLADA, 17 bytes and 0.5 KB in glTF.
std::size_t stackForReading(const std::string& path, std::uint64_t file_bytes) {
    return static_cast<std::size_t>(
        std::min<std::uint64_t>(128 * bytesOfTree(path, file_bytes), std::uint64_t{1} << 34));
}

/// The importer's text without its line ends.
std::string reasonOf(const Assimp::Importer& importer) {
    std::string text = importer.GetErrorString();
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text.empty() ? "the import library gives no reason" : text;
}

/// Post-processing trusts every index.
void checkIndices(const aiScene& scene) {
    for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
        if (scene.mMeshes[m] != nullptr)
            checkFaces(*scene.mMeshes[m]);
    }
}

/// Reads and sends the scene.
void import(const std::string& path, pipe_writer& out) {
    // Its own end recurses and takes as long again: it goes with the process.
    Assimp::Importer& importer = *std::make_unique<Assimp::Importer>().release();
    auto* const files = new noting_files;
    importer.SetIOHandler(files); // which owns it from here on
    const aiScene* scene = importer.ReadFile(path, 0);
    // Only where it is needed: the step does not stand every mesh of lines and points.
    if (scene != nullptr && hasPolygons(*scene)) {
        checkIndices(*scene);
        scene = importer.ApplyPostProcessing(aiProcess_Triangulate);
    }
    if (scene == nullptr)
        throw host_error("cannot read '" + path + "': " + reasonOf(importer));
    // What is there may lack something that the library had no memory for.
    if (memory_watch::ranOut())
        throw std::bad_alloc();
    sendScene(*scene, files->opened(), out);
}

/// Reads, and sends the scene or what went wrong.
void importOrTell(const std::string& path, pipe_writer& out) {
    errno = 0;
    std::string failure;
    try {
        return import(path, out);
    } catch (const std::bad_alloc&) {
        return sendShortage(out);
    } catch (const host_error& error) {
        failure = error.what();
    } catch (const pipe_ended&) {
        return;
    } catch (const std::exception& error) {
        failure = "cannot read '" + path + "': " + error.what();
    }
    // What looks like damage may be what lacking memory leaves.
    if (errno == ENOMEM || memory_watch::ranOut())
        sendShortage(out);
    else
        sendFailure(failure, out);
}

} // namespace

importing_library::importing_library(const std::string& path, std::uint64_t file_bytes)
    : path_(path), child_([&](pipe_writer& out) {
          memory_limit::leaveRoom();
          try {
              runOnStack(stackForReading(path, file_bytes), [&] { importOrTell(path, out); });
          } catch (const std::bad_alloc&) { // there is no thread to be had
              sendShortage(out);
          }
      }) {}

template <typename Receive> auto importing_library::received(Receive receive) {
    try {
        return receive(child_.output());
    } catch (const pipe_ended&) {
        throw host_error("cannot read '" + path_ + "': the import library " + child_.crash());
    }
}

handed_scene importing_library::scene() { return received(receiveScene); }

std::unique_ptr<handed_mesh> importing_library::nextMesh() { return received(receiveMesh); }

} // namespace morva::host
