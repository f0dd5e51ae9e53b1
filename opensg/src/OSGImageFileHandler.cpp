#include "OpenSG/OSGImageFileHandler.h"

#include "OSGPictureCodec.h"
#include "OpenSG/OSGLog.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <memory>
#include <vector>

// Private copies of the codecs: programs bring their own.
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wunused-function"
#endif
#define STB_IMAGE_STATIC
#define STB_IMAGE_IMPLEMENTATION
#define STBI_NO_STDIO
#include <stb/stb_image.h>
#define STB_IMAGE_WRITE_STATIC
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_WRITE_NO_STDIO
#include <stb/stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

OSG_BEGIN_NAMESPACE

namespace {

bool fail(const Char8* task, const Char8* fileName, const Char8* why) {
    SWARNING << "ImageFileHandler::" << task << ": " << (fileName != nullptr ? fileName : "(null)")
             << ": " << why << endLog;
    return false;
}

bool readWhole(const Char8* fileName, std::vector<UInt8>& bytes) {
    std::ifstream file(fileName, std::ios::binary);
    if (!file)
        return false;
    bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

/// Rows in the opposite order.
std::vector<UInt8> turned(const UInt8* pixels, std::size_t rowBytes, std::size_t rows) {
    std::vector<UInt8> out(rowBytes * rows);
    for (std::size_t row = 0; row < rows; ++row) {
        std::memcpy(out.data() + (rows - 1 - row) * rowBytes, pixels + row * rowBytes, rowBytes);
    }
    return out;
}

bool decode(const UInt8* bytes, std::size_t count, const ImagePtr& image) {
    decoded_picture picture;
    if (!osgDecodePicture(bytes, count, picture))
        return false;
    static constexpr UInt32 formats[] = {Image::OSG_L_PF, Image::OSG_LA_PF, Image::OSG_RGB_PF,
                                         Image::OSG_RGBA_PF};
    return image->set(formats[picture.channels - 1], picture.width, picture.height, 1, 1, 1, 0.0,
                      picture.pixels.data());
}

std::string extensionOf(const std::string& fileName) {
    const std::size_t dot = fileName.find_last_of("./\\");
    if (dot == std::string::npos || fileName[dot] != '.')
        return std::string();
    std::string extension = fileName.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

void append(void* target, void* data, int count) {
    static_cast<std::string*>(target)->append(static_cast<const char*>(data),
                                              static_cast<std::size_t>(count));
}

enum class Coding { none, png, jpg, bmp, tga };

Coding codingOf(const std::string& extension) {
    if (extension == "png")
        return Coding::png;
    if (extension == "jpg" || extension == "jpeg")
        return Coding::jpg;
    if (extension == "bmp")
        return Coding::bmp;
    if (extension == "tga")
        return Coding::tga;
    return Coding::none;
}

bool encode(Coding coding, int width, int height, int channels, const UInt8* rows,
            std::string& bytes) {
    switch (coding) {
    case Coding::png:
        return stbi_write_png_to_func(&append, &bytes, width, height, channels, rows,
                                      width * channels) != 0;
    case Coding::jpg:
        return stbi_write_jpg_to_func(&append, &bytes, width, height, channels, rows, 90) != 0;
    case Coding::bmp:
        return stbi_write_bmp_to_func(&append, &bytes, width, height, channels, rows) != 0;
    case Coding::tga:
        return stbi_write_tga_to_func(&append, &bytes, width, height, channels, rows) != 0;
    default:
        return false;
    }
}

/// The format of 8-bit channels in which files hold what this image holds.
Image::PixelFormat fileFormatOf(const Image& image) {
    switch (image.getComponents()) {
    case 2:
        return Image::OSG_LA_PF;
    case 3:
        return Image::OSG_RGB_PF;
    case 4:
        return Image::OSG_RGBA_PF;
    default:
        return Image::OSG_L_PF;
    }
}

} // namespace

bool osgProbePicture(const UInt8* bytes, std::size_t count, decoded_picture& out) {
    if (count == 0 || count > 0x7FFFFFFF)
        return false;
    return stbi_info_from_memory(bytes, static_cast<int>(count), &out.width, &out.height,
                                 &out.channels) != 0 &&
           out.width > 0 && out.height > 0 && out.channels > 0 && out.channels <= 4 &&
           Int64(out.width) * out.height <= osgMaxPicturePixels;
}

bool osgDecodePicture(const UInt8* bytes, std::size_t count, decoded_picture& out) {
    if (!osgProbePicture(bytes, count, out))
        return false;
    using Pixels = std::unique_ptr<stbi_uc, void (*)(void*)>;
    const Pixels pixels(stbi_load_from_memory(bytes, static_cast<int>(count), &out.width,
                                              &out.height, &out.channels, 0),
                        &stbi_image_free);
    if (pixels == nullptr || out.channels < 1 || out.channels > 4)
        return false;
    const std::size_t rowBytes = std::size_t(out.width) * std::size_t(out.channels);
    out.pixels = turned(pixels.get(), rowBytes, static_cast<std::size_t>(out.height));
    return true;
}

ImageFileHandler& ImageFileHandler::the() {
    static ImageFileHandler& handler = *new ImageFileHandler;
    return handler;
}

ImagePtr ImageFileHandler::read(const Char8* fileName, const Char8* mimeType) const {
    ImagePtr image = Image::create();
    if (read(image, fileName, mimeType))
        return image;
    subRefCP(image);
    return NullFC;
}

bool ImageFileHandler::read(const ImagePtr& image, const Char8* fileName, const Char8*) const {
    if (image == NullFC || fileName == nullptr)
        return fail("read", fileName, "nothing given");
    std::vector<UInt8> bytes;
    if (!readWhole(fileName, bytes))
        return fail("read", fileName, "cannot be opened");
    if (!decode(bytes.data(), bytes.size(), image)) {
        return fail("read", fileName, "is no picture of a known format, or is damaged");
    }
    image->setName(fileName);
    return true;
}

ImagePtr ImageFileHandler::read(const UInt8* bytes, UInt32 count) const {
    ImagePtr image = Image::create();
    if (bytes != nullptr && decode(bytes, count, image))
        return image;
    fail("read", "(memory)", "is no picture of a known format, or is damaged");
    subRefCP(image);
    return NullFC;
}

bool ImageFileHandler::write(const ImagePtr& image, const Char8* fileName, const Char8*) const {
    if (image == NullFC || fileName == nullptr)
        return fail("write", fileName, "nothing given");
    const Coding coding = codingOf(extensionOf(fileName));
    if (coding == Coding::none)
        return fail("write", fileName, "unknown extension");
    if (!image->isValid() || image->hasCompressedData() ||
        image->getDataType() != Image::OSG_UINT8_IMAGEDATA) {
        return fail("write", fileName, "the image has no pixels of 8-bit channels");
    }

    ImageRefPtr plain(image);
    const Image::PixelFormat format = fileFormatOf(*image);
    if (image->getPixelFormat() != static_cast<UInt32>(format)) {
        plain = Image::create();
        if (!image->reformat(format, plain))
            return false;
    }
    const int width = plain->getWidth();
    const int height = plain->getHeight();
    const int channels = plain->getComponents();
    const std::size_t rowBytes = static_cast<std::size_t>(width) * std::size_t(channels);
    const std::vector<UInt8> rows =
        turned(plain->getData(), rowBytes, static_cast<std::size_t>(height));

    std::string bytes;
    if (!encode(coding, width, height, channels, rows.data(), bytes)) {
        return fail("write", fileName, "cannot be coded");
    }
    std::ofstream file(fileName, std::ios::binary);
    file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    file.close();
    return file ? true : fail("write", fileName, "cannot be written");
}

OSG_END_NAMESPACE
