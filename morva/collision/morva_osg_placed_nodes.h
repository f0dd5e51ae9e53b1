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
};

/// Reads a node; null is legal. Brings its volume up to date.
placed_node placeNode(const ::osg::NodePtr& node);

/// The geometry nodes below `root` that are usable, in the order of the walk.
std::vector<placed_node> placeGeometryNodes(const ::osg::NodePtr& root);

/// The inverse, worked out in double precision and rounded once. Where the determinant is below
/// 1e-30 in magnitude the result is false and `inverse` the identity.
bool invert(const ::osg::Matrix& matrix, ::osg::Matrix& inverse);

bool isFinite(const ::osg::Matrix& matrix);

/// The ball around a node's box.
placed_ball ballOf(const placed_node& b);

/// Where the balls of nodes B must be for the box of B in A's coordinates to meet that of A, as
/// do_collide() computes it.
///
/// from_world  inverse of A's matrix, which has one
/// returns     false where all nodes must be asked: the matrix skews a lot
///
/// B's box in A's coordinates is within r |row k of the inverse| of its centre on axis k, for r the
/// radius of B's ball. So its centre is within A's box grown by that, and on world axis i within
/// that of A grown by r times the sum of |A_ik| |row k|, at most the root of 3 for a rotation. Both
/// sides are 64 * 2^-24 of their coordinates larger, more than the rounding of the matrices.
bool nearQueryOf(const placed_node& a, const ::osg::Matrix& from_world, near_query& query);

} // namespace morva::osg
