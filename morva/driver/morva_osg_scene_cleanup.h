#pragma once

// Passes that cut parts out of a tree, collapse it or mend its names.
//
//     removeSwitchParts     switches give way to the child they show
//     removeLODParts        levels of detail give way to the finest one
//     removeEmptyParts      groups without children go, bottom up
//     removeInvisibleParts  geometry whose material is fully transparent goes
//     removeNonGeoParts     what holds nothing to draw goes
//     RemoveGroupNodes      groups that only pass through go
//     RemoveTransforms      transforms become plain groups
//
// All walk by recursion over the children, as deep as the tree, on the caller's thread and in its
// aspect. A node that is taken off its parent is destroyed unless somebody else references it.
// A null node is accepted wherever nothing else is told. None may run while a merge runs.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Takes the node off its parent, and every ancestor that this leaves without children, up to the
/// first that keeps a child or to the root, which stays. A node without a parent stays.
MORVA_API void deleteNode(::osg::NodePtr node);

/// Replaces every switch below `node` by the child that it shows. The child goes to the end of
/// the parent's list. A switch that shows nothing, everything or a child that it does not have
/// goes with all that hangs below it.
///
/// returns  whether a node was replaced or removed; true also for a switch at the root, which
///          stays in place whatever it shows
MORVA_API bool removeSwitchParts(::osg::NodePtr node);

/// Replaces every level-of-detail node below `node` by its first child, which goes to the end of
/// the parent's list; one without children goes. Such a node at the root stays as it is.
///
/// returns  as removeSwitchParts()
MORVA_API bool removeLODParts(::osg::NodePtr node);

/// Takes off every node without children whose core is a group of any kind, transforms included,
/// bottom up. If `node` itself is left empty it goes too, and the pass goes on above it. The root
/// and geometry stay.
MORVA_API void removeEmptyParts(::osg::NodePtr node);

/// Takes off geometry whose diffuse alpha is below 0.01, and groups of nothing else.
///
/// returns  whether the whole subtree is invisible; nothing is taken off then, since that is for
///          the parent to do
/// prints   one line per invisible geometry
MORVA_API bool removeInvisibleParts(::osg::NodePtr node);

/// Takes off what holds no geometry with primitives. Geometry counts by its first primitive's
/// length; a switch or level of detail is kept whole.
///
/// returns  whether the whole subtree is removable; nothing is taken off then
MORVA_API bool removeNonGeoParts(::osg::NodePtr node);

/// Takes out nodes that only pass through: a plain group that is an only child gives its children
/// to its parent node, and a plain group with one other child gives way to that child. A group
/// root with one other child takes over its core; if the child has children, these too, and its
/// mask, name and attachments. Transforms stay.
MORVA_API void RemoveGroupNodes(::osg::NodePtr node);

/// What becomes of groups below switches and levels of detail: a collapse changes the places of
/// their children, and with them what is shown.
enum class below_choices { collapse, stay };
/// The same with a choice; RemoveGroupNodes() collapses there, too.
void removeGroupNodes(::osg::NodePtr node, below_choices below);

/// Replaces the core of every transform by a new plain group. Positions stay as they are.
MORVA_API void RemoveTransforms(::osg::NodePtr node);

/// Deletes, as deleteNode(), every node with a traversal mask of 0. `node` must not be null.
MORVA_API void deleteTravMaskZeroNodes(::osg::NodePtr node);

/// Appends "_0", "_1", ... to the names that at least two nodes bear, in walk order, the first
/// bearer included. With `geometryOnly` the others of that name are neither renamed nor counted.
MORVA_API void RenameMultipleNodeNames(::osg::NodePtr node, bool geometryOnly);

/// Gives every geometry node at the end of a path the last of `names`; no names, no change.
MORVA_API void nameGeoNodes(::osg::NodePtr node, std::vector<std::string> names);

} // namespace morva::osg
