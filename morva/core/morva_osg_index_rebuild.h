#pragma once

// A geometry as one run of indexed triangles: what createSharedIndex() and createSingleIndex() of
// this library do, by a name that the scene graph does not have for something else.

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

enum class triangle_index {
    per_property, ///< each property without its own duplicates: createSharedIndex()
    common,       ///< every distinct corner once in all properties: createSingleIndex()
};

/// Rebuilds the triangles of a geometry over the basic properties; null is left alone.
/// errors  std::bad_alloc; the geometry is then as before
void rebuildAsTriangles(const ::osg::GeometryPtr& geometry, triangle_index form);

} // namespace morva::osg
