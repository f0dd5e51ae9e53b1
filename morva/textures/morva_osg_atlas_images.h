#pragma once

// Images on their way into an atlas, and the atlas that takes them.
//
//     +-------+-------+----+     An image whose coordinates repeat is laid out as often as they do:
//     | A   A | B     |    |     A up to u = 2, v = 1. What is left over is a list of free
//     +-------+-------+    |     rectangles. Row 0 is the first in memory; "below" and "lower" here
//     | C | D |            |     mean at a higher row.
//     +---+---+------------+
//
// There are two ways. A cell of a tree gets one image whose size follows from what goes in:
//
//     texturatlas atlas;
//     if (createAtlas(atlas, images, false, 10000)) {      // may shrink images
//         fillNewTexture(atlas, images, target, false);    // target: an RGB image of any size
//         ScaleImageToPowerof2(target);
//     }
//
// A scene gets atlases of one size, as many as it needs (FixedTextureAtlas).
//
// Images made on the way whose pixels a caller gets to see stay for the rest of the process, in a
// list. One thread at a time.

#include <cstdint>
#include <list>
#include <vector>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>

namespace morva {

struct texturatlas;

} // namespace morva

namespace morva::osg {

/// An image for an atlas: rows of `width` pixels without padding, 8 bits a channel. Owns nothing;
/// a copy is another view of the same pixels.
struct MORVA_API ImageData {
    unsigned char* data = nullptr; ///< width * height pixels; null for an image without any
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    /// Highest u and v of all that use the image: it is laid out ceil(u) times ceil(v) times, not
    /// at all for a NaN and below 0.
    float maxTexCoordU = 0.0F;
    float maxTexCoordV = 0.0F;
    std::int32_t x = -1; ///< place in its atlas; -1 until it has one
    std::int32_t y = -1;
    bool hasAlpha = false;        ///< four channels (RGBA) instead of three (RGB)
    double scalePriority = 0.0;   ///< scaleImages() takes the highest first
    bool inAtlas = false;         ///< in a FixedTextureAtlas
    std::int32_t atlasIndex = -1; ///< `index` of that atlas; -1 until placed

    /// The pixels with three channels: `data` itself, or without its alpha in a new image.
    ///
    /// returns  width * height pixels, a single one if a side is 0; valid for the rest of the
    ///          process. Black without `data`; null for more than 4 GiB and without memory
    unsigned char* convertToRGB() const;
    /// The same with four channels; new alpha is 255.
    unsigned char* convertToRGBA() const;
};

/// By the height of the image as it is laid out, then by the width; in single precision. Heights
/// and widths end at 2^31.
MORVA_API bool operator<(const ImageData& a, const ImageData& b);

/// A free rectangle of an atlas.
struct FreeTextureSpace {
    std::uint32_t x = 0;
    std::uint32_t y = 0;
    std::uint32_t width = 0;
    std::uint32_t height = 0;
};

/// An atlas of fixed size. Whoever makes one sets its sides, one free space over all of it, and
/// puts an `image` of that size in. A copy shares images and materials.
struct MORVA_API FixedTextureAtlas {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t usedWidth = 0; ///< of the kept part; `width` at first
    std::uint32_t usedHeight = 0;
    std::uint32_t imageCount = 0;
    std::uint32_t index = 0;      ///< of the atlas among all that were made
    bool transparent = false;     ///< RGBA, and its material blends
    bool hasVertexColors = false; ///< its material takes the colours of vertices
    bool powerOfTwo = false;      ///< the kept part has sides that are powers of two
    ::osg::RefPtr<::osg::ImagePtr> image;
    ::osg::RefPtr<::osg::ImagePtr> minifiedImage; ///< the kept part; null until it is asked for
    ::osg::RefPtr<::osg::ChunkMaterialPtr> material;
    ::osg::RefPtr<::osg::ChunkMaterialPtr> minifiedMaterial; ///< what geometry is given
    std::list<FreeTextureSpace> freeSpaces;

    /// Joins free spaces that share a whole side until there are none. The first in the list is
    /// tried with each other one first; what comes of two goes to the front.
    void combineFreeSpace();

    /// The material for geometry that shows images of this atlas, the same one in every call: a
    /// texture of the kept part, then blending and vertex colours where the atlas has them.
    ///
    /// Without a `minifiedImage` the kept part is cut out of `image` first: up to the last free
    /// space in the list that is as wide as the atlas, then up to the last that is as high as that.
    /// If it can't be cut out, the whole atlas is used.
    /// errors  std::bad_alloc; the material has no chunk then
    ::osg::ChunkMaterialPtr getMinifiedMaterial();
};

/// The first image of this size whose first width * height BYTES are equal.
///
/// returns  its number, or 2^32 - 1
///
/// What is behind these bytes, two thirds of the pixels or more, is not looked at. Images without
/// pixels equal each other.
MORVA_API std::uint32_t searchImageData(const std::vector<ImageData>& images,
                                        const unsigned char* pixels, unsigned int width,
                                        unsigned int height);

/// Mean of width * height; NaN for no images.
MORVA_API double averageImageSize(const std::vector<ImageData>& images);
/// The highest u or v of all images, but at least 0; a NaN is passed over.
MORVA_API float highestTC(const std::vector<ImageData>& images);
/// Share of the images with u or v at or above `limit`, 0 to 1; NaN for no images.
MORVA_API double percentIgnoreTC(const std::vector<ImageData>& images, unsigned int limit);
/// How many images have u or v between the two limits, for each one that has both below `high`.
MORVA_API double percentCuttedTex(const std::vector<ImageData>& images, const unsigned int& low,
                                  const unsigned int& high);

/// Where coordinates are to be cut.
///
/// ceiling  out: the highest coordinate rounded up, at most 5
/// cutAt    out: the first number from 2 on below `ceiling` that leaves less than a tenth of the
///          images to be cut (percentCuttedTex), or `ceiling`
MORVA_API void calcTexParameters(std::vector<ImageData>& images, unsigned int& cutAt,
                                 unsigned int& ceiling);

/// Whether an atlas pays: at least 500 indices for each image, and images of at most 200,000 pixels
/// in the mean. Always so for no images.
///
/// cutAt, ceiling  out: of calcTexParameters(), or 1 and 1 for images above 600,000 pixels in the
///                 mean; untouched for no images
MORVA_API bool Indexrebuild(std::vector<ImageData>& images, unsigned int& cutAt,
                            unsigned int& ceiling, unsigned int indexCount);

/// Halves the sides of images whose sides are both above `minSide`, until it has halved a share
/// `percent` of them, one at least.
///
/// percent  above 0, at most 1; anything else prints two lines and is 0.25
/// returns  whether one was halved; one without memory for it stays as it is
///
/// The highest `scalePriority` is next, of equal ones the last in the list. Each one that was
/// looked at gets a lower one: a third of it, or 1 less if it is not above 0. Nearest sampling,
/// into new images; the old pixels stay as they are.
MORVA_API bool scaleImages(std::vector<ImageData>& images, double percent, unsigned int minSide);

/// Divides the sides of all images below a node by `factor`, in place, those with a side at or
/// below `minSide` left out. An image with a side at or below `factor` becomes a single pixel.
/// Nothing happens for a factor below 2. Prints a line.
///
/// Looked at are the images of getGeometryNodes() without what is under switches.
MORVA_API void ScaleImagesInTree(::osg::NodePtr root, unsigned int factor, unsigned int minSide);

/// Scales an image, in place, to the powers of two that are nearest to its sides, the higher one of
/// two equally near, at most 8192, and gives it a new name: "TexFiles/texture0.png" and so on, as
/// its `Name` field, its name and its attachment field "fileName".
///
/// returns  false, with a line, if that fails and for null
MORVA_API bool ScaleImageToPowerof2(::osg::ImagePtr image);

/// Finds a packing with sides of at most 8192, halving images (scaleImages() with a side of 32)
/// until there is one.
///
/// atlas      out: the packing; all of what was in it is dropped
/// fixedSize  no image is halved, and both sides must be at most `maxSize`, too
/// maxSize    for texturatlas::calculate(), which has no limit above 8192
/// returns    false if there is none. The atlas is then as new, or with `fixedSize` and a side
///            above `maxSize` as it was computed. A line is printed when nothing is left to halve
/// errors     std::bad_alloc
MORVA_API bool createAtlas(texturatlas& atlas, std::vector<ImageData>& images, bool fixedSize,
                           unsigned int maxSize);

/// Scales an image to the size of a packing and draws the images into it, each at the next place
/// for its size, which leaves `atlas.placed`. Their `x` and `y` are set.
///
/// target   RGB or RGBA, 8 bits; the images are drawn in its format, new alpha is 255
/// alpha    what the target is meant to have
/// returns  false, with a line, if the target has another format or cannot be scaled
///
/// An image for whose size there is no place is left out, with four lines. One without pixels has
/// its place, where nothing is drawn.
MORVA_API bool fillNewTexture(texturatlas& atlas, std::vector<ImageData>& images,
                              ::osg::ImagePtr target, bool alpha);

} // namespace morva::osg
