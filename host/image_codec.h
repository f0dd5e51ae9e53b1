#pragma once

// Pixels in and out of file formats. Files keep the top row first, images the bottom row; the
// functions here turn the rows, so that callers never do.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGImage.h>

namespace morva::host {

/// Decodes a PNG, JPEG, BMP, TGA, GIF or PSD file that lies in memory.
///
/// keep_alpha  false drops an alpha channel
/// returns     a new image of 8 bits per channel (L, LA, RGB or RGBA), or null if the bytes are
///             none of these formats, are damaged or have more than 32,768 pixels on a side
::osg::ImagePtr decodeImage(const std::uint8_t* bytes, std::size_t count, bool keep_alpha);

/// An image from pixels that lie top row first, four bytes each, red first.
::osg::ImagePtr imageFromTopRows(std::uint32_t width, std::uint32_t height,
                                 std::vector<std::uint8_t> rgba, bool keep_alpha);

/// The first picture of an image as PNG; empty for a format without whole bytes per channel and for
/// more than a million pixels on a side. Packed for speed, not for size.
///
/// errors  std::bad_alloc
std::vector<std::uint8_t> encodePng(const ::osg::ImagePtr& image);

/// The file that an image came from, for writing it again without a second coding.
struct encoded_image {
    std::string mime_type;
    std::vector<std::uint8_t> bytes;
};

/// Remembers the files of images. An image that was edited since has lost its file.
class image_sources {
  public:
    void remember(const ::osg::ImagePtr& image, encoded_image file);
    /// The same for an image that nobody edits from now on: its pixels are not looked at.
    void rememberFinal(const ::osg::ImagePtr& image, encoded_image file);
    /// Null if the image is unknown or has other pixels than when it was remembered.
    const encoded_image* find(const ::osg::ImagePtr& image) const;

  private:
    struct entry {
        encoded_image file;
        std::optional<std::uint64_t> pixels; ///< a print of them; none: they stay
    };
    std::unordered_map<::osg::UInt32, entry> by_container_;
};

} // namespace morva::host
