#pragma once

// Whether two subtrees of a scene touch, and where.
//
//     CollisionResults contact;
//     if (collision(screw, plate, CollisionParam(), contact))
//         contact.point, contact.nodeA, contact.nodeB ...
//
//     boxes of the subtrees -> every pair of geometry nodes, in the order of the walks
//         -> box of B in A's coordinates against the box of A
//         -> both picking trees at once (morva_osg_attach_bih.h), A's right with B's left first
//         -> triangle against triangle: the edges of B through A, then those of A through B
//
// The first contact in this order is the answer. An edge counts where it enters a triangle through
// its front, so that surfaces which are not closed can pass through each other unnoticed, and so do
// triangles of one plane. One part inside another without contact of their surfaces is none: ask
// contains() of morva_osg_containment.h. Switches and levels of detail count with all children.
//
// Trees are made or built anew on demand, and stay when a node moves. After a core's tree was asked
// a lot, a companion of it makes the descent skip what can't touch, with the same answer: that of
// every step in single precision, contacts by rounding of faces in one plane included.
//
// Threads: one at a time for the same cores; volumes are brought up to date.

#include <cstdint>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/picking/morva_osg_attach_bih.h>

namespace morva::osg {

struct CollisionParam {
    MORVA_API CollisionParam();

    float tolerance; ///< world units that the box of the first subtree grows by; 0.01
};

/// An answer of false leaves everything but `collided` as it was.
struct CollisionResults {
    bool collided = false; ///< of the last call
    ::osg::Pnt3f point;    ///< of the contact, in world coordinates
    ::osg::NodePtr nodeA;  ///< the geometry node of the first subtree
    ::osg::NodePtr nodeB;  ///< the geometry node of the second subtree
};

/// Whether two subtrees touch; the first contact in `results`. Adds 1 to num_colltests().
///
/// a, b     may stand anywhere, also in each other; null gives false
/// param    the tolerance widens the test of the subtrees' boxes, not what counts as contact
/// returns  false also where a box is invalid or empty, a matrix not finite or a core without
///          triangles; a matrix of A that has no inverse counts as the identity there
/// errors   std::bad_alloc
MORVA_API bool collision(::osg::NodePtr a, ::osg::NodePtr b, CollisionParam const& param,
                         CollisionResults& results);

/// The same for two geometry nodes alone, without a look below them and without counting;
/// `nodeA` and `nodeB` stay.
MORVA_API bool do_collide(::osg::NodePtr a, ::osg::NodePtr b, CollisionResults& results);

/// Every pair of geometry nodes of two subtrees in contact, each with the first contact of the
/// pair, in the order in which collision() asks them. Counts nothing.
MORVA_API std::vector<CollisionResults> collisions(::osg::NodePtr a, ::osg::NodePtr b,
                                                   CollisionParam const& param);

/// Descends two trees at once, from a node of each, and finds the first contact.
///
/// a_min, a_max      box of A's node, in A's coordinates, as all that follows but `b_own`
/// b_min, b_max      box of B's node
/// b_own_min, -_max  box of B's node in B's coordinates
/// nodeA, nodeB      nodes of the trees, whose triangles are in the lists
/// b_to_a            affine; the corners of B's triangles go through it one by one
/// pairs             in and out: counts the pairs of triangles that were compared
/// contact           out, in A's coordinates; left alone without a contact
/// returns           false for a tree without nodes, and for a node that it does not have
///
/// Leaves over 64 triangles compare each different one once; `pairs` counts all.
MORVA_API bool test_nodes(const float3& a_min, const float3& a_max, const float3& b_min,
                          const float3& b_max, const float3& b_own_min, const float3& b_own_max,
                          const bih_tree<float>& treeA, const triangle_list& listA, int nodeA,
                          const bih_tree<float>& treeB, const triangle_list& listB, int nodeB,
                          const math::transformation_matrix<float>& b_to_a, std::uint64_t& pairs,
                          float3& contact);

} // namespace morva::osg
