// An atlas for the images of one cell: a packing whose size follows from them, and its image.

#include <morva/textures/morva_osg_atlas_images.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <sstream>
#include <string>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/texturatlas.h>

namespace morva::osg {

namespace {

/// Images with a side at or below it are not halved any more.
constexpr unsigned int shrink_floor = 32;
constexpr int longest_accepted = 8192;

void clear(texturatlas& atlas) {
    atlas.width = 1;
    atlas.height = 1;
    atlas.itemCount = 0;
    atlas.items.clear();
    atlas.groupCounts.clear();
    atlas.groupSizes.clear();
    atlas.placed.clear();
    atlas.freeSpaces.clear();
}

/// How far the larger side of a packing is from a limit: below 1 if it is above.
double roomLeft(const texturatlas& atlas, unsigned int maxSize) {
    const auto limit = static_cast<double>(maxSize);
    return std::min(limit / static_cast<double>(atlas.height),
                    limit / static_cast<double>(atlas.width));
}

texturinfo tiledSize(const ImageData& image) {
    texturinfo size;
    size.width = tiledWidth(image);
    size.height = tiledHeight(image);
    return size;
}

void pack(texturatlas& atlas, const std::vector<ImageData>& images, unsigned int maxSize) {
    for (const ImageData& image : images)
        atlas.items.push_back(tiledSize(image));
    atlas.itemCount = images.size();
    atlas.calculate(maxSize);
}

bool isAbove(int side, unsigned int limit) {
    return static_cast<std::int64_t>(side) > static_cast<std::int64_t>(limit);
}

void sayNothingLeft(std::size_t images, unsigned int maxSize, double percent) {
    std::ostringstream text;
    text << "Morva::osg::createAtlas failed! Vec: " << images << " maxSize: " << maxSize
         << " percent: " << percent;
    say({text.str()});
}

/// Takes the next place for a size out of a packing.
std::optional<texturinfo> takePlace(texturatlas& atlas, const texturinfo& size) {
    const auto found = atlas.placed.lower_bound(size);
    if (found == atlas.placed.end() || size < found->first)
        return std::nullopt;
    const texturinfo place = found->second;
    atlas.placed.erase(found);
    return place;
}

void sayNotFound(const texturinfo& size) {
    say({"Textureatlas unable to find this Texture!"});
    say({"Parameter: "});
    say({"Width: ", std::to_string(size.width)});
    say({"Heigth: ", std::to_string(size.height)});
}

/// Brings an image to the size of a packing; false if it can't be drawn into then.
bool fitTo(const texturatlas& atlas, const ::osg::ImagePtr& target) {
    try {
        return target != ::osg::NullFC &&
               target->scale(std::max(atlas.width, 1), std::max(atlas.height, 1), 1,
                             ::osg::NullFC) &&
               canvasOf(target).pixels != nullptr;
    } catch (...) {
        return false;
    }
}

} // namespace

bool createAtlas(texturatlas& atlas, std::vector<ImageData>& images, bool fixedSize,
                 unsigned int maxSize) {
    for (bool first = true;; first = false) {
        const double ratio = roomLeft(atlas, maxSize);
        clear(atlas);
        if (!first) {
            if (fixedSize)
                return false;
            if (!scaleImages(images, 1.0 - ratio, shrink_floor)) {
                sayNothingLeft(images.size(), maxSize, 1.0 - ratio);
                return false;
            }
        }
        pack(atlas, images, maxSize);
        if (fixedSize && (isAbove(atlas.height, maxSize) || isAbove(atlas.width, maxSize)))
            return false;
        if (atlas.height <= longest_accepted && atlas.width <= longest_accepted)
            return true;
    }
}

bool fillNewTexture(texturatlas& atlas, std::vector<ImageData>& images, ::osg::ImagePtr target,
                    bool alpha) {
    if (!fitTo(atlas, target)) {
        say({"Scale Texture Image failed."});
        return false;
    }
    const open_edit pixels(target, ::osg::Image::PixelFieldMask);
    canvas whole = canvasOf(target);
    whole.opaque = !alpha;
    for (ImageData& image : images) {
        const texturinfo size = tiledSize(image);
        const std::optional<texturinfo> place = takePlace(atlas, size);
        if (!place) {
            sayNotFound(size);
            continue;
        }
        image.x = place->width;
        image.y = place->height;
        drawRepeated(whole, {image.x, image.y, size.width, size.height}, image, image.x, image.y);
    }
    return true;
}

} // namespace morva::osg
