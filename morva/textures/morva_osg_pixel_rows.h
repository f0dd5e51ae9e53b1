#pragma once

// Runs of pixels of 8 bits a channel, with alpha and without. Source and target are apart.

#include <cstdint>

namespace morva::osg {

/// How pixels of a format that is neither RGB nor RGBA are read as RGB.
struct pixel_recipe {
    unsigned int channels = 0;                 ///< of the format; 0: there is no way
    bool has_alpha = false;                    ///< the last channel, which must be 255 throughout
    unsigned int red = 0, green = 0, blue = 0; ///< channels that they are taken from
};

/// `to` gets three bytes a pixel.
void readAsRGB(const unsigned char* from, std::int64_t count, const pixel_recipe& recipe,
               unsigned char* to);

/// From three channels to four: alpha is 255.
void widenPixels(const unsigned char* from, unsigned char* to, std::int64_t count);

/// From four channels to three: the last one is left out.
void narrowPixels(const unsigned char* from, unsigned char* to, std::int64_t count);

} // namespace morva::osg
