#include "collide_scene.h"

#include <OpenSG/OSGGroup.h>

namespace morva::host {

namespace {

bool isBelow(::osg::NodePtr node, const ::osg::NodePtr& above) {
    for (; node != ::osg::NullFC; node = node->getParent()) {
        if (node == above)
            return true;
    }
    return false;
}

void setMatrix(const ::osg::TransformPtr& place, const ::osg::Matrix& matrix) {
    beginEditCP(place, ::osg::Transform::MatrixFieldMask);
    place->setMatrix(matrix);
    endEditCP(place, ::osg::Transform::MatrixFieldMask);
}

} // namespace

bool overlaps(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
    return isBelow(a, b) || isBelow(b, a);
}

::osg::NodeRefPtr groupAbove(const ::osg::NodePtr& root) {
    const ::osg::NodeRefPtr group(::osg::Node::create());
    beginEditCP(group.get());
    group->setCore(::osg::Group::create());
    group->addChild(root);
    endEditCP(group.get());
    return group;
}

::osg::NodeRefPtr takenOut(const ::osg::NodePtr& node) {
    const ::osg::NodeRefPtr held(node), root(::osg::Node::create());
    const ::osg::TransformPtr place = ::osg::Transform::create();
    const ::osg::NodePtr parent = node->getParent();
    if (parent != ::osg::NullFC) {
        ::osg::Matrix to_world;
        parent->getToWorld(to_world);
        setMatrix(place, to_world);
    }
    beginEditCP(root.get());
    root->setCore(place);
    root->addChild(node); // which takes it off its parent
    endEditCP(root.get());
    return root;
}

posed_node::posed_node(const ::osg::NodePtr& node)
    : root_(takenOut(node)), place_(::osg::TransformPtr::dcast(root_->getCore())) {
    if (::osg::TransformPtr::dcast(node->getCore()) == ::osg::NullFC)
        return;
    beginEditCP(node, ::osg::Node::CoreFieldMask);
    node->setCore(::osg::Group::create());
    endEditCP(node, ::osg::Node::CoreFieldMask);
}

void posed_node::moveTo(const ::osg::Matrix& to_world) { setMatrix(place_, to_world); }

} // namespace morva::host
