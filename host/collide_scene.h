#pragma once

// Two assemblies of a scene, set against each other.
//
//     engine       A block, B rest     block out of the scene, and a group above what is left
//       block      A block, B cover    their nodes
//       cover      poses of B          B's node out of the scene, below a matrix of its own
//
// The scene is rearranged for that, and every node stays at its place in the world.

#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGTransform.h>

namespace morva::host {

/// Whether one node is the other, or stands below it.
bool overlaps(const ::osg::NodePtr& a, const ::osg::NodePtr& b);

/// A new group above a scene's root, so that it has the world's coordinates.
::osg::NodeRefPtr groupAbove(const ::osg::NodePtr& root);

/// Takes a node off its parent and puts it below a root of its own, at its place in the world.
/// Returns that root. The node is not the scene's root.
::osg::NodeRefPtr takenOut(const ::osg::NodePtr& node);

/// A node whose place in the world is set again and again.
class posed_node {
  public:
    /// Takes the node out, with a core of its own in place of one that places it.
    explicit posed_node(const ::osg::NodePtr& node);

    /// Sets the matrix that takes the node's coordinates to the world.
    void moveTo(const ::osg::Matrix& to_world);

  private:
    ::osg::NodeRefPtr root_;
    ::osg::TransformPtr place_; ///< core of the root
};

} // namespace morva::host
