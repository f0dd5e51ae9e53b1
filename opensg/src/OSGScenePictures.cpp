#include "OSGScenePictures.h"

#include "OSGImageLayout.h"
#include "OSGPictureCodec.h"
#include "OpenSG/OSGImageFileHandler.h"

#include <cstring>
#include <filesystem>
#include <system_error>

OSG_BEGIN_NAMESPACE

namespace {

constexpr UInt64 headBytes = 32;
constexpr UInt64 suffixBytes = 8;

/// More pixel bytes than this per byte of a PNG or JPEG file are a lie: deflate reaches 1032, an
/// empty block of 64 coefficients takes a bit per pass.
constexpr UInt64 maxExpansion = 2048;

/// Bytes that the sizes of an image ask for; more than osgMaxImageBytes for anything larger.
UInt64 bytesOfSizes(const Image& image) {
    const image_extent extent{image.getWidth(), image.getHeight(), image.getDepth()};
    const UInt64 side = osgBytesOfLevels(image.getPixelFormat(), image.getDataType(), extent,
                                         static_cast<UInt32>(image.getMipMapCount()));
    return osgLimitedProduct(osgLimitedProduct(side, static_cast<UInt64>(image.getFrameCount())),
                             static_cast<UInt64>(image.getSideCount()));
}

void checkSizes(const Image& image, const byte_cursor& at) {
    for (const Int32 size : {image.getWidth(), image.getHeight(), image.getDepth(),
                             image.getMipMapCount(), image.getFrameCount(), image.getSideCount()})
        at.require(size >= 0, "an image has a negative size");
    const bool hasPixels = !image.getPixel().empty();
    const bool isSet = image.getPixelFormat() != Image::OSG_INVALID_PF;
    at.require(isSet ? osgChannelsOf(image.getPixelFormat()) != 0 : !hasPixels,
               "an image has an unknown pixel format");
    at.require(osgBytesPerChannel(image.getDataType()) != 0, "an image has an unknown data type");
    at.require(!isSet || bytesOfSizes(image) <= osgMaxImageBytes, "an image is too large");
    if (!hasPixels)
        return;
    for (const Int32 size : {image.getWidth(), image.getHeight(), image.getDepth(),
                             image.getMipMapCount(), image.getFrameCount(), image.getSideCount()})
        at.require(size >= 1, "an image has pixels, but no size");
    at.require(bytesOfSizes(image) == image.getPixel().size(),
               "an image has pixels that do not fit its sizes");
}

bool startsLike(const UInt8* data, UInt64 bytes, std::string_view start) {
    return bytes >= start.size() && std::memcmp(data, start.data(), start.size()) == 0;
}

void readHead(Image& image, byte_cursor& head) {
    image.setPixelFormat(head.number<UInt16>());
    image.setWidth(head.number<UInt16>());
    image.setHeight(head.number<UInt16>());
    image.setDepth(head.number<UInt16>());
    image.setMipMapCount(head.number<UInt16>());
    image.setFrameCount(head.number<UInt16>());
    image.setFrameDelay(head.number<UInt16>() / 1000.0);
    image.setSideCount(head.number<UInt16>());
    image.setDataType(head.number<UInt16>());
    image.setBpp(static_cast<Int32>(osgChannelsOf(image.getPixelFormat()) *
                                    osgBytesPerChannel(image.getDataType())));
}

void readPicture(Image& image, byte_cursor& data) {
    const UInt64 count = data.left();
    const UInt8* bytes = data.take(0);
    data.require(startsLike(bytes, count, "\x89PNG") || startsLike(bytes, count, "\xFF\xD8"),
                 count == 0 ? "the pixels of an image are missing"
                            : "compressed pixels are neither PNG nor JPEG");
    decoded_picture picture;
    data.require(osgProbePicture(bytes, count, picture), "compressed pixels are damaged");
    data.require(picture.width == image.getWidth() && picture.height == image.getHeight() &&
                     static_cast<UInt32>(picture.channels) ==
                         osgChannelsOf(image.getPixelFormat()) &&
                     image.getDataType() == Image::OSG_UINT8_IMAGEDATA,
                 "compressed pixels do not fit the sizes of their image");
    data.require(bytesOfSizes(image) / maxExpansion <= count, "compressed pixels are too few");
    data.require(osgDecodePicture(bytes, count, picture), "compressed pixels are damaged");
    image.getPixel().getValues().swap(picture.pixels);
}

} // namespace

std::vector<UInt8> osgExchangeBlocks(const UInt8* pixels, std::size_t bytes, UInt32 outer,
                                     UInt32 inner) {
    std::vector<UInt8> out(bytes);
    const std::size_t block = bytes / outer / inner;
    for (std::size_t o = 0; o < outer && block != 0; ++o) {
        for (std::size_t i = 0; i < inner; ++i)
            std::memcpy(&out[(i * outer + o) * block], pixels + (o * inner + i) * block, block);
    }
    return out;
}

Int32 osgDimensionOf(const Image& image) {
    if (image.getPixelFormat() == Image::OSG_INVALID_PF)
        return 0;
    if (image.getDepth() > 1)
        return 3;
    return image.getHeight() > 1 ? 2 : 1;
}

void osgFinishImage(Image& image, bool pixelsAsInFile, const byte_cursor& at) {
    checkSizes(image, at);
    MFUInt8& pixels = image.getPixel();
    if (!pixelsAsInFile || pixels.empty() || image.getFrameCount() < 2 || image.getSideCount() < 2)
        return;
    pixels.getValues() = osgExchangeBlocks(pixels.getValues().data(), pixels.size(),
                                           static_cast<UInt32>(image.getFrameCount()),
                                           static_cast<UInt32>(image.getSideCount()));
}

bool osgReadNamedPicture(const ImagePtr& image, const std::string& folder) {
    const std::string name = image->getName();
    for (const std::string& path : {name, folder + name}) {
        std::error_code unreachable; // only plain files: a pipe could make the reader wait
        if (!std::filesystem::is_regular_file(path, unreachable))
            continue;
        const bool taken = ImageFileHandler::the().read(image, path.c_str());
        image->setName(name);
        return taken;
    }
    return false;
}

bool osgReadCompressedPixels(Image& image, byte_cursor data) {
    const UInt32 bytes = data.number<UInt32>();
    data.require(bytes == data.left(), "compressed pixels and their field differ in length");
    data.require(bytes >= headBytes, "compressed pixels have no head");
    byte_cursor head = data.part(headBytes);
    const UInt8* suffix = head.take(suffixBytes);
    readHead(image, head);
    data.require(osgChannelsOf(image.getPixelFormat()) != 0 && bytesOfSizes(image) != 0,
                 "compressed pixels have an unknown format or no size");
    if (!startsLike(suffix, suffixBytes, std::string_view("mtd\0", 4))) {
        readPicture(image, data);
        return false;
    }
    data.require(bytesOfSizes(image) == data.left(), "the pixels of an image do not fit its sizes");
    const UInt8* pixels = data.take(0);
    image.getPixel().getValues().assign(pixels, pixels + data.left());
    return true;
}

OSG_END_NAMESPACE
