#include "assimp_export.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>

#include <assimp/Exporter.hpp>
#include <assimp/IOStream.hpp>
#include <assimp/IOSystem.hpp>
#include <assimp/scene.h>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_tools.h>

#include "flat_mesh.h"
#include "gltf_material.h"
#include "host_error.h"
#include "output_file.h"
#include "output_formats.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

/// A file of the exporter that keeps the first failure, which exporters do not look at.
class watched_stream : public Assimp::IOStream {
  public:
    watched_stream(std::FILE* file, std::string& failure) : file_(file), failure_(failure) {}
    ~watched_stream() override { note(std::fclose(file_) == 0); }

    std::size_t Read(void* buffer, std::size_t size, std::size_t count) override {
        return std::fread(buffer, size, count, file_);
    }
    std::size_t Write(const void* buffer, std::size_t size, std::size_t count) override {
        const std::size_t written = std::fwrite(buffer, size, count, file_);
        note(written == count);
        return written;
    }
    aiReturn Seek(std::size_t offset, aiOrigin origin) override {
        static_assert(aiOrigin_SET == SEEK_SET && aiOrigin_CUR == SEEK_CUR &&
                          aiOrigin_END == SEEK_END,
                      "origins are passed on as they are");
        const int from = static_cast<int>(origin);
        return std::fseek(file_, static_cast<long>(offset), from) == 0 ? aiReturn_SUCCESS
                                                                       : aiReturn_FAILURE;
    }
    std::size_t Tell() const override { return static_cast<std::size_t>(std::ftell(file_)); }
    std::size_t FileSize() const override {
        const long here = std::ftell(file_);
        std::fseek(file_, 0, SEEK_END);
        const long end = std::ftell(file_);
        std::fseek(file_, here, SEEK_SET);
        return static_cast<std::size_t>(end);
    }
    void Flush() override { note(std::fflush(file_) == 0); }

  private:
    void note(bool good) {
        if (!good && failure_.empty())
            failure_ = std::strerror(errno);
    }

    std::FILE* file_;
    std::string& failure_;
};

class watched_files : public Assimp::IOSystem {
  public:
    explicit watched_files(std::string& failure) : failure_(failure) {}
    bool Exists(const char* path) const override {
        std::FILE* file = std::fopen(path, "rb");
        if (file != nullptr)
            std::fclose(file);
        return file != nullptr;
    }
    char getOsSeparator() const override { return '/'; }
    Assimp::IOStream* Open(const char* path, const char* mode) override {
        std::FILE* file = std::fopen(path, mode);
        if (file == nullptr && failure_.empty())
            failure_ = std::strerror(errno);
        return file != nullptr ? new watched_stream(file, failure_) : nullptr;
    }
    void Close(Assimp::IOStream* stream) override { delete stream; }

  private:
    std::string& failure_;
};

aiVector3D vectorAt(const flat_attribute& attribute, std::size_t vertex) {
    const auto width = static_cast<std::size_t>(attribute.components);
    const float* value = attribute.values + vertex * width;
    return aiVector3D(value[0], value[1], width > 2 ? value[2] : 0.f);
}

aiVector3D* vectorsOf(const flat_attribute& attribute, std::size_t count) {
    auto* vectors = new aiVector3D[count];
    for (std::size_t i = 0; i < count; ++i)
        vectors[i] = vectorAt(attribute, i);
    return vectors;
}

/// A mesh of one kind: `corners` 3 triangles, 2 lines, 1 points.
std::unique_ptr<aiMesh> meshOf(const flat_mesh& source, const std::vector<std::uint32_t>& indices,
                               unsigned corners, int material) {
    auto mesh = std::make_unique<aiMesh>();
    const std::size_t count = source.vertex_count;
    mesh->mNumVertices = static_cast<unsigned>(count);
    mesh->mVertices = vectorsOf(source.positions, count);
    if (source.normals.components == 3)
        mesh->mNormals = vectorsOf(source.normals, count);
    if (source.colors.components != 0) {
        mesh->mColors[0] = new aiColor4D[count];
        const auto width = static_cast<std::size_t>(source.colors.components);
        for (std::size_t i = 0; i < count; ++i) {
            const float* value = source.colors.values + i * width;
            mesh->mColors[0][i] =
                aiColor4D(value[0], value[1], value[2], width > 3 ? value[3] : 1.f);
        }
    }
    unsigned set = 0;
    for (const flat_attribute& coordinates : source.coordinates) {
        if (coordinates.components != 2 || set == AI_MAX_NUMBER_OF_TEXTURECOORDS)
            continue;
        mesh->mTextureCoords[set] = vectorsOf(coordinates, count);
        mesh->mNumUVComponents[set++] = 2;
    }
    const std::size_t faces = indices.size() / corners;
    mesh->mNumFaces = static_cast<unsigned>(faces);
    mesh->mFaces = new aiFace[faces];
    for (std::size_t f = 0; f < faces; ++f) {
        mesh->mFaces[f].mNumIndices = corners;
        mesh->mFaces[f].mIndices = new unsigned[corners];
        std::copy_n(indices.begin() + static_cast<std::ptrdiff_t>(f * corners), corners,
                    mesh->mFaces[f].mIndices);
    }
    mesh->mPrimitiveTypes = corners == 3   ? aiPrimitiveType_TRIANGLE
                            : corners == 2 ? aiPrimitiveType_LINE
                                           : aiPrimitiveType_POINT;
    mesh->mMaterialIndex = static_cast<unsigned>(material);
    return mesh;
}

template <typename T> T** arrayOf(std::vector<std::unique_ptr<T>>& items) {
    auto** array = new T*[items.size() + 1];
    std::transform(items.begin(), items.end(), array, [](auto& item) { return item.release(); });
    return array;
}

/// Whether two corners use one vertex.
bool sharesVertices(const std::unique_ptr<aiMesh>& mesh) {
    std::vector<bool> used(mesh->mNumVertices, false);
    for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
        for (unsigned i = 0; i < mesh->mFaces[f].mNumIndices; ++i) {
            const unsigned vertex = mesh->mFaces[f].mIndices[i];
            if (used[vertex])
                return true;
            used[vertex] = true;
        }
    }
    return false;
}

class assimp_scene {
  public:
    assimp_scene(const image_sources& images, const std::string& path)
        : images_(images), stem_(path.substr(0, path.rfind('.'))), keeps_(*outputFormatOf(path)) {}

    std::unique_ptr<aiScene> build(const ::osg::NodePtr& root) {
        auto scene = std::make_unique<aiScene>();
        if (root->getTravMask() != 0)
            scene->mRootNode = addNode(root).release();
        else
            scene->mRootNode = new aiNode("root");
        // Steps of the exporters refuse the flag where it is not so, and its lack where it is.
        if (std::any_of(meshes_.begin(), meshes_.end(), sharesVertices))
            scene->mFlags |= AI_SCENE_FLAGS_NON_VERBOSE_FORMAT;
        scene->mNumMeshes = static_cast<unsigned>(meshes_.size());
        scene->mMeshes = arrayOf(meshes_);
        scene->mNumMaterials = static_cast<unsigned>(materials_.size());
        scene->mMaterials = arrayOf(materials_);
        return scene;
    }

  private:
    std::unique_ptr<aiNode> addNode(const ::osg::NodePtr& node) {
        const ::osg::Char8* name = getName(node);
        auto result = std::make_unique<aiNode>(
            name != nullptr ? validUtf8(name) : "node" + std::to_string(node_count_));
        ++node_count_;
        ::osg::Matrix matrix;
        if (placementOf(node, matrix)) {
            for (unsigned row = 0; row < 4; ++row)
                for (unsigned column = 0; column < 4; ++column)
                    result->mTransformation[row][column] = matrix[column][row];
        }
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        if (core != ::osg::NullFC) {
            const std::vector<unsigned>& meshes = meshesOf(node, core);
            result->mNumMeshes = static_cast<unsigned>(meshes.size());
            result->mMeshes = new unsigned[meshes.size() + 1];
            std::copy(meshes.begin(), meshes.end(), result->mMeshes);
        }
        const std::vector<::osg::NodePtr> children = shownChildren(node);
        result->mChildren = new aiNode*[children.size() + 1];
        for (const ::osg::NodePtr& child : children) {
            aiNode* below = addNode(child).release();
            below->mParent = result.get();
            result->mChildren[result->mNumChildren++] = below;
        }
        return result;
    }

    const std::vector<unsigned>& meshesOf(const ::osg::NodePtr& node,
                                          const ::osg::GeometryPtr& core) {
        const int material = materialOf(morva::osg::getMaterial(node));
        const auto place = numbers_.emplace(std::make_pair(core.getFieldContainerId(), material),
                                            std::vector<unsigned>());
        std::vector<unsigned>& numbers = place.first->second;
        if (!place.second)
            return numbers;
        const geometry_view view(core);
        flat_mesh flat(view);
        if (flat.running) {
            flat.triangles.resize(flat.vertex_count);
            for (std::size_t i = 0; i < flat.vertex_count; ++i)
                flat.triangles[i] = static_cast<std::uint32_t>(i);
        }
        const auto add = [&](const std::vector<std::uint32_t>& indices, unsigned corners) {
            if (indices.empty())
                return;
            numbers.push_back(static_cast<unsigned>(meshes_.size()));
            meshes_.push_back(meshOf(flat, indices, corners, material));
            const ::osg::Char8* name = getName(node);
            meshes_.back()->mName = name != nullptr ? validUtf8(name) : std::string();
        };
        add(flat.triangles, 3);
        if (keeps_.lines)
            add(flat.lines, 2);
        if (keeps_.points)
            add(flat.points, 1);
        return numbers;
    }

    int materialOf(const ::osg::MaterialPtr& material) {
        const ::osg::UInt32 id = material != ::osg::NullFC ? material.getFieldContainerId() : 0u;
        const auto place = material_numbers_.emplace(id, static_cast<int>(materials_.size()));
        if (!place.second)
            return place.first->second;
        const ::osg::Char8* given = material != ::osg::NullFC ? getName(material) : nullptr;
        materials_.push_back(std::make_unique<aiMaterial>());
        aiMaterial& target = *materials_.back();
        const aiString name(given != nullptr ? validUtf8(given)
                                             : "material" + std::to_string(place.first->second));
        target.AddProperty(&name, AI_MATKEY_NAME);
        if (material != ::osg::NullFC)
            fill(target, surfaceOf(material));
        return place.first->second;
    }

    void fill(aiMaterial& target, const surface& look) {
        const aiColor4D base(look.base[0], look.base[1], look.base[2], look.base[3]);
        const aiColor3D emission(look.emission[0], look.emission[1], look.emission[2]);
        const aiColor3D specular(look.specular[0], look.specular[1], look.specular[2]);
        const int two_sided = look.two_sided ? 1 : 0;
        target.AddProperty(&base, 1, AI_MATKEY_COLOR_DIFFUSE);
        target.AddProperty(&emission, 1, AI_MATKEY_COLOR_EMISSIVE);
        target.AddProperty(&specular, 1, AI_MATKEY_COLOR_SPECULAR);
        target.AddProperty(&look.shininess, 1, AI_MATKEY_SHININESS);
        target.AddProperty(&look.base[3], 1, AI_MATKEY_OPACITY);
        target.AddProperty(&two_sided, 1, AI_MATKEY_TWOSIDED);
        if (look.image == ::osg::NullFC || !keeps_.textures)
            return;
        const std::string file = imageFile(look.image);
        if (file.empty())
            return;
        const aiString name(file);
        target.AddProperty(&name, AI_MATKEY_TEXTURE_DIFFUSE(0));
    }

    /// Writes an image beside the model, once; returns its file name or an empty text.
    std::string imageFile(const ::osg::ImagePtr& image) {
        const auto place = image_names_.emplace(image.getFieldContainerId(), std::string());
        if (!place.second)
            return place.first->second;
        encoded_image coded;
        const encoded_image* file = images_.find(image);
        if (file == nullptr) {
            coded = {"image/png", encodePng(image)};
            file = &coded;
        }
        if (file->bytes.empty())
            return std::string();
        const std::string path = stem_ + "_" + std::to_string(image_names_.size()) +
                                 (file->mime_type == "image/jpeg" ? ".jpg" : ".png");
        output_file out(path);
        out.write(file->bytes.data(), file->bytes.size());
        out.close();
        place.first->second = path.substr(path.rfind('/') + 1);
        return place.first->second;
    }

    const image_sources& images_;
    std::string stem_;
    std::vector<std::unique_ptr<aiMesh>> meshes_;
    std::vector<std::unique_ptr<aiMaterial>> materials_;
    std::map<std::pair<::osg::UInt32, int>, std::vector<unsigned>> numbers_;
    std::map<::osg::UInt32, int> material_numbers_;
    std::map<::osg::UInt32, std::string> image_names_;
    std::size_t node_count_ = 0;
    const output_format& keeps_; ///< else files become unreadable, or wrong
};

/// The exporter's id for an extension; of STL the binary form. (That of PLY is misread by the
/// library's own importer as soon as there are colours.) Empty if there is none.
std::string formatOf(const Assimp::Exporter& exporter, const std::string& extension) {
    if (extension == "stl")
        return "stlb";
    for (std::size_t i = 0; i < exporter.GetExportFormatCount(); ++i) {
        const aiExportFormatDesc* format = exporter.GetExportFormatDescription(i);
        if (format != nullptr && extension == format->fileExtension)
            return format->id;
    }
    return std::string();
}

} // namespace

void writeThroughAssimp(const ::osg::NodePtr& root, const image_sources& images,
                        const std::string& path) {
    assimp_scene builder(images, path);
    const std::unique_ptr<aiScene> scene = builder.build(root);
    Assimp::Exporter exporter;
    std::string failure;
    exporter.SetIOHandler(new watched_files(failure)); // the exporter deletes it
    const aiReturn done = exporter.Export(scene.get(), formatOf(exporter, extensionOf(path)), path);
    const std::string name = path.substr(path.rfind('/') + 1);
    if (!failure.empty())
        throw host_error("cannot write '" + name + "': " + failure);
    if (done != aiReturn_SUCCESS)
        throw host_error("cannot write '" + name + "': " + exporter.GetErrorString());
}

} // namespace morva::host
