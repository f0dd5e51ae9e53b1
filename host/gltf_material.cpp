#include "gltf_material.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>

#include "assimp_import.h"
#include "scene_walk.h"
#include "text.h"

namespace morva::host {

namespace {

/// glTF wants factors between 0 and 1.
float factor(float value) { return std::isfinite(value) ? std::clamp(value, 0.f, 1.f) : 0.f; }

template <typename Color> void copyColor(const Color& from, float* to, ::osg::UInt32 count) {
    for (::osg::UInt32 i = 0; i < count; ++i)
        to[i] = from[i];
}

void readSimple(const ::osg::SimpleMaterialPtr& simple, surface& look) {
    copyColor(simple->getDiffuse(), look.base, 3);
    copyColor(simple->getEmission(), look.emission, 3);
    copyColor(simple->getSpecular(), look.specular, 3);
    look.base[3] = 1.f - simple->getTransparency();
    look.shininess = simple->getShininess();
    look.blended = look.base[3] < 1.f;
}

void readColors(const ::osg::MaterialChunkPtr& chunk, surface& look) {
    copyColor(chunk->getDiffuse(), look.base, 4);
    copyColor(chunk->getEmission(), look.emission, 3);
    copyColor(chunk->getSpecular(), look.specular, 3);
    look.metalness = 1.f - chunk->getSpecular()[3];
    look.shininess = chunk->getShininess();
    look.two_sided = chunk->getBackMaterial();
    look.blended = look.blended || look.base[3] < 1.f;
}

void readBlending(const ::osg::BlendChunkPtr& chunk, surface& look) {
    if (chunk->getDestFactor() != GL_ZERO)
        look.blended = true;
    if (chunk->getAlphaFunc() == GL_GEQUAL || chunk->getAlphaFunc() == GL_GREATER) {
        look.masked = true;
        look.cutoff = chunk->getAlphaValue();
    }
}

} // namespace

surface surfaceOf(const ::osg::MaterialPtr& material) {
    surface look;
    look.texture = ::osg::NullFC;
    look.image = ::osg::NullFC;
    const ::osg::MaterialPtr chosen = chosenMaterial(material);
    const ::osg::SimpleMaterialPtr simple = ::osg::SimpleMaterialPtr::dcast(chosen);
    if (simple != ::osg::NullFC)
        readSimple(simple, look);
    const ::osg::ChunkMaterialPtr chunks = ::osg::ChunkMaterialPtr::dcast(chosen);
    if (chunks != ::osg::NullFC) {
        for (const ::osg::StateChunkPtr& chunk : *chunks->getMFChunks()) {
            const ::osg::MaterialChunkPtr colors = ::osg::MaterialChunkPtr::dcast(chunk);
            const ::osg::BlendChunkPtr blending = ::osg::BlendChunkPtr::dcast(chunk);
            const ::osg::TextureChunkPtr texture = ::osg::TextureChunkPtr::dcast(chunk);
            if (colors != ::osg::NullFC)
                readColors(colors, look);
            if (blending != ::osg::NullFC)
                readBlending(blending, look);
            if (texture != ::osg::NullFC)
                look.texture = texture;
        }
    }
    const std::vector<::osg::ImagePtr> images = imagesOf(chosen);
    if (!images.empty())
        look.image = images.back();
    return look;
}

nlohmann::json materialOf(const surface& look) {
    nlohmann::json base = nlohmann::json::array();
    for (const float value : look.base)
        base.push_back(factor(value));
    nlohmann::json pbr = {{"baseColorFactor", base},
                          {"metallicFactor", factor(look.metalness)},
                          {"roughnessFactor", roughnessOf(factor(look.shininess / 128.f) * 128.f)}};
    nlohmann::json entry = {{"pbrMetallicRoughness", pbr}};
    if (look.emission[0] != 0.f || look.emission[1] != 0.f || look.emission[2] != 0.f) {
        for (const float value : look.emission)
            entry["emissiveFactor"].push_back(factor(value));
    }
    if (look.two_sided)
        entry["doubleSided"] = true;
    if (look.blended) {
        entry["alphaMode"] = "BLEND";
    } else if (look.masked) {
        entry["alphaMode"] = "MASK";
        entry["alphaCutoff"] = factor(look.cutoff);
    }
    return entry;
}

int gltf_materials::numberOf(const ::osg::MaterialPtr& material, const set_numbers& sets) {
    if (material == ::osg::NullFC)
        return -1;
    const material_record* const record = records_ != nullptr ? records_->find(material) : nullptr;
    // Of the other sets only those count that the material reads.
    set_numbers read;
    read.fill(-1);
    read[0] = sets[0];
    if (record != nullptr) {
        for (const texture_use& use : record->uses)
            read[use.unit] = sets[use.unit];
    }
    const auto place = numbers_.try_emplace({material.getFieldContainerId(), read},
                                            static_cast<int>(materials_.size()));
    if (!place.second)
        return place.first->second;
    const surface look = surfaceOf(material);
    nlohmann::json entry =
        record != nullptr ? recordedEntry(*record, look, sets) : plainEntry(look, sets[0] >= 0);
    const ::osg::Char8* name = getName(material);
    if (name != nullptr)
        entry["name"] = validUtf8(name);
    materials_.push_back(std::move(entry));
    return place.first->second;
}

nlohmann::json gltf_materials::plainEntry(const surface& look, bool has_coordinates) {
    nlohmann::json entry = materialOf(look);
    const int texture = has_coordinates ? textures_.numberOf(look.image, look.texture) : -1;
    if (texture >= 0)
        entry["pbrMetallicRoughness"]["baseColorTexture"] = {{"index", texture}};
    return entry;
}

nlohmann::json gltf_materials::recordedEntry(const material_record& record, const surface& look,
                                             const set_numbers& sets) {
    nlohmann::json entry = record.material;
    for (const texture_use& use : record.uses) {
        const int set = sets[use.unit];
        int texture = -1;
        if (set >= 0)
            texture = use.is_base ? textures_.numberOf(look.image, look.texture)
                                  : textures_.numberOf(use.texture);
        nlohmann::json& owner = entry[use.place.parent_pointer()];
        if (texture < 0) {
            owner.erase(use.place.back());
            if (set < 0)
                without_coordinates_.insert(record.name + ": " + use.place.back());
            continue;
        }
        nlohmann::json& info = owner[use.place.back()];
        info["index"] = texture;
        if (set > 0)
            info["texCoord"] = set;
        addExtensions(info);
    }
    const nlohmann::json::json_pointer coat(
        "/extensions/KHR_materials_clearcoat/clearcoatNormalTexture");
    if (entry.contains(coat) && !entry.contains("normalTexture")) {
        // The format takes the tangents of the coat from it.
        entry["normalTexture"] = {{"index", textures_.flatNormals()}};
        if (entry[coat].contains("texCoord"))
            entry["normalTexture"]["texCoord"] = entry[coat]["texCoord"];
    }
    addExtensions(entry);
    return entry;
}

/// Notes the extensions that an object has.
void gltf_materials::addExtensions(const nlohmann::json& object) {
    if (!object.contains("extensions"))
        return;
    for (const auto& [name, value] : object["extensions"].items())
        extensions_.insert(name);
}

std::vector<std::string> gltf_materials::notes() const {
    if (without_coordinates_.empty())
        return {};
    return {"textures whose coordinates did not come through are left out: " +
            quotedNames({without_coordinates_.begin(), without_coordinates_.end()})};
}

void gltf_materials::addTo(nlohmann::json& file) const {
    if (!materials_.empty())
        file["materials"] = materials_;
    textures_.addTo(file);
    std::set<std::string> used = extensions_;
    used.insert(textures_.extensions().begin(), textures_.extensions().end());
    for (const std::string& name : used) {
        file["extensionsUsed"].push_back(name);
        if (records_->required().count(name) != 0)
            file["extensionsRequired"].push_back(name);
    }
}

} // namespace morva::host
