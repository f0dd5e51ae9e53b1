#pragma once

// Images of scene files: checks, the order of their pixels, compressed pixels.

#include "OSGSceneBytes.h"
#include "OpenSG/OSGImage.h"

#include <vector>

OSG_BEGIN_NAMESPACE

/// Files hold frame after frame with the sides inside, images side after side with the frames
/// inside. Exchanges the two outer orders of `bytes` bytes that hold `outer` times `inner` blocks.
std::vector<UInt8> osgExchangeBlocks(const UInt8* pixels, std::size_t bytes, UInt32 outer,
                                     UInt32 inner);

/// 1, 2 or 3 axes; 0 for an image that was never set.
Int32 osgDimensionOf(const Image& image);

/// After all fields of an image were read: its sizes must make sense and its pixels fit them. Puts
/// pixels that came in a file's order into that of the image. Throws scene_damage with the place
/// of `at`.
void osgFinishImage(Image& image, bool pixelsAsInFile, const byte_cursor& at);

/// Takes the pixels of the picture that an image names, as named or in `folder`; the name stays.
/// False, and the image is as before, if there is none that can be read.
bool osgReadNamedPicture(const ImagePtr& image, const std::string& folder);

/// Data of the field "cpixel": sizes and a picture file. Sets sizes, format and pixels. True if
/// the pixels are in the file's order. Throws scene_damage; sizes that the data can't fill are
/// refused before anything is allocated.
bool osgReadCompressedPixels(Image& image, byte_cursor data);

OSG_END_NAMESPACE
