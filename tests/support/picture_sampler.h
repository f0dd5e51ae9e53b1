#pragma once

// What textured triangles show, before and after their images moved into atlases.
//
//     const picture before(root);                             before the scene changes
//     createTextureAtlas(root, options, record);
//     const picture_comparison seen = comparePictures(before, picture(root), record);
//     EXPECT_EQ(seen.fault, "");
//
// A picture copies all it looks at: triangles, pixels, and the values of materials in words. Each
// triangle of the picture after is found on one of the same node before, as a whole or as a piece
// of it, and must show the same texels there: the atlas must hold the image at its place, all of
// it, and coordinates must lead there, moved by whole tiles, at most a texel for the inset and
// 0.001 of the image for values near whole numbers. What kept its image must show it as before.
// Triangles of a node that lie on each other can be mistaken where they show nearly the same.

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/textures/morva_osg_atlas_record.h>

namespace morva_test {

struct pictured_triangle {
    std::array<::osg::Pnt3f, 3> corners;
    std::array<::osg::Vec2f, 3> coordinates; ///< slot 0; zero where there are none
};

/// Pixels as RGBA, row by row.
struct pictured_image {
    ::osg::UInt32 container = 0; ///< of the image
    std::int64_t width = 0, height = 0;
    std::vector<std::uint32_t> texels;
};

/// One geometry node. Nodes keep their number as long as they live.
struct pictured_node {
    std::string name;
    std::vector<pictured_triangle> triangles;
    std::string material;                  ///< in words, but for image and wrapping
    const pictured_image* image = nullptr; ///< null without
    std::array<::osg::UInt32, 2> wrap{};   ///< along u and v
};

class picture {
  public:
    explicit picture(const ::osg::NodePtr& root);
    picture(const picture&) = delete;
    picture& operator=(const picture&) = delete;

    const std::map<::osg::UInt32, pictured_node>& nodes() const { return nodes_; }
    /// Null for an image that nobody shows.
    const pictured_image* imageOf(const ::osg::ImagePtr& image) const;

  private:
    const pictured_image* enter(const ::osg::ImagePtr& image);

    std::map<::osg::UInt32, pictured_image> images_; ///< by their containers
    std::map<::osg::UInt32, pictured_node> nodes_;
};

struct picture_comparison {
    std::string fault;      ///< the first one in words; empty if there is none
    std::size_t moved = 0;  ///< nodes that show an atlas now
    std::size_t pieces = 0; ///< triangles that are part of one before
    double inset = 0;       ///< furthest move besides whole tiles, in texels
};

/// Where nodes are new they may hold triangles of several ones before, each in its old place in the
/// coordinates of its node; nodes before lie apart then, and those without an image are not looked
/// at.
///
/// padding  texels of its own picture that each image must be surrounded by
picture_comparison comparePictures(const picture& before, const picture& after,
                                   const morva::osg::atlas_record& record, unsigned padding = 0);

} // namespace morva_test
