#pragma once

// Geometry nodes with what each pair of them needs, worked out once per node, and once per matrix
// where nodes share one.
// For the library's own source files.

#include <cstdint>
#include <vector>

#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/collision/morva_osg_candidate_pairs.h>

namespace morva::osg {

/// A geometry node in the world: its volume is valid and not empty, its matrix finite.
struct placed_node {
    ::osg::NodePtr node;
    ::osg::Pnt3f low, high; ///< bounds of its volume, in its parent's coordinates
    std::uint32_t frame;    ///< place in the list's frames
    lanes center, half;     ///< of the world's box around its box; last lanes are 0
};

struct placed_list {
    std::vector<::osg::Matrix> frames; ///< to the world
    std::vector<placed_node> nodes;

    const ::osg::Matrix& toWorld(const placed_node& node) const { return frames[node.frame]; }
};

/// For each node A, where the balls of nodes B must be for the box of B in A's coordinates to meet
/// that of A, as do_collide() computes it; everywhere where A's matrix does more than turn, scale
/// and move.
///
/// B's box in A's coordinates is within r / scale of its centre on each axis, for r the radius of
/// B's ball. So its centre is within A's box grown by that, and on a world axis within that of A
/// grown by r times the sum of the magnitudes in a row of the rotation, at most the root of 3. Both
/// sides are 64 * 2^-24 of their coordinates larger, more than the rounding of the matrices.
std::vector<near_query> nearQueriesOf(const placed_list& a);

/// For each node the ball around its box.
std::vector<placed_ball> ballsOf(const placed_list& b);

/// Reads one node; the list is empty if it can't be placed. Null is legal. Brings its volume up to
/// date.
placed_list placeNode(const ::osg::NodePtr& node);

/// The geometry nodes below `root` that can be placed, in the order of collect_geo_nodes().
placed_list placeGeometryNodes(const ::osg::NodePtr& root);

/// The inverse, worked out in double precision and rounded once; the identity where the determinant
/// is below 1e-30 in magnitude.
::osg::Matrix inverseOrIdentity(const ::osg::Matrix& matrix);

bool isFinite(const ::osg::Matrix& matrix);

} // namespace morva::osg
