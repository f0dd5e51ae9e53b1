#pragma once

// From images to atlases of one size: who goes where, and the pixels of what is kept.
//
//     FixedTextureAtlas atlas = emptyAtlas(form, 0);
//     const std::vector<std::size_t> placed = placeImages(images, atlas, form.padding);
//     makeKeptPart(atlas, form, images, placed, sources); // allocates no more than is kept

#include <cstddef>
#include <cstdint>
#include <vector>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_sources.h>

namespace morva::osg {

/// What the atlases of one list of images have in common.
struct atlas_form {
    std::uint32_t side = 8192;         ///< a power of two, 32 to 8192
    std::uint32_t rounded_side = 8192; ///< the same before these limits: `usedWidth` of a new atlas
    bool transparent = false;
    bool hasVertexColors = false;
    bool exact = false;       ///< see atlas_options
    unsigned int padding = 0; ///< the same
};

/// A form for a side that somebody asked for.
atlas_form formFor(unsigned int textureSize, bool transparent, bool hasVertexColors);

/// An atlas without image, all of it free.
FixedTextureAtlas emptyAtlas(const atlas_form& form, std::uint32_t index);

/// Places images in an atlas, each in the free space of its size or in the one that it leaves least
/// of. Those that are in an atlas are left out.
///
/// returns  numbers of those that have a place now, in order; their `x`, `y`, `inAtlas` and
///          `atlasIndex` are set
std::vector<std::size_t> placeImages(std::vector<ImageData>& images, FixedTextureAtlas& atlas,
                                     unsigned int padding);

/// Settles which part of an atlas is kept and draws the images into an image of that size, which
/// becomes `minifiedImage`.
///
/// sources  tell how the pixels of the images are read
/// returns  false without memory for it
bool makeKeptPart(FixedTextureAtlas& atlas, const atlas_form& form,
                  const std::vector<ImageData>& images, const std::vector<std::size_t>& placed,
                  const atlas_sources& sources);

} // namespace morva::osg
