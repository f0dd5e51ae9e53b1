#pragma once

// The stage that puts the parts of a scene into a hierarchy in space, so that a viewer can leave
// out what is not in view:
//
//     result   Group ( Group ( a  b )  Group ( Group ( c )  Transform ( d ) )  holder of hidden )
//
// Cells are halves of the box of their parent; a part stands in the cell of its centre.

#include <OpenSG/OSGNode.h>

namespace morva::osg {

/// Makes a hierarchy of the geometry nodes below `root` that getGeometryNodes() lists, without
/// those under switches and levels of detail.
///
/// own      a pass has made `root`, and nobody else has it: the nodes move, geometry that is not
///          listed goes behind the hierarchy with what holds it, and the rest is destroyed.
///          Otherwise `root` stays, and the hierarchy is of new nodes that share cores
/// returns  the new root, without a reference
/// prints   when it begins and when it is done
/// errors   none leave it: one line on standard error. The result is then what was there by then,
///          or `root` if nothing has moved
///
/// Positions in the world, materials and masks of the nodes stay; see recBuild().
::osg::NodePtr buildSceneHierarchy(const ::osg::NodePtr& root, bool own);

} // namespace morva::osg
