#pragma once

// The passes of morva_osg_ambient_occlusion.h with a number of threads to trace on. Outcome and
// output are the same to the last byte for any of them.

#include <cstddef>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_params.h>

namespace morva::osg {

/// What a pass says where there are no rays for its shots.
void sayNoRays(int shots);

/// AddAmbientOcclusion().
void bakeOcclusion(const ::osg::NodePtr& root, bool replaceColors, int shots, unsigned int threads);

/// gutOutModelPerAmbientOcclusion(). Returns how many parts it took off.
std::size_t takeInteriorOff(const ::osg::NodePtr& root, int shots, float threshold,
                            unsigned int threads);

/// buildModelHull(). `threads` are those that trace: the merge has as many as its setup asks for.
::osg::NodePtr hullOf(const ::osg::NodePtr& root, const mergeGeo_setup& setup,
                      unsigned int maxPrimitives, int shots, unsigned int threads);

} // namespace morva::osg
