#pragma once

// What is written down of the atlas of a cell.

#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// Appends an atlas, whose sides are those of its image now, with all images that have a place.
///
/// pictures  the images of the scene, one for each record
void recordCellAtlas(const ::osg::ImagePtr& atlas, const std::vector<ImageData>& images,
                     const std::vector<::osg::RefPtr<::osg::ImagePtr>>& pictures,
                     unsigned int padding, atlas_record& record);

} // namespace morva::osg
