#pragma once

// Passes that need no parameter string: parts cut to a size, one core or a whole scene.
//
//     ::osg::NodePtr parts = optGeometry(core, calcTrisPerGeometrycore(triangles), 1);
//     maxGeoIndexSize(root, 65534, 1, false);
//
// Run on the caller's thread and in its aspect. Two runs must not overlap: merging shares the ID
// map handler of the process.

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Merges one geometry core and cuts it to cores of at most `limit` triangles.
///
/// geometry  is read alone; null gives an empty group
/// opt       output level 0 to 3
/// returns   what mergeGeo() gives for a node with this core, without a reference
/// prints    as a silent mergeGeo()
MORVA_API ::osg::NodePtr optGeometry(::osg::GeometryPtr geometry, unsigned int limit, int opt);

/// Cuts each geometry below `node` with more than `limit` indices into smaller ones, as long as
/// there is one that can be cut.
///
/// A cut halves the elements in space. What comes out stands in one new node with name, mask and
/// attachments of the old one, behind the last child of its parent; the old one leaves, and the
/// children that it had stand in front of the new one. So the children of a switch change places.
/// What stays as it is: geometry that mergeGeo() would not merge (hidden, to be left alone,
/// transparent), that loses a primitive in it (points are not merged), or that does not come out
/// in two cores of one kind (triangles, lines or points) with fewer of that kind each; and what
/// stands below a geometry.
///
/// node     null: none. A geometry with a parent is cut first, and if that could be done all that
///          its parent holds comes after it; without a parent it stays
/// limit    entries of the index property; geometry without indices stays
/// opt      output level of `node` itself; all others have 2
/// ignored  is not read
/// returns  the number of cuts
/// prints   two lines of mergeGeo() for each geometry that it tries to cut
/// errors   those of mergeGeo() are lines on standard error, and the geometry stays; std::bad_alloc
///          beside it, with each geometry either there or cut
/// cost     linear in what is cut and in the nodes; no deep stack, however deep or wide the tree
MORVA_API unsigned int maxGeoIndexSize(::osg::NodePtr node, unsigned int limit, int opt,
                                       bool ignored);

/// Triangles that a geometry core should have in a scene with so many: 10000 up to 100000, 25000
/// above 999999, and a line between (float arithmetic).
MORVA_API unsigned int calcTrisPerGeometrycore(unsigned int triangles);

} // namespace morva::osg
