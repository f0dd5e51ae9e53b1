#pragma once

// Images for atlases, with pixels that nothing else has.

#include "tests/support/test.h"

#include <morva/textures/morva_osg_atlas_images.h>

namespace morva_test {

using morva::osg::ImageData;
using bytes = std::vector<unsigned char>;

inline bytes randomPixels(std::mt19937& rng, std::size_t count, bool hasAlpha) {
    bytes pixels(count * (hasAlpha ? 4 : 3));
    for (unsigned char& value : pixels)
        value = static_cast<unsigned char>(1 + rng() % 254); // neither black nor full
    return pixels;
}

/// A record over pixels that stay the caller's.
inline ImageData recordOf(unsigned width, unsigned height, bytes* pixels = nullptr,
                          bool hasAlpha = false) {
    ImageData image;
    image.data = pixels == nullptr ? nullptr : pixels->data();
    image.width = width;
    image.height = height;
    image.maxTexCoordU = 1;
    image.maxTexCoordV = 1;
    image.hasAlpha = hasAlpha;
    return image;
}

inline ImageData tiled(ImageData image, float u, float v) {
    image.maxTexCoordU = u;
    image.maxTexCoordV = v;
    return image;
}

inline bytes pixelsOf(const ::osg::ImagePtr& image) {
    return {image->getData(), image->getData() + image->getSize()};
}

inline bytes pixelsOf(const ImageData& image) {
    if (image.data == nullptr)
        return {};
    return {image.data, image.data + image.width * image.height * (image.hasAlpha ? 4 : 3)};
}

/// NaN as a value that equals itself.
inline double told(double value) { return std::isnan(value) ? -1e99 : value; }

constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();

} // namespace morva_test
