#pragma once

// Nodes and cores that a pass makes. Nobody has taken them in yet: hold them by `fresh`.

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

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

/// Makes a node with a transform core.
inline ::osg::NodePtr newTransformNode(const ::osg::Matrix& matrix) {
    const ::osg::TransformPtr transform = ::osg::Transform::create();
    fresh<::osg::NodePtr> node(newNodeWith(transform));
    {
        const open_edit edit(transform, ::osg::Transform::MatrixFieldMask);
        transform->setMatrix(matrix);
    }
    return node.release();
}

/// A copy of a core with properties of its own, under its name. Made without edits: whoever hands
/// it out calls reportWhole().
inline ::osg::GeometryPtr copyOfCore(const ::osg::GeometryPtr& core) {
    fresh<::osg::GeometryPtr> copy(core->clone());
    if (const ::osg::Char8* name = ::osg::getName(core))
        ::osg::setName(copy.get(), name);
    return copy.release();
}

} // namespace morva::osg
