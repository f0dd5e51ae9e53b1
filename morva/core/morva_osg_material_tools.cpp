// What materials say about colour, image and transparency.

#include <morva/core/morva_osg_tools.h>

#include <algorithm>
#include <cstddef>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGSimpleTexturedMaterial.h>
#include <OpenSG/OSGSwitchMaterial.h>
#include <OpenSG/OSGTextureChunk.h>

#include <morva/core/morva_osg_alpha_scans.h>
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

/// What a material shows, and how it is mixed with the colour.
struct shown_image {
    ::osg::ImagePtr image; ///< null for none and for one without width or height
    bool blends = false;
};

shown_image shownBy(const ::osg::MaterialPtr& material) {
    shown_image shown;
    const auto textured = ::osg::SimpleTexturedMaterialPtr::dcast(material);
    if (textured != ::osg::NullFC) {
        shown.blends = textured->getEnvMode() == gl_blend;
        shown.image = textured->getImage();
    } else if (const auto chunk = chunkOf<::osg::TextureChunkPtr>(material, true);
               chunk != ::osg::NullFC) {
        shown.blends =
            (chunk->getEnvMode() == gl_combine && chunk->getEnvCombineRGB() == gl_modulate) ||
            chunk->getEnvMode() == gl_blend;
        shown.image = chunk->getImage();
    }
    if (shown.image != ::osg::NullFC &&
        (shown.image->getWidth() < 1 || shown.image->getHeight() < 1))
        shown.image = ::osg::NullFC;
    return shown;
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

bool hasAlphaBelowFull(const ::osg::UInt8* pixels, std::size_t count, unsigned int channels) {
    constexpr std::size_t block = 4096; // an end for each, and a loop without one within
    const ::osg::UInt8* alpha = pixels + channels - 1;
    for (std::size_t first = 0; first < count; first += block) {
        const std::size_t pixels_here = std::min(block, count - first);
        unsigned int common = 255;
        for (std::size_t i = 0; i < pixels_here; ++i)
            common &= alpha[i * channels];
        if (common != 255)
            return true;
        alpha += pixels_here * channels;
    }
    return false;
}

bool hasTransparentPixels(const ::osg::ImagePtr& image) {
    const ::osg::UInt8* pixels = image->getData();
    return image->getPixelFormat() == gl_rgba && pixels != nullptr && image->getBpp() == 4 &&
           hasAlphaBelowFull(pixels,
                             static_cast<std::size_t>(image->getWidth()) *
                                 static_cast<std::size_t>(image->getHeight()),
                             4);
}

::osg::ImagePtr imageOf(const ::osg::MaterialPtr& material) { return shownBy(material).image; }

::osg::ImagePtr getImage(::osg::MaterialPtr material, bool& hasTransparent, bool& blendsWithEnv) {
    const shown_image shown = shownBy(material);
    blendsWithEnv = blendsWithEnv || shown.blends;
    hasTransparent =
        hasTransparent || (shown.image != ::osg::NullFC && hasTransparentPixels(shown.image));
    return shown.image;
}

::osg::ImagePtr getImage(::osg::NodePtr node, bool& hasTransparentPixels, bool& blendsWithEnv) {
    hasTransparentPixels = false;
    blendsWithEnv = false;
    const ::osg::MaterialPtr material = getMaterial(node);
    if (material == ::osg::NullFC)
        return ::osg::NullFC;
    return getImage(material, hasTransparentPixels, blendsWithEnv);
}

::osg::ImagePtr getImage(::osg::NodePtr node) { return imageOf(getMaterial(node)); }

bool hasMaterialAlpha(::osg::NodePtr node) {
    const auto chunk = chunkOf<::osg::MaterialChunkPtr>(getMaterial(node), true);
    return chunk != ::osg::NullFC && !(chunk->getDiffuse()[3] == 1.0F);
}

} // namespace morva::osg
