#include "removed_parts.h"

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_tools.h>

namespace morva::host {

namespace {

::osg::NodePtr newNode(const ::osg::NodeCorePtr& core) {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(core);
    return node;
}

/// A child that is held by its parent alone.
::osg::NodePtr addNode(const ::osg::NodePtr& parent, const ::osg::NodeCorePtr& core) {
    const ::osg::NodePtr node = newNode(core);
    parent->addChild(node);
    return node;
}

::osg::NodePtr topOf(::osg::NodePtr node) {
    while (node->getParent() != ::osg::NullFC)
        node = node->getParent();
    return node;
}

} // namespace

removal_watch::removal_watch(const ::osg::NodePtr& root, const std::vector<named_part>& parts)
    : root_(root), above_(newNode(::osg::Group::create())) {
    for (const named_part& part : parts) {
        parts_.push_back({::osg::NodeRefPtr(part.node), ::osg::NodeCoreRefPtr(part.node->getCore()),
                          ::osg::MaterialRefPtr(morva::osg::getMaterial(part.node)),
                          part.node->getToWorld(), part.name});
    }
    above_->addChild(root_);
}

removal_watch::~removal_watch() {
    if (root_->getParent() == above_.get())
        above_->subChild(root_);
}

std::vector<std::size_t> removal_watch::removed(const ::osg::NodePtr& result) const {
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        const ::osg::NodePtr node = parts_[i].node.get();
        const ::osg::NodePtr top = topOf(node);
        // One with children has stayed, as a group.
        const bool emptied = node->getCore() != ::osg::NullFC &&
                             ::osg::GeometryPtr::dcast(node->getCore()) == ::osg::NullFC;
        if (emptied || (top != above_.get() && top != root_.get() && top != result))
            places.push_back(i);
    }
    return places;
}

::osg::NodeRefPtr removal_watch::sceneOf(const std::vector<std::size_t>& places) const {
    ::osg::NodeRefPtr scene(newNode(::osg::Group::create()));
    for (const std::size_t place : places) {
        const held_part& part = parts_[place];
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(part.to_world);
        ::osg::NodePtr holder = addNode(scene.get(), transform);
        const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(part.core.get());
        if (geometry->getMaterial() == ::osg::NullFC && part.material.get() != ::osg::NullFC) {
            const ::osg::MaterialGroupPtr group = ::osg::MaterialGroup::create();
            group->setMaterial(part.material.get());
            holder = addNode(holder, group);
        }
        ::osg::setName(addNode(holder, geometry), part.name);
    }
    return scene;
}

} // namespace morva::host
