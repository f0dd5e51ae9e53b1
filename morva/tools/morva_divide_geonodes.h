#pragma once

// Large geometry nodes become several small ones, in the place where they stood.
//
//     check_and_split        in two, again and again, until a part is small against a reference
//     split_Geometries       parts of at most so many triangles
//     split_GeometriesByIndex  cores of fewer than so many indices
//
// The triangles of a node are extracted as they lie, sorted by a kd-tree whose planes halve its
// box, and made into new cores, with new normals and without degenerate triangles. What comes in
// the place of the node keeps what it was:
//
//     body            becomes   body                 name, mask, attachments; a group core
//       lamp                      MG_4  MG_5         the parts, in the order of the tree
//                                 lamp               its own children
//                                 -                  its lines and points, if it had some
//
// A node without a parent stays and takes core and children of that one. Own children of geometry
// nodes are not looked at. The functions named divide...() do the same with options.
//
//     division_options options;
//     options.straddle_mode = 1;
//     divideByTriangles(root, 20000, false, options);   cut at the planes, with the old normals
//
// One thread; nobody else may edit the subtree meanwhile. A core that can't be made prints its
// line: check_and_split() goes on without that half, the others leave the node as it is. Exceptions
// of the trees pass, and the node is then whole.

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Whether a node has parts to draw: its core is a Geometry, of no derived type, and has positions,
/// lengths and types, at least one of each. False for null.
MORVA_API bool valid_volume(::osg::NodePtr node);

/// Halves the geometry nodes of a subtree as long as they are large against a reference, in world
/// space.
///
/// reference  size in x, y and z
/// limit      a node is halved if its size is more than `limit` times the reference on some axis;
///            a NaN of either is not more
/// maxDepth   nodes at this depth and below stay as they are; groups count, too
/// maxLevels  what becomes of a triangle across the plane: 1 cut, 2 in both halves, any other
///            whole on the side of its centre
/// opt        output level of the cores, see MakeGeoCore()
/// depth      of `node`; 0 for a whole operation
/// prints     "SubChild 1" or "SubChild 2" for a half that valid_volume() does not hold for; it is
///            taken out, and the other one is not halved any more
///
/// A node with all triangles on one side of the plane stays as it is.
MORVA_API void check_and_split(::osg::NodePtr node, ::osg::Vec3f reference, float limit,
                               unsigned int maxDepth, int maxLevels, int opt, unsigned int depth);

/// The same with the node's own size at the start as reference, and depth 0.
MORVA_API void check_and_split(::osg::NodePtr node, float limit, unsigned int maxDepth,
                               int maxLevels, int opt);

/// Divides the geometry nodes of a subtree into parts of at most `maxTriangles`, below groups that
/// follow the tree. Where it cuts no further, coincident triangles for one, parts are larger; a
/// node that comes to a single such part stays as it is.
///
/// maxTriangles  0 counts as 1
/// force         rebuilds nodes of so few triangles, too
/// opt           output level of the cores, see MakeGeoCore()
MORVA_API void split_Geometries(::osg::NodePtr node, unsigned int maxTriangles, bool force,
                                int opt);

/// Brings the geometry nodes of a subtree to at most `maxIndex` indices, by maxGeoIndexSize(): what
/// it does with siblings holds here. Nodes without indices get them first, in one core. A node
/// without a parent stays.
///
/// maxIndex  nodes with as many indices or more are handed to maxGeoIndexSize()
/// force     rebuilds nodes with fewer indices, too
/// opt       output level 1 to 3 of new cores; any other is 1. Those of later cuts have 2
/// prints    for each node with a core that it comes to, a line that says that the level is now 1,
///           true or not; and what maxGeoIndexSize() prints
MORVA_API void split_GeometriesByIndex(::osg::NodePtr node, unsigned int maxIndex, bool force,
                                       int opt);

/// What the divisions above have fixed. Published: with new normals, and with coordinates taken
/// off nodes that show no image.
struct division_options {
    int level = 1;         ///< output level of the cores, see MakeGeoCore()
    int straddle_mode = 3; ///< of triangles across a plane: 1 cut, else whole; for sizes 2: in both
    bool calcnormals = false; ///< new normals, crease angle 30 degrees, in place of the old ones
    bool clean_texcoords = false; ///< as of extract(): also off a core that other nodes share
    bool known_ids_only = true;   ///< vertices keep their IDs; false: they get new ones then
};

/// check_and_split() by options. Returns how many divisions it made.
MORVA_API unsigned int divideBySize(const ::osg::NodePtr& node, const ::osg::Vec3f& reference,
                                    float limit, unsigned int maxDepth,
                                    const division_options& options, unsigned int depth = 0);

/// split_Geometries() by options. Returns how many nodes it divided or rebuilt.
MORVA_API unsigned int divideByTriangles(const ::osg::NodePtr& node, unsigned int maxTriangles,
                                         bool force, const division_options& options);

/// split_GeometriesByIndex() by options, without its line; triangles stay whole. Returns how many
/// cores it rebuilt and how many cuts followed.
MORVA_API unsigned int divideByIndices(const ::osg::NodePtr& node, unsigned int maxIndex,
                                       bool force, const division_options& options);

} // namespace morva::osg
