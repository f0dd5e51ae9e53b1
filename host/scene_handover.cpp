#include "scene_handover.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_set>
#include <utility>

#include "host_error.h"
#include "stack_room.h"

namespace morva::host {

namespace {

/// What follows in the stream.
enum class handover : char { what_was_asked, failure, shortage };

[[noreturn]] void damaged(const aiMesh& mesh, const std::string& what) {
    throw host_error("the file is damaged: mesh '" + std::string(mesh.mName.C_Str()) + "' " + what);
}

// ---- sending

/// Nodes from the root on, each before its children, and these in order.
std::vector<const aiNode*> nodesOf(const aiScene& scene) {
    std::vector<const aiNode*> nodes;
    std::unordered_set<const aiNode*> seen;
    std::vector<std::pair<const aiNode*, std::size_t>> todo = {{scene.mRootNode, 1}};
    const std::size_t most_levels = mostLevels();
    while (!todo.empty()) {
        const auto [node, level] = todo.back();
        todo.pop_back();
        if (level > most_levels)
            throw host_error(tooDeep());
        if (!seen.insert(node).second)
            throw host_error("the file is damaged: its node tree is no tree");
        if ((node->mNumChildren != 0 && node->mChildren == nullptr) ||
            (node->mNumMeshes != 0 && node->mMeshes == nullptr))
            throw host_error("the file is damaged: a node lacks its list of children or meshes");
        nodes.push_back(node);
        for (unsigned i = node->mNumChildren; i-- > 0;) {
            if (node->mChildren[i] != nullptr)
                todo.emplace_back(node->mChildren[i], level + 1);
        }
    }
    return nodes;
}

/// The meshes that nodes use, by first use.
std::vector<const aiMesh*> meshesOf(const aiScene& scene, const std::vector<const aiNode*>& nodes) {
    std::vector<const aiMesh*> meshes;
    std::vector<bool> used(scene.mNumMeshes, false);
    for (const aiNode* node : nodes) {
        for (unsigned i = 0; i < node->mNumMeshes; ++i) {
            const unsigned index = node->mMeshes[i];
            if (index >= scene.mNumMeshes || scene.mMeshes[index] == nullptr)
                throw host_error("the file is damaged: a node uses mesh " + std::to_string(index) +
                                 " of " + std::to_string(scene.mNumMeshes));
            if (!used[index])
                meshes.push_back(scene.mMeshes[index]);
            used[index] = true;
        }
    }
    return meshes;
}

void sendName(const aiString& name, pipe_writer& out) {
    out.text({name.data, std::min<std::size_t>(name.length, sizeof name.data - 1)});
}

void sendNodes(const std::vector<const aiNode*>& nodes, pipe_writer& out) {
    for (const aiNode* node : nodes) {
        sendName(node->mName, out);
        out.value(node->mTransformation);
        out.value(node->mNumMeshes);
        out.array(node->mMeshes, node->mNumMeshes);
        unsigned children = 0;
        for (unsigned i = 0; i < node->mNumChildren; ++i)
            children += node->mChildren[i] != nullptr ? 1 : 0;
        out.value(children);
    }
}

template <typename T> void sendArray(const T* first, std::size_t count, pipe_writer& out) {
    out.value(first != nullptr);
    if (first != nullptr)
        out.array(first, count);
}

/// Corners of a face, whose indices are there. errors  host_error
unsigned cornersOf(const aiMesh& mesh, const aiFace& face) {
    if (face.mNumIndices != 0 && face.mIndices == nullptr)
        damaged(mesh, "has a face without indices");
    return face.mNumIndices;
}

/// The kinds of faces in the order in which they are sent; polygons are all above 3.
enum face_kind : std::size_t { triangle, line, point, polygon, kinds };

face_kind kindOf(unsigned corners) {
    return corners == 3 ? triangle : corners == 2 ? line : corners == 1 ? point : polygon;
}

struct face_counts {
    std::uint64_t corners[kinds] = {};
    std::uint64_t polygons = 0;
};

face_counts countFaces(const aiMesh& mesh) {
    if (mesh.mNumFaces != 0 && mesh.mFaces == nullptr)
        damaged(mesh, "has faces without an array");
    face_counts counts;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const unsigned corners = cornersOf(mesh, mesh.mFaces[f]);
        counts.corners[kindOf(corners)] += corners;
        counts.polygons += corners > 3 ? 1 : 0;
    }
    return counts;
}

/// Gathers numbers to be sent in large pieces.
class number_sender {
  public:
    explicit number_sender(pipe_writer& out) : out_(out) { piece_.reserve(most); }
    void send(const unsigned* numbers, std::size_t count) {
        if (piece_.size() + count > most)
            flush();
        if (count > most)
            out_.array(numbers, count);
        else
            piece_.insert(piece_.end(), numbers, numbers + count);
    }
    void flush() {
        out_.array(piece_.data(), piece_.size());
        piece_.clear();
    }

  private:
    static constexpr std::size_t most = 32 << 10;
    pipe_writer& out_;
    std::vector<unsigned> piece_;
};

void sendFaces(const aiMesh& mesh, const face_counts& counts, number_sender& numbers,
               pipe_writer& out) {
    for (const face_kind kind : {triangle, line, point, polygon}) {
        out.value(counts.corners[kind]);
        if (counts.corners[kind] == 0)
            continue;
        for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
            const aiFace& face = mesh.mFaces[f];
            if (kindOf(face.mNumIndices) == kind)
                numbers.send(face.mIndices, face.mNumIndices);
        }
        numbers.flush();
    }
    out.value(counts.polygons);
    for (unsigned f = 0; counts.polygons != 0 && f < mesh.mNumFaces; ++f) {
        if (mesh.mFaces[f].mNumIndices > 3)
            numbers.send(&mesh.mFaces[f].mNumIndices, 1);
    }
    numbers.flush();
}

void sendMesh(const aiMesh& mesh, number_sender& numbers, pipe_writer& out) {
    const face_counts counts = countFaces(mesh);
    out.value(handover::what_was_asked);
    sendName(mesh.mName, out);
    out.value(mesh.mMaterialIndex);
    out.value(mesh.mNumVertices);
    sendArray(mesh.mVertices, mesh.mNumVertices, out);
    sendArray(mesh.mNormals, mesh.mNumVertices, out);
    for (const aiColor4D* colors : mesh.mColors)
        sendArray(colors, mesh.mNumVertices, out);
    for (const aiVector3D* coordinates : mesh.mTextureCoords)
        sendArray(coordinates, mesh.mNumVertices, out);
    sendFaces(mesh, counts, numbers, out);
}

void sendMaterial(const aiMaterial& material, pipe_writer& out) {
    const auto isThere = [](const aiMaterialProperty* property) {
        return property != nullptr && property->mData != nullptr;
    };
    aiMaterialProperty* const* const first = material.mProperties;
    aiMaterialProperty* const* const end = first + (first != nullptr ? material.mNumProperties : 0);
    out.value<std::uint64_t>(std::count_if(first, end, isThere));
    for (aiMaterialProperty* const* at = first; at != end; ++at) {
        if (!isThere(*at))
            continue;
        const aiMaterialProperty* property = *at;
        sendName(property->mKey, out);
        out.value(property->mSemantic);
        out.value(property->mIndex);
        out.value(property->mType);
        out.value(property->mDataLength);
        out.array(property->mData, property->mDataLength);
    }
}

std::size_t bytesOf(const aiTexture& texture) {
    return texture.mHeight == 0 ? texture.mWidth
                                : sizeof(aiTexel) * texture.mWidth * texture.mHeight;
}

void sendTexture(const aiTexture& texture, pipe_writer& out) {
    sendName(texture.mFilename, out);
    out.value(texture.mWidth);
    out.value(texture.mHeight);
    out.value(texture.achFormatHint);
    sendArray(reinterpret_cast<const char*>(texture.pcData), bytesOf(texture), out);
}

left_out restOf(const aiScene& scene) {
    left_out rest;
    rest.animations = scene.mNumAnimations;
    rest.cameras = scene.mNumCameras;
    rest.lights = scene.mNumLights;
    for (unsigned i = 0; i < scene.mNumMeshes; ++i) {
        const aiMesh* mesh = scene.mMeshes[i];
        rest.skins += mesh != nullptr && mesh->mNumBones != 0 ? 1 : 0;
        rest.morphs += mesh != nullptr && mesh->mNumAnimMeshes != 0 ? 1 : 0;
    }
    return rest;
}

/// Sends pointers that may be null; `send` is called for the others.
template <typename T, typename Send>
void sendEach(T* const* items, unsigned count, pipe_writer& out, Send send) {
    out.value<unsigned>(items != nullptr ? count : 0);
    for (unsigned i = 0; items != nullptr && i < count; ++i) {
        out.value(items[i] != nullptr);
        if (items[i] != nullptr)
            send(i);
    }
}

// ---- receiving

/// Throws what was sent in place of what was asked for.
void expect(pipe_reader& in) {
    switch (in.value<handover>()) {
    case handover::what_was_asked:
        return;
    case handover::failure:
        throw host_error(in.text());
    case handover::shortage:
        throw std::bad_alloc();
    }
}

void receiveName(pipe_reader& in, aiString& name) { name.Set(in.text()); }

/// The fields of one node; returns how many children follow.
unsigned receiveNode(pipe_reader& in, aiNode& node) {
    receiveName(in, node.mName);
    in.bytes(&node.mTransformation, sizeof node.mTransformation);
    const auto meshes = in.value<unsigned>();
    node.mMeshes = new unsigned[meshes];
    in.array(node.mMeshes, meshes);
    node.mNumMeshes = meshes;
    return in.value<unsigned>();
}

void receiveNodes(pipe_reader& in, aiScene& scene) {
    scene.mRootNode = new aiNode;
    std::vector<std::pair<aiNode*, unsigned>> open; ///< with the children that are to come
    const auto add = [&](aiNode& node) {
        const unsigned children = receiveNode(in, node);
        node.mChildren = new aiNode*[children];
        if (open.size() >= mostLevels())
            throw host_error(tooDeep());
        open.emplace_back(&node, children);
    };
    add(*scene.mRootNode);
    while (!open.empty()) {
        auto& [parent, left] = open.back();
        if (left == 0) {
            open.pop_back();
            continue;
        }
        --left;
        auto* const child = new aiNode;
        child->mParent = parent;
        parent->mChildren[parent->mNumChildren++] = child;
        add(*child);
    }
}

template <typename T> void receiveArray(pipe_reader& in, T*& array, std::size_t count) {
    if (!in.value<bool>())
        return;
    // Without the zeros of the vectors' own constructors.
    array = static_cast<T*>(::operator new[](count * sizeof(T)));
    in.bytes(array, count * sizeof(T));
}

void receiveMaterial(pipe_reader& in, aiMaterial& material) {
    const auto count = in.value<std::uint64_t>();
    delete[] material.mProperties;
    material.mProperties = nullptr;
    material.mProperties = new aiMaterialProperty*[count];
    material.mNumAllocated = static_cast<unsigned>(count);
    for (std::uint64_t i = 0; i < count; ++i) {
        auto* const property = new aiMaterialProperty;
        material.mProperties[material.mNumProperties++] = property;
        receiveName(in, property->mKey);
        property->mSemantic = in.value<unsigned>();
        property->mIndex = in.value<unsigned>();
        property->mType = in.value<aiPropertyTypeInfo>();
        const auto bytes = in.value<unsigned>();
        property->mData = new char[bytes];
        in.array(property->mData, bytes);
        property->mDataLength = bytes;
    }
}

void receiveTexture(pipe_reader& in, aiTexture& texture) {
    receiveName(in, texture.mFilename);
    texture.mWidth = in.value<unsigned>();
    texture.mHeight = in.value<unsigned>();
    in.bytes(texture.achFormatHint, sizeof texture.achFormatHint);
    if (!in.value<bool>())
        return;
    const std::size_t bytes = bytesOf(texture);
    texture.pcData = new aiTexel[(bytes + sizeof(aiTexel) - 1) / sizeof(aiTexel)];
    in.bytes(texture.pcData, bytes);
}

/// Counterpart of sendEach(). An item that is not there stays null, or is an empty one.
template <typename T, typename Receive>
void receiveEach(pipe_reader& in, T**& items, unsigned& count, bool empty_ones, Receive receive) {
    const auto all = in.value<unsigned>();
    items = new T*[all]();
    count = all;
    for (unsigned i = 0; i < all; ++i) {
        const bool there = in.value<bool>();
        if (there || empty_ones)
            items[i] = new T;
        if (there)
            receive(i);
    }
}

} // namespace

std::vector<std::string> notesOn(const left_out& rest) {
    const std::pair<unsigned, const char*> counts[] = {{rest.animations, "animation"},
                                                       {rest.skins, "skin"},
                                                       {rest.morphs, "set of morph targets"},
                                                       {rest.cameras, "camera"},
                                                       {rest.lights, "light"}};
    std::vector<std::string> notes;
    for (const auto& [count, what] : counts) {
        std::string name = what;
        if (count > 1)
            name.insert(name.compare(0, 4, "set ") == 0 ? 3 : name.size(), "s");
        if (count != 0)
            notes.push_back(std::to_string(count) + " " + name +
                            (count == 1 ? " is left out" : " are left out"));
    }
    return notes;
}

void checkIndex(const aiMesh& mesh, std::uint32_t index) {
    if (index >= mesh.mNumVertices)
        damaged(mesh, "has a face that uses vertex " + std::to_string(index) + " of " +
                          std::to_string(mesh.mNumVertices));
}

std::uint32_t face_lists::highest() const {
    std::uint32_t most = 0;
    for (const auto* list : {&triangles, &lines, &points, &polygons}) {
        for (const std::uint32_t index : *list)
            most = std::max(most, index);
    }
    return most;
}

void checkFaces(const aiMesh& mesh) {
    if (mesh.mNumFaces != 0 && mesh.mFaces == nullptr)
        damaged(mesh, "has faces without an array");
    for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const unsigned* const indices = mesh.mFaces[f].mIndices;
        const unsigned corners = cornersOf(mesh, mesh.mFaces[f]);
        for (unsigned i = 0; i < corners; ++i)
            checkIndex(mesh, indices[i]);
    }
}

void sendScene(const aiScene& scene, const std::set<std::string>& files, pipe_writer& out) {
    if (scene.mRootNode == nullptr)
        throw host_error("the file holds no scene");
    if (scene.mNumMeshes != 0 && scene.mMeshes == nullptr)
        throw host_error("the file is damaged: it lacks its list of meshes");
    const std::vector<const aiNode*> nodes = nodesOf(scene);
    const std::vector<const aiMesh*> meshes = meshesOf(scene, nodes);
    out.value(handover::what_was_asked);
    out.value<std::uint64_t>(files.size());
    for (const std::string& file : files)
        out.text(file);
    out.value(restOf(scene));
    out.value(scene.mNumMeshes);
    sendNodes(nodes, out);
    sendEach(scene.mMaterials, scene.mNumMaterials, out,
             [&](unsigned i) { sendMaterial(*scene.mMaterials[i], out); });
    sendEach(scene.mTextures, scene.mNumTextures, out,
             [&](unsigned i) { sendTexture(*scene.mTextures[i], out); });
    number_sender numbers(out);
    for (const aiMesh* mesh : meshes)
        sendMesh(*mesh, numbers, out);
}

void sendFailure(const std::string& reason, pipe_writer& out) {
    out.value(handover::failure);
    out.text(reason);
}

void sendShortage(pipe_writer& out) { out.value(handover::shortage); }

handed_scene receiveScene(pipe_reader& in) {
    expect(in);
    handed_scene result;
    for (auto left = in.value<std::uint64_t>(); left != 0; --left)
        result.files.push_back(in.text());
    result.rest = in.value<left_out>();
    result.meshes = in.value<unsigned>();
    result.scene = std::make_unique<aiScene>();
    aiScene& scene = *result.scene;
    receiveNodes(in, scene);
    receiveEach(in, scene.mMaterials, scene.mNumMaterials, false,
                [&](unsigned i) { receiveMaterial(in, *scene.mMaterials[i]); });
    receiveEach(in, scene.mTextures, scene.mNumTextures, true, // which its search expects
                [&](unsigned i) { receiveTexture(in, *scene.mTextures[i]); });
    return result;
}

std::unique_ptr<handed_mesh> receiveMesh(pipe_reader& in) {
    expect(in);
    auto result = std::make_unique<handed_mesh>();
    aiMesh& mesh = result->mesh;
    receiveName(in, mesh.mName);
    mesh.mMaterialIndex = in.value<unsigned>();
    mesh.mNumVertices = in.value<unsigned>();
    receiveArray(in, mesh.mVertices, mesh.mNumVertices);
    receiveArray(in, mesh.mNormals, mesh.mNumVertices);
    for (aiColor4D*& colors : mesh.mColors)
        receiveArray(in, colors, mesh.mNumVertices);
    for (aiVector3D*& coordinates : mesh.mTextureCoords)
        receiveArray(in, coordinates, mesh.mNumVertices);
    face_lists& faces = result->faces;
    for (auto* list :
         {&faces.triangles, &faces.lines, &faces.points, &faces.polygons, &faces.polygon_lengths})
        in.list(*list);
    return result;
}

} // namespace morva::host
