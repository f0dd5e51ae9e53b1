#include "OpenSG/OSGImage.h"

#include "OSGImageLayout.h"
#include "OpenSG/OSGImageFileHandler.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGStringAttributeMap.h"

#include <algorithm>
#include <cstring>
#include <new>

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF(Image, nullptr, OSG_FIELD_DESC(Image, _mfPixel, "pixel", Pixel, false),
                  OSG_FIELD_DESC(Image, _sfWidth, "width", Width, false),
                  OSG_FIELD_DESC(Image, _sfHeight, "height", Height, false),
                  OSG_FIELD_DESC(Image, _sfDepth, "depth", Depth, false),
                  OSG_FIELD_DESC(Image, _sfBpp, "bpp", Bpp, false),
                  OSG_FIELD_DESC(Image, _sfMipMapCount, "mipMapCount", MipMapCount, false),
                  OSG_FIELD_DESC(Image, _sfFrameCount, "frameCount", FrameCount, false),
                  OSG_FIELD_DESC(Image, _sfFrameDelay, "frameDelay", FrameDelay, false),
                  OSG_FIELD_DESC(Image, _sfPixelFormat, "pixelFormat", PixelFormat, false),
                  OSG_FIELD_DESC(Image, _sfDataType, "dataType", DataType, false),
                  OSG_FIELD_DESC(Image, _sfSideCount, "sideCount", SideCount, false),
                  OSG_FIELD_DESC(Image, _sfName, "name", Name, false))

namespace {

image_extent extentOf(const Image& image) {
    return {image.getWidth(), image.getHeight(), image.getDepth()};
}

/// By format and type; the field Bpp is open to everyone.
std::size_t pixelBytesOf(const Image& image) {
    return std::size_t(osgChannelsOf(image.getPixelFormat())) *
           osgBytesPerChannel(image.getDataType());
}

UInt32 countOf(Int32 count) { return static_cast<UInt32>(std::max(count, 0)); }

/// Where a range of `count` from `offset` on meets 0 .. size - 1.
struct clipped_range {
    Int64 first = 0;  ///< within the range
    Int64 count = 0;  ///< 0 when they do not meet
    Int64 target = 0; ///< first, in numbers of the whole

    clipped_range(Int64 offset, Int64 length, Int64 size) {
        first = std::max<Int64>(0, -offset);
        count = std::max<Int64>(0, std::min(length, size - offset) - first);
        target = offset + first;
    }
};

/// Copies the block that three ranges describe between two packed stores. `toWindow`: from the
/// whole into the range's own store, else back.
void copyBlock(const clipped_range (&range)[3], const image_extent& window,
               const image_extent& whole, std::size_t pixelBytes, const UInt8* from, UInt8* to,
               bool toWindow) {
    const std::size_t bytes = static_cast<std::size_t>(range[0].count) * pixelBytes;
    if (bytes == 0)
        return;
    const auto place = [pixelBytes](const image_extent& store, Int64 x, Int64 y, Int64 z) {
        return static_cast<std::size_t>((z * store.height + y) * store.width + x) * pixelBytes;
    };
    for (Int64 z = 0; z < range[2].count; ++z) {
        for (Int64 y = 0; y < range[1].count; ++y) {
            const std::size_t inWindow =
                place(window, range[0].first, range[1].first + y, range[2].first + z);
            const std::size_t inWhole =
                place(whole, range[0].target, range[1].target + y, range[2].target + z);
            if (toWindow) {
                std::memmove(to + inWindow, from + inWhole, bytes);
            } else {
                std::memmove(to + inWhole, from + inWindow, bytes);
            }
        }
    }
}

/// Source number of each of `to` samples of an axis of length `from`.
std::vector<std::size_t> nearestSamples(Int32 from, Int32 to) {
    std::vector<std::size_t> samples(static_cast<std::size_t>(to));
    const Real32 factor = static_cast<Real32>(from) / static_cast<Real32>(to);
    for (Int32 i = 0; i < to; ++i) {
        const Int64 nearest = static_cast<Int64>(static_cast<Real32>(i) * factor);
        samples[static_cast<std::size_t>(i)] =
            static_cast<std::size_t>(std::min<Int64>(nearest, from - 1));
    }
    return samples;
}

void scaleLevel(const image_extent& fromExtent, const UInt8* from, const image_extent& toExtent,
                UInt8* to, std::size_t pixelBytes) {
    const std::vector<std::size_t> xs = nearestSamples(fromExtent.width, toExtent.width);
    const std::vector<std::size_t> ys = nearestSamples(fromExtent.height, toExtent.height);
    const std::vector<std::size_t> zs = nearestSamples(fromExtent.depth, toExtent.depth);
    const std::size_t rowBytes = static_cast<std::size_t>(fromExtent.width) * pixelBytes;
    const std::size_t sliceBytes = static_cast<std::size_t>(fromExtent.height) * rowBytes;
    const std::size_t scaledBytes = xs.size() * pixelBytes;
    const UInt8* last = nullptr; // the row sampled before
    for (const std::size_t z : zs) {
        for (const std::size_t y : ys) {
            const UInt8* row = from + z * sliceBytes + y * rowBytes;
            if (row == last) {
                std::memcpy(to, to - scaledBytes, scaledBytes);
            } else {
                for (std::size_t i = 0; i < xs.size(); ++i)
                    std::memcpy(to + i * pixelBytes, row + xs[i] * pixelBytes, pixelBytes);
            }
            last = row;
            to += scaledBytes;
        }
    }
}

} // namespace

ImagePtr Image::targetOf(const ImagePtr& destination) const {
    return destination != NullFC ? destination : getPtr();
}

bool Image::refuse(const Char8* what, const Char8* why) const {
    SWARNING << "Image::" << what << ": " << why << endLog;
    return false;
}

bool Image::set(UInt32 pixelFormat, Int32 width, Int32 height, Int32 depth, Int32 mipmapCount,
                Int32 frameCount, Time frameDelay, const UInt8* data, Int32 type, bool allocMem,
                Int32 sideCount) {
    const image_extent extent{std::max(1, width), std::max(1, height), std::max(1, depth)};
    const UInt32 mips = countOf(std::max(1, mipmapCount));
    const UInt64 frames = countOf(std::max(1, frameCount));
    const UInt64 sides = countOf(std::max(1, sideCount));
    const UInt32 pixelBytes = osgChannelsOf(pixelFormat) * osgBytesPerChannel(type);
    if (pixelBytes == 0)
        return refuse("set", "unknown pixel format or data type");

    const UInt64 bytes = osgLimitedProduct(
        osgLimitedProduct(osgBytesOfLevels(pixelFormat, type, extent, mips), frames), sides);
    if (bytes > osgMaxImageBytes)
        return refuse("set", "the image is too large");
    try {
        if (!allocMem) {
            MFUInt8().swap(_mfPixel);
        } else if (data != nullptr) {
            MFUInt8 copy;
            copy.insert(copy.end(), data, data + bytes);
            copy.swap(_mfPixel);
        } else if (bytes < _mfPixel.size()) {
            MFUInt8(static_cast<UInt32>(bytes)).swap(_mfPixel);
        } else {
            _mfPixel.resize(bytes);
        }
    } catch (const std::bad_alloc&) {
        return refuse("set", "out of memory");
    }

    setWidth(extent.width);
    setHeight(extent.height);
    setDepth(extent.depth);
    setMipMapCount(static_cast<Int32>(mips));
    setFrameCount(static_cast<Int32>(frames));
    setSideCount(static_cast<Int32>(sides));
    setFrameDelay(frameDelay);
    setPixelFormat(pixelFormat);
    setDataType(type);
    setBpp(static_cast<Int32>(pixelBytes));
    endEditCP(getPtr());
    return allocMem;
}

bool Image::set(const ImagePtr& image) {
    if (image == NullFC)
        return refuse("set", "no image given");
    if (image.getCPtr() == this)
        return true;
    const bool hasStore = !image->_mfPixel.empty();
    if (hasStore && !image->isValid())
        return refuse("set", "the other image is inconsistent");
    return set(image->getPixelFormat(), image->getWidth(), image->getHeight(), image->getDepth(),
               image->getMipMapCount(), image->getFrameCount(), image->getFrameDelay(),
               image->getData(), image->getDataType(), hasStore, image->getSideCount());
}

void Image::takeOver(Image& other) {
    set(other.getPixelFormat(), other.getWidth(), other.getHeight(), other.getDepth(),
        other.getMipMapCount(), other.getFrameCount(), other.getFrameDelay(), nullptr,
        other.getDataType(), false, other.getSideCount());
    _mfPixel.swap(other._mfPixel);
}

bool Image::setData(const UInt8* data) {
    if (data == nullptr)
        return refuse("setData", "no data given");
    const unsigned long bytes = getSize();
    if (bytes > osgMaxImageBytes)
        return refuse("setData", "the image is too large");
    _mfPixel.resize(bytes);
    if (bytes != 0)
        std::memmove(_mfPixel.getValues().data(), data, bytes);
    endEditCP(getPtr(), PixelFieldMask);
    return true;
}

void Image::clearData() {
    MFUInt8().swap(_mfPixel);
    endEditCP(getPtr(), PixelFieldMask);
}

bool Image::setSubData(Int32 offX, Int32 offY, Int32 offZ, Int32 srcW, Int32 srcH, Int32 srcD,
                       const UInt8* data) {
    if (data == nullptr)
        return refuse("setSubData", "no data given");
    if (hasCompressedData())
        return refuse("setSubData", "the image is compressed");
    UInt8* pixels = getData();
    if (pixels == nullptr)
        return refuse("setSubData", "the image has no pixels");

    const clipped_range block[3] = {
        {offX, srcW, getWidth()}, {offY, srcH, getHeight()}, {offZ, srcD, getDepth()}};
    copyBlock(block, {srcW, srcH, srcD}, extentOf(*this), pixelBytesOf(*this), data, pixels, false);
    endEditCP(getPtr(), PixelFieldMask);
    return true;
}

bool Image::subImage(Int32 offX, Int32 offY, Int32 offZ, Int32 destW, Int32 destH, Int32 destD,
                     ImagePtr destination) {
    if (hasCompressedData())
        return refuse("subImage", "the image is compressed");
    // The image itself may be the destination, so its pixels move out before it changes.
    const image_extent whole = extentOf(*this);
    MFUInt8 kept;
    const ImagePtr target = targetOf(destination);
    const bool inPlace = target.getCPtr() == this;
    const bool hasPixels = getData() != nullptr;
    if (inPlace)
        kept.swap(_mfPixel);
    if (!target->set(getPixelFormat(), destW, destH, destD, 1, 1, 0.0, nullptr, getDataType())) {
        if (inPlace)
            kept.swap(_mfPixel);
        return false;
    }
    target->clear();
    if (!hasPixels)
        return true;

    const image_extent window = extentOf(*target.getCPtr());
    const clipped_range block[3] = {{offX, window.width, whole.width},
                                    {offY, window.height, whole.height},
                                    {offZ, window.depth, whole.depth}};
    const MFUInt8& source = inPlace ? kept : _mfPixel;
    copyBlock(block, window, whole, pixelBytesOf(*target.getCPtr()), source.getValues().data(),
              target->getData(), true);
    return true;
}

bool Image::scale(Int32 width, Int32 height, Int32 depth, ImagePtr destination) {
    if (hasCompressedData())
        return refuse("scale", "the image is compressed");
    if (!isValid())
        return refuse("scale", "the image has no pixels");
    const image_extent wanted{std::max(1, width), std::max(1, height), std::max(1, depth)};
    const image_extent full = extentOf(*this);
    const ImagePtr target = targetOf(destination);
    if (wanted == full)
        return target->set(getPtr());

    ImageRefPtr scaled(Image::create());
    if (!scaled->set(getPixelFormat(), wanted.width, wanted.height, wanted.depth, getMipMapCount(),
                     getFrameCount(), getFrameDelay(), nullptr, getDataType(), true,
                     getSideCount())) {
        return false;
    }
    for (UInt32 side = 0; side < countOf(getSideCount()); ++side) {
        for (UInt32 frame = 0; frame < countOf(getFrameCount()); ++frame) {
            for (UInt32 mip = 0; mip < countOf(getMipMapCount()); ++mip) {
                scaleLevel(osgExtentOfLevel(full, mip), getData(mip, frame, side),
                           osgExtentOfLevel(wanted, mip), scaled->getData(mip, frame, side),
                           pixelBytesOf(*this));
            }
        }
    }
    target->takeOver(*scaled.getCPtr());
    return true;
}

bool Image::scaleNextPower2(ImagePtr destination) {
    const auto next = [](Int32 size) {
        Int32 power = 1;
        while (power < size && power < (1 << 30))
            power *= 2;
        return power;
    };
    return scale(next(getWidth()), next(getHeight()), next(getDepth()), destination);
}

bool Image::reformat(PixelFormat pixelFormat, ImagePtr destination) {
    const UInt32 wanted = static_cast<UInt32>(pixelFormat);
    if (wanted == getPixelFormat()) {
        return destination != NullFC && destination.getCPtr() != this && destination->set(getPtr());
    }
    if (!isValid())
        return refuse("reformat", "the image has no pixels");

    ImageRefPtr converted(Image::create());
    if (!converted->set(wanted, getWidth(), getHeight(), getDepth(), getMipMapCount(),
                        getFrameCount(), getFrameDelay(), nullptr, getDataType(), true,
                        getSideCount())) {
        return false;
    }
    // Pixels follow each other without gaps through all levels, frames and sides.
    const std::size_t count = _mfPixel.size() / pixelBytesOf(*this);
    if (!osgConvertPixels(getDataType(), getPixelFormat(), getData(), wanted, converted->getData(),
                          count)) {
        return refuse("reformat", "no conversion between these formats");
    }
    targetOf(destination)->takeOver(*converted.getCPtr());
    return true;
}

void Image::clear(UChar8 pixelValue) {
    std::fill(_mfPixel.begin(), _mfPixel.end(), static_cast<UInt8>(pixelValue));
    endEditCP(getPtr(), PixelFieldMask);
}

const UInt8* Image::getData(UInt32 mipmap, UInt32 frame, UInt32 side) const {
    if (mipmap >= countOf(getMipMapCount()) || frame >= countOf(getFrameCount()) ||
        side >= countOf(getSideCount()) || _mfPixel.empty()) {
        return nullptr;
    }
    const image_extent full = extentOf(*this);
    const UInt64 frameBytes =
        osgBytesOfLevels(getPixelFormat(), getDataType(), full, countOf(getMipMapCount()));
    const UInt64 frames = UInt64(side) * countOf(getFrameCount()) + frame;
    const UInt64 offset = osgLimitedProduct(frames, frameBytes) +
                          osgBytesOfLevels(getPixelFormat(), getDataType(), full, mipmap);
    const UInt64 bytes =
        osgBytesOfLevel(getPixelFormat(), getDataType(), osgExtentOfLevel(full, mipmap));
    if (offset + bytes > _mfPixel.size())
        return nullptr; // sizes were set behind the store's back
    return _mfPixel.getValues().data() + offset;
}

UInt8* Image::getData(UInt32 mipmap, UInt32 frame, UInt32 side) {
    return const_cast<UInt8*>(static_cast<const Image*>(this)->getData(mipmap, frame, side));
}

unsigned long Image::getSize(bool withMipmap, bool withFrames, bool withSides) const {
    UInt64 bytes = osgBytesOfLevels(getPixelFormat(), getDataType(), extentOf(*this),
                                    withMipmap ? countOf(getMipMapCount()) : 1);
    if (withFrames)
        bytes = osgLimitedProduct(bytes, countOf(getFrameCount()));
    if (withSides)
        bytes = osgLimitedProduct(bytes, countOf(getSideCount()));
    return bytes;
}

UInt8 Image::getComponents() const { return static_cast<UInt8>(osgChannelsOf(getPixelFormat())); }

bool Image::isValid() const {
    const bool counted = getWidth() > 0 && getHeight() > 0 && getDepth() > 0 &&
                         getMipMapCount() > 0 && getFrameCount() > 0 && getSideCount() > 0;
    return counted && !_mfPixel.empty() && _mfPixel.size() == getSize();
}

bool Image::hasAlphaChannel() const {
    switch (getPixelFormat()) {
    case OSG_A_PF:
    case OSG_I_PF:
    case OSG_LA_PF:
    case OSG_RGBA_PF:
    case OSG_BGRA_PF:
    case OSG_RGBA_DXT1:
    case OSG_RGBA_DXT3:
    case OSG_RGBA_DXT5:
        return true;
    default:
        return false;
    }
}

bool Image::hasColorChannel() const { return getComponents() >= 3; }

bool Image::hasCompressedData() const { return osgIsCompressed(getPixelFormat()); }

void Image::setAttachmentField(const std::string& key, const std::string& data) {
    stringAttributeMap(getPtr())->setAttribute(key, data);
}

const std::string* Image::findAttachmentField(const std::string& key) const {
    const StringAttributeMapPtr texts =
        StringAttributeMapPtr::dcast(findAttachment(StringAttributeMap::getClassType()));
    if (texts == NullFC || !texts->hasAttribute(key))
        return nullptr;
    return &(*texts)[key];
}

UInt32 Image::attachmentCount() const {
    const StringAttributeMapPtr texts =
        StringAttributeMapPtr::dcast(findAttachment(StringAttributeMap::getClassType()));
    return texts != NullFC ? texts->getKeys().getSize() : 0;
}

bool Image::read(const Char8* fileName) { return ImageFileHandler::the().read(getPtr(), fileName); }

bool Image::write(const Char8* fileName) const {
    return ImageFileHandler::the().write(getPtr(), fileName);
}

bool Image::operator==(const Image& other) const {
    return extentOf(*this) == extentOf(other) && getPixelFormat() == other.getPixelFormat() &&
           getDataType() == other.getDataType() && getMipMapCount() == other.getMipMapCount() &&
           getFrameCount() == other.getFrameCount() && getSideCount() == other.getSideCount() &&
           _mfPixel.getValues() == other._mfPixel.getValues();
}

OSG_END_NAMESPACE
