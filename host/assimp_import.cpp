#include "assimp_import.h"

#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include "assimp_record.h"
#include "gltf_document.h"
#include "gltf_nodes.h"
#include "host_error.h"
#include "import_process.h"
#include "material_record.h"
#include "stack_room.h"

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
    tree_builder(const handed_scene& source, const std::string& folder, const mesh_source& next,
                 model& target, const core_maker& maker)
        : scene_(*source.scene), folder_(folder), next_(next), target_(target), maker_(maker),
          cores_(source.meshes), names_(source.meshes), converted_(source.meshes, false),
          materials_(scene_.mNumMaterials) {}

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
        if (now.level > most_levels_)
            throw host_error(tooDeep());

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
        for (unsigned i = source.mNumChildren; i-- > 0;)
            todo_.push_back({source.mChildren[i], node, now.level + 1});
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
        if (index >= cores_.size())
            throw host_error("the file is damaged: a node uses mesh " + std::to_string(index) +
                             " of " + std::to_string(cores_.size()));
        if (!converted_[index])
            convertNext(index);
        const ::osg::GeometryPtr core = cores_[index].get();
        if (core == ::osg::NullFC)
            return;
        const ::osg::NodePtr node = ::osg::Node::create();
        beginEditCP(node);
        node->setCore(core);
        setNameUnlessEmpty(node, names_[index].empty() ? fallback : names_[index]);
        parent->addChild(node);
        endEditCP(node);
    }

    void convertNext(unsigned index) {
        converted_[index] = true;
        const std::unique_ptr<handed_mesh> source = next_(index);
        const aiMesh& mesh = source->mesh;
        const imported_material& material = materialOf(mesh.mMaterialIndex);
        const ::osg::GeometryPtr core = maker_
                                            ? maker_(index, material.coordinate_set)
                                            : importMesh(*source, material.coordinate_set, target_);
        cores_[index] = ::osg::GeometryRefPtr(core);
        if (core == ::osg::NullFC) {
            target_.loose_points += mesh.mNumVertices;
            target_.notes.push_back("mesh '" + std::string(mesh.mName.C_Str()) +
                                    "' has no faces; it is left out");
            return;
        }
        names_[index] = givenName(mesh.mName);
        beginEditCP(core, ::osg::Geometry::MaterialFieldMask);
        core->setMaterial(material.material.get());
        endEditCP(core, ::osg::Geometry::MaterialFieldMask);
        setNameUnlessEmpty(core, names_[index]);
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
    const mesh_source& next_;
    model& target_;
    const core_maker& maker_; ///< none: the meshes have their values
    std::vector<::osg::GeometryRefPtr> cores_;
    std::vector<std::string> names_; ///< of the meshes
    std::vector<bool> converted_;
    std::vector<imported_material> materials_;
    std::vector<step> todo_;
    const std::size_t most_levels_ = mostLevels();
};

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}

} // namespace

std::vector<::osg::MaterialRefPtr> importScene(const handed_scene& source,
                                               const std::string& folder, const mesh_source& next,
                                               model& target, const core_maker& cores) {
    tree_builder builder(source, folder, next, target, cores);
    builder.build();
    target.images_by_name.clear();
    for (std::string& note : notesOn(source.rest))
        target.notes.push_back(std::move(note));
    return builder.materials();
}

void importThroughAssimp(const std::string& path, model& target) {
    importing_library library(path, target.file_bytes);
    const auto document = gltfDocumentOf(path); // while the library reads
    const handed_scene scene = library.scene();
    if (document)
        placeOldNodes(*document, *scene.scene->mRootNode);
    target.files_read.insert(target.files_read.end(), scene.files.begin(), scene.files.end());
    target.materials = importScene(
        scene, folderOf(path), [&](unsigned) { return library.nextMesh(); }, target);
    if (document && document->version() == 2)
        keepRecordsOfLibrary(*document, target);
    else
        keepLibraryRecords(*scene.scene, folderOf(path), target);
}

} // namespace morva::host
