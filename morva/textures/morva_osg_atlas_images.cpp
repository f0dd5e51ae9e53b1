// Images as records: comparing and measuring them, and pixels with and without alpha.

#include <morva/textures/morva_osg_atlas_images.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>

#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_images.h>

namespace morva::osg {

namespace {

/// Indices for each image below which an atlas does not pay.
constexpr std::size_t least_indices = 500;
constexpr double large_images = 200000.0;
constexpr double huge_images = 600000.0;
/// Highest coordinate that cutting looks at.
constexpr unsigned int highest_ceiling = 5;

unsigned char* converted(const ImageData& image, bool toAlpha) {
    if (image.hasAlpha == toAlpha)
        return image.data;
    const ::osg::ImagePtr made = newKeptImage(image.width, image.height, toAlpha);
    if (made == ::osg::NullFC)
        return nullptr;
    const canvas whole = canvasOf(made);
    drawRepeated(whole, {0, 0, whole.width, whole.height}, image, 0, 0);
    return whole.pixels;
}

/// Height or width as laid out, in single precision.
float floatSide(float maxTexCoord, std::uint32_t side) {
    const float longest = static_cast<float>(longest_side);
    const auto tiles = static_cast<float>(tileCount(maxTexCoord));
    return std::min(tiles * static_cast<float>(side), longest);
}

double share(std::size_t part, std::size_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
}

template <typename Condition>
std::size_t countIf(const std::vector<ImageData>& images, const Condition& condition) {
    return static_cast<std::size_t>(std::count_if(images.begin(), images.end(), condition));
}

} // namespace

unsigned char* ImageData::convertToRGB() const { return converted(*this, false); }

unsigned char* ImageData::convertToRGBA() const { return converted(*this, true); }

bool operator<(const ImageData& a, const ImageData& b) {
    const float height_a = floatSide(a.maxTexCoordV, a.height);
    const float height_b = floatSide(b.maxTexCoordV, b.height);
    if (height_a != height_b)
        return height_a < height_b;
    return floatSide(a.maxTexCoordU, a.width) < floatSide(b.maxTexCoordU, b.width);
}

std::uint32_t searchImageData(const std::vector<ImageData>& images, const unsigned char* pixels,
                              unsigned int width, unsigned int height) {
    const std::size_t bytes = static_cast<std::size_t>(width) * height;
    for (std::size_t i = 0; i < images.size(); ++i) {
        const ImageData& image = images[i];
        if (image.width != width || image.height != height)
            continue;
        const bool alike = bytes == 0 || image.data == pixels;
        if (alike || (image.data != nullptr && pixels != nullptr &&
                      std::memcmp(image.data, pixels, bytes) == 0))
            return static_cast<std::uint32_t>(i);
    }
    return std::numeric_limits<std::uint32_t>::max();
}

double averageImageSize(const std::vector<ImageData>& images) {
    double sum = 0.0;
    for (const ImageData& image : images)
        sum += static_cast<double>(image.width) * static_cast<double>(image.height);
    return sum / static_cast<double>(images.size());
}

float highestTC(const std::vector<ImageData>& images) {
    float highest = 0.0F;
    for (const ImageData& image : images) {
        for (const float coordinate : {image.maxTexCoordU, image.maxTexCoordV})
            highest = coordinate > highest ? coordinate : highest;
    }
    return highest;
}

double percentIgnoreTC(const std::vector<ImageData>& images, unsigned int limit) {
    const auto least = static_cast<float>(limit);
    const std::size_t ignored = countIf(images, [least](const ImageData& image) {
        return image.maxTexCoordU >= least || image.maxTexCoordV >= least;
    });
    return share(ignored, images.size());
}

double percentCuttedTex(const std::vector<ImageData>& images, const unsigned int& low,
                        const unsigned int& high) {
    const auto above = static_cast<float>(low);
    const auto below = static_cast<float>(high);
    const auto between = [above, below](float coordinate) {
        return coordinate > above && coordinate < below;
    };
    const std::size_t cut = countIf(images, [&between](const ImageData& image) {
        return between(image.maxTexCoordU) || between(image.maxTexCoordV);
    });
    const std::size_t inside = countIf(images, [below](const ImageData& image) {
        return image.maxTexCoordU < below && image.maxTexCoordV < below;
    });
    return share(cut, inside);
}

void calcTexParameters(std::vector<ImageData>& images, unsigned int& cutAt, unsigned int& ceiling) {
    const float highest = std::ceil(highestTC(images));
    ceiling = highest < static_cast<float>(highest_ceiling) ? static_cast<unsigned int>(highest)
                                                            : highest_ceiling;
    cutAt = ceiling;
    for (unsigned int low = 2; low < ceiling; ++low) {
        if (percentCuttedTex(images, low, ceiling) < 0.1) {
            cutAt = low;
            return;
        }
    }
}

bool Indexrebuild(std::vector<ImageData>& images, unsigned int& cutAt, unsigned int& ceiling,
                  unsigned int indexCount) {
    if (images.empty())
        return true;
    calcTexParameters(images, cutAt, ceiling);
    if (indexCount / images.size() < least_indices)
        return false;
    if (averageImageSize(images) > huge_images) {
        cutAt = 1;
        ceiling = 1;
        return false;
    }
    return !(averageImageSize(images) > large_images);
}

} // namespace morva::osg
