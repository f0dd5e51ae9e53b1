#pragma once

// Roads that need no parameter string: a whole scene, one core, parts that are too large.
//
//     ::osg::NodePtr optimised = optTree(root, "");       merges equal materials, then
//     optTreeAuto()
//     ::osg::NodePtr parts = optGeometry(core, calcTrisPerGeometrycore(triangles), 1);
//     maxGeoIndexSize(root, 65534, 1, false);
//
//     optTreeAuto     nothing to be left alone   atlas of the images; merge in cache order
//                     hidden geometry, switch    optWithSkippedGeo(): merge in cache order; what
//                     material, cube texture     came out in cells, what was left alone behind it
//
// Run on the caller's thread and in its aspect. Two runs must not overlap: merging shares the ID
// map handler of the process.

#include <cstddef>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_params.h>
#include <morva/geosets/morva_osg_cell_rebuild.h>
#include <morva/textures/morva_osg_atlas_record.h>
#include <morva/trees/kd_records.h>

namespace morva::osg {

/// What can be asked of an automatic run. Plain values.
struct auto_options {
    bool exactatlas = false;       ///< nothing looks different in an atlas: see atlas_options and
                                   ///< cell_options
    unsigned int atlaspadding = 0; ///< texels around each image there, at most 64
    int numthreads = 1; ///< of merge and cells, see mergeGeo_setup; the result is the same
};

/// What an automatic run tells besides its result.
struct auto_record {
    // Of the scene as it came, geometry nodes:
    std::size_t hidden = 0;         ///< their own mask is 0
    std::size_t left_alone = 0;     ///< others with a switch material or a cube texture
    std::size_t below_switches = 0; ///< below switches and levels of detail that are not hidden
    bool has_images = false;        ///< some of the rest shows an image that an atlas can show

    /// optWithSkippedGeo(), because `hidden` or `left_alone` is not 0: hidden parts are gone, what
    /// was left alone and what is below switches is there. Else neither of these is in the result.
    bool with_skipped = false;
    atlas_record atlas;   ///< of the scene, if not `with_skipped`
    cell_record unmerged; ///< with it: cells of what the merge had left
    cell_record merged;   ///< and of what came out of it
};

/// What optTreeAuto() will see and do: the stages' parts of the record are empty. Reads the scene.
MORVA_API auto_record autoRoadOf(const ::osg::NodePtr& root);

/// Optimises a scene in the way that suits it.
///
/// root     null gives an empty group. With a parent, the caller must hold a reference of its own
/// returns  the new root, without a reference. Without geometry to be left alone the input stays,
///          but for transparent nodes that come out as they are, and for what the atlas stage
///          changes; else the input is used up: see optWithSkippedGeo()
/// prints   the help text, and what the stages say, to standard output
/// errors   std::bad_alloc of the atlas stage; others are lines on standard error
///
/// Without geometry to be left alone all of one material becomes one core in cache order, halved
/// while it has more than 65533 vertices; parts below switches and levels of detail are not in the
/// result. Else cells have up to 25000 triangles.
MORVA_API ::osg::NodePtr optTreeAuto(::osg::NodePtr root);

/// The same with all that can be asked for.
///
/// record  out: what was done; what it held goes
MORVA_API ::osg::NodePtr optTreeAuto(::osg::NodePtr root, const auto_options& options,
                                     auto_record& record);

/// Optimises a scene of which some geometry must be left alone, as shouldSkipNode() tells.
///
/// root             is used up: hidden parts go, and what draws nothing; what was merged leaves it;
///                  the rest comes behind the new parts, unless all of it is hidden. Null counts as
///                  an empty scene. For a geometry a node with its core, material, looks and
///                  children stands in
/// setup, kd        of the merge; `max_elements` bounds the triangles of a cell as well
/// noTexCoordLimit  `setup.texcoords` counts as -1
/// dropRest         the rest stays where it is
/// returns          a new group, without a reference, of the cells and the rest; of one alone, that
/// prints           what the stages say to standard output
/// errors           those of the merge and of the cells are one line on standard error, and what
///                  the stage would have taken comes out as it is; std::bad_alloc beside them
///
/// All that was poured together is merged once more, cell by cell, in new cores: the cache order of
/// `setup.cacheopt` does not last. Where a node was poured its children take its place.
MORVA_API ::osg::NodePtr optWithSkippedGeo(::osg::NodePtr root, mergeGeo_setup setup,
                                           kd_build_setup kd, bool noTexCoordLimit, bool dropRest);

/// The same with all that can be asked for.
///
/// record  out: `unmerged` and `merged`
MORVA_API ::osg::NodePtr optWithSkippedGeo(::osg::NodePtr root, mergeGeo_setup setup,
                                           kd_build_setup kd, bool noTexCoordLimit, bool dropRest,
                                           const auto_options& options, auto_record& record);

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
