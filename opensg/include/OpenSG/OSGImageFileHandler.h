#pragma once

// Images in files. Read: png, jpg, jpeg, bmp, tga, gif, psd, hdr, pic, ppm, pgm, pnm. Write: png,
// jpg, jpeg, bmp, tga. Files keep the top row first, images the bottom row; the handler turns.
// Files of 1 to 4 channels become L, LA, RGB and RGBA images of 8 bits per channel.

#include "OSGImage.h"

#include <istream>

OSG_BEGIN_NAMESPACE

class OSG_BASE_DLLMAPPING ImageFileHandler {
  public:
    static ImageFileHandler& the();

    /// A new image with the file's name as its name; null, with a warning, if there is no such
    /// file or it cannot be read. The content tells the format.
    ImagePtr read(const Char8* fileName, const Char8* mimeType = nullptr) const;
    bool read(const ImagePtr& image, const Char8* fileName, const Char8* mimeType = nullptr) const;
    /// From the bytes of a file.
    ImagePtr read(const UInt8* bytes, UInt32 count) const;

    /// By the extension; false, with a warning, for an unknown one or an image without pixels.
    bool write(const ImagePtr& image, const Char8* fileName, const Char8* mimeType = nullptr) const;

  private:
    ImageFileHandler() = default;
};

OSG_END_NAMESPACE
