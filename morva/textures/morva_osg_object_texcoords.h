#pragma once

// The coordinates of a scene geoset whose images have moved into one atlas.

#include <cstdint>
#include <map>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGImage.h>

#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/textures/morva_osg_scene_atlas.h>

namespace morva::osg {

/// Gives the elements of a scene geoset, by adjustTexCoords(), their coordinates in an atlas.
///
/// scene   with geosets, whose coordinates are moved; the scene's own stay
/// images  with their places
/// shown   element, less `offset`, to the image that it shows: a number in `images`, or -1 for none
/// target  the atlas; null: nothing is done
/// returns true
/// prints  a line for an element that there is not; the last one is taken in its place
template <typename Tree, typename Setup, typename Geoset>
bool AdjustAllTexCoords(osg_scene_geoset<Tree, Setup, Geoset>& scene,
                        std::vector<ImageData>& images, std::map<int, int>& shown,
                        unsigned int offset, ::osg::ImagePtr target) {
    if (target == ::osg::NullFC)
        return true;
    const auto width = static_cast<unsigned int>(target->getWidth());
    const auto height = static_cast<unsigned int>(target->getHeight());
    for (const auto& [object, number] : shown) {
        if (number < 0 || static_cast<std::size_t>(number) >= images.size())
            continue;
        const std::int64_t element =
            scene.simple_object(offset + static_cast<unsigned int>(object));
        if (element < 0)
            continue;
        const ImageData& image = images[static_cast<std::size_t>(number)];
        adjustTexCoords(scene.geosets[element].geometry.get(), width, height, image.width,
                        image.height, static_cast<unsigned int>(image.x),
                        static_cast<unsigned int>(image.y));
    }
    return true;
}

} // namespace morva::osg
