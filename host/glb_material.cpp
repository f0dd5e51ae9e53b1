#include "glb_material.h"

#include <limits>

#include <assimp/GltfMaterial.h>

#include <OpenSG/OSGGL.h>

#include "glb_json.h"

namespace morva::host {

namespace {

using nlohmann::json;

/// Extensions whose textures the import library counts, or lets stand for others.
constexpr const char* extensions_with_textures[] = {
    "KHR_materials_pbrSpecularGlossiness", "KHR_materials_sheen", "KHR_materials_clearcoat",
    "KHR_materials_transmission", "KHR_materials_volume"};

const json& emptyObject() {
    static const json none = json::object();
    return none;
}

void addText(const std::string& text, const char* key, unsigned kind, unsigned index,
             aiMaterial& to) {
    const aiString value(text);
    to.AddProperty(&value, key, kind, index);
}

void addNumber(int number, const char* key, unsigned kind, unsigned index, aiMaterial& to) {
    to.AddProperty(&number, 1, key, kind, index);
}

aiTextureMapMode wrapOf(std::optional<unsigned> mode) {
    return mode == GL_MIRRORED_REPEAT ? aiTextureMapMode_Mirror
           : mode == GL_CLAMP_TO_EDGE ? aiTextureMapMode_Clamp
                                      : aiTextureMapMode_Wrap;
}

/// Everything but the textures.
void addFactors(const json& from, const json& metal, aiMaterial& to) {
    aiColor4D base(1.f, 1.f, 1.f, 1.f), emission(0.f, 0.f, 0.f, 1.f);
    readFloats(metal, "baseColorFactor", &base.r, 4);
    readFloats(from, "emissiveFactor", &emission.r, 3);
    const float metalness = floatOf(metal, "metallicFactor", 1.f);
    const float roughness = floatOf(metal, "roughnessFactor", 1.f);
    const float cutoff = floatOf(from, "alphaCutoff", .5f);
    float shininess = 1.f - roughness;
    shininess *= shininess * 1000.f;
    to.AddProperty(&base, 1, AI_MATKEY_BASE_COLOR);
    to.AddProperty(&emission, 1, AI_MATKEY_COLOR_EMISSIVE);
    to.AddProperty(&metalness, 1, AI_MATKEY_METALLIC_FACTOR);
    to.AddProperty(&roughness, 1, AI_MATKEY_ROUGHNESS_FACTOR);
    to.AddProperty(&shininess, 1, AI_MATKEY_SHININESS);
    to.AddProperty(&base.a, 1, AI_MATKEY_OPACITY);
    to.AddProperty(&cutoff, 1, AI_MATKEY_GLTF_ALPHACUTOFF);

    const json* const sides = memberOf(from, "doubleSided");
    requirePlain(sides == nullptr || sides->is_boolean());
    addNumber(sides != nullptr && *sides == true ? 1 : 0, AI_MATKEY_TWOSIDED, to);
    addText(from.contains("alphaMode") ? textOf(from, "alphaMode") : "OPAQUE",
            AI_MATKEY_GLTF_ALPHAMODE, to);
    const std::string name = textOf(from, "name");
    if (!name.empty())
        addText(name, AI_MATKEY_NAME, to);
}

} // namespace

glb_materials::glb_materials(const gltf_document& document) : document_(document) {
    const json* const images = listOf(document.json(), "images");
    names_.resize(images == nullptr ? 0 : images->size());
}

std::unique_ptr<aiMaterial> glb_materials::standard() {
    auto made = std::make_unique<aiMaterial>();
    addFactors(emptyObject(), emptyObject(), *made);
    return made;
}

std::unique_ptr<aiMaterial> glb_materials::read(std::size_t index) {
    const json* const from = document_.entry("materials", index);
    requirePlain(from != nullptr);
    if (const json* const extensions = objectOf(*from, "extensions")) {
        for (const char* const name : extensions_with_textures)
            requirePlain(!extensions->contains(name));
    }
    const json* const metal = objectOf(*from, "pbrMetallicRoughness");
    const json& colors = metal != nullptr ? *metal : emptyObject();
    auto made = std::make_unique<aiMaterial>();
    addFactors(*from, colors, *made);
    // In the order in which the import library comes upon the images.
    addTexture(colors, "baseColorTexture", aiTextureType_BASE_COLOR, *made);
    addTexture(colors, "metallicRoughnessTexture", aiTextureType_METALNESS, *made);
    addTexture(*from, "normalTexture", aiTextureType_NORMALS, *made);
    addTexture(*from, "occlusionTexture", aiTextureType_LIGHTMAP, *made);
    addTexture(*from, "emissiveTexture", aiTextureType_EMISSIVE, *made);
    return made;
}

void glb_materials::addTexture(const json& owner, const char* key, aiTextureType kind,
                               aiMaterial& to) {
    const json* const use = objectOf(owner, key);
    if (use == nullptr)
        return;
    const auto index = numberOf(*use, "index");
    const json* const texture = index ? document_.entry("textures", *index) : nullptr;
    requirePlain(texture != nullptr && !use->contains("extensions"));
    const auto image = numberOf(*texture, "source");
    if (!image)
        return;
    addText(imageName(*image), AI_MATKEY_TEXTURE(kind, 0), to);
    addNumber(static_cast<int>(numberOf(*use, "texCoord").value_or(0)), AI_MATKEY_UVWSRC(kind, 0),
              to);
    addSampler(*texture, kind, to);
}

void glb_materials::addSampler(const json& texture, aiTextureType kind, aiMaterial& to) const {
    const auto index = numberOf(texture, "sampler");
    if (!index)
        return;
    const json* const sampler = document_.entry("samplers", *index);
    requirePlain(sampler != nullptr);
    addNumber(wrapOf(numberOf(*sampler, "wrapS")), AI_MATKEY_MAPPINGMODE_U(kind, 0), to);
    addNumber(wrapOf(numberOf(*sampler, "wrapT")), AI_MATKEY_MAPPINGMODE_V(kind, 0), to);
    if (const auto large = numberOf(*sampler, "magFilter"))
        addNumber(static_cast<int>(*large), AI_MATKEY_GLTF_MAPPINGFILTER_MAG(kind, 0), to);
    if (const auto small = numberOf(*sampler, "minFilter"))
        addNumber(static_cast<int>(*small), AI_MATKEY_GLTF_MAPPINGFILTER_MIN(kind, 0), to);
}

const std::string& glb_materials::imageName(std::size_t index) {
    const json* const image = document_.entry("images", index);
    requirePlain(image != nullptr && !image->contains("uri"));
    if (!names_[index].empty())
        return names_[index];
    const auto view = numberOf(*image, "bufferView");
    const auto bytes = view ? document_.view(*view) : std::nullopt;
    requirePlain(bytes && bytes->count != 0 && !textOf(*image, "mimeType").empty() &&
                 bytes->count <= std::numeric_limits<unsigned>::max());
    auto file = std::make_unique<aiTexture>();
    file->mWidth = static_cast<unsigned>(bytes->count);
    const std::size_t texels = (bytes->count + sizeof(aiTexel) - 1) / sizeof(aiTexel);
    file->pcData = new aiTexel[texels];
    document_.read(*bytes, file->pcData);
    names_[index] = "*" + std::to_string(images_.size());
    images_.push_back(std::move(file));
    return names_[index];
}

} // namespace morva::host
