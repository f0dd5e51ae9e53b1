#pragma once

// Images whose pixels a caller was given by a bare pointer. Nobody can tell when he is done with
// them, so they stay for the rest of the process; the list makes that visible to leak checkers and
// to whoever counts containers.

#include <cstddef>
#include <cstdint>

#include <OpenSG/OSGImage.h>

namespace morva::osg {

/// Makes a black image, RGBA with alpha 255 or RGB, that stays. Sides of 0 count as 1.
///
/// returns  null for sides that an image cannot have and without memory; nothing is left then
::osg::ImagePtr newKeptImage(std::uint32_t width, std::uint32_t height, bool hasAlpha);

/// How many there are.
std::size_t keptImages();

/// Makes an image black, RGBA with alpha 255 or RGB; its old pixels are dropped before.
///
/// returns  false for sides above 2^31 - 1, for more than 4 GiB and without memory
bool makeBlack(const ::osg::ImagePtr& image, std::uint32_t width, std::uint32_t height,
               bool hasAlpha);

} // namespace morva::osg
