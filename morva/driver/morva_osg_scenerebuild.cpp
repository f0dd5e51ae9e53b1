#include <morva/driver/morva_osg_scenerebuild.h>

#include <mutex>
#include <new>
#include <utility>
#include <vector>

#include <OpenSG/OSGMaterialMergeGraphOp.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_scene_rules.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_help.h>
#include <morva/driver/morva_osg_hierarchy_stage.h>
#include <morva/driver/morva_osg_run_plan.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/driver/morva_osg_scene_placement.h>
#include <morva/idmap/morva_osg_idmap_file.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/merge/morva_osg_geomerge_stages.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>
#include <morva/textures/morva_osg_scene_atlas.h>

// The plan of a run and what carries it out stand together: a stage says in planOf() what follows
// from its key, and is called where its turn is.

namespace morva::osg {

namespace {

/// Triangles per core where one geometry is wanted.
constexpr unsigned int one_geometry_limit = 2000000;
/// Triangles per core up to which the cache stage stays.
constexpr unsigned int cache_keeps_limit = 10;

atlas_options atlasOf(const optTree_setup& setup) {
    atlas_options options;
    options.textureSize = setup.maxtexturesize;
    options.texcoords = static_cast<unsigned int>(setup.merge.texcoords);
    options.optimizetc = static_cast<unsigned int>(setup.merge.optimizetc);
    options.exact = setup.exactatlas;
    options.padding = setup.atlaspadding;
    return options;
}

} // namespace

run_plan planOf(std::string parameters) {
    run_plan plan;
    plan.is_automatic = parameters.empty();
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
    plan.removes_parts = setup.ambientgutout;
    plan.builds_hull = setup.buildhull || setup.buildhullwithcolors;
    plan.orders_cache = merge.cacheopt || plan.builds_hull;
    plan.merges = setup.maxtris != 0 || plan.orders_cache;
    plan.tree.max_elements = setup.maxtris;
    plan.tree.max_depth = tree_depth_limit;
    plan.builds_hierarchy = !merge.flat;
    if (setup.maxtexturesize != 0)
        plan.atlas = atlasOf(setup);

    plan.tracks_ids = !merge.idmap.empty() || setup.idmapinroot;
    if (!merge.idmap.empty())
        plan.idmap_file = merge.idmap + ".json";
    else if (plan.tracks_ids)
        merge.idmap = "metaOnly"; // the merge pass tracks names for a name; it is never a file's
    return plan;
}

namespace {

void printSetting(const char* label, const std::string& value) { say({label, value}); }
void printSetting(const char* label, int value) { printSetting(label, std::to_string(value)); }

void printSettings(const mergeGeo_setup& setup) {
    printSetting("Cacheopt:       ", setup.cacheopt);
    printSetting("CalcNormals:    ", setup.calcnormals);
    printSetting("Flat:           ", setup.flat);
    printSetting("IDMAP:          ", "\"" + setup.idmap + "\"");
    printSetting("OPT:            ", setup.opt);
    printSetting("OptimizeTC:     ", setup.optimizetc);
    printSetting("TexCoords:      ", setup.texcoords);
    printSetting("ToWorld:        ", setup.toworld);
    printSetting("VertexColor:    ", setup.vertexcolor);
    printSetting("AddColorsTex:   ", setup.addcolorstex);
    printSetting("deleteUnusedTC: ", setup.deleteunusedtc);
    printSetting("mergeSameName:  ", setup.mergesamename);
    printSetting("alphaGeometry:  ", setup.alphageometry);
    printSetting("ignoreMaterial: ", setup.ignorematerial);
    printSetting("keepRenderFalse:", setup.keeprenderfalse);
}

/// Merges equal materials. The operation is kept for the rest of the process, as every caller's
/// materials may be known to it; the list makes that visible to leak checkers.
void mergeEqualMaterials(::osg::NodePtr& root) {
    static std::mutex mutex;
    static std::vector<::osg::MaterialMergeGraphOp*>& kept =
        *new std::vector<::osg::MaterialMergeGraphOp*>;

    auto* operation = new ::osg::MaterialMergeGraphOp("MaterialMerge");
    {
        const std::lock_guard<std::mutex> guard(mutex);
        kept.push_back(operation);
    }
    operation->traverse(root);
}

void runInputStages(const optTree_setup& setup, const ::osg::NodePtr& root, run_record& record) {
    if (setup.mostusedmaterial)
        reduceSceneMaterialsToOne(root);
    if (setup.removelod) {
        say({"Removing LOD parts."});
        removeLODParts(root);
    }
    if (setup.removeswitch) {
        say({"Removing Switch parts."});
        removeSwitchParts(root);
    }
    const unsigned int threads = threadsOf(setup.merge);
    if (setup.ambientgutout) {
        say({"Gut out model with ambient occlusion"});
        record.removed_parts = takeInteriorOff(root, gutout_shots, 0.0F, threads);
    }
    if (setup.ambientocclusion != 0) {
        say({"Adding ambient occlusion"});
        bakeOcclusion(root, setup.aoreplace, static_cast<int>(setup.ambientocclusion), threads);
    }
}

/// The hulls that are asked for, the second one of the first one; null for none.
::osg::NodePtr runHulls(const optTree_setup& setup, const ::osg::NodePtr& root) {
    fresh<::osg::NodePtr> hull(::osg::NullFC);
    if (setup.buildhull)
        hull.reset(hullOf(root, setup.merge, setup.maxtris, hull_shots, threadsOf(setup.merge)));
    if (setup.buildhullwithcolors)
        hull.reset(
            buildModelHullWithVertexColors(setup.buildhull ? hull.get() : root, setup.maxtris));
    return hull.release();
}

std::uint64_t shownTriangles(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(root, nodes, false);
    std::uint64_t triangles = 0;
    for (const ::osg::NodePtr& node : nodes)
        triangles += counttriangles(geometryOf(node));
    return triangles;
}

::osg::NodePtr runMerge(const run_plan& plan, const ::osg::NodePtr& root) {
    if (!plan.merges)
        return root;
    mergeGeo_setup setup = plan.setup.merge;
    setup.cacheopt = plan.orders_cache;
    if (plan.atlas) // coordinates lead into an atlas now
        setup.texcoords = setup.optimizetc = -1;
    printSetting("Merge Geometry. Cacheopt: ", setup.cacheopt);
    const ::osg::NodePtr result = mergeGeo(root, plan.tree, setup);
    getIDmapHandler().merged = true;
    return result;
}

/// What the run returns: `merged` itself, or its parts in a hierarchy.
::osg::NodePtr runHierarchy(const run_plan& plan, const ::osg::NodePtr& merged) {
    return plan.builds_hierarchy ? buildSceneHierarchy(merged, plan.merges) : merged;
}

/// Hands the ID map out, as far as it is asked for: to a file and to the root.
void runIdmap(const run_plan& plan, const ::osg::NodePtr& result) {
    if (!plan.tracks_ids)
        return;
    idmapHandler& handler = getIDmapHandler();
    handler.registerGeometryUsage(result);
    if (!plan.idmap_file.empty()) {
        say({"Write IDmap with ", std::to_string(handler.names.size()), " names."});
        handler.file = writeMapFile(plan.idmap_file, handler);
    }
    if (plan.setup.idmapinroot)
        addIDmapInfo(result);
}

/// Everything between taking the root off its parent and putting it back.
///
/// root  in and out: a hull takes its place
::osg::NodePtr runStages(::osg::NodePtr& root, const run_plan& plan, const scene_guard& guard,
                         run_record& record) {
    idmapHandler& handler = getIDmapHandler();
    handler.reset();
    if (plan.tracks_ids)
        handler.writeTree(root, 0);
    if (plan.setup.help)
        sayHelp();
    printSettings(plan.setup.merge);
    runInputStages(plan.setup, root, record);
    guard.after("stages of the input", root);
    if (plan.builds_hull) {
        root = runHulls(plan.setup, root);
        record.hull_triangles = shownTriangles(root);
    }
    handler.prefix = plan.setup.prefix;
    if (plan.atlas) {
        createTextureAtlas(root, *plan.atlas, record.atlas);
        guard.after("texture atlas", root);
    }

    const ::osg::NodePtr merged = runMerge(plan, root);
    fresh<::osg::NodePtr> made(merged != root ? merged : ::osg::NullFC); // goes with an exception
    guard.after("merge, input", root);
    guard.after("merge, result", merged);
    const ::osg::NodePtr result = runHierarchy(plan, merged);
    made.release();
    made.reset(result != root ? result : ::osg::NullFC);
    guard.after("hierarchy, input", root);
    guard.after("hierarchy, result", result);
    runIdmap(plan, result);
    made.release();
    return result;
}

/// Gives the parent of a scene its root back, or the hull in its place, however a run ends; a hull
/// that nobody gets is destroyed.
struct root_return {
    ::osg::NodePtr parent, input; ///< `parent` is null without one
    ::osg::NodePtr root;          ///< as the run leaves it
    ::osg::NodePtr result;        ///< null until the run is over

    ~root_return() {
        getIDmapHandler().releaseHeldLock();
        try {
            if (parent != ::osg::NullFC)
                addChildTo(parent, root);
            else if (root != input && root != result)
                const fresh<::osg::NodePtr> unwanted(root);
        } catch (const std::bad_alloc&) {
            // No room among the children: the root stays off its parent, with its caller.
        }
    }
};

} // namespace

::osg::NodePtr optTree(::osg::NodePtr root, std::string parameters) {
    run_record record;
    return optTree(root, std::move(parameters), record);
}

namespace {

/// What all roads begin with: the root comes off its parent, equal materials become one.
void begin(::osg::NodePtr& root, const scene_guard& guard) {
    say({"Optimizing Tree..."});
    const ::osg::NodePtr parent = root->getParent();
    if (parent != ::osg::NullFC)
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(root)));
    mergeEqualMaterials(root);
    guard.after("merge of equal materials", root);
}

} // namespace

::osg::NodePtr optTree(::osg::NodePtr root, std::string parameters, run_record& record) {
    record = {};
    const run_plan plan = planOf(std::move(parameters));
    if (plan.is_automatic) {
        record.automatic.emplace();
        return optTree(root, auto_options(), *record.automatic);
    }
    const ::osg::NodePtr parent = root->getParent();
    const scene_guard guard(root);
    begin(root, guard);
    // The optimised scene is what is returned, and not what goes back.
    root_return end{parent, root, root, ::osg::NullFC};
    end.result = runStages(end.root, plan, guard, record);
    return end.result;
}

::osg::NodePtr optTree(::osg::NodePtr root, const auto_options& options, auto_record& record) {
    const scene_guard guard(root);
    begin(root, guard);
    const ::osg::NodePtr result = optTreeAuto(root, options, record);
    guard.after("automatic road", result);
    return result;
}

} // namespace morva::osg
