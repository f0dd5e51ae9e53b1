// Images as PNG. Large atlases are to be written while somebody waits, so the settings are those
// of speed: each row as the difference from the one above it, packed at the lowest level.

#include "image_codec.h"

#include <cstddef>
#include <cstdint>
#include <new>
#include <utility>
#include <vector>

#include <png.h>

namespace morva::host {

namespace {

constexpr int lowest_level = 1;
constexpr std::size_t chunk_bytes = 1U << 18U; ///< of packed bytes, handed over at once

/// What the library's callbacks know: no exception may pass through it.
struct png_output {
    std::vector<std::uint8_t> bytes;
    bool no_memory = false;
};

/// Rows as they lie in the image, the bottom row first.
struct row_view {
    const std::uint8_t* first = nullptr;
    std::size_t row_bytes = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    int color_type = 0;
    bool swapped = false; ///< blue first
};

png_voidp take(png_structp png, png_alloc_size_t bytes) {
    void* const block = ::operator new(bytes, std::nothrow);
    if (block == nullptr)
        static_cast<png_output*>(png_get_mem_ptr(png))->no_memory = true;
    return block;
}

void giveBack(png_structp, png_voidp block) { ::operator delete(block); }

void append(png_structp png, png_bytep data, std::size_t count) {
    auto& output = *static_cast<png_output*>(png_get_io_ptr(png));
    try {
        output.bytes.insert(output.bytes.end(), data, data + count);
    } catch (const std::bad_alloc&) {
        output.no_memory = true;
    }
    if (output.no_memory)
        png_error(png, "out of memory");
}

void nothingToFlush(png_structp) {}

[[noreturn]] void leave(png_structp png, png_const_charp) { png_longjmp(png, 1); }

void stayQuiet(png_structp, png_const_charp) {}

/// Writes the whole file; false if it was left early. Nothing in here may need a destructor.
bool writeRows(png_structp png, png_infop info, const row_view& rows) {
    if (setjmp(png_jmpbuf(png)) != 0)
        return false;
    png_set_compression_level(png, lowest_level);
    png_set_compression_buffer_size(png, chunk_bytes);
    png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
    png_set_IHDR(png, info, rows.width, rows.height, 8, rows.color_type, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    if (rows.swapped)
        png_set_bgr(png);
    for (std::size_t row = rows.height; row-- > 0;) // files keep the top row first
        png_write_row(png, rows.first + row * rows.row_bytes);
    png_write_end(png, nullptr);
    return true;
}

/// Format, sizes and rows; null rows for what is not made of one to four bytes per pixel.
row_view rowsOf(const ::osg::ImagePtr& image) {
    row_view rows;
    std::size_t channels = 0;
    switch (image->getPixelFormat()) {
    case ::osg::Image::OSG_L_PF:
    case ::osg::Image::OSG_I_PF:
    case ::osg::Image::OSG_A_PF:
        channels = 1, rows.color_type = PNG_COLOR_TYPE_GRAY;
        break;
    case ::osg::Image::OSG_LA_PF:
        channels = 2, rows.color_type = PNG_COLOR_TYPE_GRAY_ALPHA;
        break;
    case ::osg::Image::OSG_BGR_PF:
        rows.swapped = true;
        [[fallthrough]];
    case ::osg::Image::OSG_RGB_PF:
        channels = 3, rows.color_type = PNG_COLOR_TYPE_RGB;
        break;
    case ::osg::Image::OSG_BGRA_PF:
        rows.swapped = true;
        [[fallthrough]];
    case ::osg::Image::OSG_RGBA_PF:
        channels = 4, rows.color_type = PNG_COLOR_TYPE_RGB_ALPHA;
        break;
    default:
        return rows;
    }
    if (image->getDataType() != ::osg::Image::OSG_UINT8_IMAGEDATA)
        return rows;
    rows.first = image->getData();
    rows.width = static_cast<std::uint32_t>(image->getWidth());
    rows.height = static_cast<std::uint32_t>(image->getHeight());
    rows.row_bytes = rows.width * channels;
    return rows;
}

} // namespace

std::vector<std::uint8_t> encodePng(const ::osg::ImagePtr& image) {
    const row_view rows = rowsOf(image);
    png_output output;
    if (rows.first == nullptr)
        return {};
    png_structp png = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, nullptr, &leave, &stayQuiet,
                                                &output, &take, &giveBack);
    if (png == nullptr)
        throw std::bad_alloc();
    png_infop info = png_create_info_struct(png);
    png_set_write_fn(png, &output, &append, &nothingToFlush);
    const bool written = info != nullptr && writeRows(png, info, rows);
    png_destroy_write_struct(&png, &info);
    if (output.no_memory)
        throw std::bad_alloc();
    return written ? std::move(output.bytes) : std::vector<std::uint8_t>();
}

} // namespace morva::host
