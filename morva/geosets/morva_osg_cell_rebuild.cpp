#include <morva/geosets/morva_osg_cell_rebuild.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_params.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/geosets/morva_osg_cell_sources.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/idmap/morva_osg_late_names.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/merge/morva_osg_helpers.h>
#include <morva/merge/threadHandler.h>
#include <morva/textures/morva_osg_cell_textures.h>
#include <morva/trees/kd_strategies.h>
#include <morva/trees/tree_ranges.h>

namespace morva::osg {

namespace {

constexpr std::size_t pack_size = 128;

kd_build_setup wholeElements(unsigned int max_elements, unsigned int max_depth) {
    return {max_elements, max_depth, 3, 1.0F, 2.0F, 0.95F, false};
}

void addNew(const ::osg::NodePtr& parent, const ::osg::NodePtr& child) {
    if (child == ::osg::NullFC)
        return;
    fresh<::osg::NodePtr> made(child);
    addChildTo(parent, made.get());
    made.release();
}

/// Triangles below a node that was made here, as deep as a tree is.
std::uint64_t trianglesIn(const ::osg::NodePtr& made) {
    std::uint64_t sum = getNumberOfTriangles(made);
    for (::osg::UInt32 i = 0; made != ::osg::NullFC && i < made->getNChildren(); ++i)
        sum += trianglesIn(made->getChild(i));
    return sum;
}

/// What makes cores ends with a line where memory runs out, and sources must not go then.
///
/// errors  std::bad_alloc if fewer triangles came out than went in
void requireTriangles(const ::osg::NodePtr& made, std::uint64_t wanted) {
    if (trianglesIn(made) < wanted)
        throw std::bad_alloc();
}

/// A cell, from the way down to its contents.
struct planned_cell {
    int node = 0;              ///< of the tree
    ::osg::NodePtr group;      ///< that takes it in
    bool is_regrouped = false; ///< above the limit
    bool keeps_ids = false;    ///< when regrouped
    cell_textures textures;
    fresh<::osg::NodePtr> built{::osg::NullFC};
    late_names names; ///< where it is built beside others, as the next one
    held_texts texts;
};

/// The way down a tree over elements, and what is built where it ends.
class cell_builder {
  public:
    /// uses_up  cores of elements go as soon as they are in a cell
    cell_builder(const kd_tree<float>& tree, kd_scene_geoset& scene, unsigned int limit,
                 const cell_options& options, bool uses_up, cell_record& record)
        : tree_(tree), scene_(scene), limit_(std::max(limit, 1U)), options_(options),
          uses_up_(uses_up), record_(record) {}

    /// As SplitbyTrisinCell().
    ::osg::NodePtr split(int node, bool hasIdMap) const {
        std::deque<planned_cell> cells;
        fresh<::osg::NodePtr> result(plan(node, hasIdMap, cells));
        if (options_.numthreads > 1 && cells.size() > 1 && getIDmapHandler().merged)
            buildSideBySide(cells);
        else
            buildInTurn(cells);
        return result.release();
    }

    /// As buildGeo().
    ::osg::NodePtr build(int node) const {
        planned_cell cell;
        cell.node = node;
        collectTextures(cell);
        return contentsOf(cell);
    }

  private:
    /// Groups over the cells below a tree node, and the cells in their order.
    ::osg::NodePtr plan(int node, bool hasIdMap, std::deque<planned_cell>& cells) const {
        fresh<::osg::NodePtr> result(newGroupNode());
        const unsigned int triangles = trianglesBelow(node);
        std::uint64_t left = 0, right = 0;
        if (limit_ <= triangles && has_node(tree_, static_cast<std::uint64_t>(node)) &&
            children_of(tree_, static_cast<std::uint64_t>(node), left, right)) {
            for (const std::uint64_t child : {left, right}) {
                if (trianglesBelow(static_cast<int>(child)) != 0)
                    addNew(result.get(), plan(static_cast<int>(child), false, cells));
            }
            return result.release();
        }
        planned_cell& cell = cells.emplace_back();
        cell.node = node;
        cell.group = result.get();
        cell.is_regrouped = limit_ < triangles;
        cell.keeps_ids = hasIdMap;
        return result.release();
    }

    void buildInTurn(std::deque<planned_cell>& cells) const {
        for (planned_cell& cell : cells) {
            collectTextures(cell);
            addNew(cell.group, wholeCell(cell));
        }
    }

    /// First the images, on this thread: what one cell shows of them can depend on those before.
    /// Then cells on several threads, and last all that goes by their order.
    void buildSideBySide(std::deque<planned_cell>& cells) const {
        const text_end said{cells};
        for (planned_cell& cell : cells) {
            const held_texts::scope later(cell.texts);
            collectTextures(cell);
        }
        threadHandler handler("MORVA_CELLS", static_cast<unsigned int>(options_.numthreads) - 1);
        handler.noMoreTasks(); // all places are for helpers of this thread
        task_helpers helpers(handler);
        const auto buildOne = [&](std::size_t number) {
            planned_cell& cell = cells[number];
            const held_texts::scope later(cell.texts);
            const late_names::scope waits(&cell.names);
            cell.built.reset(wholeCell(cell));
        };
        helpers.share(cells.size(), buildOne);
        for (planned_cell& cell : cells) {
            cell.texts.give();
            addChildTo(cell.group, cell.built.get());
            cell.built.release();
            cell.names.give();
        }
    }

    /// Says what cells still have to say when building ends early.
    struct text_end {
        std::deque<planned_cell>& cells;
        ~text_end() {
            try {
                for (planned_cell& cell : cells)
                    cell.texts.give();
            } catch (...) { // of the sink: nobody is left to tell
            }
        }
    };

    cell_run runOf(const planned_cell& cell) const {
        const index_range range = range_below(tree_, static_cast<std::uint64_t>(cell.node));
        return {scene_, range.first, range.count};
    }

    void collectTextures(planned_cell& cell) const {
        ++record_.cells;
        const cell_run run = runOf(cell);
        cell.textures = options_.exact ? textureCellExactly(run, options_.optimizetc,
                                                            options_.padding, record_.textures)
                                       : textureCell(run, options_.optimizetc, record_.textures);
    }

    ::osg::NodePtr contentsOf(const planned_cell& cell) const {
        const cell_run run = runOf(cell);
        fresh<::osg::NodePtr> result(newGroupNode());
        for (const textured_objects& textured : cell.textures.textured)
            addNew(result.get(), texturedNode(run, textured));
        addNew(result.get(), mergedNode(run, cell.textures.plain));
        return result.release();
    }

    ::osg::NodePtr wholeCell(const planned_cell& cell) const {
        fresh<::osg::NodePtr> contents(contentsOf(cell));
        if (cell.is_regrouped)
            contents.reset(regrouped(contents.get(), cell.keeps_ids));
        return contents.release();
    }

    unsigned int trianglesBelow(int node) const {
        return tree_.node_count == 0 ? 0 : getNumberOfTrianglesInSceneGeoset(tree_, scene_, node);
    }

    void useUp(std::int64_t element) const {
        if (uses_up_)
            scene_.geosets[element].clear(); // its fields hold the properties, too
    }

    /// All that is shown in one material as one geometry.
    ::osg::NodePtr texturedNode(const cell_run& run, const textured_objects& textured) const {
        osg_geoset geoset;
        geoset.lean = true;
        std::uint64_t triangles = 0;
        for (const std::size_t object : textured.objects)
            triangles += scene_.geosets[run.elementQuietly(object)].size;
        geoset.vertex_capacity = 3 * triangles;
        extract_options options;
        options.to_world = true;
        options.clean_texcoords = true;
        for (const std::size_t object : textured.objects) {
            const std::int64_t element = run.elementQuietly(object);
            const fresh<::osg::NodePtr> node(newNodeWith(scene_.geosets[element].geometry.get()));
            useUp(element);
            extract(node.get(), geoset, options);
        }
        geoset.setup();
        kd_tree<float> tree;
        compile(geoset, tree, wholeElements(5, 0), kd_strategy_median());
        geoset.dropExtents();
        fresh<::osg::NodePtr> made(
            Split(tree, geoset, 0, 1, 0, ::osg::NodePtr(), options_.opt, true));
        requireTriangles(made.get(), triangles);
        giveMaterial(geometryOf(made.get()), textured.material.get());
        return made.release();
    }

    /// The others, merged by their materials; null if there are none.
    ::osg::NodePtr mergedNode(const cell_run& run, const std::vector<std::size_t>& objects) const {
        fresh<::osg::NodePtr> plain(newGroupNode());
        std::vector<::osg::NodePtr> nodes;
        std::uint64_t triangles = 0;
        for (const std::size_t object : objects) {
            const std::int64_t element = run.element(object);
            if (element < 0)
                continue;
            triangles += scene_.geosets[element].size;
            nodes.emplace_back();
            nodes.back() = newNodeWith(scene_.geosets[element].geometry.get());
            addNew(plain.get(), nodes.back());
            useUp(element);
        }
        if (nodes.empty())
            return ::osg::NullFC;
        mergeGeo_setup setup;
        setup.silent = true;
        setup.opt = options_.opt;
        if (options_.exact)
            setup.optimizetc = -1; // coordinates that an image is not repeated for stay
        fresh<::osg::NodePtr> merged(mergeGeo(plain.get(), wholeElements(64000, 0), setup));
        for (::osg::NodePtr& node : nodes) {
            if (shouldSkipNode(node)) // the merge leaves it where it is
                addChildTo(merged.get(), node);
            if (node->getParent() != plain.get()) // itself, as what is transparent
                reportWhole(geometryOf(node));
        }
        requireTriangles(merged.get(), triangles);
        return merged.release();
    }

    /// The geometry of a cell, each cut by a tree of its own.
    ::osg::NodePtr regrouped(const ::osg::NodePtr& cell, bool hasIdMap) const {
        fresh<::osg::NodePtr> group(newGroupNode());
        std::vector<::osg::NodePtr> nodes;
        getGeometryNodes(cell, nodes, false);
        for (const ::osg::NodePtr& node : nodes) {
            osg_geoset geoset;
            geoset.lean = true;
            extract(node, geoset, true, true, hasIdMap, true, true);
            kd_tree<float> tree;
            compile(geoset, tree, wholeElements(limit_, 30), kd_strategy_ObjMedian());
            geoset.dropExtents();
            fresh<::osg::NodePtr> made(
                Split(tree, geoset, 0, 0, limit_, ::osg::NodePtr(), options_.opt, true));
            // In strips there are triangles without area, which are not extracted.
            requireTriangles(made.get(),
                             options_.opt == 3 ? geoset.size : getNumberOfTriangles(node));
            addNew(group.get(), made.release());
        }
        return group.release();
    }

    const kd_tree<float>& tree_;
    kd_scene_geoset& scene_;
    const unsigned int limit_; ///< triangles, at least 1
    const cell_options& options_;
    const bool uses_up_;
    cell_record& record_;
};

cell_options optionsFor(int opt, int optimizetc) {
    cell_options options;
    options.opt = opt;
    options.optimizetc = optimizetc;
    return options;
}

template <typename Value> void sayValue(const char* label, Value value) {
    std::ostringstream text;
    text << label << value;
    say({text.str()});
}

void sayStatistics(const kd_tree<float>& tree, const kd_scene_geoset& scene) {
    float depths = 0;
    avg_depth_node(tree, 0, 0, depths);
    const auto leaves = static_cast<float>(tree.leaf_count);
    say({"\nScene KD compiled!"});
    say({"Scene-KD-Tree Statistics:"});
    sayValue(" # max depth          : ", tree.max_depth_reached);
    sayValue(" # avg depth          : ", depths / leaves);
    sayValue(" # tris registered    : ", scene.element_count());
    sayValue(" # inner nodes        : ", tree.node_count);
    sayValue(" # leaves             : ", tree.leaf_count);
    sayValue(" # max prims in a leaf: ", tree.max_leaf_size);
    sayValue(" # avg prims in a leaf: ", static_cast<float>(triangle_count(tree, 0)) / leaves);
}

/// Groups of a bounded number of geometry nodes, which leave their old places.
::osg::NodePtr inPacks(const ::osg::NodePtr& rebuilt) {
    fresh<::osg::NodePtr> top(newGroupNode());
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(rebuilt, nodes, false);
    std::size_t i = 0;
    do { // without nodes there is an empty pack
        fresh<::osg::NodePtr> pack(newGroupNode());
        for (const std::size_t end = std::min(i + pack_size, nodes.size()); i < end; ++i)
            addChildTo(pack.get(), nodes[i]);
        addNew(top.get(), pack.release());
    } while (i < nodes.size());
    return top.release();
}

/// A hierarchy over the geometry nodes, which leave their old places.
::osg::NodePtr inHierarchy(const ::osg::NodePtr& rebuilt) {
    say({"Building Scene Hierarchy"});
    kd_scene_geoset scene; // boxes are all that a tree needs
    std::vector<::osg::NodePtr> all;
    getGeometryNodes(rebuilt, all, false);
    for (std::size_t i = 0; i < all.size(); ++i) {
        if (getNumberOfTriangles(all[i]) == 0)
            continue;
        scene.nodes.push_back(all[i]);
        say_progress(i + 1, all.size(),
                     {"\rDone ", std::to_string(i + 1), " of ", std::to_string(all.size())});
    }
    scene.build(::osg::NullFC, wholeElements(20000000, 0));
    kd_tree<float> tree;
    compile(scene, tree, wholeElements(16, 150), kd_strategy_ObjMedian());
    fresh<::osg::NodePtr> top(newGroupNode());
    recBuild(top.get(), scene, tree, 0);
    removeEmptyParts(top.get());
    return top.release();
}

} // namespace

::osg::NodePtr buildSceneTree(::osg::NodePtr root, kd_build_setup const& kd,
                              const cell_options& options, cell_record& record) {
    record = {};
    if (root == ::osg::NullFC)
        return ::osg::NullFC;
    const walk_start start(root);
    kd_scene_geoset scene;
    getGeometryNodes(start.get(), scene.nodes, false);
    if (scene.nodes.empty())
        return ::osg::NullFC;
    const std::vector<::osg::RefPtr<::osg::NodePtr>> held(scene.nodes.begin(), scene.nodes.end());
    record.nodes = scene.nodes.size();
    say({"Rebuilding Scene with ", std::to_string(record.nodes), " GeometryCore(s)..."});
    settleSources(scene.nodes);

    const unsigned int limit = std::max(kd.max_elements, 1U);
    say({"Compiling Scene KD"});
    scene.with_geosets = true;
    scene.bare = true;
    scene.build(::osg::NullFC, wholeElements(limit, 0));
    kd_tree<float> tree;
    compile(scene, tree, wholeElements(1, 150), kd_strategy_ObjMedian());
    sayStatistics(tree, scene);
    std::vector<::osg::NodePtr> elements;
    for (const int place : scene.built_nodes)
        elements.push_back(scene.nodes[static_cast<std::size_t>(place)]);
    record.elements = elements.size();

    say({"Rebuilding Scene..."});
    const fresh<::osg::NodePtr> rebuilt(
        cell_builder(tree, scene, limit, options, true, record).split(0, options.hasIdMap));
    say({"done."});
    fresh<::osg::NodePtr> result(options.flat ? inPacks(rebuilt.get())
                                              : inHierarchy(rebuilt.get()));
    source_removal(elements).run(); // the last thing that can fail
    return result.release();
}

::osg::NodePtr buildSceneTree(::osg::NodePtr root, kd_build_setup const& kd, bool flat, int opt,
                              int optimizetc, bool hasIdMap) {
    cell_options options = optionsFor(opt, optimizetc);
    options.flat = flat;
    options.hasIdMap = hasIdMap;
    cell_record record;
    return buildSceneTree(root, kd, options, record);
}

template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
::osg::NodePtr SplitbyTrisinCell(const NodeTree& tree, osg_scene_geoset<Tree, Setup, Geoset>& scene,
                                 int node, unsigned int limit, int opt, int optimizetc,
                                 bool hasIdMap) {
    const cell_options options = optionsFor(opt, optimizetc);
    cell_record record;
    return cell_builder(tree, scene, limit, options, false, record).split(node, hasIdMap);
}

template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
::osg::NodePtr buildGeo(const NodeTree& tree, osg_scene_geoset<Tree, Setup, Geoset>& scene,
                        int node, int opt, int optimizetc) {
    const cell_options options = optionsFor(opt, optimizetc);
    cell_record record;
    return cell_builder(tree, scene, 1, options, false, record).build(node);
}

template MORVA_API ::osg::NodePtr SplitbyTrisinCell(const kd_tree<float>&, kd_scene_geoset&, int,
                                                    unsigned int, int, int, bool);
template MORVA_API ::osg::NodePtr buildGeo(const kd_tree<float>&, kd_scene_geoset&, int, int, int);

} // namespace morva::osg
