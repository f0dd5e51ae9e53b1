#pragma once

// Pixels: rows from the bottom up, x fastest, then y, then z; channels side by side, rows without
// padding. One store holds everything:
//
//     | side 0                                  | side 1 ...
//     | frame 0             | frame 1 ...
//     | mip 0 | mip 1 | ...
//
//     ImagePtr image = Image::create();
//     image->set(Image::OSG_RGB_PF, 256, 256);
//     image->setSubData(0, 0, 0, 64, 64, 1, pixels);
//
// Functions with a destination write into it and leave the image alone; without one they change
// the image. All return whether they did it; what they refuse changes nothing and is logged.

#include "OSGMaterial.h"

OSG_BEGIN_NAMESPACE

class Image;
typedef FCPtr<AttachmentContainerPtr, Image> ImagePtr;
typedef RefPtr<ImagePtr> ImageRefPtr;
typedef SField<ImagePtr> SFImagePtr;
typedef MField<ImagePtr> MFImagePtr;

class OSG_BASE_DLLMAPPING Image : public AttachmentContainer {
    OSG_CONTAINER_DECL(Image, AttachmentContainer, ImagePtr)
  public:
    enum PixelFormat {
        OSG_INVALID_PF = 0,
        OSG_A_PF = 6406,
        OSG_RGB_PF = 6407,
        OSG_RGBA_PF = 6408,
        OSG_L_PF = 6409,
        OSG_LA_PF = 6410,
        OSG_I_PF = 32841,
        OSG_BGR_PF = 32992,
        OSG_BGRA_PF = 32993,
        OSG_RGB_DXT1 = 33776,
        OSG_RGBA_DXT1 = 33777,
        OSG_RGBA_DXT3 = 33778,
        OSG_RGBA_DXT5 = 33779
    };
    enum Type {
        OSG_INVALID_IMAGEDATATYPE = 0,
        OSG_UINT8_IMAGEDATA = 5121,
        OSG_INT16_IMAGEDATA = 5122,
        OSG_UINT16_IMAGEDATA = 5123,
        OSG_INT32_IMAGEDATA = 5124,
        OSG_UINT32_IMAGEDATA = 5125,
        OSG_FLOAT32_IMAGEDATA = 5126,
        OSG_FLOAT16_IMAGEDATA = 5131
    };

    OSG_FIELD(Pixel, 12)

    /// Gives the image format and size; sizes below 1 become 1.
    ///
    /// data      getSize() bytes to copy, or null: a store of the same size keeps its bytes, a
    ///           larger one keeps them in front and is zero behind, a smaller one is zero
    /// allocMem  false leaves the image without a store
    /// returns   false for an unknown format or type and for more than 4 GiB - 1, which change
    ///           nothing, and for an image without a store
    bool set(UInt32 pixelFormat, Int32 width, Int32 height = 1, Int32 depth = 1,
             Int32 mipmapCount = 1, Int32 frameCount = 1, Time frameDelay = 0.0,
             const UInt8* data = nullptr, Int32 type = OSG_UINT8_IMAGEDATA, bool allocMem = true,
             Int32 sideCount = 1);
    /// Copies format, sizes and pixels; not the name, not the attachments.
    bool set(const ImagePtr& image);

    /// Copies getSize() bytes.
    bool setData(const UInt8* data = nullptr);
    void clearData();
    /// Copies a block of srcW * srcH * srcD tightly packed pixels of the image's own format to
    /// (offX, offY, offZ); what lies outside the image is left out.
    bool setSubData(Int32 offX, Int32 offY, Int32 offZ, Int32 srcW, Int32 srcH, Int32 srcD,
                    const UInt8* data);
    /// Cuts out the window of the given place and size, of the first mip map and frame; what lies
    /// outside the image is zero.
    bool subImage(Int32 offX, Int32 offY, Int32 offZ, Int32 destW, Int32 destH, Int32 destD,
                  ImagePtr destination = NullFC);
    /// Nearest sampling: along each axis int(x * factor), factor = source / new size, in single
    /// precision.
    bool scale(Int32 width, Int32 height = 1, Int32 depth = 1, ImagePtr destination = NullFC);
    bool scaleNextPower2(ImagePtr destination = NullFC);
    /// Converts the pixels. Colour becomes grey and alpha by the integer mean, full alpha is added
    /// to colour, grey spreads over all channels. False for the format that the image has
    /// already, unless there is a destination.
    bool reformat(PixelFormat pixelFormat, ImagePtr destination = NullFC);
    /// Fills all pixels with one byte.
    void clear(UChar8 pixelValue = 0);

    /// Null outside the image and without a store.
    UInt8* getData(UInt32 mipmap = 0, UInt32 frame = 0, UInt32 side = 0);
    const UInt8* getData(UInt32 mipmap = 0, UInt32 frame = 0, UInt32 side = 0) const;
    UInt8* editData(UInt32 mipmap = 0, UInt32 frame = 0, UInt32 side = 0) {
        return getData(mipmap, frame, side);
    }
    MFUInt8& getPixel() { return _mfPixel; }
    const MFUInt8& getPixel() const { return _mfPixel; }
    const MFUInt8* getMFPixel() const { return &_mfPixel; }
    MFUInt8* editMFPixel() { return &_mfPixel; }

    /// Bytes of one level, or of all of them, by the sizes.
    unsigned long getSize(bool withMipmap = true, bool withFrames = true,
                          bool withSides = true) const;
    /// Channels per pixel.
    UInt8 getComponents() const;
    /// Whether the store fits the sizes.
    bool isValid() const;
    bool hasAlphaChannel() const;
    bool hasColorChannel() const;
    bool hasCompressedData() const;

    /// Texts by key, in a string map that hangs on the image.
    void setAttachmentField(const std::string& key, const std::string& data);
    /// Null when absent; valid until another key is set.
    const std::string* findAttachmentField(const std::string& key) const;
    bool hasAttachment() const { return attachmentCount() != 0; }
    UInt32 attachmentCount() const;

    /// By the extension, through the image file handler.
    bool read(const Char8* fileName);
    bool write(const Char8* fileName) const;

    /// Sizes, format and bytes.
    bool operator==(const Image& other) const;
    bool operator!=(const Image& other) const { return !(*this == other); }

    OSG_VALUE_FIELD(SFInt32, Width, 4, 0)
    OSG_VALUE_FIELD(SFInt32, Height, 5, 1)
    OSG_VALUE_FIELD(SFInt32, Depth, 6, 1)
    OSG_VALUE_FIELD(SFInt32, Bpp, 7, 1)
    OSG_VALUE_FIELD(SFInt32, MipMapCount, 8, 1)
    OSG_VALUE_FIELD(SFInt32, FrameCount, 9, 1)
    OSG_VALUE_FIELD(SFTime, FrameDelay, 10, 0.)
    OSG_VALUE_FIELD(SFUInt32, PixelFormat, 11, OSG_INVALID_PF)
    OSG_VALUE_FIELD(SFInt32, DataType, 15, OSG_UINT8_IMAGEDATA)
    OSG_VALUE_FIELD(SFInt32, SideCount, 17, 1)
    OSG_VALUE_FIELD(SFString, Name, 14, std::string())

  protected:
    Image() = default;
    Image(const Image&) = default;

  private:
    ImagePtr targetOf(const ImagePtr& destination) const;
    /// Becomes a valid image without a copy of its pixels, which the other one loses.
    void takeOver(Image& other);
    bool refuse(const Char8* what, const Char8* why) const;

    MFUInt8 _mfPixel;
};

OSG_END_NAMESPACE
