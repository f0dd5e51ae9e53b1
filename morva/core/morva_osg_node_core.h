#pragma once

// What a node's core is. For the library's own source files; any number of threads may ask.

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

namespace morva::osg {

/// The geometry core of a node, of a derived type too; null for a null node and for another core.
inline ::osg::GeometryPtr geometryOf(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC)
        return ::osg::NullFC;
    return ::osg::GeometryPtr::dcast(node->getCore());
}

/// Type of the attachment that is a picking tree: it goes with its core, and no copy takes it over.
constexpr const char* picking_tree_type = "MorvaBIH";

/// Whether the core is a `Core` or derived from it; false without a core. `node` must not be null.
template <typename Core> bool isKindOf(const ::osg::NodePtr& node) {
    return node->getCore() != ::osg::NullFC &&
           node->getCore()->getType().isDerivedFrom(Core::getClassType());
}

} // namespace morva::osg
