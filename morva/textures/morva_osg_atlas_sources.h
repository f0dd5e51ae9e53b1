#pragma once

// The images of a scene as an atlas takes them: RGB or RGBA, 8 bits a channel.
//
//     RGB, RGBA                               the image's own pixels
//     L, I, BGR                               the same, read as RGB
//     LA, A, BGRA, if all alpha is 255        the same, read as RGB; A is white
//     other alpha, wider channels, packed
//     or no pixels                            an atlas can't show it
//
// The images are only read. Each is looked at once, however many nodes show it. One thread; the
// images must not be edited meanwhile.

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGImage.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_pixel_rows.h>

namespace morva::osg {

/// How much of two images must be equal.
enum class image_equality {
    first_bytes, ///< as searchImageData() has it: as many bytes as there are pixels
    whole        ///< format and all pixels
};

/// How images of other formats are kept.
enum class other_formats {
    as_they_are, ///< read as RGB where they are needed, a row at a time
    as_copies    ///< RGB copies that stay for the process: a caller sees their pixels
};

/// An image as an atlas reads it.
struct atlas_source {
    unsigned char* pixels = nullptr; ///< only read; null where an atlas can't show the image
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool hasAlpha = false;
    pixel_recipe recipe;    ///< without channels: `pixels` are RGB or RGBA
    std::uint64_t hash = 0; ///< of size and compared bytes
};

/// A new entry for an image, without coordinates and place.
inline ImageData entryOf(const atlas_source& source) {
    ImageData entry;
    entry.data = source.pixels;
    entry.width = source.width;
    entry.height = source.height;
    entry.hasAlpha = source.hasAlpha;
    return entry;
}

/// The images of one run.
class atlas_sources {
  public:
    explicit atlas_sources(image_equality equality,
                           other_formats others = other_formats::as_they_are)
        : equality_(equality), others_(others) {}
    atlas_sources(const atlas_sources&) = delete;
    atlas_sources& operator=(const atlas_sources&) = delete;

    /// `image` must not be null. One without memory for its copy can't be shown.
    const atlas_source& of(const ::osg::ImagePtr& image);

    /// Of an entry in a list: the image whose pixels it has, or one of another origin.
    atlas_source of(const ImageData& image) const;

    /// How the pixels of an entry are read; null for RGB and RGBA.
    const pixel_recipe* recipeOf(const ImageData& image) const;

    image_equality equality() const { return equality_; }

  private:
    image_equality equality_;
    other_formats others_;
    std::unordered_map<::osg::UInt32, atlas_source> by_container_;
    std::unordered_map<const unsigned char*, atlas_source> by_pixels_; ///< those with a recipe
};

/// Finds images by their hash: the first equal one, as searchImageData() does.
class image_finder {
  public:
    explicit image_finder(image_equality equality) : equality_(equality) {}

    /// Number of the first image that equals the source, or 2^32 - 1.
    std::uint32_t find(const atlas_source& source) const;
    /// Makes an image known; one without pixels is never found. Numbers must rise.
    void enter(std::uint32_t number, const atlas_source& source);

  private:
    struct entry {
        std::uint32_t number;
        atlas_source source;
    };
    image_equality equality_;
    std::unordered_map<std::uint64_t, std::vector<entry>> entries_;
};

} // namespace morva::osg
