#include "assimp_import.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>
#include <new>
#include <set>
#include <system_error>
#include <unordered_set>
#include <utility>
#include <vector>

#include <assimp/DefaultIOSystem.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include "host_error.h"
#include "stack_room.h"
#include "text.h"

namespace morva::host {

namespace {

::osg::Matrix matrixOf(const aiNode& source) {
    const aiMatrix4x4& from = source.mTransformation;
    ::osg::Matrix matrix;
    for (unsigned row = 0; row < 4; ++row) {
        for (unsigned column = 0; column < 4; ++column) {
            if (!std::isfinite(from[row][column]))
                throw host_error("the file is damaged: the matrix of node '" +
                                 std::string(source.mName.C_Str()) + "' is not finite");
            matrix[column][row] = from[row][column];
        }
    }
    return matrix;
}

bool isIdentity(const aiNode& source) {
    for (unsigned row = 0; row < 4; ++row)
        for (unsigned column = 0; column < 4; ++column)
            if (source.mTransformation[row][column] != (row == column ? 1.f : 0.f))
                return false;
    return true;
}

/// A name of the file; empty for one that the importer made up, like "meshes[3]-1".
std::string givenName(const aiString& text) {
    std::string name = text.C_Str();
    for (const char* made_up : {"nodes[", "meshes["}) {
        const std::size_t length = std::strlen(made_up);
        if (name.compare(0, length, made_up) == 0 &&
            name.find_first_not_of("0123456789]-", length) == std::string::npos)
            return std::string();
    }
    return name;
}

void setNameUnlessEmpty(const ::osg::AttachmentContainerPtr& container, const std::string& name) {
    if (!name.empty())
        setName(container, name);
}

/// Walks the source tree and builds ours; meshes and materials are converted at first use.
class tree_builder {
  public:
    tree_builder(const aiScene& scene, const std::string& folder, model& target,
                 const core_maker& maker)
        : scene_(scene), folder_(folder), target_(target), maker_(maker), cores_(scene.mNumMeshes),
          converted_(scene.mNumMeshes, false), materials_(scene.mNumMaterials) {}

    void build() {
        target_.root = ::osg::NodeRefPtr(newGroup());
        todo_.push_back({scene_.mRootNode, target_.root.get(), 2});
        while (!todo_.empty()) {
            const step next = todo_.back();
            todo_.pop_back();
            visit(next);
        }
        // The root of the file becomes the root of the scene if nothing had to stand above it.
        if (target_.root->getNChildren() == 1 && !isGeometry(target_.root->getChild(0))) {
            const ::osg::NodeRefPtr only(target_.root->getChild(0));
            target_.root->subChild(only.get());
            target_.root = only;
        }
    }

    std::vector<::osg::MaterialRefPtr> materials() const {
        std::vector<::osg::MaterialRefPtr> made;
        for (const imported_material& one : materials_)
            made.push_back(one.material);
        return made;
    }

  private:
    struct step {
        const aiNode* source;
        ::osg::NodePtr parent;
        std::size_t level; ///< of the new node
    };

    static ::osg::NodePtr newGroup() {
        const ::osg::NodePtr node = ::osg::Node::create();
        node->setCore(::osg::Group::create());
        return node;
    }

    static bool isGeometry(const ::osg::NodePtr& node) {
        return ::osg::GeometryPtr::dcast(node->getCore()) != ::osg::NullFC;
    }

    void visit(const step& now) {
        const aiNode& source = *now.source;
        if (!seen_.insert(&source).second)
            throw host_error("the file is damaged: its node tree is no tree");
        if (now.level > most_levels_)
            throw host_error(tooDeep());
        if ((source.mNumChildren != 0 && source.mChildren == nullptr) ||
            (source.mNumMeshes != 0 && source.mMeshes == nullptr))
            throw host_error("the file is damaged: a node lacks its list of children or meshes");

        const bool plain = isIdentity(source);
        const std::string name = givenName(source.mName);
        if (plain && source.mNumMeshes == 1 && source.mNumChildren == 0) {
            addMesh(source.mMeshes[0], now.parent, name);
            return;
        }
        const ::osg::NodePtr node = ::osg::Node::create();
        beginEditCP(node);
        setNameUnlessEmpty(node, name);
        now.parent->addChild(node);
        node->setCore(plain ? ::osg::NodeCorePtr(::osg::Group::create()) : transformOf(source));
        for (unsigned i = 0; i < source.mNumMeshes; ++i)
            addMesh(source.mMeshes[i], node, name);
        endEditCP(node);
        for (unsigned i = source.mNumChildren; i-- > 0;) {
            if (source.mChildren[i] != nullptr)
                todo_.push_back({source.mChildren[i], node, now.level + 1});
        }
    }

    static ::osg::NodeCorePtr transformOf(const aiNode& source) {
        const ::osg::Matrix matrix = matrixOf(source);
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        beginEditCP(transform);
        transform->setMatrix(matrix);
        endEditCP(transform);
        return transform;
    }

    /// Adds a geometry node, named after its mesh, or `fallback` if the mesh has no name.
    void addMesh(unsigned index, const ::osg::NodePtr& parent, const std::string& fallback) {
        if (index >= scene_.mNumMeshes || scene_.mMeshes[index] == nullptr)
            throw host_error("the file is damaged: a node uses mesh " + std::to_string(index) +
                             " of " + std::to_string(scene_.mNumMeshes));
        const ::osg::GeometryPtr core = coreOf(index);
        if (core == ::osg::NullFC)
            return;
        const std::string name = givenName(scene_.mMeshes[index]->mName);
        const ::osg::NodePtr node = ::osg::Node::create();
        beginEditCP(node);
        node->setCore(core);
        setNameUnlessEmpty(node, name.empty() ? fallback : name);
        parent->addChild(node);
        endEditCP(node);
    }

    ::osg::GeometryPtr coreOf(unsigned index) {
        if (converted_[index])
            return cores_[index].get();
        converted_[index] = true;
        const aiMesh& mesh = *scene_.mMeshes[index];
        const imported_material& material = materialOf(mesh.mMaterialIndex);
        const ::osg::GeometryPtr core = maker_ ? maker_(index, material.coordinate_set)
                                               : importMesh(mesh, material.coordinate_set, target_);
        cores_[index] = ::osg::GeometryRefPtr(core);
        if (core == ::osg::NullFC) {
            target_.notes.push_back("mesh '" + std::string(mesh.mName.C_Str()) +
                                    "' has no faces; it is left out");
            return core;
        }
        beginEditCP(core, ::osg::Geometry::MaterialFieldMask);
        core->setMaterial(material.material.get());
        endEditCP(core, ::osg::Geometry::MaterialFieldMask);
        setNameUnlessEmpty(core, givenName(mesh.mName));
        return core;
    }

    const imported_material& materialOf(unsigned index) {
        static const imported_material none;
        if (index >= scene_.mNumMaterials || scene_.mMaterials == nullptr ||
            scene_.mMaterials[index] == nullptr)
            return none;
        if (materials_[index].material == ::osg::NullFC)
            materials_[index] = importMaterial(scene_, *scene_.mMaterials[index], folder_, target_);
        return materials_[index];
    }

    const aiScene& scene_;
    const std::string& folder_;
    model& target_;
    const core_maker& maker_; ///< none: the meshes have their values
    std::vector<::osg::GeometryRefPtr> cores_;
    std::vector<bool> converted_;
    std::vector<imported_material> materials_;
    std::unordered_set<const aiNode*> seen_;
    std::vector<step> todo_;
    const std::size_t most_levels_ = mostLevels();
};

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

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

bool isTooDeep(const aiScene& scene) {
    std::vector<std::pair<const aiNode*, std::size_t>> todo = {{scene.mRootNode, 1}};
    while (!todo.empty()) {
        const auto [node, level] = todo.back();
        todo.pop_back();
        if (level > mostLevels())
            return true;
        for (unsigned i = 0;
             node != nullptr && node->mChildren != nullptr && i < node->mNumChildren; ++i)
            todo.emplace_back(node->mChildren[i], level + 1);
    }
    return false;
}

/// The importer's text without its line ends.
std::string reasonOf(const Assimp::Importer& importer) {
    std::string text = importer.GetErrorString();
    while (!text.empty() && (text.back() == '\n' || text.back() == ' '))
        text.pop_back();
    return text.empty() ? "the import library gives no reason" : text;
}

} // namespace

std::vector<::osg::MaterialRefPtr> importScene(const aiScene& scene, const std::string& folder,
                                               model& target, const core_maker& cores) {
    if (scene.mRootNode == nullptr)
        throw host_error("the file holds no scene");
    if (scene.mNumMeshes != 0 && scene.mMeshes == nullptr)
        throw host_error("the file is damaged: it lacks its list of meshes");
    tree_builder builder(scene, folder, target, cores);
    builder.build();
    target.images_by_name.clear();
    const unsigned moving = scene.mNumAnimations;
    if (moving != 0)
        target.notes.push_back(std::to_string(moving) + " animations are left out");
    return builder.materials();
}

void importThroughAssimp(const std::string& path, model& target) {
    auto importer = std::make_unique<Assimp::Importer>();
    auto* const files = new noting_files;
    importer->SetIOHandler(files); // which owns it from here on
    const aiScene* scene = nullptr;
    bool too_deep = false;
    try {
        runOnStack(stackForReading(path, target.file_bytes), [&] {
            scene = importer->ReadFile(path, 0);
            // Only where it is needed: the step does not stand every mesh of lines and points.
            if (scene != nullptr && hasPolygons(*scene))
                scene = importer->ApplyPostProcessing(aiProcess_Triangulate);
            too_deep = scene != nullptr && isTooDeep(*scene);
            if (too_deep)
                importer.reset(); // recurses
        });
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception& error) {
        throw host_error("cannot read '" + path + "': " + error.what());
    }
    if (too_deep)
        throw host_error(tooDeep());
    if (scene == nullptr)
        throw host_error("cannot read '" + path + "': " + reasonOf(*importer));
    target.files_read.insert(target.files_read.end(), files->opened().begin(),
                             files->opened().end());
    target.materials = importScene(*scene, folderOf(path), target);
    // Millions of small arrays take a while to go.
    try {
        target.clean_up = std::async(
            std::launch::async, [garbage = std::move(importer)]() mutable { garbage.reset(); });
    } catch (const std::system_error&) {
        // No thread for it: they have gone with what was to run there.
    }
}

} // namespace morva::host
