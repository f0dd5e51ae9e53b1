#include <morva/textures/morva_osg_atlas_sources.h>

#include <cstring>
#include <limits>
#include <new>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/textures/morva_osg_kept_images.h>

namespace morva::osg {

namespace {

/// How a format that is no RGB or RGBA becomes RGB.
struct pixel_recipe {
    unsigned int channels = 0;                 ///< of the format; 0 for one that doesn't
    bool has_alpha = false;                    ///< the last channel, which must be 255 throughout
    unsigned int red = 0, green = 0, blue = 0; ///< channels that they are taken from
};

pixel_recipe recipeFor(::osg::UInt32 format) {
    switch (format) {
    case ::osg::Image::OSG_L_PF:
    case ::osg::Image::OSG_I_PF:
        return {1, false, 0, 0, 0};
    case ::osg::Image::OSG_LA_PF:
        return {2, true, 0, 0, 0};
    case ::osg::Image::OSG_A_PF:
        return {1, true, 0, 0, 0}; // 255 throughout, so that it is white by itself
    case ::osg::Image::OSG_BGR_PF:
        return {3, false, 2, 1, 0};
    case ::osg::Image::OSG_BGRA_PF:
        return {4, true, 2, 1, 0};
    default:
        return {};
    }
}

std::size_t pixelsIn(std::uint32_t width, std::uint32_t height) {
    return static_cast<std::size_t>(width) * height;
}

void convertToRGB(const ::osg::UInt8* from, std::size_t count, const pixel_recipe& recipe,
                  unsigned char* to) {
    for (std::size_t i = 0; i < count; ++i, from += recipe.channels, to += 3) {
        to[0] = from[recipe.red];
        to[1] = from[recipe.green];
        to[2] = from[recipe.blue];
    }
}

/// Eight bytes at a time (multiply and fold); the rest by itself.
std::uint64_t hashOf(const unsigned char* bytes, std::size_t count, std::uint64_t seed) {
    constexpr std::uint64_t odd = 0x9E3779B97F4A7C15ULL;
    std::uint64_t hash = seed * odd;
    const auto mix = [&hash](std::uint64_t value) {
        hash = (hash ^ value) * odd;
        hash ^= hash >> 29U;
    };
    std::size_t done = 0;
    for (; done + 8 <= count; done += 8) {
        std::uint64_t value = 0;
        std::memcpy(&value, bytes + done, 8);
        mix(value);
    }
    for (; done < count; ++done)
        mix(bytes[done]);
    return hash;
}

/// Bytes that are compared.
std::size_t comparedBytes(image_equality equality, std::uint32_t width, std::uint32_t height,
                          bool hasAlpha) {
    const std::size_t channels = hasAlpha ? 4 : 3;
    return pixelsIn(width, height) * (equality == image_equality::whole ? channels : 1);
}

std::uint64_t hashOf(image_equality equality, const unsigned char* pixels, std::uint32_t width,
                     std::uint32_t height, bool hasAlpha) {
    const std::uint64_t size = std::uint64_t{width} << 32U | height;
    return hashOf(pixels, comparedBytes(equality, width, height, hasAlpha), size);
}

} // namespace

/// Null for an image that has no copy, and without memory.
unsigned char* atlas_sources::copyAsRGB(const ::osg::ImagePtr& image) {
    const auto width = static_cast<std::uint32_t>(image->getWidth());
    const auto height = static_cast<std::uint32_t>(image->getHeight());
    const std::size_t count = pixelsIn(width, height);
    const ::osg::UInt8* const from = image->getData();
    const pixel_recipe recipe = recipeFor(image->getPixelFormat());
    if (recipe.channels == 0 ||
        (recipe.has_alpha && hasAlphaBelowFull(from, count, recipe.channels)))
        return nullptr;
    unsigned char* to = nullptr;
    if (owner_ == copy_owner::process) {
        const ::osg::ImagePtr kept = newKeptImage(width, height, false);
        to = kept != ::osg::NullFC ? kept->getData() : nullptr;
    } else {
        try {
            to = copies_.emplace_back(3 * count).data();
        } catch (const std::bad_alloc&) {
            return nullptr;
        }
    }
    if (to != nullptr)
        convertToRGB(from, count, recipe, to);
    return to;
}

const atlas_source& atlas_sources::of(const ::osg::ImagePtr& image) {
    const auto [known, is_new] = by_container_.try_emplace(image.getFieldContainerId());
    atlas_source& source = known->second;
    ::osg::UInt8* const pixels = is_new ? image->getData() : nullptr;
    if (pixels == nullptr || image->getDataType() != ::osg::Image::OSG_UINT8_IMAGEDATA ||
        image->getWidth() < 1 || image->getHeight() < 1)
        return source;

    source.width = static_cast<std::uint32_t>(image->getWidth());
    source.height = static_cast<std::uint32_t>(image->getHeight());
    source.hasAlpha = image->getPixelFormat() == ::osg::Image::OSG_RGBA_PF;
    const bool as_it_is = source.hasAlpha || image->getPixelFormat() == ::osg::Image::OSG_RGB_PF;
    source.pixels = as_it_is ? pixels : copyAsRGB(image);
    if (source.pixels != nullptr)
        source.hash =
            hashOf(equality_, source.pixels, source.width, source.height, source.hasAlpha);
    return source;
}

void image_finder::enter(std::uint32_t number, const ImageData& image) {
    if (image.data != nullptr)
        numbers_[hashOf(equality_, image.data, image.width, image.height, image.hasAlpha)]
            .push_back(number);
}

std::uint32_t image_finder::find(const std::vector<ImageData>& images,
                                 const atlas_source& source) const {
    const auto bucket = numbers_.find(source.hash);
    if (bucket == numbers_.end())
        return std::numeric_limits<std::uint32_t>::max();
    const std::size_t bytes =
        comparedBytes(equality_, source.width, source.height, source.hasAlpha);
    for (const std::uint32_t number : bucket->second) {
        const ImageData& image = images[number];
        const bool same_form =
            equality_ == image_equality::first_bytes || image.hasAlpha == source.hasAlpha;
        if (same_form && image.width == source.width && image.height == source.height &&
            std::memcmp(image.data, source.pixels, bytes) == 0)
            return number;
    }
    return std::numeric_limits<std::uint32_t>::max();
}

} // namespace morva::osg
