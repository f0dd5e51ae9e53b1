#pragma once

// Parts below a matrix that mirrors, made upright: the optimiser turns normals by the rotation of a
// matrix alone, and keeps the winding, so that a mirrored part would come out inside out.
//
//     before     node M (mirrors) ── node C ── geometry       p in the world: M C p
//     after      node M R ── node R C R ── R geometry         the same: M R R C R R p
//
// R negates x, so that nothing is rounded: what lies where in the world stays to the last bit.

#include <OpenSG/OSGNode.h>

namespace morva::host {

/// Takes the mirroring out of the matrices of a scene and puts it into its geometry.
///
/// Afterwards no geometry hangs below a negative determinant. Cores below one give way to
/// reflected copies: x of positions and normals negated, faces turned round, in triangles and in
/// the order of before; lines and points as they were. A copy serves all nodes that shared the
/// core. Nodes, names and paths stay; matrices on the way down change, as does the centre of a
/// level of detail. A matrix that is flat, but for rounding, or not finite has no sides: what is
/// below it keeps its core.
///
/// errors  std::bad_alloc
void uprightMirroredParts(const ::osg::NodePtr& root);

} // namespace morva::host
