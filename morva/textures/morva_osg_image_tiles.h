#pragma once

// Images laid out in an atlas: how much room one takes, and drawing it.
//
//     inset  columns * width
//     +--+-------+-------+--+   An image is laid out `columns` times `rows` times. Around that an
//     |..:...A...:...A...:..|   atlas may want some of its surroundings, so that filters find the
//     |..+-------+-------+..|   image's own pixels there and not a neighbour's: the same picture
//     |A.|   A   |   A   |.A|   goes on, up to multiples of a power of two.
//     |..+-------+-------+..|
//     |.....................|   The whole is the footprint.
//     +---------------------+

#include <cstdint>

#include <OpenSG/OSGImage.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_pixel_rows.h>

namespace morva::osg {

/// Sides end here.
constexpr std::int64_t longest_side = 0x7FFFFFFF;

/// How often an image is laid out along an axis, by its highest coordinate there: 0 for a NaN and
/// below 0, at most longest_side.
std::int64_t tileCount(float maxTexCoord);

/// Width and height of an image as it is laid out, 0 to longest_side.
std::int32_t tiledWidth(const ImageData& image);
std::int32_t tiledHeight(const ImageData& image);

/// Room for an image in an atlas. Sides of 0 for an image that is not laid out at all.
struct image_footprint {
    std::int32_t width = 0; ///< multiples of `step`, at most longest_side
    std::int32_t height = 0;
    std::int32_t inset = 0; ///< from its edges to the image, on the sides of low x and y
    std::int32_t step = 1;  ///< places are to be multiples of this power of two
};

/// padding  texels of its own picture that surround the image, at least; 0 to 64
image_footprint footprintOf(const ImageData& image, unsigned int padding);

/// Pixels to draw into: rows of 8 bits a channel without padding, three channels or four.
struct canvas {
    unsigned char* pixels = nullptr;
    std::int64_t width = 0;
    std::int64_t height = 0;
    bool hasAlpha = false;
    bool opaque = false; ///< the alpha of images is dropped: 255 is drawn

    std::int64_t pixelBytes() const { return hasAlpha ? 4 : 3; }
};

/// The first level of an image; null pixels unless it is RGB or RGBA with 8 bits a channel.
canvas canvasOf(const ::osg::ImagePtr& image);

/// A rectangle of a canvas. May reach beyond it on all sides.
struct drawn_area {
    std::int64_t left = 0;
    std::int64_t top = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;
};

/// Fills an area with an image that repeats in both directions, one of its corners at (x, y).
/// Draws in the canvas's format: alpha is dropped, or 255 where the image has none. Nothing is
/// drawn outside the canvas, and nothing of an image without pixels.
///
/// recipe  how `image.data` is read, a row at a time, where it is of another format
/// errors  std::bad_alloc with a recipe
void drawRepeated(const canvas& target, const drawn_area& area, const ImageData& image,
                  std::int64_t x, std::int64_t y, const pixel_recipe* recipe = nullptr);

/// Makes the alpha of `count` pixels of four channels 255.
void makeOpaque(unsigned char* pixels, std::int64_t count);

} // namespace morva::osg
