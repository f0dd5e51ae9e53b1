#pragma once

// Sizes of pixel formats and blocks, for the image sources.

#include "OpenSG/OSGImage.h"

OSG_BEGIN_NAMESPACE

/// Channels per pixel; 0 for an unknown format.
UInt32 osgChannelsOf(UInt32 pixelFormat);
/// Bytes of one channel; 0 for an unknown type.
UInt32 osgBytesPerChannel(Int32 dataType);
bool osgIsCompressed(UInt32 pixelFormat);

/// Width, height and depth, of an image or of one of its mip maps.
struct image_extent {
    Int32 width = 1;
    Int32 height = 1;
    Int32 depth = 1;

    bool operator==(const image_extent& other) const {
        return width == other.width && height == other.height && depth == other.depth;
    }
};

/// Halves, not below 1, as often as `level` says.
image_extent osgExtentOfLevel(const image_extent& full, UInt32 level);

/// Stores of images stay below this, since files and fields count bytes in 32 bits.
constexpr UInt64 osgMaxImageBytes = 0xFFFFFFFFu;

/// Bytes of one level; more than osgMaxImageBytes stands for anything larger.
UInt64 osgBytesOfLevel(UInt32 pixelFormat, Int32 dataType, const image_extent& extent);
/// Bytes of the first `count` levels together, with the same limit.
UInt64 osgBytesOfLevels(UInt32 pixelFormat, Int32 dataType, const image_extent& full, UInt32 count);
/// a * b, with the same limit.
UInt64 osgLimitedProduct(UInt64 a, UInt64 b);

/// Converts `count` pixels of one type; false for a type or format without conversion.
bool osgConvertPixels(Int32 dataType, UInt32 fromFormat, const UInt8* from, UInt32 toFormat,
                      UInt8* to, std::size_t count);

OSG_END_NAMESPACE
