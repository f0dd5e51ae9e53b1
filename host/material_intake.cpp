// From the materials of a glTF file to records.

#include "material_record.h"

#include <algorithm>
#include <cstring>
#include <optional>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include "coordinate_sets.h"
#include "gltf_document.h"
#include "gltf_source.h"
#include "host_error.h"
#include "material_order.h"
#include "model.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

constexpr const char* transform_name = "KHR_texture_transform";

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/// Whether an extension of materials refers to the rest of a file through textures alone.
bool isSelfContained(const std::string& extension) {
    for (const char* family :
         {"KHR_materials_", "EXT_materials_", "ADOBE_materials_", "MSFT_packing_"}) {
        if (extension.compare(0, std::strlen(family), family) == 0)
            return true;
    }
    return false;
}

std::string mimeTypeOf(const std::vector<std::uint8_t>& bytes, const json& image) {
    const auto starts = [&](const char* magic, std::size_t length) {
        return bytes.size() >= length && std::memcmp(bytes.data(), magic, length) == 0;
    };
    if (starts("\x89PNG", 4))
        return "image/png";
    return starts("\xFF\xD8\xFF", 3) ? "image/jpeg" : gltf_source::text(image, "mimeType");
}

const json* member(const json& object, const char* key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    return object.is_object() && found != object.end() ? &*found : nullptr;
}

/// Reads the textures of a file, each once.
class texture_reader {
  public:
    texture_reader(const gltf_document& document, model& target)
        : document_(document), target_(target) {}

    /// Number of a texture in the records; nothing if it cannot be had.
    std::optional<std::size_t> read(std::size_t index) {
        const auto place = textures_.try_emplace(index);
        if (!place.second)
            return place.first->second;
        const json* const texture = document_.entry("textures", index);
        if (texture == nullptr)
            return std::nullopt;
        recorded_texture kept;
        if (const auto sampler = wholeNumber(*texture, "sampler")) {
            const json* const entry = document_.entry("samplers", *sampler);
            kept.sampler = entry != nullptr ? *entry : json::object();
            kept.sampler.erase("name");
        }
        if (const auto source = wholeNumber(*texture, "source"))
            kept.image = imageOf(*source);
        const json* const extensions = member(*texture, "extensions");
        const json none = json::object();
        const bool extended = extensions != nullptr && extensions->is_object();
        for (const auto& [name, entry] : (extended ? *extensions : none).items()) {
            const auto source = entry.is_object() ? wholeNumber(entry, "source") : std::nullopt;
            const int image = source ? imageOf(*source) : -1;
            if (image >= 0)
                kept.by_extension[name] = image;
        }
        if (kept.image >= 0 || !kept.by_extension.empty())
            place.first->second = target_.records.add(std::move(kept));
        return place.first->second;
    }

  private:
    int imageOf(std::size_t index) {
        const auto place = images_.try_emplace(index, -1);
        const json* const image = document_.entry("images", index);
        if (!place.second || image == nullptr)
            return place.first->second;
        recorded_image kept;
        const std::string uri = gltf_source::text(*image, "uri");
        kept.name = gltf_source::text(*image, "name");
        try {
            kept.file.bytes = uri.empty() ? viewOf(*image) : source().file(uri);
        } catch (const host_error&) {
            kept.file.bytes.clear();
        }
        kept.file.mime_type = mimeTypeOf(kept.file.bytes, *image);
        if (kept.file.bytes.empty() || kept.file.mime_type.empty()) {
            target_.notes.push_back("image " + std::to_string(index) +
                                    " cannot be read; it is left out");
            return -1;
        }
        if (!uri.empty() && uri.compare(0, 5, "data:") != 0)
            target_.files_read.push_back(source().pathOf(uri));
        place.first->second = target_.records.add(std::move(kept));
        return place.first->second;
    }

    std::vector<std::uint8_t> viewOf(const json& image) {
        const auto number = wholeNumber(image, "bufferView");
        const auto bytes = number ? document_.view(*number) : std::nullopt;
        if (!bytes)
            return number ? source().view(*number) : std::vector<std::uint8_t>();
        std::vector<std::uint8_t> values(bytes->count);
        document_.read(*bytes, values.data());
        return values;
    }

    /// For what is not in the chunk of a .glb.
    const gltf_source& source() {
        if (!source_)
            source_.emplace(target_.files_read.at(0), "images");
        return *source_;
    }

    const gltf_document& document_;
    model& target_;
    std::optional<gltf_source> source_;
    std::map<std::size_t, std::optional<std::size_t>> textures_;
    std::map<std::size_t, int> images_;
};

/// Takes out what equals a default of the format, so that equal looks have equal texts.
void dropDefaults(json& material) {
    static const std::pair<const char*, json> defaults[] = {
        {"/pbrMetallicRoughness/baseColorFactor", {1, 1, 1, 1}},
        {"/pbrMetallicRoughness/metallicFactor", 1},
        {"/pbrMetallicRoughness/roughnessFactor", 1},
        {"/emissiveFactor", {0, 0, 0}},
        {"/alphaMode", "OPAQUE"},
        {"/alphaCutoff", .5},
        {"/doubleSided", false},
        {"/normalTexture/scale", 1},
        {"/occlusionTexture/strength", 1}};
    for (const auto& [place, value] : defaults) {
        const json::json_pointer pointer(place);
        if (material.contains(pointer) && material[pointer] == value)
            material[pointer.parent_pointer()].erase(pointer.back());
    }
}

/// A texture that a material names, as it stands.
struct named_texture {
    json::json_pointer place;
    std::size_t index = 0;
    std::size_t set = 0;
    json transform; ///< null without one
};

void findTextures(json& object, const json::json_pointer& place,
                  std::vector<named_texture>& found) {
    for (auto& [key, value] : object.items()) {
        if (!value.is_object())
            continue;
        const auto index = wholeNumber(value, "index");
        if (!endsWith(key, "Texture") || !index) {
            findTextures(value, place / key, found);
            continue;
        }
        named_texture texture{place / key, *index, wholeNumber(value, "texCoord").value_or(0), {}};
        value.erase("index");
        value.erase("texCoord");
        if (value.contains("extensions") && value["extensions"].is_object() &&
            value["extensions"].contains(transform_name)) {
            texture.transform = value["extensions"][transform_name];
            texture.set = wholeNumber(texture.transform, "texCoord").value_or(texture.set);
            if (texture.transform.is_object())
                texture.transform.erase("texCoord");
            value["extensions"][transform_name] = texture.transform;
        }
        found.push_back(std::move(texture));
    }
}

/// The texture that the scene holds: that of the colour.
const named_texture* baseOf(const std::vector<named_texture>& textures) {
    for (const char* place : {"/pbrMetallicRoughness/baseColorTexture",
                              "/extensions/KHR_materials_pbrSpecularGlossiness/diffuseTexture"}) {
        for (const named_texture& texture : textures) {
            if (texture.place == json::json_pointer(place))
                return &texture;
        }
    }
    return nullptr;
}

class record_keeper {
  public:
    record_keeper(const gltf_document& document, model& target)
        : document_(document), target_(target), reader_(document, target) {
        for (const ::osg::NodePtr& node : geometryNodes(target.root.get())) {
            const auto core = ::osg::GeometryPtr::dcast(node->getCore());
            if (core->getMaterial() != ::osg::NullFC &&
                seen_.insert(core.getFieldContainerId()).second)
                cores_[core->getMaterial().getFieldContainerId()].push_back(core);
        }
    }

    void keep(std::size_t index, const ::osg::MaterialPtr& material) {
        const json* const source = document_.entry("materials", index);
        if (source == nullptr)
            return;
        material_record record;
        record.material = *source;
        record.name = gltf_source::text(*source, "name");
        if (record.name.empty())
            record.name = "material " + std::to_string(index);
        record.material.erase("name");
        record.material.erase("extras");
        dropStrangers(record);
        dropDefaults(record.material);
        std::vector<named_texture> textures;
        findTextures(record.material, json::json_pointer(), textures);
        const std::vector<::osg::ImagePtr> images = imagesOf(material);
        const named_texture* const base = images.empty() ? nullptr : baseOf(textures);
        const bool says_more = textures.size() > (base != nullptr ? 1u : 0u) ||
                               record.material.contains("extensions") ||
                               (base != nullptr && !base->transform.is_null());
        if (!says_more)
            return;
        addUses(textures, base, material, record);
        target_.records.give(material, std::move(record));
    }

  private:
    /// Extensions that may mean other places of their file.
    void dropStrangers(material_record& record) {
        if (!record.material.contains("extensions"))
            return;
        if (!record.material["extensions"].is_object()) {
            record.material.erase("extensions");
            return;
        }
        json& extensions = record.material["extensions"];
        for (auto entry = extensions.begin(); entry != extensions.end();) {
            if (isSelfContained(entry.key())) {
                ++entry;
                continue;
            }
            target_.notes.push_back("material '" + record.name + "': its extension " + entry.key() +
                                    " is left out");
            entry = extensions.erase(entry);
        }
        if (extensions.empty())
            record.material.erase("extensions");
    }

    void addUses(const std::vector<named_texture>& textures, const named_texture* base,
                 const ::osg::MaterialPtr& material, material_record& record) {
        const std::size_t base_set = base != nullptr && base->set <= 3 ? base->set : 0;
        const bool turned = base != nullptr && !base->transform.is_null();
        unsigned plain_set = 0; // where the coordinates of the base lie before its transform
        for (const named_texture& texture : textures) {
            json& info = record.material[texture.place];
            const bool is_base = &texture == base;
            const bool follows =
                turned &&
                (is_base || (texture.set == base_set && texture.transform == base->transform));
            const auto number = reader_.read(texture.index);
            if (!number && !is_base) {
                record.material[texture.place.parent_pointer()].erase(texture.place.back());
                continue;
            }
            if (follows)
                dropTransform(info);
            unsigned unit = unitOf(texture.set, base_set);
            if (turned && unit == 0 && !follows) {
                if (plain_set == 0)
                    plain_set = copySet(coresOf(material));
                unit = plain_set;
            }
            record.uses.push_back({texture.place, number.value_or(0), unit, is_base});
        }
        if (turned) {
            for (const ::osg::GeometryPtr& core : coresOf(material))
                transformSet(core, base->transform);
        }
    }

    static void dropTransform(json& info) {
        info["extensions"].erase(transform_name);
        if (info["extensions"].empty())
            info.erase("extensions");
    }

    const std::vector<::osg::GeometryPtr>& coresOf(const ::osg::MaterialPtr& material) {
        return cores_[material.getFieldContainerId()];
    }

    const gltf_document& document_;
    model& target_;
    texture_reader reader_;
    std::set<::osg::UInt32> seen_;
    std::map<::osg::UInt32, std::vector<::osg::GeometryPtr>> cores_; ///< by material
};

} // namespace

void keepRecords(const gltf_document& document,
                 const std::vector<::osg::RefPtr<::osg::MaterialPtr>>& by_json_index,
                 model& target) {
    if (document.version() != 2)
        return;
    record_keeper keeper(document, target);
    for (std::size_t i = 0; i < by_json_index.size(); ++i) {
        if (by_json_index[i] != ::osg::NullFC)
            keeper.keep(i, by_json_index[i].get());
    }
    const json* const required = member(document.json(), "extensionsRequired");
    for (const json& name : required != nullptr ? *required : json::array()) {
        if (name.is_string())
            target.records.require(name.get<std::string>());
    }
}

void keepRecordsOfLibrary(const gltf_document& document, model& target) {
    const std::vector<::osg::MaterialRefPtr> materials = std::move(target.materials);
    try {
        keepRecords(document, inFileOrder(document, materials), target);
    } catch (const host_error&) {
        // The scene itself has been read in time.
    }
}

} // namespace morva::host
