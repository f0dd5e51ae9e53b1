#pragma once

// Geometry nodes with what each pair of them needs, worked out once per node.
// For the library's own source files.

#include <vector>

#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/collision/morva_osg_candidate_pairs.h>

namespace morva::osg {

/// A node in the world.
struct placed_node {
    ::osg::NodePtr node;
    bool usable = false; ///< it has a core, a volume that is valid and not empty, a finite matrix
    ::osg::Pnt3f low, high; ///< bounds of its volume, in its parent's coordinates
    ::osg::Matrix to_world;
    lanes center, half; ///< of the world's box around its box; last lanes are 0
};

/// Reads a node; null is legal. Brings its volume up to date.
placed_node placeNode(const ::osg::NodePtr& node);

/// The geometry nodes below `root` that are usable, in the order of the walk.
std::vector<placed_node> placeGeometryNodes(const ::osg::NodePtr& root);

/// The inverse, worked out in double precision and rounded once; the identity where the determinant
/// is below 1e-30 in magnitude.
::osg::Matrix inverseOrIdentity(const ::osg::Matrix& matrix);

bool isFinite(const ::osg::Matrix& matrix);

/// The ball around a node's box.
placed_ball ballOf(const placed_node& b);

/// Where the balls of nodes B must be for the box of B in A's coordinates to meet that of A, as
/// do_collide() computes it; everywhere where A's matrix does more than turn, scale and move.
///
/// B's box in A's coordinates is within r / scale of its centre on each axis, for r the radius of
/// B's ball. So its centre is within A's box grown by that, and on a world axis within that of A
/// grown by r times the sum of the magnitudes in a row of the rotation, at most the root of 3. Both
/// sides are 64 * 2^-24 of their coordinates larger, more than the rounding of the matrices.
near_query nearQueryOf(const placed_node& a);

} // namespace morva::osg
