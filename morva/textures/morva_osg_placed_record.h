#pragma once

// What is written down of an atlas.

#include <vector>

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/textures/morva_osg_atlas_images.h>
#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// Enters an image in an atlas, at its place and laid out. Returns the texels that it fills.
double recordPlaced(const ImageData& image, const ::osg::RefPtr<::osg::ImagePtr>& picture,
                    unsigned int padding, recorded_atlas& atlas);

/// Appends an atlas of which so many texels are filled.
void recordFilled(recorded_atlas atlas, double filled, atlas_record& record);

/// Appends the atlas of a cell, whose sides are those of its image now, with all images that have a
/// place.
///
/// pictures  the images of the scene, one for each record
void recordCellAtlas(const ::osg::ImagePtr& atlas, const std::vector<ImageData>& images,
                     const std::vector<::osg::RefPtr<::osg::ImagePtr>>& pictures,
                     unsigned int padding, atlas_record& record);

} // namespace morva::osg
