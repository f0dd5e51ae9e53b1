#pragma once

// What optTree() does for a parameter string, told before it does it.
//
//     const run_plan plan = planOf("onegeometry(true),idmapinroot(true)");
//     plan.merges                        true
//     plan.tree.max_elements             2000000
//     plan.setup.merge.alphageometry     true
//     plan.tracks_ids, plan.idmap_file   true, none
//
// optTree() carries out this record and looks at no parameter besides; a host that wants to know
// what will become of a scene, or to check what became of it, reads the same one. It tells what is
// asked for, never what a run came to. A stage stands here by what switches it on and by the
// arguments that it gets.
//
// Plain values, no state, any thread.

#include <optional>
#include <string>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_limits.h>
#include <morva/core/morva_osg_params.h>
#include <morva/textures/morva_osg_atlas_options.h>
#include <morva/trees/kd_records.h>

namespace morva::osg {

/// Shots of the rays of interior removal, which no part may slip through, and of hulls.
constexpr int gutout_shots = 15, hull_shots = 3;

/// A run: its options and what follows from them.
struct run_plan {
    /// Every option as it holds in the run, where one key changes what another one asked for:
    /// `cacheopt` gives way to a `maxtris` above 10, `onegeometry` sets `maxtris`, `alphageometry`
    /// and `mostusedmaterial`. The merge pass is silent, and its `idmap` is not empty exactly if
    /// `tracks_ids`.
    optTree_setup setup;

    /// For the empty string: optTreeAuto(), which sees for itself. The rest of this says nothing.
    bool is_automatic = false;
    bool merges = false;                      ///< mergeGeo() makes a new tree
    kd_build_setup tree;                      ///< given to it
    unsigned int cache_entries = cache_limit; ///< of one property of a core, with `cacheopt`
    bool builds_hierarchy = false; ///< buildSceneHierarchy() makes a new tree of what there is
                                   ///< then: without a merge, of what a merge would take

    /// The merge stage puts cores into cache order: `cacheopt`, or a hull is built, which asks for
    /// it whatever the key says, so that cores are as large as groups and `maxtris` bounds none.
    bool orders_cache = false;

    bool removes_parts = false; ///< parts that nobody sees go, as a whole
    bool builds_hull = false;   ///< single triangles go
    /// Images go into atlases; triangles are cut there and not by the merge, which leaves
    /// coordinates alone then.
    std::optional<atlas_options> atlas;

    bool tracks_ids = false; ///< output vertices tell their input node, if the run merges
    std::string idmap_file;  ///< the ID map's file, with its extension; empty: none
};

/// The plan of `optTree(root, parameters)`, whatever the root is.
MORVA_API run_plan planOf(std::string parameters);

} // namespace morva::osg
