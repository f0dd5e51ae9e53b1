#pragma once

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Faces that meet at less than this share the normals that a rebuild makes; radians, 30 degrees.
constexpr float crease_angle = 0.5235988F;

/// Recomputes vertex normals, smoothing over edges flatter than an angle; the same under every
/// release of the scene graph, some of which give up on unindexed geometry.
///
/// geometry   indexed: as ::osg::calcVertexNormals does, and what the index served before it
///            serves afterwards. Unindexed: as if each vertex had its own number as index; stays
///            unindexed, with one normal per vertex. Null is accepted
/// angle_rad  crease angle in radians; from Pi on every edge is smoothed
///
/// Lone unindexed triangles have no vertex in common, so that every corner gets the unit normal of
/// its own triangle. In an unindexed strip or fan the last triangle at a vertex decides. A triangle
/// of no area repeats the normal made before it.
/// cost       linear in the triangles, for bounded numbers of triangles at one position
MORVA_API void calcCreaseNormals(const ::osg::GeometryPtr& geometry, float angle_rad);

} // namespace morva::osg
