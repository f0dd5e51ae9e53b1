#pragma once

// The atlases of one list of images, and the geometry that shows them.

#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_places.h>
#include <morva/textures/morva_osg_atlas_record.h>
#include <morva/textures/morva_osg_atlas_sources.h>

namespace morva::osg {

/// buildAtlases(), with all that can be asked for. Places come first: no more than what is kept of
/// each atlas is allocated. Images of an atlas without memory stay where they are, as do those of
/// all that would come behind it.
///
/// record  out: atlases, images that stay, and how many nodes show an atlas
unsigned int buildAtlases(const std::vector<::osg::NodePtr>& nodes, std::vector<ImageData>& images,
                          const atlas_form& form, atlas_sources& sources, atlas_record& record);

} // namespace morva::osg
