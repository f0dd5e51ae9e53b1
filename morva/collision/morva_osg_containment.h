#pragma once

// What a test of surfaces alone can't tell: whether a part is closed, and whether one is inside
// another without contact.
//
//     if (!collision(a, b, param, contact) && (contains(a, b) || contains(b, a)))
//         ...                                      one is inside the other
//     if (!is_closed(a)) ...                       b may pass through a's holes unnoticed
//
// Reads triangles from the cores, in world coordinates and double precision; makes no trees and
// counts nothing. All geometry nodes count, hidden ones and all levels of detail as well.

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Whether the triangles below a node enclose space without a gap: every edge is passed as often in
/// one direction as in the other. False without triangles and for null.
///
/// Corners within 1e-6 of the diagonal of all of them count as one, so that a surface may be made
/// of several nodes. Orientation counts: a triangle turned over leaves its edges open. errors
/// std::bad_alloc cost    n log n
MORVA_API bool is_closed(const ::osg::NodePtr& node);

/// Whether every geometry node with triangles below `inner` has its first corner inside of a closed
/// part below `outer`: a geometry node that is closed, or all others together if they are. Where no
/// surfaces touch, all of a connected part is inside then.
///
/// returns  false where there is nothing inside, or nothing closed to be in; the hollow of a part
/// is
///          not inside of it
/// errors   std::bad_alloc
/// method   parity of the crossings of a ray; one that comes near an edge is sent anew in another
///          direction
MORVA_API bool contains(const ::osg::NodePtr& outer, const ::osg::NodePtr& inner);

} // namespace morva::osg
