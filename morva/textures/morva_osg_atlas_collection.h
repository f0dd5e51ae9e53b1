#pragma once

// The images of geometry nodes as a list for atlases, and the way back from a node to its image.
//
//     image_collection collection(sources, images);
//     collection.add(node);                            raises coordinates or appends to `images`
//     ... images are sorted and placed ...
//     image_numbers numbers(sources, images);
//     images[numbers.of(getImage(node))]
//
// One thread. Images are compared once each, however many nodes show them.

#include <cstdint>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGNode.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_sources.h>

namespace morva::osg {

constexpr std::uint32_t no_image = 0xFFFFFFFF;

/// Finds the image that a picture of the scene has become in a list, which stays as it is.
class image_numbers {
  public:
    image_numbers(atlas_sources& sources, const std::vector<ImageData>& images);

    /// `no_image` for null and for one that is not there.
    std::uint32_t of(const ::osg::ImagePtr& image);

  protected:
    atlas_sources& sources_;
    image_finder finder_;
    std::unordered_map<::osg::UInt32, std::uint32_t> known_; ///< by container number
};

/// Fills a list.
class image_collection : private image_numbers {
  public:
    image_collection(atlas_sources& sources, std::vector<ImageData>& images)
        : image_numbers(sources, images), growing_(images) {}

    /// Nothing for a node without image, or with one that an atlas can't show.
    void add(const ::osg::NodePtr& node);

  private:
    std::uint32_t append(const ::osg::ImagePtr& image);

    std::vector<ImageData>& growing_;
};

} // namespace morva::osg
