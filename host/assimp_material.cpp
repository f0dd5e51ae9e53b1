#include "assimp_import.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <new>
#include <set>

#include <assimp/GltfMaterial.h>

#include <OpenSG/OSGBlendChunk.h>
#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTextureChunk.h>

namespace morva::host {

namespace {

/// Reads the properties of a material without trusting their lengths.
class property_reader {
  public:
    explicit property_reader(const aiMaterial& material) : material_(material) {}

    const aiMaterialProperty* find(const char* key, unsigned semantic, unsigned index) const {
        for (unsigned i = 0; i < material_.mNumProperties; ++i) {
            const aiMaterialProperty* property = material_.mProperties[i];
            if (property != nullptr && property->mData != nullptr &&
                property->mSemantic == semantic && property->mIndex == index &&
                std::strcmp(property->mKey.C_Str(), key) == 0)
                return property;
        }
        return nullptr;
    }

    /// Fills up to `count` floats; returns how many.
    unsigned floats(const char* key, unsigned semantic, unsigned index, float* out,
                    unsigned count) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        if (property == nullptr)
            return 0;
        const bool wide = property->mType == aiPTI_Double;
        if (!wide && property->mType != aiPTI_Float)
            return 0;
        const unsigned size = wide ? 8 : 4;
        const unsigned there = std::min(count, property->mDataLength / size);
        for (unsigned i = 0; i < there; ++i) {
            double value = 0.0;
            if (wide)
                std::memcpy(&value, property->mData + std::size_t{8} * i, 8);
            else
                std::memcpy(&out[i], property->mData + std::size_t{4} * i, 4);
            if (wide)
                out[i] = static_cast<float>(value);
        }
        return there;
    }

    /// A number of any integer width; `fallback` if there is none.
    int integer(const char* key, unsigned semantic, unsigned index, int fallback) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        if (property == nullptr || property->mDataLength == 0)
            return fallback;
        if (property->mDataLength < 4)
            return static_cast<unsigned char>(property->mData[0]);
        std::memcpy(&fallback, property->mData, 4);
        return fallback;
    }

    std::string text(const char* key, unsigned semantic, unsigned index) const {
        const aiMaterialProperty* property = find(key, semantic, index);
        ai_uint32 length = 0;
        if (property == nullptr || property->mType != aiPTI_String || property->mDataLength < 4)
            return std::string();
        std::memcpy(&length, property->mData, 4);
        length = std::min(length, property->mDataLength - 4);
        return std::string(property->mData + 4, length).c_str();
    }

  private:
    const aiMaterial& material_;
};

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

/// Bytes of a texture that lies in a file beside the model; empty if there is none.
std::vector<std::uint8_t> readTextureFile(const std::string& folder, std::string name,
                                          model& target) {
    std::replace(name.begin(), name.end(), '\\', '/');
    const std::string path = name.compare(0, 1, "/") == 0 ? name : folder + name;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file && errno == ENOMEM)
        throw std::bad_alloc();
    if (file)
        target.files_read.push_back(path);
    return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(file), {});
}

std::string mimeTypeOf(const std::vector<std::uint8_t>& bytes) {
    const auto starts = [&](const char* magic, std::size_t length) {
        return bytes.size() >= length && std::memcmp(bytes.data(), magic, length) == 0;
    };
    return starts("\x89PNG", 4) ? "image/png" : starts("\xFF\xD8\xFF", 3) ? "image/jpeg" : "";
}

/// Plain texels of an embedded texture, four bytes each.
::osg::ImagePtr importTexels(const aiTexture& texture, bool keep_alpha) {
    if (texture.mWidth > 32768 || texture.mHeight > 32768)
        return ::osg::NullFC;
    const std::size_t count = std::size_t{texture.mWidth} * texture.mHeight;
    std::vector<std::uint8_t> rgba(4 * count);
    for (std::size_t i = 0; i < count; ++i) {
        rgba[4 * i] = texture.pcData[i].r;
        rgba[4 * i + 1] = texture.pcData[i].g;
        rgba[4 * i + 2] = texture.pcData[i].b;
        rgba[4 * i + 3] = texture.pcData[i].a;
    }
    return imageFromTopRows(texture.mWidth, texture.mHeight, std::move(rgba), keep_alpha);
}

::osg::ImagePtr importImage(const aiScene& scene, const std::string& name,
                            const std::string& folder, bool keep_alpha, model& target) {
    const std::string key = (keep_alpha ? "a" : "o") + name;
    const auto known = target.images_by_name.find(key);
    if (known != target.images_by_name.end())
        return known->second;

    ::osg::ImagePtr image = ::osg::NullFC;
    std::vector<std::uint8_t> bytes;
    const aiTexture* texture = scene.GetEmbeddedTexture(name.c_str());
    if (texture == nullptr) {
        bytes = readTextureFile(folder, name, target);
    } else if (texture->pcData != nullptr && texture->mHeight == 0) {
        const auto* first = reinterpret_cast<const std::uint8_t*>(texture->pcData);
        bytes.assign(first, first + texture->mWidth);
    } else if (texture->pcData != nullptr) {
        image = importTexels(*texture, keep_alpha);
    }
    if (!bytes.empty())
        image = decodeImage(bytes.data(), bytes.size(), keep_alpha);
    if (image == ::osg::NullFC) {
        target.notes.push_back("texture '" + name + "' cannot be read; it is left out");
    } else {
        setName(image, name);
        const std::string mime = mimeTypeOf(bytes);
        if (!mime.empty())
            target.images.remember(image, {mime, std::move(bytes)});
    }
    target.images_by_name.emplace(key, ::osg::ImageRefPtr(image));
    return image;
}

::osg::UInt32 wrapOf(int mode) {
    return mode == aiTextureMapMode_Clamp    ? GL_CLAMP_TO_EDGE
           : mode == aiTextureMapMode_Mirror ? GL_MIRRORED_REPEAT
                                             : GL_REPEAT;
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

/// Textures of other kinds than the colour: the scene has no place for them.
std::size_t countOtherTextures(const aiMaterial& source, const std::string& base) {
    std::set<std::string> others;
    const property_reader reader(source);
    for (unsigned i = 0; i < source.mNumProperties; ++i) {
        const aiMaterialProperty* property = source.mProperties[i];
        if (property == nullptr ||
            std::strcmp(property->mKey.C_Str(), _AI_MATKEY_TEXTURE_BASE) != 0)
            continue;
        others.insert(reader.text(_AI_MATKEY_TEXTURE_BASE, property->mSemantic, property->mIndex));
    }
    others.erase(base);
    others.erase(std::string());
    return others.size();
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
        result.coordinate_set = static_cast<unsigned>(
            std::clamp(reader.integer(AI_MATKEY_UVWSRC(semantic, 0), 0), 0, 7));
    }
    if (blended || mode == alpha_mode::mask)
        material->addChunk(importBlending(reader, !blended));
    endEditCP(material);
    const std::string title = reader.text(AI_MATKEY_NAME);
    if (!title.empty())
        setName(material, title);
    target.other_textures += countOtherTextures(source, name);
    return result;
}

} // namespace morva::host
