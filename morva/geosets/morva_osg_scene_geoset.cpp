#include <morva/geosets/morva_osg_scene_geoset.h>

#include <algorithm>
#include <cstddef>
#include <string>

#include <OpenSG/OSGDynamicVolume.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_axis_arrays.h>
#include <morva/trees/tree_ranges.h>

namespace morva::osg {

void node_extents::sayOutOfBounds() {
    say({"Morva_osg_scene_Geost::axis_min_max: Index out of bounce. "});
}

namespace {

void sortTriangles(osg_geoset& geoset, bih_tree<float>& tree, const build_setup& setup) {
    compile(geoset, tree, setup);
}

void sortTriangles(osg_geoset& geoset, kd_tree<float>& tree, const kd_build_setup& setup) {
    compile(geoset, tree, setup, kd_strategy_SAH());
}

/// Extracts a node for the core alone.
void extractBare(const ::osg::NodePtr& node, osg_geoset& geoset) {
    const ::osg::GeometryPtr source = geometryOf(node);
    const bool shared = source != ::osg::NullFC && source->getParents().size() > 1;
    extract(node, geoset, true, false, false, true, !shared);
    const ::osg::GeometryPtr core = geoset.geometry.get();
    if (shared && hasTexCoords(core) && getImage(node) == ::osg::NullFC)
        dropTexCoords(core);
    if (!hasTexCoords(core))
        geoset.dropExtents();
}

/// A geoset as a new one is: clear() would leave a large budget and what it took in a material.
void makeFresh(osg_geoset& geoset) {
    geoset.clear();
    geoset.vertex_capacity = 0;
}

} // namespace

template <typename Tree, typename Setup, typename Geoset>
osg_scene_geoset<Tree, Setup, Geoset>::osg_scene_geoset(const ::osg::NodePtr& root,
                                                        const Setup& setup, bool with)
    : osg_scene_geoset() { // whatever build() throws, the destructor runs
    with_geosets = with;
    build(root, setup);
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::release() {
    freeAxisArrays(element_min);
    freeAxisArrays(element_max);
    delete[] trees;
    delete[] geosets;
    trees = nullptr;
    geosets = nullptr;
    built_count = 0;
    built_nodes.clear();
    triangles_before_.resize(1);
    held_.clear();
    box = float_box();
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::build(const ::osg::NodePtr& root, const Setup& setup) {
    std::vector<::osg::RefPtr<::osg::NodePtr>> kept; // of a list that only the last build held
    kept.swap(held_);
    release();
    const std::uint32_t count_before = node_count;
    const std::size_t listed_before = nodes.size();
    try {
        if (node_count == 0)
            getGeometryNodes(root, nodes, false);
        node_count = static_cast<std::uint32_t>(nodes.size());
        if (node_count != 0)
            buildAll(setup);
    } catch (...) {
        release();
        node_count = count_before;
        nodes.resize(listed_before);
        throw;
    }
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::buildAll(const Setup& setup) {
    held_.reserve(nodes.size());
    for (const ::osg::NodePtr& listed : nodes)
        held_.emplace_back(listed);
    if (with_geosets)
        buildGeosets(setup);
    storeBoxes();
    countTriangles();
    refresh_bounding_box(*this);
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::buildGeosets(const Setup& setup) {
    trees = new Tree[node_count];
    geosets = new Geoset[node_count];
    built_nodes.reserve(node_count);
    const std::string all = std::to_string(node_count);
    for (std::uint32_t i = 1; i <= node_count; ++i) {
        if (!buildGeoset(nodes[i - 1], geosets[built_count], trees[built_count], setup))
            continue; // the next node gets the slot
        built_nodes.push_back(static_cast<int>(i - 1));
        ++built_count;
        say_progress(i, node_count, {"\rDone ", std::to_string(i), " of ", all});
    }
}

/// False, and nothing is built, for a node without triangles.
template <typename Tree, typename Setup, typename Geoset>
bool osg_scene_geoset<Tree, Setup, Geoset>::buildGeoset(const ::osg::NodePtr& node, Geoset& geoset,
                                                        Tree& tree, const Setup& setup) {
    geoset.lean = true;
    if (bare)
        extractBare(node, geoset);
    else
        extract(node, geoset, true, false, false, true, true);
    if (geoset.size == 0) {
        makeFresh(geoset);
        return false;
    }
    if (!bare) {
        sortTriangles(geoset, tree, setup);
        geoset.convert();
    }
    return true;
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::storeBoxes() {
    axis_arrays low(node_count), high(node_count);
    ::osg::Pnt3f from, to; // a null node has those of the one before it
    for (std::uint32_t i = 0; i < node_count; ++i) {
        if (with_geosets) {
            const bool built = i < built_count;
            for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
                from[axis] = built ? geosets[i].bbox.min[axis] : 0.0F;
                to[axis] = built ? geosets[i].bbox.max[axis] : 0.0F;
            }
        } else if (nodes[i] == ::osg::NullFC) {
            say({"NULLFC"});
        } else {
            ::osg::DynamicVolume volume;
            nodes[i]->getWorldVolume(volume); // up to date
            from = to = ::osg::Pnt3f();
            if (!volume.isEmpty())
                volume.getBounds(from, to);
        }
        for (int axis = 0; axis < 3; ++axis) {
            low[axis][i] = from[static_cast<::osg::UInt32>(axis)];
            high[axis][i] = to[static_cast<::osg::UInt32>(axis)];
        }
    }
    low.changePlaces(element_min);
    high.changePlaces(element_max);
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::countTriangles() {
    triangles_before_.reserve(std::size_t(1) + element_count());
    for (std::uint64_t e = 0; e < element_count(); ++e) {
        std::uint64_t here = 0;
        if (with_geosets)
            here = bare ? geosets[e].size : triangle_count(trees[e], 0);
        else
            here = getNumberOfTriangles(nodes[e]);
        triangles_before_.push_back(triangles_before_.back() + here);
    }
}

template <typename Tree, typename Setup, typename Geoset>
std::int64_t osg_scene_geoset<Tree, Setup, Geoset>::simple_object(std::uint64_t index) const {
    if (index < built_count)
        return static_cast<std::int64_t>(index);
    say({"Morva_osg_scene_geoset.simple_object(), no element with ", std::to_string(index)});
    return static_cast<std::int64_t>(built_count) - 1;
}

template <typename Tree, typename Setup, typename Geoset>
::osg::NodePtr osg_scene_geoset<Tree, Setup, Geoset>::node(std::uint64_t index) const {
    std::uint64_t place = index;
    if (!built_nodes.empty())
        place = index < built_nodes.size() ? static_cast<std::uint64_t>(built_nodes[index])
                                           : nodes.size();
    if (place < nodes.size())
        return nodes[place];
    say({"Morva_osg_scene_geoset: No Node with index ", std::to_string(index)});
    return ::osg::NullFC;
}

namespace {

/// What stands for an element in a list: a new node over its geoset's core, or its own node.
template <typename Scene>::osg::NodePtr nodeToCollect(const Scene& scene, std::uint64_t element) {
    if (!scene.with_geosets || scene.node_count == 0)
        return scene.node(element);
    const std::int64_t built = scene.simple_object(element);
    return built < 0 ? ::osg::NodePtr() : newNodeWith(scene.geosets[built].geometry.get());
}

/// Triangles of an element that there may not be.
template <typename Scene> std::uint64_t trianglesAt(const Scene& scene, std::uint64_t element) {
    if (element < scene.element_count())
        return scene.triangles_of(element, 1);
    if (!scene.with_geosets || scene.node_count == 0)
        return getNumberOfTriangles(scene.node(element));
    const std::int64_t built = scene.simple_object(element);
    return built < 0 ? 0 : scene.triangles_of(static_cast<std::uint64_t>(built), 1);
}

} // namespace

template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
void collectNodesFromSceneGeoset(const osg_scene_geoset<Tree, Setup, Geoset>& scene,
                                 const NodeTree& tree, unsigned int node,
                                 std::vector<::osg::NodePtr>& out) {
    if (tree.node_count == 0)
        return;
    const index_range range = range_below(tree, node);
    for (std::uint64_t k = range.first; k < range.first + range.count; ++k) {
        out.emplace_back(); // room first: a new node is nobody's yet
        out.back() = nodeToCollect(scene, k);
        if (scene.with_geosets && out.back() == ::osg::NullFC)
            out.pop_back();
    }
}

template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
std::uint32_t getNumberOfTrianglesInSceneGeoset(const NodeTree& tree,
                                                const osg_scene_geoset<Tree, Setup, Geoset>& scene,
                                                int node) {
    const index_range range = range_below(tree, static_cast<std::uint64_t>(node));
    const std::uint64_t end = range.first + range.count;
    const std::uint64_t known = std::min(end, scene.element_count());
    std::uint64_t triangles =
        range.first < known ? scene.triangles_of(range.first, known - range.first) : 0;
    for (std::uint64_t k = std::max(range.first, known); k < end; ++k) // of a tree of another scene
        triangles += trianglesAt(scene, k);
    return static_cast<std::uint32_t>(triangles);
}

template class osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>;
template class osg_scene_geoset<kd_tree<float>, kd_build_setup, osg_geoset>;

#define MORVA_OF_TREES(SCENE, TREE)                                                                \
    template void collectNodesFromSceneGeoset(const SCENE&, const TREE&, unsigned int,             \
                                              std::vector<::osg::NodePtr>&);                       \
    template std::uint32_t getNumberOfTrianglesInSceneGeoset(const TREE&, const SCENE&, int);

MORVA_OF_TREES(bih_scene_geoset, bih_tree<float>)
MORVA_OF_TREES(bih_scene_geoset, kd_tree<float>)
MORVA_OF_TREES(kd_scene_geoset, bih_tree<float>)
MORVA_OF_TREES(kd_scene_geoset, kd_tree<float>)

} // namespace morva::osg
