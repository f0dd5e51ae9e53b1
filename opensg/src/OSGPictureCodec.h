#pragma once

// Pictures of common file formats in memory, for the sources that read them.

#include "OpenSG/OSGImage.h"

#include <vector>

OSG_BEGIN_NAMESPACE

/// Pictures of more pixels are taken for damage in the sizes that a file states.
constexpr Int64 osgMaxPicturePixels = Int64(1) << 28;

/// Rows from the bottom up, without padding; 1 to 4 channels of 8 bits.
struct decoded_picture {
    Int32 width = 0;
    Int32 height = 0;
    Int32 channels = 0;
    std::vector<UInt8> pixels; ///< width * height * channels
};

/// Sizes alone, without decoding; false if it is no picture of a known format, or too large.
bool osgProbePicture(const UInt8* bytes, std::size_t count, decoded_picture& out);
/// False as above, or for damaged data.
bool osgDecodePicture(const UInt8* bytes, std::size_t count, decoded_picture& out);

OSG_END_NAMESPACE
