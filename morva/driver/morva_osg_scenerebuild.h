#pragma once

// The front door: a scene and a parameter string go in, the rebuilt scene comes out.
//
//     ::osg::NodePtr optimised = morva::osg::optTree(root, "opt(1),maxtris(5000),flat(true)");
//     addRefCP(optimised);
//
// Stages, in this order; each stands behind a key of the string:
//
//     equal materials merged            always
//     one material for all              mostusedmaterial, onegeometry
//     levels of detail, switches out    removelod, removeswitch
//     unseen parts out                  ambientgutout
//     occlusion baked in                ambientocclusion
//     hulls in the root's place         buildhull, buildhullwithcolors
//     images into atlases               maxtexturesize
//     geometry merged and cut           maxtris, cacheopt, onegeometry
//     parts in a hierarchy in space     flat(false)
//     ID map written to a file          idmap
//     ID map attached to the root       idmapinroot
//
// Runs on the caller's thread and in its aspect. Two runs must not overlap: they share the ID map
// handler of the process.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/driver/morva_osg_auto.h>
#include <morva/textures/morva_osg_atlas_record.h>

namespace morva::osg {

/// What a run tells besides its result.
struct run_record {
    atlas_record atlas;                          ///< empty without `maxtexturesize`
    std::size_t removed_parts = 0;               ///< taken off by interior removal
    std::optional<std::uint64_t> hull_triangles; ///< shown ones that a hull kept, if there is one
    std::optional<auto_record> automatic;        ///< of the empty string
};

/// Optimises a scene.
///
/// root        must not be null. With a parent, the caller must hold a reference of its own: the
///             root is off its parent during the run and goes back at the end
/// parameters  see optTree_setup for the keys and planOf() for what they do; unknown keys and bad
///             values are no errors. Empty: equal materials are merged, and optTreeAuto() does
///             the rest; the root stays off its parent for good
/// returns     the new root, without a reference of the library's, or `root` itself if no stage
///             built a new tree. The input tree stays; only transparent and hidden geometry that
///             is carried over leaves it, and all that optWithSkippedGeo() takes
/// prints      the settings and the stages to standard output
/// errors      std::bad_alloc of the stages that fire rays or make atlases; others that fail print
///             a line and hand on what they have. The root goes back to its parent all the same
MORVA_API ::osg::NodePtr optTree(::osg::NodePtr root, std::string parameters);

/// The same.
///
/// record  out: what it held goes, also with an exception
MORVA_API ::osg::NodePtr optTree(::osg::NodePtr root, std::string parameters, run_record& record);

/// The road of the empty string, with options.
///
/// record  out, as above
MORVA_API ::osg::NodePtr optTree(::osg::NodePtr root, const auto_options& options,
                                 auto_record& record);

} // namespace morva::osg
