#include "image_codec.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace {

/// Memory for the decoder, which asks whether it got any.
void* memoryIfThereIs(std::size_t bytes) { return ::operator new(bytes, std::nothrow); }

/// A longer block with the same contents; the old one stays if there is none.
void* regrown(void* block, std::size_t old_bytes, std::size_t bytes) {
    void* const larger = memoryIfThereIs(bytes);
    if (larger == nullptr || block == nullptr)
        return larger;
    std::memcpy(larger, block, std::min(old_bytes, bytes));
    ::operator delete(block);
    return larger;
}

} // namespace

// The compiler cannot see that a reader from memory needs no callbacks.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#define STBI_MAX_DIMENSIONS 32768
#define STBI_NO_STDIO
#define STBI_MALLOC(bytes) memoryIfThereIs(bytes)
#define STBI_REALLOC_SIZED(block, old, bytes) regrown(block, old, bytes)
#define STBI_FREE(block) ::operator delete(block)
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>
#pragma GCC diagnostic pop

namespace morva::host {

namespace {

/// Format of `channels` bytes per pixel, 1 to 4.
::osg::UInt32 formatOf(int channels) {
    static const ::osg::UInt32 formats[] = {::osg::Image::OSG_L_PF, ::osg::Image::OSG_LA_PF,
                                            ::osg::Image::OSG_RGB_PF, ::osg::Image::OSG_RGBA_PF};
    return formats[channels - 1];
}

std::vector<std::uint8_t> turnRows(const std::uint8_t* rows, std::size_t row_bytes,
                                   std::size_t height) {
    std::vector<std::uint8_t> turned(row_bytes * height);
    for (std::size_t y = 0; y < height; ++y)
        std::copy(rows + y * row_bytes, rows + (y + 1) * row_bytes,
                  turned.begin() + static_cast<std::ptrdiff_t>((height - 1 - y) * row_bytes));
    return turned;
}

/// Leaves out the last channel of every pixel.
std::vector<std::uint8_t> withoutAlpha(const std::vector<std::uint8_t>& pixels, int channels) {
    std::vector<std::uint8_t> kept;
    kept.reserve(pixels.size());
    const auto step = static_cast<std::size_t>(channels);
    for (std::size_t i = 0; i + step <= pixels.size(); i += step)
        kept.insert(kept.end(), pixels.begin() + static_cast<std::ptrdiff_t>(i),
                    pixels.begin() + static_cast<std::ptrdiff_t>(i + step - 1));
    return kept;
}

::osg::ImagePtr imageFromBottomRows(std::uint32_t width, std::uint32_t height, int channels,
                                    std::vector<std::uint8_t> pixels, bool keep_alpha) {
    if (!keep_alpha && channels % 2 == 0) {
        pixels = withoutAlpha(pixels, channels);
        --channels;
    }
    ::osg::ImagePtr image = ::osg::Image::create();
    beginEditCP(image);
    image->set(formatOf(channels), static_cast<::osg::Int32>(width),
               static_cast<::osg::Int32>(height), 1, 1, 1, 0.0, pixels.data());
    endEditCP(image);
    return image;
}

/// FNV-1a over the pixels and sizes.
std::uint64_t fingerprint(const ::osg::ImagePtr& image) {
    std::uint64_t hash = 0xCBF29CE484222325ull;
    const auto mix = [&](std::uint64_t value) { hash = (hash ^ value) * 0x100000001B3ull; };
    mix(image->getPixelFormat());
    mix(static_cast<std::uint64_t>(image->getWidth()));
    mix(static_cast<std::uint64_t>(image->getHeight()));
    const ::osg::UInt8* data = image->getData();
    const unsigned long size = data != nullptr ? image->getSize() : 0;
    for (unsigned long i = 0; i < size; ++i)
        mix(data[i]);
    return hash;
}

} // namespace

::osg::ImagePtr decodeImage(const std::uint8_t* bytes, std::size_t count, bool keep_alpha) {
    if (bytes == nullptr || count == 0 || count > 0x7FFFFFFFu)
        return ::osg::NullFC;
    int width = 0, height = 0, channels = 0;
    const std::unique_ptr<stbi_uc, void (*)(void*)> pixels(
        stbi_load_from_memory(bytes, static_cast<int>(count), &width, &height, &channels, 0),
        &stbi_image_free);
    if (pixels == nullptr)
        return ::osg::NullFC;
    const auto row_bytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    std::vector<std::uint8_t> turned =
        turnRows(pixels.get(), row_bytes, static_cast<std::size_t>(height));
    return imageFromBottomRows(static_cast<std::uint32_t>(width),
                               static_cast<std::uint32_t>(height), channels, std::move(turned),
                               keep_alpha);
}

::osg::ImagePtr imageFromTopRows(std::uint32_t width, std::uint32_t height,
                                 std::vector<std::uint8_t> rgba, bool keep_alpha) {
    return imageFromBottomRows(width, height, 4,
                               turnRows(rgba.data(), std::size_t{4} * width, height), keep_alpha);
}

void image_sources::remember(const ::osg::ImagePtr& image, encoded_image file) {
    by_container_[image.getFieldContainerId()] = {std::move(file), fingerprint(image)};
}

void image_sources::rememberFinal(const ::osg::ImagePtr& image, encoded_image file) {
    by_container_[image.getFieldContainerId()] = {std::move(file), std::nullopt};
}

const encoded_image* image_sources::find(const ::osg::ImagePtr& image) const {
    const auto found = by_container_.find(image.getFieldContainerId());
    if (found == by_container_.end() ||
        (found->second.pixels && *found->second.pixels != fingerprint(image)))
        return nullptr;
    return &found->second.file;
}

} // namespace morva::host
