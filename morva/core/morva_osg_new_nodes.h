#pragma once

// Nodes that a pass makes. Nobody has taken them in yet: hold them by `fresh`.

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>

namespace morva::osg {

/// Makes a node with the given core, which goes with it if that fails.
inline ::osg::NodePtr newNodeWith(const ::osg::NodeCorePtr& core) {
    const ::osg::RefPtr<::osg::NodeCorePtr> held(core);
    fresh<::osg::NodePtr> node(::osg::Node::create());
    giveCore(node.get(), core);
    return node.release();
}

/// Makes a node with an empty group core.
inline ::osg::NodePtr newGroupNode() { return newNodeWith(::osg::Group::create()); }

} // namespace morva::osg
