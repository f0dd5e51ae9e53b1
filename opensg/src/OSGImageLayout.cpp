#include "OSGImageLayout.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <type_traits>

OSG_BEGIN_NAMESPACE

UInt32 osgChannelsOf(UInt32 pixelFormat) {
    switch (pixelFormat) {
    case Image::OSG_A_PF:
    case Image::OSG_I_PF:
    case Image::OSG_L_PF:
        return 1;
    case Image::OSG_LA_PF:
        return 2;
    case Image::OSG_RGB_PF:
    case Image::OSG_BGR_PF:
    case Image::OSG_RGB_DXT1:
        return 3;
    case Image::OSG_RGBA_PF:
    case Image::OSG_BGRA_PF:
    case Image::OSG_RGBA_DXT1:
    case Image::OSG_RGBA_DXT3:
    case Image::OSG_RGBA_DXT5:
        return 4;
    default:
        return 0;
    }
}

UInt32 osgBytesPerChannel(Int32 dataType) {
    switch (dataType) {
    case Image::OSG_UINT8_IMAGEDATA:
        return 1;
    case Image::OSG_INT16_IMAGEDATA:
    case Image::OSG_UINT16_IMAGEDATA:
    case Image::OSG_FLOAT16_IMAGEDATA:
        return 2;
    case Image::OSG_INT32_IMAGEDATA:
    case Image::OSG_UINT32_IMAGEDATA:
    case Image::OSG_FLOAT32_IMAGEDATA:
        return 4;
    default:
        return 0;
    }
}

bool osgIsCompressed(UInt32 pixelFormat) {
    return pixelFormat >= Image::OSG_RGB_DXT1 && pixelFormat <= Image::OSG_RGBA_DXT5;
}

image_extent osgExtentOfLevel(const image_extent& full, UInt32 level) {
    const UInt32 shift = std::min<UInt32>(level, 31);
    return {std::max(1, full.width >> shift), std::max(1, full.height >> shift),
            std::max(1, full.depth >> shift)};
}

UInt64 osgLimitedProduct(UInt64 a, UInt64 b) {
    if (b != 0 && a > osgMaxImageBytes / b)
        return osgMaxImageBytes + 1;
    return a * b;
}

UInt64 osgBytesOfLevel(UInt32 pixelFormat, Int32 dataType, const image_extent& extent) {
    UInt64 width = static_cast<UInt64>(std::max(0, extent.width));
    UInt64 height = static_cast<UInt64>(std::max(0, extent.height));
    UInt64 cell = UInt64(osgChannelsOf(pixelFormat)) * osgBytesPerChannel(dataType);
    if (osgIsCompressed(pixelFormat)) { // blocks of 4 x 4 pixels
        width = (width + 3) / 4;
        height = (height + 3) / 4;
        cell = pixelFormat <= Image::OSG_RGBA_DXT1 ? 8 : 16;
    }
    const UInt64 slice = osgLimitedProduct(osgLimitedProduct(width, height), cell);
    return osgLimitedProduct(slice, static_cast<UInt64>(std::max(0, extent.depth)));
}

UInt64 osgBytesOfLevels(UInt32 pixelFormat, Int32 dataType, const image_extent& full,
                        UInt32 count) {
    UInt64 bytes = 0;
    for (UInt32 level = 0; level < count; ++level) {
        const UInt64 here = osgBytesOfLevel(pixelFormat, dataType, osgExtentOfLevel(full, level));
        if (level >= 31) { // all further ones are alike
            bytes += osgLimitedProduct(here, count - level);
            break;
        }
        bytes += here;
        if (bytes > osgMaxImageBytes)
            break;
    }
    return std::min(bytes, osgMaxImageBytes + 1);
}

namespace {

template <class T> T meanOf(T a, T b, T c) {
    if constexpr (std::is_integral_v<T>) {
        return static_cast<T>((Int64(a) + Int64(b) + Int64(c)) / 3);
    } else {
        return (a + b + c) / T(3);
    }
}

/// One pixel, taken apart. Formats without alpha have one value for grey targets and another
/// for colours: colour that becomes grey and alpha has its mean as alpha.
template <class T> struct pixel_parts {
    T red, green, blue, grey;
    T alphaOfGrey, alphaOfColor;
};

template <class T> pixel_parts<T> takeApart(UInt32 format, const T* v) {
    constexpr T full = std::is_integral_v<T> ? std::numeric_limits<T>::max() : T(1);
    switch (format) {
    case Image::OSG_LA_PF:
        return {v[0], v[0], v[0], v[0], v[1], v[1]};
    case Image::OSG_RGB_PF: {
        const T mean = meanOf(v[0], v[1], v[2]);
        return {v[0], v[1], v[2], mean, mean, full};
    }
    case Image::OSG_BGR_PF: {
        const T mean = meanOf(v[2], v[1], v[0]);
        return {v[2], v[1], v[0], mean, mean, full};
    }
    case Image::OSG_RGBA_PF:
        return {v[0], v[1], v[2], meanOf(v[0], v[1], v[2]), v[3], v[3]};
    case Image::OSG_BGRA_PF:
        return {v[2], v[1], v[0], meanOf(v[2], v[1], v[0]), v[3], v[3]};
    default:
        return {v[0], v[0], v[0], v[0], v[0], v[0]};
    }
}

template <class T> void putTogether(UInt32 format, const pixel_parts<T>& p, T* v) {
    switch (format) {
    case Image::OSG_A_PF:
        v[0] = p.alphaOfGrey;
        break;
    case Image::OSG_LA_PF:
        v[0] = p.grey, v[1] = p.alphaOfGrey;
        break;
    case Image::OSG_RGB_PF:
        v[0] = p.red, v[1] = p.green, v[2] = p.blue;
        break;
    case Image::OSG_BGR_PF:
        v[0] = p.blue, v[1] = p.green, v[2] = p.red;
        break;
    case Image::OSG_RGBA_PF:
        v[0] = p.red, v[1] = p.green, v[2] = p.blue, v[3] = p.alphaOfColor;
        break;
    case Image::OSG_BGRA_PF:
        v[0] = p.blue, v[1] = p.green, v[2] = p.red, v[3] = p.alphaOfColor;
        break;
    default:
        v[0] = p.grey;
    }
}

template <class T>
void convertAll(UInt32 fromFormat, const UInt8* from, UInt32 toFormat, UInt8* to,
                std::size_t count) {
    const UInt32 fromChannels = osgChannelsOf(fromFormat);
    const UInt32 toChannels = osgChannelsOf(toFormat);
    for (std::size_t i = 0; i < count; ++i) {
        T in[4];
        T out[4];
        std::memcpy(in, from + i * fromChannels * sizeof(T), fromChannels * sizeof(T));
        putTogether(toFormat, takeApart(fromFormat, in), out);
        std::memcpy(to + i * toChannels * sizeof(T), out, toChannels * sizeof(T));
    }
}

} // namespace

bool osgConvertPixels(Int32 dataType, UInt32 fromFormat, const UInt8* from, UInt32 toFormat,
                      UInt8* to, std::size_t count) {
    if (osgIsCompressed(fromFormat) || osgIsCompressed(toFormat))
        return false;
    if (osgChannelsOf(fromFormat) == 0 || osgChannelsOf(toFormat) == 0)
        return false;
    const auto convert = [&](auto channel) {
        convertAll<decltype(channel)>(fromFormat, from, toFormat, to, count);
        return true;
    };
    switch (dataType) {
    case Image::OSG_UINT8_IMAGEDATA:
        return convert(UInt8());
    case Image::OSG_INT16_IMAGEDATA:
        return convert(Int16());
    case Image::OSG_UINT16_IMAGEDATA:
        return convert(UInt16());
    case Image::OSG_INT32_IMAGEDATA:
        return convert(Int32());
    case Image::OSG_UINT32_IMAGEDATA:
        return convert(UInt32());
    case Image::OSG_FLOAT32_IMAGEDATA:
        return convert(Real32());
    default:
        return false;
    }
}

OSG_END_NAMESPACE
