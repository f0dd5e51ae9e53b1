#pragma once

// Whether images have transparent pixels. To know that of one takes a look at all its pixels, and
// many nodes may show the same: a pass asks through one `alpha_scans`, which looks once.
//
//     alpha_scans scans;
//     getGeometryNodes(root, solid, transparent, false, scans);
//     scans.isTransparent(image);                      // known by now
//
// Valid while nobody edits the images; for one thread.

#include <unordered_map>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>

namespace morva::osg {

/// The image that a material shows, as getImage() gives it, without a look at its pixels.
::osg::ImagePtr imageOf(const ::osg::MaterialPtr& material);

/// Whether an RGBA image has an alpha below 255 in its first slice.
bool hasTransparentPixels(const ::osg::ImagePtr& image);

/// Whether `count` pixels of `channels` bytes, the last of them alpha, 1 to 4, have an alpha below
/// 255.
bool hasAlphaBelowFull(const ::osg::UInt8* pixels, std::size_t count, unsigned int channels);

/// Remembers what it was asked.
class alpha_scans {
  public:
    /// As hasTransparentPixels(); false for null.
    bool isTransparent(const ::osg::ImagePtr& image) {
        if (image == ::osg::NullFC)
            return false;
        const auto [known, is_new] = by_container_.try_emplace(image.getFieldContainerId(), false);
        if (is_new)
            known->second = hasTransparentPixels(image);
        return known->second;
    }

  private:
    std::unordered_map<::osg::UInt32, bool> by_container_;
};

/// As the functions of that name with one argument less.
void getGeometryNodesForTree(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& plain,
                             std::vector<::osg::NodePtr>& switches,
                             std::vector<::osg::NodePtr>& transparent, alpha_scans& scans);
unsigned int getGeometryNodes(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& plain,
                              std::vector<::osg::NodePtr>& transparent, bool withSwitches,
                              alpha_scans& scans);

} // namespace morva::osg
