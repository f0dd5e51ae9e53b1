#pragma once

// A scene built anew from a tree over its geometry nodes: what lies together becomes one cell, and
// each cell a few cores with a texture atlas of its own.
//
//     nodes        a b c d e f g                     tree over whole nodes, no more than
//     cells        (a b) (c) (d e f g)               `max_elements` triangles each
//     cell         group( core of all that has an image, group( the rest, by material ) )
//     flat         group( group( up to 128 cores ), group( ... ), ... )
//     not flat     groups in the image of a second tree, over the new cores
//
//     NodePtr rebuilt = buildSceneTree(root, {25000, 100}, true, 1, -1, false);
//
// A tree's leaves stand for places in the list of nodes, not for what the tree put there: every
// node comes into exactly one cell, but not always beside its nearest neighbours.
//
// The source nodes leave their tree; what a cell cannot take stays. Images come together on the
// calling thread; cells are then built on several, if asked for. Must not overlap with a merge.

#include <cstddef>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/textures/morva_osg_atlas_record.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// How cells are built. Plain values.
struct cell_options {
    bool flat = true;      ///< packs of at most 128 cores; else a hierarchy over them
    int opt = 1;           ///< output level, see MakeGeoCore()
    int optimizetc = -1;   ///< triangles whose coordinates reach higher are cut; 0 or below: none
    bool hasIdMap = false; ///< IDs are kept where a single cell is above the limit and cut
    /// Nothing looks different: textured geometry of a cell comes out as one core per material,
    /// whose image alone is another one, and what an atlas can't show keeps its own. Else it is one
    /// core in a plain material of the atlas; colours, blending and wrapping go.
    bool exact = false;
    /// With `exact`: texels of its own picture around each image in an atlas, at most 64.
    unsigned int padding = 0;
    /// Threads that build cells at a time, the caller's among them. The result and what is said
    /// are those of one thread. Before the ID map's merge there is one, since IDs are given out.
    int numthreads = 1;
};

/// What buildSceneTree() did.
struct cell_record {
    std::size_t nodes = 0;    ///< geometry nodes below the root
    std::size_t elements = 0; ///< of these in cells; the others had no triangles and stay
    std::size_t cells = 0;
    /// The atlases of the cells, and why the other images are in none. Without `exact` places are
    /// those before an atlas is scaled to powers of two.
    atlas_record textures;
};

/// Rebuilds a scene in cells.
///
/// root        the nodes that getGeometryNodes(root, nodes, false) lists; null: null
/// kd          `max_elements` (0 counts as 1) bounds the triangles of a cell; the rest is not read
/// flat, opt, optimizetc, hasIdMap
///             see cell_options
/// returns     a new root without reference; null without geometry nodes
/// prints      progress and statistics to standard output
/// errors      std::bad_alloc, also if a core came out short of triangles; all nodes then stay
///
/// Nodes with triangles leave the tree by deleteNode() when all cells stand. Their lines and points
/// stay: a node with those beside triangles keeps its place, in a core of its own. Cells are in
/// world coordinates, and normals are made anew, crease angle 30 degrees, but for what has no image
/// in a cell of few enough triangles. Geometry gets the material that it shows before anything
/// else, on a copy of a core that is used elsewhere, too.
MORVA_API ::osg::NodePtr buildSceneTree(::osg::NodePtr root, kd_build_setup const& kd, bool flat,
                                        int opt, int optimizetc, bool hasIdMap);

/// The same with all that can be asked for.
///
/// record  out: what was done; what it held goes
MORVA_API ::osg::NodePtr buildSceneTree(::osg::NodePtr root, kd_build_setup const& kd,
                                        const cell_options& options, cell_record& record);

/// Goes down a tree over the elements of a scene geoset as long as there are `limit` triangles or
/// more below a node, and builds a cell, by buildGeo(), where it ends. A leaf with more is cut,
/// core by core, by trees of their own with at most `limit` triangles in a leaf.
///
/// scene     with geosets; the cores of its elements are used up
/// node      of the tree, 0 for all of it
/// limit     0 counts as 1
/// hasIdMap  cores that are cut keep IDs; of no use unless `node` itself is above the limit and
///           goes no further
/// returns   a new group, without reference, as deep as the tree
template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
MORVA_API ::osg::NodePtr
SplitbyTrisinCell(const NodeTree& tree, osg_scene_geoset<Tree, Setup, Geoset>& scene, int node,
                  unsigned int limit, int opt, int optimizetc, bool hasIdMap);

/// Builds one cell of the elements whose numbers are the places of a tree node's leaves in the
/// tree's indices.
///
/// scene    as above
/// returns  a new group, without reference: the textured core, if there is one, and the merged rest
/// prints   a line for an element that there is not; the last one is taken in its place
template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
MORVA_API ::osg::NodePtr buildGeo(const NodeTree& tree,
                                  osg_scene_geoset<Tree, Setup, Geoset>& scene, int node, int opt,
                                  int optimizetc);

} // namespace morva::osg
