#pragma once

// What a node's material says and shows.

#include "picture_sampler.h"

namespace morva_test {

/// Wrapping of an image that repeats.
constexpr ::osg::UInt32 repeating = 0x2901;

/// The material that a node is drawn with: its own, else that of the outermost material group.
::osg::MaterialPtr materialOf(const ::osg::NodePtr& node);

/// Puts the material in words, and how its image is wrapped. Returns the image.
::osg::ImagePtr describe(const ::osg::MaterialPtr& material, pictured_node& shown);

} // namespace morva_test
