#include "assimp_record.h"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include <assimp/ObjMaterial.h>

#include <OpenSG/OSGSimpleAttachments.h>

#include "assimp_texture.h"
#include "coordinate_sets.h"
#include "gltf_material.h"
#include "material_properties.h"
#include "text.h"

namespace morva::host {

namespace {

using nlohmann::json;

std::string kindName(unsigned type) {
    static const std::map<unsigned, const char*> names = {
        {aiTextureType_DIFFUSE, "colour"},
        {aiTextureType_BASE_COLOR, "colour"},
        {aiTextureType_SPECULAR, "specular"},
        {aiTextureType_AMBIENT, "ambient"},
        {aiTextureType_EMISSIVE, "emission"},
        {aiTextureType_EMISSION_COLOR, "emission"},
        {aiTextureType_HEIGHT, "height"},
        {aiTextureType_NORMALS, "height"}, // grey ones, which hold no normals
        {aiTextureType_NORMAL_CAMERA, "height"},
        {aiTextureType_SHININESS, "shininess"},
        {aiTextureType_OPACITY, "opacity"},
        {aiTextureType_DISPLACEMENT, "displacement"},
        {aiTextureType_LIGHTMAP, "light"},
        {aiTextureType_AMBIENT_OCCLUSION, "occlusion"},
        {aiTextureType_REFLECTION, "reflection"},
        {aiTextureType_METALNESS, "metalness"},
        {aiTextureType_DIFFUSE_ROUGHNESS, "roughness"},
        {aiTextureType_SHEEN, "sheen"},
        {aiTextureType_CLEARCOAT, "clearcoat"},
        {aiTextureType_TRANSMISSION, "transmission"}};
    const auto found = names.find(type);
    return found != names.end() ? found->second : "unknown";
}

/// What the pixels of an image can be.
struct pixel_kinds {
    bool grey = true;        ///< heights
    bool directions = false; ///< about of length 1 and away from the surface, bluish on the whole
};

pixel_kinds kindsOf(const ::osg::ImagePtr& image) {
    const std::size_t bytes = image->getBpp();
    const ::osg::UInt8* const pixels = image->getData();
    pixel_kinds kinds;
    if (bytes < 3 || pixels == nullptr)
        return kinds;
    const std::size_t count = image->getSize() / bytes;
    std::size_t directions = 0;
    double sum[3] = {0., 0., 0.};
    for (std::size_t i = 0; i < count; ++i) {
        const ::osg::UInt8* const pixel = pixels + i * bytes;
        const auto [least, most] = std::minmax({pixel[0], pixel[1], pixel[2]});
        kinds.grey = kinds.grey && most - least <= 4;
        double square = 0.;
        for (unsigned k = 0; k < 3; ++k) {
            const double value = pixel[k] / 127.5 - 1.;
            square += value * value;
            sum[k] += pixel[k];
        }
        directions += pixel[2] >= 128 && std::abs(std::sqrt(square) - 1.) <= .2 ? 1 : 0;
    }
    const double margin = 32. * static_cast<double>(count);
    kinds.directions = 20 * directions >= 19 * count && sum[2] > std::max(sum[0], sum[1]) + margin;
    return kinds;
}

/// The first texture of a kind in a material; further layers of the kind do not come out.
struct library_texture {
    unsigned type = 0;
    std::string name; ///< empty: there is none
};

/// KHR_texture_transform of a texture: null without one that changes anything, nothing for one that
/// the extension, which stretches before it turns, cannot tell.
std::optional<json> transformOf(const property_reader& reader, unsigned type) {
    float values[5] = {0.f, 0.f, 1.f, 1.f, 0.f};
    reader.floats(AI_MATKEY_UVTRANSFORM(type, 0), values, 5);
    const auto [shift_u, shift_v, scale_u, scale_v, turn] = values;
    const bool is_finite =
        std::all_of(values, values + 5, [](float value) { return std::isfinite(value); });
    if (!is_finite || (turn != 0.f && scale_u != scale_v))
        return std::nullopt;
    if (shift_u == 0.f && shift_v == 0.f && scale_u == 1.f && scale_v == 1.f && turn == 0.f)
        return json();
    // The library shifts, turns and scales, in this order, from an origin at the bottom.
    const float c = std::cos(turn), s = std::sin(turn);
    return json{{"offset",
                 {scale_u * (c * shift_u - s * shift_v - s),
                  1.f - scale_v * (c + s * shift_u + c * shift_v)}},
                {"scale", {scale_u, scale_v}},
                {"rotation", turn}};
}

/// Factors of extensions that materials have where they are not 0.
void addExtensions(const property_reader& reader, json& material) {
    struct row {
        const char* key;
        const char* extension;
        const char* member;
        const char* roughness; ///< null: none
    };
    static const row rows[] = {
        {"$mat.clearcoat.factor", "KHR_materials_clearcoat", "clearcoatFactor",
         "$mat.clearcoat.roughnessFactor"},
        {"$mat.transmission.factor", "KHR_materials_transmission", "transmissionFactor", nullptr}};
    const auto valueOf = [&](const char* key) {
        float value = 0.f;
        reader.floats(key, 0, 0, &value, 1);
        return std::isfinite(value) ? std::clamp(value, 0.f, 1.f) : 0.f;
    };
    for (const row& one : rows) {
        const float value = valueOf(one.key);
        if (value == 0.f)
            continue;
        json& extension = material["extensions"][one.extension];
        extension[one.member] = value;
        if (one.roughness != nullptr && valueOf(one.roughness) != 0.f)
            extension["clearcoatRoughnessFactor"] = valueOf(one.roughness);
    }
}

/// Reads the textures of a scene, each once.
class library_images {
  public:
    library_images(const aiScene& scene, const std::string& folder, model& target)
        : scene_(scene), folder_(folder), target_(target) {}

    struct entry {
        int number = -1; ///< -1: it cannot be read
        pixel_kinds kinds;
    };

    const entry& read(const std::string& name) {
        const auto place = entries_.try_emplace(name);
        if (!place.second)
            return place.first->second;
        found_texture found = findTexture(scene_, name, folder_, true, target_);
        const ::osg::ImageRefPtr image(found.image);
        if (image == ::osg::NullFC)
            return place.first->second;
        place.first->second.kinds = kindsOf(image.get());
        if (found.file.mime_type.empty())
            found.file = {"image/png", encodePng(image.get())};
        if (!found.file.bytes.empty())
            place.first->second.number = target_.records.add({name, std::move(found.file)});
        return place.first->second;
    }

  private:
    const aiScene& scene_;
    const std::string& folder_;
    model& target_;
    std::map<std::string, entry> entries_;
};

/// Makes the record of one material.
class record_maker {
  public:
    record_maker(const aiMaterial& source, const ::osg::MaterialPtr& material,
                 library_images& images, model& target)
        : source_(source), reader_(source), look_(surfaceOf(material)), images_(images),
          target_(target) {
        record_.material = materialOf(look_);
        const ::osg::Char8* const name = getName(material);
        record_.name = name != nullptr ? name : "material without a name";
        base_ = textureOf({aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE});
        if (look_.image == ::osg::NullFC)
            return;
        base_set_ = reader_.coordinateSet(base_.type);
        base_transform_ = transformOf(reader_, base_.type);
        record_.uses.push_back(
            {json::json_pointer("/pbrMetallicRoughness/baseColorTexture"), 0, 0, true});
    }

    /// The record; nothing if the scene holds all of the material.
    std::optional<material_record> make() {
        const std::size_t before = record_.uses.size();
        keepNormals();
        keepEmission();
        for (const unsigned type : {aiTextureType_AMBIENT_OCCLUSION, aiTextureType_LIGHTMAP}) {
            const library_texture texture = textureOf({type});
            // Light maps that are the colour's are habits of writers.
            if (texture.name != base_.name && keep(texture, "/occlusionTexture"))
                break;
        }
        keepMetalnessAndRoughness();
        addExtensions(reader_, record_.material);
        if (record_.uses.size() == before && !record_.material.contains("extensions"))
            return std::nullopt;
        return std::move(record_);
    }

    /// Files of textures without a place, but those that have been noted otherwise.
    std::set<std::string> leftOut(std::set<std::string>& kinds) const {
        std::set<std::string> names;
        for (unsigned i = 0; i < source_.mNumProperties; ++i) {
            const aiMaterialProperty* const property = source_.mProperties[i];
            if (property == nullptr ||
                std::strcmp(property->mKey.C_Str(), _AI_MATKEY_TEXTURE_BASE) != 0)
                continue;
            const std::string name =
                reader_.text(_AI_MATKEY_TEXTURE_BASE, property->mSemantic, property->mIndex);
            if (name.empty() || name == base_.name || settled_.count(name) != 0)
                continue;
            names.insert(name);
            kinds.insert(kindName(property->mSemantic));
        }
        return names;
    }

  private:
    /// That of the first kind that has one.
    library_texture textureOf(std::initializer_list<unsigned> types) const {
        for (const unsigned type : types) {
            std::string name = reader_.text(_AI_MATKEY_TEXTURE_BASE, type, 0);
            if (!name.empty())
                return {type, std::move(name)};
        }
        return {};
    }

    void keepNormals() {
        for (const unsigned type :
             {aiTextureType_NORMALS, aiTextureType_NORMAL_CAMERA, aiTextureType_HEIGHT}) {
            const library_texture texture = textureOf({type});
            if (texture.name.empty() || texture.name == base_.name)
                continue;
            const pixel_kinds& kinds = images_.read(texture.name).kinds;
            const bool fits = type == aiTextureType_HEIGHT ? kinds.directions : !kinds.grey;
            if (images_.read(texture.name).number < 0)
                settled_.insert(texture.name);
            if (!fits || !keep(texture, "/normalTexture"))
                continue;
            float scale = 1.f;
            reader_.floats(AI_MATKEY_OBJ_BUMPMULT(type, 0), &scale, 1);
            if (scale != 1.f && std::isfinite(scale))
                record_.material["normalTexture"]["scale"] = scale;
            return;
        }
    }

    void keepEmission() {
        const bool is_dark = !record_.material.contains("emissiveFactor");
        if (keep(textureOf({aiTextureType_EMISSION_COLOR, aiTextureType_EMISSIVE}),
                 "/emissiveTexture") &&
            is_dark)
            record_.material["emissiveFactor"] = {1, 1, 1};
    }

    void keepMetalnessAndRoughness() {
        const library_texture texture = textureOf({aiTextureType_METALNESS});
        if (texture.name != textureOf({aiTextureType_DIFFUSE_ROUGHNESS}).name ||
            !keep(texture, "/pbrMetallicRoughness/metallicRoughnessTexture"))
            return;
        // Factors of 0 stand where the texture takes their place.
        json& pbr = record_.material["pbrMetallicRoughness"];
        float roughness = 0.f;
        reader_.floats(AI_MATKEY_ROUGHNESS_FACTOR, &roughness, 1);
        if (look_.metalness == 0.f)
            pbr["metallicFactor"] = 1;
        if (roughness <= 0.f || !std::isfinite(roughness))
            pbr["roughnessFactor"] = 1;
    }

    /// Gives a texture a place; whether it could be read.
    bool keep(const library_texture& texture, const char* place) {
        const bool is_noted = texture.name == base_.name && look_.image == ::osg::NullFC;
        if (texture.name.empty() || is_noted)
            return false;
        settled_.insert(texture.name);
        const int image = images_.read(texture.name).number;
        if (image < 0)
            return false;
        recorded_texture kept;
        kept.sampler = {
            {"wrapS", wrapOf(reader_.integer(AI_MATKEY_MAPPINGMODE_U(texture.type, 0), 0))},
            {"wrapT", wrapOf(reader_.integer(AI_MATKEY_MAPPINGMODE_V(texture.type, 0), 0))}};
        kept.image = image;
        const json::json_pointer pointer(place);
        record_.uses.push_back({pointer, target_.records.add(std::move(kept)),
                                unitOf(reader_.coordinateSet(texture.type), base_set_), false});
        addTransform(texture, record_.material[pointer]);
        return true;
    }

    /// One that the colour has as well is not told, so that both stay upon each other.
    void addTransform(const library_texture& texture, json& info) {
        info = json::object();
        const std::optional<json> transform = transformOf(reader_, texture.type);
        if (!transform)
            target_.notes.push_back("material '" + record_.name + "': the transform of texture '" +
                                    texture.name + "' is left out");
        else if (!transform->is_null() && transform != base_transform_)
            info["extensions"]["KHR_texture_transform"] = *transform;
    }

    const aiMaterial& source_;
    const property_reader reader_;
    const surface look_;
    library_images& images_;
    model& target_;
    material_record record_;
    library_texture base_;
    std::size_t base_set_ = 0;
    std::optional<json> base_transform_;
    std::set<std::string> settled_; ///< files that are kept, or noted as unreadable
};

} // namespace

void keepLibraryRecords(const aiScene& scene, const std::string& folder, model& target) {
    library_images images(scene, folder, target);
    std::set<std::string> kinds;
    std::size_t left_out = 0;
    for (std::size_t i = 0; i < target.materials.size(); ++i) {
        const ::osg::MaterialPtr material = target.materials[i].get();
        if (material == ::osg::NullFC)
            continue;
        record_maker maker(*scene.mMaterials[i], material, images, target);
        std::optional<material_record> record = maker.make();
        left_out += maker.leftOut(kinds).size();
        if (record)
            target.records.give(material, std::move(*record));
    }
    if (left_out == 0)
        return;
    std::string text;
    for (const std::string& kind : kinds)
        text += (text.empty() ? "" : ", ") + kind;
    target.notes.push_back(std::to_string(left_out) +
                           (left_out == 1 ? " texture is left out: " : " textures are left out: ") +
                           text);
}

} // namespace morva::host
