#include <morva/textures/morva_osg_image_tiles.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <vector>

namespace morva::osg {

namespace {

/// 0 to longest_side.
std::int32_t tiledSide(float maxTexCoord, std::uint32_t side) {
    const std::int64_t tiles = tileCount(maxTexCoord); // both factors are below 2^32
    return static_cast<std::int32_t>(
        std::min(tiles * static_cast<std::int64_t>(side), longest_side));
}

/// Both sides of a step of surroundings, and the rest up to a multiple of it.
std::int32_t paddedSide(std::int32_t side, std::int64_t step, std::int64_t padding) {
    const std::int64_t wanted = step + side + padding;
    const std::int64_t padded = (wanted + step - 1) / step * step;
    return static_cast<std::int32_t>(std::min(padded, longest_side / step * step));
}

/// The rest of a division, 0 to `divisor` - 1.
std::int64_t restOf(std::int64_t value, std::int64_t divisor) {
    const std::int64_t rest = value % divisor;
    return rest < 0 ? rest + divisor : rest;
}

/// The part of an area on a canvas; sides of 0 for none.
drawn_area clipped(const drawn_area& area, const canvas& target) {
    const std::int64_t left = std::max<std::int64_t>(area.left, 0);
    const std::int64_t top = std::max<std::int64_t>(area.top, 0);
    const std::int64_t right = std::min(area.left + area.width, target.width);
    const std::int64_t bottom = std::min(area.top + area.height, target.height);
    return {left, top, std::max<std::int64_t>(right - left, 0),
            std::max<std::int64_t>(bottom - top, 0)};
}

void copyPixels(const unsigned char* from, bool fromAlpha, unsigned char* to, const canvas& target,
                std::int64_t count) {
    if (count <= 0)
        return;
    if (fromAlpha == target.hasAlpha) {
        std::memcpy(to, from, static_cast<std::size_t>(count * target.pixelBytes()));
        if (fromAlpha && target.opaque)
            makeOpaque(to, count);
    } else if (fromAlpha) {
        narrowPixels(from, to, count);
    } else {
        widenPixels(from, to, count);
    }
}

/// Fills a row of `count` pixels with a row of the image that repeats, from pixel `first` on.
void drawRow(const ImageData& image, const unsigned char* from, std::int64_t first,
             unsigned char* to, const canvas& target, std::int64_t count) {
    const std::int64_t period = image.width;
    const std::int64_t bytes = target.pixelBytes();
    const std::int64_t ahead = std::min(period - first, count);
    copyPixels(from + first * (image.hasAlpha ? 4 : 3), image.hasAlpha, to, target, ahead);
    std::int64_t done = std::min(period, count);
    copyPixels(from, image.hasAlpha, to + ahead * bytes, target, done - ahead);
    while (done < count) { // whole periods are there, so that what follows is what is in front
        const std::int64_t more = std::min(done, count - done);
        std::memcpy(to + done * bytes, to, static_cast<std::size_t>(more * bytes));
        done += more;
    }
}

} // namespace

std::int64_t tileCount(float maxTexCoord) {
    const float tiles = std::ceil(maxTexCoord);
    if (!(tiles > 0.0F)) // a NaN, too
        return 0;
    return tiles < static_cast<float>(longest_side) ? static_cast<std::int64_t>(tiles)
                                                    : longest_side;
}

std::int32_t tiledWidth(const ImageData& image) {
    return tiledSide(image.maxTexCoordU, image.width);
}

std::int32_t tiledHeight(const ImageData& image) {
    return tiledSide(image.maxTexCoordV, image.height);
}

image_footprint footprintOf(const ImageData& image, unsigned int padding) {
    image_footprint room{tiledWidth(image), tiledHeight(image)};
    if (padding == 0 || room.width == 0 || room.height == 0)
        return room;
    while (room.step < static_cast<std::int32_t>(padding))
        room.step *= 2;
    room.inset = room.step;
    room.width = paddedSide(room.width, room.step, padding);
    room.height = paddedSide(room.height, room.step, padding);
    return room;
}

canvas canvasOf(const ::osg::ImagePtr& image) {
    const bool has_alpha = image->getPixelFormat() == ::osg::Image::OSG_RGBA_PF;
    if ((!has_alpha && image->getPixelFormat() != ::osg::Image::OSG_RGB_PF) ||
        image->getDataType() != ::osg::Image::OSG_UINT8_IMAGEDATA)
        return {};
    return {image->getData(), image->getWidth(), image->getHeight(), has_alpha};
}

void drawRepeated(const canvas& target, const drawn_area& area, const ImageData& image,
                  std::int64_t x, std::int64_t y, const pixel_recipe* recipe) {
    const drawn_area shown = clipped(area, target);
    const std::int64_t width = image.width;
    const std::int64_t height = image.height;
    if (image.data == nullptr || width == 0 || height == 0 || target.pixels == nullptr ||
        shown.width == 0)
        return;

    const std::int64_t to_row = target.width * target.pixelBytes();
    const std::int64_t from_row = width * (recipe != nullptr ? recipe->channels
                                           : image.hasAlpha  ? 4
                                                             : 3);
    std::vector<unsigned char> as_rgb(recipe != nullptr ? static_cast<std::size_t>(3 * width) : 0);
    unsigned char* to = target.pixels + shown.top * to_row + shown.left * target.pixelBytes();
    const std::int64_t first = restOf(shown.left - x, width);
    for (std::int64_t row = 0; row < shown.height; ++row, to += to_row) {
        if (row >= height) { // as it was drawn one image before
            std::memcpy(to, to - height * to_row,
                        static_cast<std::size_t>(shown.width * target.pixelBytes()));
            continue;
        }
        const unsigned char* from = image.data + restOf(shown.top + row - y, height) * from_row;
        if (recipe != nullptr) {
            readAsRGB(from, width, *recipe, as_rgb.data());
            from = as_rgb.data();
        }
        drawRow(image, from, first, to, target, shown.width);
    }
}

void makeOpaque(unsigned char* pixels, std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i)
        pixels[4 * i + 3] = 255;
}

} // namespace morva::osg
