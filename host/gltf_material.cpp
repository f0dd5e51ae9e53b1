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

int gltf_materials::numberOf(const ::osg::MaterialPtr& material) {
    if (material == ::osg::NullFC)
        return -1;
    const auto place =
        numbers_.emplace(material.getFieldContainerId(), static_cast<int>(materials_.size()));
    if (!place.second)
        return place.first->second;

    const surface look = surfaceOf(material);
    nlohmann::json base = nlohmann::json::array();
    for (const float value : look.base)
        base.push_back(factor(value));
    nlohmann::json pbr = {{"baseColorFactor", base},
                          {"metallicFactor", factor(look.metalness)},
                          {"roughnessFactor", roughnessOf(factor(look.shininess / 128.f) * 128.f)}};
    const int texture = textures_.numberOf(look.image, look.texture);
    if (texture >= 0)
        pbr["baseColorTexture"] = {{"index", texture}};
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
    const ::osg::Char8* name = getName(material);
    if (name != nullptr)
        entry["name"] = validUtf8(name);
    materials_.push_back(std::move(entry));
    return place.first->second;
}

void gltf_materials::addTo(nlohmann::json& file) const {
    if (!materials_.empty())
        file["materials"] = materials_;
    textures_.addTo(file);
}

} // namespace morva::host
