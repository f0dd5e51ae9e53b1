#include "gltf_material.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

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

int wrapCode(::osg::UInt32 wrap) {
    return wrap == GL_CLAMP || wrap == GL_CLAMP_TO_EDGE ? GL_CLAMP_TO_EDGE
           : wrap == GL_MIRRORED_REPEAT                 ? GL_MIRRORED_REPEAT
                                                        : GL_REPEAT;
}

/// Names may tell where an image was on somebody's disk.
std::string fileName(const std::string& name) {
    const std::size_t end = name.find_last_of("/\\");
    return end == std::string::npos ? name : name.substr(end + 1);
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
    const int texture = textureOf(look);
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

int gltf_materials::textureOf(const surface& look) {
    if (look.image == ::osg::NullFC)
        return -1;
    const int image = imageNumber(look.image);
    if (image < 0)
        return -1;
    nlohmann::json sampler = {{"wrapS", GL_REPEAT}, {"wrapT", GL_REPEAT}};
    if (look.texture != ::osg::NullFC)
        sampler = {{"wrapS", wrapCode(look.texture->getWrapS())},
                   {"wrapT", wrapCode(look.texture->getWrapT())},
                   {"magFilter", look.texture->getMagFilter()},
                   {"minFilter", look.texture->getMinFilter()}};
    auto found = std::find(samplers_.begin(), samplers_.end(), sampler);
    const auto number = static_cast<int>(found - samplers_.begin());
    if (found == samplers_.end())
        samplers_.push_back(std::move(sampler));
    nlohmann::json texture = {{"source", image}, {"sampler", number}};
    const auto same = std::find(textures_.begin(), textures_.end(), texture);
    const auto place = static_cast<int>(same - textures_.begin());
    if (same == textures_.end())
        textures_.push_back(std::move(texture));
    return place;
}

int gltf_materials::imageNumber(const ::osg::ImagePtr& image) {
    const auto known = image_numbers_.find(image.getFieldContainerId());
    if (known != image_numbers_.end())
        return known->second;
    int number = -1;
    const encoded_image* file = sources_.find(image);
    encoded_image coded;
    if (file == nullptr) {
        coded = {"image/png", encodePng(image)};
        file = &coded;
    }
    if (!file->bytes.empty()) {
        number = static_cast<int>(images_.size());
        images_.push_back(
            {{"bufferView", buffer_.addBytes(file->bytes)}, {"mimeType", file->mime_type}});
        const std::string name = fileName(nameOf(image));
        if (!name.empty() && name[0] != '*')
            images_.back()["name"] = validUtf8(name);
    }
    image_numbers_.emplace(image.getFieldContainerId(), number);
    return number;
}

void gltf_materials::addTo(nlohmann::json& file) const {
    const auto add = [&](const char* key, const nlohmann::json& list) {
        if (!list.empty())
            file[key] = list;
    };
    add("materials", materials_);
    add("textures", textures_);
    add("images", images_);
    add("samplers", samplers_);
}

} // namespace morva::host
