#pragma once

// Which geometry takes part in the atlases of a scene.

#include <optional>
#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGNode.h>

#include <morva/textures/morva_osg_atlas_options.h>
#include <morva/textures/morva_osg_atlas_record.h>
#include <morva/textures/morva_osg_atlas_sources.h>

namespace morva::osg {

/// Takes nodes out of a list that can't show an atlas, or that would lose something on the way
/// there.
///
/// textureSize  32 to 8192
/// transparent  atlases of this list are RGBA
/// record       out: a line more for each node with an image
void keepAtlasNodes(std::vector<::osg::NodePtr>& nodes, const atlas_options& options,
                    bool transparent, atlas_sources& sources, atlas_record& record);

/// Why a node would look different with its image in an atlas, whatever the sides of that.
///
/// image        that the node shows
/// transparent  the atlas would be RGBA
std::optional<atlas_obstacle> obstacleToExactness(const ::osg::NodePtr& node,
                                                  const ::osg::ImagePtr& image, bool transparent,
                                                  atlas_sources& sources);

} // namespace morva::osg
