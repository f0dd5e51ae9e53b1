#pragma once

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Recomputes vertex normals, smoothing over edges flatter than an angle.
///
/// geometry   indexed: as ::osg::calcVertexNormals does. Unindexed: no two triangles have a vertex
///            in common, so that every corner gets the unit normal of its own triangle, one of no
///            area that of the triangle before it; some releases of the scene graph leave such a
///            geometry without normals, this function does not. Null is accepted
/// angle_rad  crease angle in radians
/// cost       linear in the triangles, for bounded numbers of triangles at one position
MORVA_API void calcCreaseNormals(const ::osg::GeometryPtr& geometry, float angle_rad);

} // namespace morva::osg
