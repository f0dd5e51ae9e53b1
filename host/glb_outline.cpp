#include "glb_outline.h"

#include <algorithm>
#include <string>
#include <utility>

#include "glb_json.h"
#include "glb_material.h"
#include "gltf_nodes.h"
#include "stack_room.h"

namespace morva::host {

namespace {

using nlohmann::json;

constexpr unsigned type_uint8 = 5121, type_uint16 = 5123, type_uint32 = 5125, type_float = 5126;

/// Hands the objects of a list over to a scene.
template <typename T>
void handOver(std::vector<std::unique_ptr<T>>& from, T**& list, unsigned& count) {
    list = new T*[from.size()];
    count = static_cast<unsigned>(from.size());
    for (std::size_t i = 0; i < from.size(); ++i)
        list[i] = from[i].release();
}

void requireFloats(const gltf_accessor& values, std::size_t components, std::size_t count) {
    requirePlain(values.component_type == type_float && values.components == components &&
                 values.count == count);
}

/// The index in a name such as "TEXCOORD_1"; nothing if it does not begin so.
std::optional<unsigned> indexIn(const std::string& name, const char* begin) {
    const std::size_t length = std::string(begin).size();
    if (name.compare(0, length, begin) != 0)
        return std::nullopt;
    requirePlain(name.size() == length + 1 && name[length] >= '0' && name[length] <= '7');
    return static_cast<unsigned>(name[length] - '0');
}

class primitive_reader {
  public:
    primitive_reader(const gltf_document& document, const json& from)
        : document_(document), from_(from) {}

    glb_primitive read() {
        requirePlain(from_.is_object() && !from_.contains("targets"));
        const json* const extensions = objectOf(from_, "extensions");
        requirePlain(extensions == nullptr || !extensions->contains("KHR_draco_mesh_compression"));
        made_.mode = numberOf(from_, "mode").value_or(4);
        requirePlain(made_.mode == 0 || made_.mode == 1 || made_.mode == 4);
        const json* const attributes = objectOf(from_, "attributes");
        requirePlain(attributes != nullptr && attributes->contains("POSITION"));
        made_.positions = accessorOf(*attributes, "POSITION");
        requireFloats(made_.positions, 3, made_.positions.count);
        for (const auto& attribute : attributes->items())
            addAttribute(*attributes, attribute.key());
        if (from_.contains("indices"))
            addIndices(accessorOf(from_, "indices"));
        const std::size_t corners = made_.mode == 4 ? 3 : made_.mode == 1 ? 2 : 1;
        requirePlain(made_.cornerCount() != 0 && made_.cornerCount() % corners == 0);
        return made_;
    }

  private:
    gltf_accessor accessorOf(const json& object, const char* key) const {
        const auto index = numberOf(object, key);
        const auto found = index ? document_.accessor(*index) : std::nullopt;
        requirePlain(found.has_value());
        return *found;
    }

    /// Sets of one kind come in the order of their numbers, without gaps.
    void addAttribute(const json& all, const std::string& name) {
        if (name == "POSITION" || name.compare(0, 1, "_") == 0)
            return;
        const gltf_accessor values = accessorOf(all, name.c_str());
        requirePlain(values.count == made_.positions.count);
        if (name == "NORMAL") {
            requireFloats(values, 3, values.count);
            made_.normals = values;
        } else if (const auto set = indexIn(name, "TEXCOORD_")) {
            requireFloats(values, 2, values.count);
            requirePlain(*set == coordinate_sets_++);
            if (*set < made_.coordinates.size())
                made_.coordinates[*set] = values;
        } else if (const auto color = indexIn(name, "COLOR_")) {
            requirePlain(*color == color_sets_++);
            if (*color == 0)
                addColors(values);
        } else {
            requirePlain(name == "TANGENT" || indexIn(name, "JOINTS_") ||
                         indexIn(name, "WEIGHTS_"));
        }
    }

    void addColors(const gltf_accessor& values) {
        const unsigned type = values.component_type;
        requirePlain((type == type_float || type == type_uint8 || type == type_uint16) &&
                     values.components >= 3);
        made_.colors = values;
    }

    void addIndices(const gltf_accessor& values) {
        const unsigned type = values.component_type;
        requirePlain((type == type_uint32 || type == type_uint16 || type == type_uint8) &&
                     values.components == 1 && values.isPacked());
        made_.indices = values;
    }

    const gltf_document& document_;
    const json& from_;
    glb_primitive made_;
    unsigned coordinate_sets_ = 0, color_sets_ = 0;
};

class outline_builder {
  public:
    explicit outline_builder(const gltf_document& document)
        : document_(document), materials_(document), mesh_places_(lengthOf("meshes")),
          made_materials_(lengthOf("materials") + 1), node_used_(lengthOf("nodes"), false) {
        outline_.scene = std::make_unique<aiScene>();
    }

    glb_outline build() {
        for (const char* const list : {"animations", "skins", "extensionsRequired"})
            requirePlain(lengthOf(list) == 0);
        const json* const scene =
            document_.entry("scenes", numberOf(document_.json(), "scene").value_or(0));
        const json* const roots = scene != nullptr ? listOf(*scene, "nodes") : nullptr;
        requirePlain(roots != nullptr && !roots->empty());
        if (roots->size() == 1) {
            addTree((*roots)[0], outline_.scene->mRootNode, nullptr);
        } else {
            aiNode* const top = outline_.scene->mRootNode = new aiNode("ROOT");
            makeChildren(*top, roots->size());
            for (std::size_t i = 0; i < roots->size(); ++i)
                addTree((*roots)[i], top->mChildren[i], top);
        }
        aiScene& made = *outline_.scene;
        handOver(meshes_, made.mMeshes, made.mNumMeshes);
        handOver(made_materials_, made.mMaterials, made.mNumMaterials);
        handOver(materials_.images(), made.mTextures, made.mNumTextures);
        cameras_.erase(std::remove(cameras_.begin(), cameras_.end(), nullptr), cameras_.end());
        handOver(cameras_, made.mCameras, made.mNumCameras);
        return std::move(outline_);
    }

  private:
    /// A node whose children are being added.
    struct open_node {
        const json* from;
        aiNode* made;
        const json* children; ///< null: none
        std::size_t next;     ///< of them
    };
    struct mesh_place {
        std::size_t first = 0, count = 0; ///< in the scene; count 0: not read yet
    };

    std::size_t lengthOf(const char* list) const {
        const json* const found = listOf(document_.json(), list);
        return found == nullptr ? 0 : found->size();
    }

    static void makeChildren(aiNode& node, std::size_t count) {
        node.mChildren = new aiNode*[count]();
        node.mNumChildren = static_cast<unsigned>(count);
    }

    /// Children come before the mesh of their node: that is the order of images in the end.
    void addTree(const json& root, aiNode*& place, aiNode* parent) {
        open(root, place, parent);
        while (!open_.empty()) {
            open_node& last = open_.back();
            if (last.children != nullptr && last.next < last.children->size()) {
                const std::size_t i = last.next++;
                open((*last.children)[i], last.made->mChildren[i], last.made);
            } else {
                setMeshes(*last.from, *last.made);
                open_.pop_back();
            }
        }
    }

    void open(const json& number, aiNode*& place, aiNode* parent) {
        requirePlain(number.is_number_unsigned());
        const auto index = number.get<std::size_t>();
        const json* const from = document_.entry("nodes", index);
        requirePlain(from != nullptr && !node_used_[index] && open_.size() < mostLevels());
        node_used_[index] = true;
        for (const char* const key : {"skin", "weights", "extensions"})
            requirePlain(!from->contains(key));
        const std::string name = textOf(*from, "name");
        place = new aiNode(name.empty() ? "nodes[" + std::to_string(index) + "]" : name);
        place->mParent = parent;
        place->mTransformation = nodeMatrix(*from);
        if (const auto camera = numberOf(*from, "camera"))
            addCamera(*camera);
        const json* const children = listOf(*from, "children");
        if (children != nullptr && !children->empty())
            makeChildren(*place, children->size());
        open_.push_back({from, place, children, 0});
    }

    /// Nothing more than that there is one.
    void addCamera(std::size_t index) {
        const json* const from = document_.entry("cameras", index);
        requirePlain(from != nullptr);
        const bool flat = textOf(*from, "type") == "orthographic";
        requirePlain(objectOf(*from, flat ? "orthographic" : "perspective") != nullptr);
        if (cameras_.size() <= index)
            cameras_.resize(index + 1);
        if (cameras_[index] == nullptr)
            cameras_[index] = std::make_unique<aiCamera>();
    }

    void setMeshes(const json& from, aiNode& node) {
        const auto index = numberOf(from, "mesh");
        if (!index)
            return;
        const mesh_place place = placeOf(*index);
        node.mMeshes = new unsigned[place.count];
        node.mNumMeshes = static_cast<unsigned>(place.count);
        for (std::size_t i = 0; i < place.count; ++i)
            node.mMeshes[i] = static_cast<unsigned>(place.first + i);
    }

    mesh_place placeOf(std::size_t index) {
        const json* const from = document_.entry("meshes", index);
        requirePlain(from != nullptr);
        mesh_place& place = mesh_places_[index];
        if (place.count != 0)
            return place;
        const json* const primitives = listOf(*from, "primitives");
        requirePlain(primitives != nullptr && !primitives->empty());
        std::string name = textOf(*from, "name");
        if (name.empty())
            name = "meshes[" + std::to_string(index) + "]";
        place = {meshes_.size(), primitives->size()};
        for (std::size_t i = 0; i < place.count; ++i)
            addMesh((*primitives)[i], place.count == 1 ? name : name + "-" + std::to_string(i));
        return place;
    }

    void addMesh(const json& from, const std::string& name) {
        outline_.primitives.push_back(primitive_reader(document_, from).read());
        auto mesh = std::make_unique<aiMesh>();
        mesh->mName = name;
        mesh->mMaterialIndex = materialOf(numberOf(from, "material"));
        meshes_.push_back(std::move(mesh));
    }

    unsigned materialOf(std::optional<unsigned> index) {
        const std::size_t place = index ? *index : made_materials_.size() - 1;
        requirePlain(place < made_materials_.size());
        if (made_materials_[place] == nullptr)
            made_materials_[place] = index ? materials_.read(*index) : materials_.standard();
        return static_cast<unsigned>(place);
    }

    const gltf_document& document_;
    glb_outline outline_;
    glb_materials materials_;
    std::vector<mesh_place> mesh_places_; ///< of each mesh of the file
    std::vector<std::unique_ptr<aiMesh>> meshes_;
    std::vector<std::unique_ptr<aiMaterial>> made_materials_;
    std::vector<std::unique_ptr<aiCamera>> cameras_; ///< by their number in the file
    std::vector<bool> node_used_;
    std::vector<open_node> open_;
};

} // namespace

glb_outline outlineOf(const gltf_document& document) {
    requirePlain(document.version() == 2);
    return outline_builder(document).build();
}

} // namespace morva::host
