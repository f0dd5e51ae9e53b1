#include <morva/textures/morva_osg_placed_record.h>

#include <algorithm>
#include <cstddef>
#include <utility>

#include <morva/textures/morva_osg_image_tiles.h>

namespace morva::osg {

double recordPlaced(const ImageData& image, const ::osg::RefPtr<::osg::ImagePtr>& picture,
                    unsigned int padding, recorded_atlas& atlas) {
    placed_image place;
    place.image = picture;
    place.x = static_cast<std::uint32_t>(image.x);
    place.y = static_cast<std::uint32_t>(image.y);
    place.width = image.width;
    place.height = image.height;
    place.columns = static_cast<std::uint32_t>(tileCount(image.maxTexCoordU));
    place.rows = static_cast<std::uint32_t>(tileCount(image.maxTexCoordV));
    atlas.images.push_back(place);
    const image_footprint room = footprintOf(image, padding);
    return static_cast<double>(room.width) * room.height;
}

void recordFilled(recorded_atlas atlas, double filled, atlas_record& record) {
    atlas.occupancy = std::min(1.0, filled / (static_cast<double>(atlas.width) * atlas.height));
    record.atlases.push_back(std::move(atlas));
}

void recordCellAtlas(const ::osg::ImagePtr& atlas, const std::vector<ImageData>& images,
                     const std::vector<::osg::RefPtr<::osg::ImagePtr>>& pictures,
                     unsigned int padding, atlas_record& record) {
    recorded_atlas entry;
    entry.image = atlas;
    entry.width = static_cast<std::uint32_t>(atlas->getWidth());
    entry.height = static_cast<std::uint32_t>(atlas->getHeight());
    entry.transparent = atlas->getPixelFormat() == ::osg::Image::OSG_RGBA_PF;
    double filled = 0;
    for (std::size_t i = 0; i < images.size(); ++i) {
        const ImageData& image = images[i];
        if (image.x < 0 || image.y < 0)
            continue;
        filled += recordPlaced(image, pictures[i], padding, entry);
    }
    recordFilled(std::move(entry), filled, record);
}

} // namespace morva::osg
