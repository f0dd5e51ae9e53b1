#include <morva/driver/morva_osg_run_plan.h>

namespace morva::osg {

namespace {

/// Triangles per core where one geometry is wanted.
constexpr unsigned int one_geometry_limit = 2000000;
/// Triangles per core up to which the cache stage makes the cores instead.
constexpr unsigned int cache_keeps_limit = 10;

} // namespace

run_plan planOf(std::string parameters) {
    run_plan plan;
    plan.runs = !parameters.empty();
    plan.setup = optTree_setup(parseOptTreeParams(parameters));
    optTree_setup& setup = plan.setup;
    mergeGeo_setup& merge = setup.merge;

    merge.silent = true;
    if (setup.maxtris > cache_keeps_limit)
        merge.cacheopt = false;
    if (setup.onegeometry) {
        merge.alphageometry = true;
        setup.mostusedmaterial = true;
        // Behind the test of maxtris: one geometry keeps the cache stage that was asked for.
        setup.maxtris = one_geometry_limit;
    }
    plan.merges = setup.maxtris != 0 || merge.cacheopt;
    plan.tree.max_elements = setup.maxtris;
    plan.tree.max_depth = tree_depth_limit;
    plan.changes_triangles = setup.ambientgutout || setup.buildhull || setup.buildhullwithcolors ||
                             setup.maxtexturesize != 0;

    plan.tracks_ids = !merge.idmap.empty() || setup.idmapinroot;
    if (!merge.idmap.empty())
        plan.idmap_file = merge.idmap + ".json";
    else if (plan.tracks_ids)
        merge.idmap = "metaOnly"; // the merge pass tracks names for a name; it is never a file's
    return plan;
}

} // namespace morva::osg
