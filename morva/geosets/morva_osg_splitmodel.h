#pragma once

// The way back from a sorted geoset to the scene: the cells of a kd-tree become geometry cores.
//
// A subtree's objects stand in one run of the tree's index array, so every cut of the tree is a
// cut of that array, and each piece is one call of MakeGeoCore:
//
//     nodes      0 ( 1 ( 2  3 )  4 )          left and right child in brackets
//     indices          7 2 | 5 | 0 1           first and count of node 1: 0 and 3
//                     `-------' `---'
//     limit 3    G ( MG_0 7 2 5   MG_1 0 1 )   Split(tree, geoset, 0, 0, 3, NullFC, 1, false)
//
// Returned nodes carry no reference; the caller takes them over. The geoset is only read. The
// shared thing is the counter of names, under the lock of the ID map, or not even that where names
// wait (late_names): any number of threads may work on trees and geosets of their own.
//
// All functions are there for kd_tree<float> with osg_geoset, osg_line_geoset and
// osg_point_geoset.

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// Makes a geometry node, named "MG_" and a number, of a run of sorted objects.
///
/// first, count  range in `tree.indices`; what lies past its end is left out
/// opt           0 unindexed, 1 one index, 2 one index per property, 3 strips by the scene graph;
///               any other prints one line and gives 0. Lines and points at 3 only share vertices
/// calcnormals   replaces the normals by calculated ones, crease angle 30 degrees; triangles only
/// returns       the node; on any exception, after one line on standard error, an empty geometry
///               node without name
///
/// An object number past the geoset's end is passed over, after two lines on standard output.
/// Lengths and indices are stored in 16 bits where they fit: up to 65534 entries.
template <typename T, typename G>
MORVA_API ::osg::NodePtr MakeGeoCore(T const& tree, G const& geoset, unsigned int first,
                                     unsigned int count, int opt, bool calcnormals);

/// Makes two geometry nodes, of the objects below the two children of a tree node, in a group.
template <typename T, typename G>
MORVA_API ::osg::NodePtr Node_to_2GeoCores(T const& tree, G const& geoset, int node, int opt,
                                           bool calcnormals);

/// Cuts the objects below a tree node into `parts` geometry nodes or, with `parts` 0, into as
/// many as `limit` objects each need.
///
/// returns  a group; for 1 part or a leaf the geometry node itself, without a group above it
///
/// Parts are shared out in proportion to the objects, see calcleftpart(). A cell of more objects
/// than `limit` is one node if the tree cuts no further.
template <typename T, typename G>
MORVA_API ::osg::NodePtr Make_N_GeometryCores(T const& tree, G const& geoset, int node, int parts,
                                              unsigned int limit, int opt, bool calcnormals);

/// Make_N_GeometryCores(), with `limit` alone in charge if the tree has fewer leaves than `parts`.
///
/// model  a node whose core is a MaterialGroup lends that core to the result, in the place of the
///        core that it has; null for none
template <typename T, typename G>
MORVA_API ::osg::NodePtr Split(T const& tree, G const& geoset, int node, int parts,
                               unsigned int limit, ::osg::NodePtr model, int opt, bool calcnormals);

/// Share of `n` parts that goes to the left of `l` and `r` objects: 0 without objects on the left,
/// all without objects on the right, else in proportion, rounded, and never all or nothing. With
/// `n` 1 and objects on both sides it is 1.
MORVA_API int calcleftpart(unsigned int l, unsigned int r, int n);

} // namespace morva::osg
