#include "assimp_import.h"

#include <algorithm>
#include <cmath>

#include <assimp/GltfMaterial.h>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTextureChunk.h>

#include "assimp_texture.h"
#include "material_properties.h"

namespace morva::host {

namespace {

float finiteOr(float value, float fallback) { return std::isfinite(value) ? value : fallback; }

/// A colour of three or four floats; numbers that are not finite become those of `color`.
bool readColor(const property_reader& reader, const char* key, unsigned semantic, unsigned index,
               ::osg::Color4f& color) {
    float values[4] = {color[0], color[1], color[2], color[3]};
    if (reader.floats(key, semantic, index, values, 4) < 3)
        return false;
    for (unsigned i = 0; i < 4; ++i)
        color[i] = finiteOr(values[i], color[i]);
    return true;
}

float readFloat(const property_reader& reader, const char* key, unsigned semantic, unsigned index,
                float fallback) {
    float value = fallback;
    reader.floats(key, semantic, index, &value, 1);
    return finiteOr(value, fallback);
}

enum class alpha_mode { opaque, mask, blend, by_content };

alpha_mode alphaModeOf(const property_reader& reader) {
    const std::string mode = reader.text(AI_MATKEY_GLTF_ALPHAMODE);
    return mode == "OPAQUE"  ? alpha_mode::opaque
           : mode == "MASK"  ? alpha_mode::mask
           : mode == "BLEND" ? alpha_mode::blend
                             : alpha_mode::by_content;
}

::osg::MaterialChunkPtr importColors(const property_reader& reader, alpha_mode mode) {
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    ::osg::Color4f diffuse(1.f, 1.f, 1.f, 1.f), ambient(.2f, .2f, .2f, 1.f);
    ::osg::Color4f specular(0.f, 0.f, 0.f, 1.f), emission(0.f, 0.f, 0.f, 1.f);
    if (!readColor(reader, AI_MATKEY_BASE_COLOR, diffuse))
        readColor(reader, AI_MATKEY_COLOR_DIFFUSE, diffuse);
    readColor(reader, AI_MATKEY_COLOR_AMBIENT, ambient);
    readColor(reader, AI_MATKEY_COLOR_SPECULAR, specular);
    readColor(reader, AI_MATKEY_COLOR_EMISSIVE, emission);
    emission[3] = 1.f; // no record yet
    if (mode == alpha_mode::opaque)
        diffuse[3] = 1.f;
    if (mode == alpha_mode::by_content)
        diffuse[3] *= readFloat(reader, AI_MATKEY_OPACITY, 1.f);

    const float metalness = readFloat(reader, AI_MATKEY_METALLIC_FACTOR, 0.f);
    specular[3] = 1.f - std::clamp(metalness, 0.f, 1.f);
    float shininess = readFloat(reader, AI_MATKEY_SHININESS, 0.f);
    float roughness = -1.f;
    reader.floats(AI_MATKEY_ROUGHNESS_FACTOR, &roughness, 1);
    if (roughness >= 0.f)
        shininess = shininessOf(roughness);

    beginEditCP(chunk);
    chunk->setDiffuse(diffuse);
    chunk->setAmbient(ambient);
    chunk->setSpecular(specular);
    chunk->setEmission(emission);
    chunk->setShininess(std::clamp(shininess, 0.f, 128.f));
    if (reader.integer(AI_MATKEY_TWOSIDED, 0) != 0) {
        chunk->setBackMaterial(true);
        chunk->setBackDiffuse(diffuse);
        chunk->setBackAmbient(ambient);
        chunk->setBackSpecular(specular);
        chunk->setBackEmission(emission);
        chunk->setBackShininess(chunk->getShininess());
    }
    endEditCP(chunk);
    return chunk;
}

::osg::ImagePtr importImage(const aiScene& scene, const std::string& name,
                            const std::string& folder, bool keep_alpha, model& target) {
    const std::string key = (keep_alpha ? "a" : "o") + name;
    const auto known = target.images_by_name.find(key);
    if (known != target.images_by_name.end())
        return known->second;

    found_texture found = findTexture(scene, name, folder, keep_alpha, target);
    const ::osg::ImagePtr image = found.image;
    if (image != ::osg::NullFC) {
        setName(image, name);
        if (!found.file.mime_type.empty())
            target.images.remember(image, std::move(found.file));
    }
    target.images_by_name.emplace(key, ::osg::ImageRefPtr(image));
    return image;
}

::osg::TextureChunkPtr importTexture(const property_reader& reader, ::osg::ImagePtr image,
                                     unsigned semantic) {
    const ::osg::TextureChunkPtr chunk = ::osg::TextureChunk::create();
    beginEditCP(chunk);
    chunk->setImage(image);
    chunk->setEnvMode(GL_MODULATE);
    chunk->setWrapS(wrapOf(reader.integer(AI_MATKEY_MAPPINGMODE_U(semantic, 0), 0)));
    chunk->setWrapT(wrapOf(reader.integer(AI_MATKEY_MAPPINGMODE_V(semantic, 0), 0)));
    const int large = reader.integer(AI_MATKEY_GLTF_MAPPINGFILTER_MAG(semantic, 0), 0);
    const int small = reader.integer(AI_MATKEY_GLTF_MAPPINGFILTER_MIN(semantic, 0), 0);
    if (large == GL_NEAREST || large == GL_LINEAR)
        chunk->setMagFilter(static_cast<GLenum>(large));
    if (small == GL_NEAREST || small == GL_LINEAR ||
        (small >= GL_NEAREST_MIPMAP_NEAREST && small <= GL_LINEAR_MIPMAP_LINEAR))
        chunk->setMinFilter(static_cast<GLenum>(small));
    endEditCP(chunk);
    return chunk;
}

bool hasTransparentPixels(const ::osg::ImagePtr& image) {
    if (image->getPixelFormat() != ::osg::Image::OSG_RGBA_PF)
        return false;
    const ::osg::UInt8* data = image->getData();
    const unsigned long size = data != nullptr ? image->getSize() : 0;
    for (unsigned long i = 3; i < size; i += 4)
        if (data[i] != 255)
            return true;
    return false;
}

::osg::BlendChunkPtr importBlending(const property_reader& reader, bool mask) {
    const ::osg::BlendChunkPtr chunk = ::osg::BlendChunk::create();
    beginEditCP(chunk);
    if (mask) {
        chunk->setAlphaFunc(GL_GEQUAL);
        chunk->setAlphaValue(readFloat(reader, AI_MATKEY_GLTF_ALPHACUTOFF, .5f));
    } else {
        chunk->setSrcFactor(GL_SRC_ALPHA);
        chunk->setDestFactor(GL_ONE_MINUS_SRC_ALPHA);
    }
    endEditCP(chunk);
    return chunk;
}

} // namespace

float shininessOf(float roughness) {
    const float smooth = 1.f - std::clamp(roughness, 0.f, 1.f);
    return 128.f * smooth * smooth;
}

float roughnessOf(float shininess) {
    return 1.f - std::sqrt(std::clamp(shininess, 0.f, 128.f) / 128.f);
}

imported_material importMaterial(const aiScene& scene, const aiMaterial& source,
                                 const std::string& folder, model& target) {
    const property_reader reader(source);
    const alpha_mode mode = alphaModeOf(reader);
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    imported_material result{::osg::MaterialRefPtr(material), 0};
    const ::osg::MaterialChunkPtr colors = importColors(reader, mode);

    unsigned semantic = aiTextureType_BASE_COLOR;
    std::string name = reader.text(_AI_MATKEY_TEXTURE_BASE, semantic, 0);
    if (name.empty()) {
        semantic = aiTextureType_DIFFUSE;
        name = reader.text(_AI_MATKEY_TEXTURE_BASE, semantic, 0);
    }
    ::osg::ImagePtr image = ::osg::NullFC;
    if (!name.empty())
        image = importImage(scene, name, folder, mode != alpha_mode::opaque, target);
    const bool blended =
        mode == alpha_mode::blend || (mode == alpha_mode::by_content &&
                                      (colors->getDiffuse()[3] < 1.f ||
                                       (image != ::osg::NullFC && hasTransparentPixels(image))));

    beginEditCP(material);
    material->addChunk(colors);
    if (image != ::osg::NullFC) {
        material->addChunk(importTexture(reader, image, semantic));
        result.coordinate_set = reader.coordinateSet(semantic);
    }
    if (blended || mode == alpha_mode::mask)
        material->addChunk(importBlending(reader, !blended));
    endEditCP(material);
    const std::string title = reader.text(AI_MATKEY_NAME);
    if (!title.empty())
        setName(material, title);
    return result;
}

} // namespace morva::host
