// What materials say about colour, image and transparency.

#include <morva/core/morva_osg_tools.h>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_sink.h>

namespace morva::osg {

namespace {

constexpr unsigned int gl_blend = 3042;
constexpr unsigned int gl_combine = 34160;
constexpr unsigned int gl_modulate = 8448;
constexpr unsigned int gl_rgba = 6408;

/// The first or the last chunk of a kind, or null.
template <typename ChunkPtr> ChunkPtr chunkOf(const ::osg::MaterialPtr& material, bool last) {
    ChunkPtr found;
    const ::osg::ChunkMaterialPtr chunks = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunks == ::osg::NullFC)
        return found;
    for (::osg::UInt32 i = 0; i < chunks->getMFChunks()->size(); ++i) {
        const ChunkPtr chunk = ChunkPtr::dcast(chunks->getChunks(i));
        if (chunk == ::osg::NullFC)
            continue;
        found = chunk;
        if (!last)
            return found;
    }
    return found;
}

/// Replaces a switch material by its choice; false, with a line, if it shows none.
bool resolveSwitch(::osg::MaterialPtr& material) {
    const ::osg::SwitchMaterialPtr chosen = ::osg::SwitchMaterialPtr::dcast(material);
    if (chosen == ::osg::NullFC)
        return true;
    const auto choice = static_cast<int>(chosen->getChoice());
    if (choice < 0) {
        say({"False SwitchMatChoice"});
        return false;
    }
    material = chosen->getMaterial(static_cast<::osg::UInt32>(choice));
    return true;
}

::osg::Color4f opaque(const ::osg::Color3f& color) {
    return ::osg::Color4f(color[0], color[1], color[2], 1.0F);
}

/// Whether an alpha byte of the first slice is below 255.
bool hasAlphaBelowFull(const ::osg::ImagePtr& image) {
    const ::osg::UInt8* pixels = image->getData();
    if (pixels == nullptr || image->getBpp() != 4)
        return false;
    const std::size_t count =
        static_cast<std::size_t>(image->getWidth()) * static_cast<std::size_t>(image->getHeight());
    for (std::size_t i = 0; i < count; ++i) {
        if (pixels[i * 4 + 3] < 255)
            return true;
    }
    return false;
}

} // namespace

bool getColor(::osg::MaterialPtr material, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
              ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess) {
    if (!resolveSwitch(material))
        return false;
    const auto chunk = chunkOf<::osg::MaterialChunkPtr>(material, false);
    if (chunk != ::osg::NullFC) {
        diffuse = chunk->getDiffuse();
        specular = chunk->getSpecular();
        ambient = chunk->getAmbient();
        emission = chunk->getEmission();
        shininess = chunk->getShininess();
        return true;
    }
    const ::osg::SimpleMaterialPtr simple = ::osg::SimpleMaterialPtr::dcast(material);
    if (simple == ::osg::NullFC)
        return false;
    diffuse = opaque(simple->getDiffuse());
    specular = opaque(simple->getSpecular());
    ambient = opaque(simple->getAmbient());
    emission = opaque(simple->getEmission());
    shininess = simple->getShininess();
    return true;
}

bool getBackColor(::osg::MaterialPtr material, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
                  ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess) {
    if (!resolveSwitch(material))
        return false;
    const auto chunk = chunkOf<::osg::MaterialChunkPtr>(material, false);
    if (chunk == ::osg::NullFC)
        return false;
    diffuse = chunk->getBackDiffuse();
    specular = chunk->getBackSpecular();
    ambient = chunk->getBackAmbient();
    emission = chunk->getBackEmission();
    shininess = chunk->getBackShininess();
    return true;
}

bool getColor(::osg::NodePtr node, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
              ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess) {
    const ::osg::MaterialPtr material = getMaterial(node);
    return material != ::osg::NullFC &&
           getColor(material, diffuse, specular, ambient, emission, shininess);
}

bool getBackColor(::osg::NodePtr node, ::osg::Color4f& diffuse, ::osg::Color4f& specular,
                  ::osg::Color4f& ambient, ::osg::Color4f& emission, float& shininess) {
    const ::osg::MaterialPtr material = getMaterial(node);
    return material != ::osg::NullFC &&
           getBackColor(material, diffuse, specular, ambient, emission, shininess);
}

::osg::ImagePtr getImage(::osg::MaterialPtr material, bool& hasTransparentPixels,
                         bool& blendsWithEnv) {
    ::osg::ImagePtr image;
    const auto textured = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    if (textured != ::osg::NullFC) {
        if (textured->getEnvMode() == gl_blend)
            blendsWithEnv = true;
        image = textured->getImage();
    } else {
        const auto chunk = chunkOf<::osg::TextureChunkPtr>(material, true);
        if (chunk == ::osg::NullFC)
            return ::osg::NullFC;
        if ((chunk->getEnvMode() == gl_combine && chunk->getEnvCombineRGB() == gl_modulate) ||
            chunk->getEnvMode() == gl_blend)
            blendsWithEnv = true;
        image = chunk->getImage();
    }
    if (image == ::osg::NullFC || image->getWidth() < 1 || image->getHeight() < 1)
        return ::osg::NullFC;
    if (image->getPixelFormat() == gl_rgba && hasAlphaBelowFull(image))
        hasTransparentPixels = true;
    return image;
}

::osg::ImagePtr getImage(::osg::NodePtr node, bool& hasTransparentPixels, bool& blendsWithEnv) {
    hasTransparentPixels = false;
    blendsWithEnv = false;
    const ::osg::MaterialPtr material = getMaterial(node);
    if (material == ::osg::NullFC)
        return ::osg::NullFC;
    return getImage(material, hasTransparentPixels, blendsWithEnv);
}

::osg::ImagePtr getImage(::osg::NodePtr node) {
    bool transparent = false;
    bool blends = false;
    return getImage(node, transparent, blends);
}

bool hasMaterialAlpha(::osg::NodePtr node) {
    const auto chunk = chunkOf<::osg::MaterialChunkPtr>(getMaterial(node), true);
    return chunk != ::osg::NullFC && !(chunk->getDiffuse()[3] == 1.0F);
}

} // namespace morva::osg
