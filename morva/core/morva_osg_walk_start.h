#pragma once

// Where a pass over the parts of a scene starts: at its root, or, if the root is a geometry itself,
// at a group over a stand-in that shows the same core, so that the root stays where it is.
//
//     const walk_start start(root);
//     getGeometryNodes(start.get(), nodes, false);   // the stand-in is valid as long as `start`
//
// Without it getGeometryNodes() makes the stand-in, for a caller that keeps the list; such a one
// stays alive, and its core with it.

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>

namespace morva::osg {

/// For a node that is a geometry itself: a group over a node that shares its core. Null for others.
inline ::osg::NodePtr newStandIn(const ::osg::NodePtr& node) {
    if (geometryOf(node) == ::osg::NullFC)
        return ::osg::NullFC;
    fresh<::osg::NodePtr> top(newGroupNode());
    fresh<::osg::NodePtr> shown(newNodeWith(node->getCore()));
    addChildTo(top.get(), shown.get());
    shown.release();
    return top.release();
}

/// Holds the stand-in of a root. It goes with this, unless a pass took it elsewhere.
class walk_start {
  public:
    explicit walk_start(const ::osg::NodePtr& root) : walk_start(root, newStandIn(root)) {}
    /// With a stand-in of the caller's; null: none.
    walk_start(const ::osg::NodePtr& root, const ::osg::NodePtr& top)
        : given_(root), stand_in_(top) {}
    const ::osg::NodePtr& get() const {
        return stand_in_.get() == ::osg::NullFC ? given_ : stand_in_.get();
    }

  private:
    ::osg::NodePtr given_;
    fresh<::osg::NodePtr> stand_in_;
};

} // namespace morva::osg
