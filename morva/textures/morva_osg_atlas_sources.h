#pragma once

// The images of a scene as an atlas takes them: RGB or RGBA, 8 bits a channel.
//
//     RGB, RGBA                               the image's own pixels
//     L, I, BGR                               a copy as RGB
//     LA, A, BGRA, if all alpha is 255        the same; A is white
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

namespace morva::osg {

/// How much of two images must be equal.
enum class image_equality {
    first_bytes, ///< as searchImageData() has it: as many bytes as there are pixels
    whole        ///< format and all pixels
};

/// Who has the copies.
enum class copy_owner {
    the_run, ///< they go with the atlas_sources
    process  ///< they stay: a caller sees their pixels
};

/// An image as an atlas reads it. Valid as long as the `atlas_sources` that gave it.
struct atlas_source {
    unsigned char* pixels = nullptr; ///< only read; null where an atlas can't show the image
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    bool hasAlpha = false;
    std::uint64_t hash = 0; ///< of size and compared bytes
};

/// The images of one run.
class atlas_sources {
  public:
    explicit atlas_sources(image_equality equality, copy_owner owner = copy_owner::the_run)
        : equality_(equality), owner_(owner) {}
    atlas_sources(const atlas_sources&) = delete;
    atlas_sources& operator=(const atlas_sources&) = delete;

    /// `image` must not be null. One without memory for its copy can't be shown.
    const atlas_source& of(const ::osg::ImagePtr& image);

    image_equality equality() const { return equality_; }

  private:
    unsigned char* copyAsRGB(const ::osg::ImagePtr& image);

    image_equality equality_;
    copy_owner owner_;
    std::unordered_map<::osg::UInt32, atlas_source> by_container_;
    std::vector<std::vector<unsigned char>> copies_;
};

/// Finds images in a growing list: the first equal one, as searchImageData() does, by its hash.
class image_finder {
  public:
    explicit image_finder(image_equality equality) : equality_(equality) {}

    /// Number of the first image in `images` that equals the source, or 2^32 - 1. All of `images`
    /// must have been entered.
    std::uint32_t find(const std::vector<ImageData>& images, const atlas_source& source) const;
    /// Makes the image with that number, made of this source, known. Numbers must rise.
    void enter(std::uint32_t number, const atlas_source& source) {
        numbers_[source.hash].push_back(number);
    }
    /// The same for an image of another origin. One without pixels is never found.
    void enter(std::uint32_t number, const ImageData& image);

  private:
    image_equality equality_;
    std::unordered_map<std::uint64_t, std::vector<std::uint32_t>> numbers_;
};

} // namespace morva::osg
