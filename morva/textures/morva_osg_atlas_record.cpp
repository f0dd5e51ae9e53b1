#include <morva/textures/morva_osg_atlas_record.h>

#include <algorithm>

namespace morva::osg {

const char* textOf(atlas_obstacle obstacle) {
    switch (obstacle) {
    case atlas_obstacle::image_format:
        return "pixels that an atlas cannot show";
    case atlas_obstacle::no_triangles:
        return "lines or points, or no triangles";
    case atlas_obstacle::above_half:
        return "larger than half of the atlas";
    case atlas_obstacle::coordinates_beyond:
        return "coordinates above the limit of texcoords";
    case atlas_obstacle::coordinates_bent:
        return "coordinates above 50";
    case atlas_obstacle::clamped:
        return "clamp with coordinates outside 0 to 1";
    case atlas_obstacle::several_textures:
        return "a material with several textures";
    case atlas_obstacle::other_effects:
        return "a material with effects that an atlas cannot show";
    case atlas_obstacle::no_area:
        return "no coordinates above 0";
    case atlas_obstacle::larger_than_atlas:
        return "larger than the atlas";
    case atlas_obstacle::only_image:
        return "no other image to share an atlas with";
    case atlas_obstacle::no_memory:
        return "no memory for the atlas";
    }
    return "";
}

void atlas_record::leaveOut(const ::osg::ImagePtr& image, atlas_obstacle obstacle) {
    const auto known = std::find_if(left_out.begin(), left_out.end(), [&](const auto& entry) {
        return entry.obstacle == obstacle && entry.image == image;
    });
    if (known != left_out.end())
        ++known->geometries;
    else
        left_out.push_back({::osg::RefPtr<::osg::ImagePtr>(image), obstacle, 1});
}

} // namespace morva::osg
