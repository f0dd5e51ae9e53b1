// Smaller images: halves for a packing, parts for a scene, powers of two for a texture.

#include <morva/textures/morva_osg_atlas_images.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/textures/morva_osg_image_tiles.h>
#include <morva/textures/morva_osg_kept_images.h>

namespace morva::osg {

namespace {

constexpr ::osg::Int32 longest_texture = 8192;
constexpr double usual_share = 0.25;

/// Numbers the images that ScaleImageToPowerof2() names.
std::uint32_t TextureCounter = 0;

/// By priority; a NaN is below all others.
struct by_priority {
    bool operator()(double a, double b) const { return a < b || (std::isnan(a) && !std::isnan(b)); }
};

/// A share that makes sense, with two lines if it is not the one given.
double checkedShare(double percent) {
    if (percent > 0.0 && percent <= 1.0)
        return percent;
    std::ostringstream text;
    text << "Reset from " << percent << " to " << usual_share;
    say({"Morva::osg::scaleImages() scalepercentvalue has to be in (0,1]."});
    say({text.str()});
    return usual_share;
}

std::uint32_t halfOf(std::uint32_t side) { return std::max(side >> 1U, 1U); }

/// The source of one sample of an axis, as the platform scales: the nearest one below, in single
/// precision.
std::int64_t sampleOf(std::int64_t number, std::uint32_t from, std::int64_t to) {
    const float factor = static_cast<float>(from) / static_cast<float>(to);
    const auto nearest = static_cast<std::int64_t>(static_cast<float>(number) * factor);
    return std::min(nearest, static_cast<std::int64_t>(from) - 1);
}

/// Fills a canvas of the image's own format with the whole image.
void drawScaled(const canvas& target, const ImageData& image) {
    const std::int64_t bytes = target.pixelBytes();
    std::vector<std::int64_t> columns(static_cast<std::size_t>(target.width));
    for (std::int64_t x = 0; x < target.width; ++x)
        columns[static_cast<std::size_t>(x)] = sampleOf(x, image.width, target.width) * bytes;
    unsigned char* to = target.pixels;
    for (std::int64_t y = 0; y < target.height; ++y) {
        const unsigned char* row =
            image.data + sampleOf(y, image.height, target.height) * image.width * bytes;
        for (const std::int64_t column : columns)
            to = std::copy_n(row + column, bytes, to);
    }
}

/// Gives a record the same picture at half the size; false, and no change, without memory.
bool halve(ImageData& image) {
    const std::uint32_t width = halfOf(image.width);
    const std::uint32_t height = halfOf(image.height);
    const ::osg::ImagePtr half = newKeptImage(width, height, image.hasAlpha);
    if (half == ::osg::NullFC)
        return false;
    const canvas target = canvasOf(half);
    if (image.data != nullptr)
        drawScaled(target, image);
    image.data = target.pixels;
    image.width = width;
    image.height = height;
    return true;
}

::osg::Int32 nearestPower(::osg::Int32 side) {
    if (side < 2)
        return 1; // and not 0, which is as near
    std::int64_t up = 2;
    while (up < side)
        up *= 2;
    const std::int64_t down = up / 2;
    const std::int64_t nearest = up - side > side - down ? down : up;
    return static_cast<::osg::Int32>(std::min<std::int64_t>(nearest, longest_texture));
}

void rename(const ::osg::ImagePtr& image, const std::string& name) {
    const open_edit edit(image);
    image->setName(name);
    ::osg::setName(image, name);
    image->setAttachmentField("fileName", name);
    ::osg::endEditCP(image->findAttachment(::osg::StringAttributeMap::getClassType()));
}

} // namespace

bool scaleImages(std::vector<ImageData>& images, double percent, unsigned int minSide) {
    const double share = checkedShare(percent) * static_cast<double>(images.size());
    const std::size_t wanted = std::max<std::size_t>(static_cast<std::size_t>(share), 1);
    std::multimap<double, std::size_t, by_priority> waiting;
    for (std::size_t i = 0; i < images.size(); ++i)
        waiting.emplace(images[i].scalePriority, i);

    std::size_t shrunk = 0;
    for (std::size_t looks = images.size(); looks > 0 && shrunk < wanted; --looks) {
        const auto last = std::prev(waiting.end());
        const std::size_t number = last->second;
        waiting.erase(last);
        ImageData& image = images[number];
        if (minSide < image.width && minSide < image.height && halve(image))
            ++shrunk;
        double& priority = image.scalePriority;
        priority = priority > 0.0 ? priority / 3.0 : priority - 1.0;
        waiting.emplace(priority, number);
    }
    return shrunk > 0;
}

void ScaleImagesInTree(::osg::NodePtr root, unsigned int factor, unsigned int minSide) {
    if (factor < 2)
        return;
    say({"Scaling Images by factor of ", std::to_string(factor),
         ". Ignored if an Image has a smaller side than ", std::to_string(minSide)});
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(root, nodes, false);
    std::set<::osg::ImagePtr> images;
    for (const ::osg::NodePtr& node : nodes)
        images.insert(getImage(node));
    images.erase(::osg::NullFC);

    for (const ::osg::ImagePtr& image : images) {
        const auto width = static_cast<unsigned int>(image->getWidth());
        const auto height = static_cast<unsigned int>(image->getHeight());
        if (width <= minSide || height <= minSide)
            continue;
        const bool large = width > factor && height > factor;
        image->scale(large ? static_cast<::osg::Int32>(width / factor) : 1,
                     large ? static_cast<::osg::Int32>(height / factor) : 1, 1, ::osg::NullFC);
    }
}

bool ScaleImageToPowerof2(::osg::ImagePtr image) {
    try {
        if (image != ::osg::NullFC &&
            image->scale(nearestPower(image->getWidth()), nearestPower(image->getHeight()), 1,
                         ::osg::NullFC)) {
            rename(image, "TexFiles/texture" + std::to_string(TextureCounter) + ".png");
            ++TextureCounter;
            return true;
        }
    } catch (...) {
        // Said below, with what fails without an exception.
    }
    say({"Scaling failed..."});
    return false;
}

} // namespace morva::osg
