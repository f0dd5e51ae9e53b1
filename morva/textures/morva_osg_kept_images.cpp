#include <morva/textures/morva_osg_kept_images.h>

#include <algorithm>
#include <mutex>
#include <new>

#include <morva/textures/morva_osg_image_tiles.h>

namespace morva::osg {

namespace {

/// Outlives every static object that may still look at pixels.
struct image_list {
    std::mutex mutex;
    std::vector<::osg::RefPtr<::osg::ImagePtr>> images;
};

image_list& kept() {
    static image_list& list = *new image_list;
    return list;
}

/// Of this thread; null: images stay.
thread_local passing_images* passing = nullptr;

} // namespace

passing_images::passing_images() { passing = this; }

passing_images::~passing_images() { passing = nullptr; }

::osg::ImagePtr newKeptImage(std::uint32_t width, std::uint32_t height, bool hasAlpha) {
    try {
        const ::osg::RefPtr<::osg::ImagePtr> image(::osg::Image::create());
        if (!makeBlack(image.get(), std::max(width, 1U), std::max(height, 1U), hasAlpha))
            return ::osg::NullFC;
        if (passing != nullptr) {
            passing->take(image);
            return image.get();
        }
        image_list& list = kept();
        const std::lock_guard<std::mutex> guard(list.mutex);
        list.images.push_back(image);
        return image.get();
    } catch (const std::bad_alloc&) {
        return ::osg::NullFC;
    }
}

std::size_t keptImages() {
    image_list& list = kept();
    const std::lock_guard<std::mutex> guard(list.mutex);
    return list.images.size();
}

bool makeBlack(const ::osg::ImagePtr& image, std::uint32_t width, std::uint32_t height,
               bool hasAlpha) {
    if (width > longest_side || height > longest_side)
        return false;
    image->clearData(); // or a store of the same size keeps its bytes
    const ::osg::UInt32 format = hasAlpha ? ::osg::Image::OSG_RGBA_PF : ::osg::Image::OSG_RGB_PF;
    if (!image->set(format, static_cast<::osg::Int32>(width), static_cast<::osg::Int32>(height)))
        return false;
    const canvas whole = canvasOf(image);
    if (hasAlpha)
        makeOpaque(whole.pixels, whole.width * whole.height);
    return true;
}

} // namespace morva::osg
