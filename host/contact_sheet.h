#pragma once

// A picture of all atlases of a run, to look at.

#include <OpenSG/OSGImage.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::host {

/// All atlases side by side as RGBA, where there is none transparent.
///
/// The sheet is at most 4096 pixels wide. For that all atlases shrink by the same power of two:
/// a pixel is the mean of those that it stands for, channel by channel. Atlases that still have no
/// room, more than 4096 of them, go into further rows.
/// errors  std::bad_alloc
::osg::ImageRefPtr contactSheet(const morva::osg::atlas_record& record);

} // namespace morva::host
