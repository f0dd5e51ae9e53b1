#pragma once

// What became of the images of a scene: where those in an atlas lie, and why others are in none.
//
//     record.atlases[0].images[2]     x 512, y 0, 256 x 256 pixels, laid out 2 x 1 times
//     record.left_out[0]              an image, "larger than the atlas", 3 geometries
//
// A record holds references of the images. Plain values otherwise; it belongs to one thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Why geometry keeps its image.
enum class atlas_obstacle {
    image_format,       ///< no pixels, compressed, wide channels, or alpha beside grey
    no_triangles,       ///< lines, points or nothing, or these beside triangles
    above_half,         ///< a side of the image is above half of the atlas
    coordinates_beyond, ///< coordinates reach above the limit of the run
    coordinates_bent,   ///< coordinates reach above 50 and would lose their shape
    clamped,            ///< coordinates leave 0 to 1 where the image does not repeat
    several_textures,   ///< the material has more than one
    other_effects,      ///< the material has what a copy of it in an atlas would not show
    no_area,            ///< all coordinates are 0 or below along an axis
    larger_than_atlas,  ///< laid out as often as it repeats, it is larger than an atlas
    only_image,         ///< an atlas of one image gains nothing
    no_memory           ///< for the atlas
};

/// The obstacle in a few words, as "larger than the atlas".
MORVA_API const char* textOf(atlas_obstacle obstacle);

/// An image in an atlas.
struct placed_image {
    ::osg::RefPtr<::osg::ImagePtr> image; ///< the first one met of those with equal pixels
    std::uint32_t x = 0;                  ///< of its first pixel; y counts from row 0 of the atlas
    std::uint32_t y = 0;
    std::uint32_t width = 0; ///< of the image itself
    std::uint32_t height = 0;
    std::uint32_t columns = 1; ///< how often it is laid out, side by side
    std::uint32_t rows = 1;    ///< and one above the other
};

struct recorded_atlas {
    ::osg::RefPtr<::osg::ImagePtr> image; ///< the kept part
    std::uint32_t width = 0;              ///< of the kept part
    std::uint32_t height = 0;
    bool transparent = false; ///< RGBA
    double occupancy = 0.0;   ///< share of the kept part that images fill, borders included, 0 to 1
    std::vector<placed_image> images; ///< never empty; in the order in which they were placed
};

/// Geometry that keeps an image for one reason. An image may be in an atlas as well, for others.
struct left_out_image {
    ::osg::RefPtr<::osg::ImagePtr> image;
    atlas_obstacle obstacle = atlas_obstacle::image_format;
    std::size_t geometries = 0; ///< nodes
};

struct MORVA_API atlas_record {
    std::vector<recorded_atlas> atlases; ///< opaque ones first
    /// By image and reason, in the order of meeting.
    std::vector<left_out_image> left_out;
    std::size_t geometries = 0; ///< nodes that show an atlas now

    /// Counts one geometry that keeps its image.
    void leaveOut(const ::osg::ImagePtr& image, atlas_obstacle obstacle);
};

} // namespace morva::osg
