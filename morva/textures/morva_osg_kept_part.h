#pragma once

// The part of an atlas that is kept once all images have their places.

#include <cstddef>
#include <cstdint>
#include <list>

#include <morva/textures/morva_osg_atlas_images.h>

namespace morva::osg {

constexpr std::uint32_t longest_atlas_side = 8192;

/// The smallest power of two at or above a side, at most longest_atlas_side; 1 for 0.
std::uint32_t powerOfTwoFor(std::uint32_t side);

/// Which free spaces cut an atlas off.
enum class cut_rule {
    any_place, ///< one as high as what is kept narrows it, wherever it begins
    whole_side ///< one that is over the whole height, from row 0 on, narrows it
};

/// Joins the free spaces and sets `usedWidth` and `usedHeight`, of an atlas that may have no image
/// yet.
void settleKeptPart(FixedTextureAtlas& atlas, cut_rule rule);

/// Joins free spaces, in the order of FixedTextureAtlas::combineFreeSpace().
///
/// in_front  so many are new: the others are known to have no pair among themselves
void combineFreeSpaces(std::list<FreeTextureSpace>& spaces, std::size_t in_front);

} // namespace morva::osg
