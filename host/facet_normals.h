#pragma once

// Normals of files that keep one per triangle, as STL does. Programs write 0 where they know none,
// and some write them against the winding, which is what says where a face looks.

#include <cstddef>

#include <OpenSG/OSGNode.h>

namespace morva::host {

/// Makes each normal anew that is 0, not finite or against the winding of its triangle, in all
/// cores below `root`. A core is left alone unless its corners have a normal each.
///
/// returns  in how many triangles
std::size_t mendFacetNormals(const ::osg::NodePtr& root);

} // namespace morva::host
