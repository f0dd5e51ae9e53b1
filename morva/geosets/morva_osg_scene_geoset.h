#pragma once

// Whole geometry nodes as the elements of a tree and, where it is asked for, a geoset and a tree of
// its own below each of them.
//
//     tree over nodes   indices  2 0 | 1 3      compile() of trees/bih_tree.h or trees/kd_tree.h
//     element e         element_min[a][e], element_max[a][e]: its box in the world
//     with geosets      geosets[e], trees[e]; a node without triangles is no element, so that
//                       nodes[built_nodes[e]] is the one of element e
//
//     osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset> scene(root, {5, 100}, true);
//     bih_tree<float> tree;
//     compile(scene, tree, build_setup{1, 20});
//     fire_ray_rec(tree, 0, scene, ...);        // goes on into trees[e]
//
//     recBuild(group, scene, tree, 0);          // or: a scene in the image of a tree
//
// The tree over the nodes may be of another kind than those below them. One owner while building;
// any number of readers, rays among them, afterwards. Building reads the scene and brings volumes
// up to date.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/trees/bih_tree.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// Geometry nodes as elements. `node_count` is the length of `nodes` once it is built; then the
/// boxes are there, and with geosets the first `built_count` of `trees` and `geosets`.
template <typename Tree, typename Setup, typename Geoset> class MORVA_API osg_scene_geoset {
  public:
    using scalar_type = float;
    using point_type = math::vector<float, 3>;
    using vector_type = math::vector<float, 3>;

    float_box box;                     ///< over all elements, flat axes repaired; zero without any
    float** element_min = nullptr;     ///< owned: 3 arrays of `node_count` entries, or null
    float** element_max = nullptr;     ///< as `element_min`
    Tree* trees = nullptr;             ///< owned: `node_count` entries, or null
    Geoset* geosets = nullptr;         ///< owned: as `trees`; all are lean
    std::uint32_t node_count = 0;      ///< 0 before build(): it then collects the nodes
    std::uint32_t built_count = 0;     ///< geosets with triangles; 0 without geosets
    std::vector<::osg::NodePtr> nodes; ///< null ones stay in their places
    std::vector<int> built_nodes;      ///< place in `nodes` of each built element
    bool with_geosets = false;         ///< a geoset and a tree per node are wanted
    /// With geosets: only their cores are wanted. Trees stay empty, there are no triangles for
    /// rays, and extents only where coordinates may be cut. A core that others show, too, stays as
    /// it is.
    bool bare = false;

    /// Empty, for callers that fill `nodes` themselves before build().
    osg_scene_geoset() = default;
    /// Builds; see there.
    osg_scene_geoset(const ::osg::NodePtr& root, const Setup& setup, bool with);
    osg_scene_geoset(const osg_scene_geoset&) = delete;
    osg_scene_geoset& operator=(const osg_scene_geoset&) = delete;
    /// Also destroys nodes that nobody else references any more.
    ~osg_scene_geoset() { release(); }

    /// Collects the nodes below `root` behind those of `nodes`, and builds; what an earlier call
    /// has built goes. With a null root, or where `node_count` is not 0, the list is as it is.
    ///
    /// root    the nodes that getGeometryNodes(root, nodes, false) lists
    /// setup   of the tree of each geoset; a kd-tree is as a rule one leaf, see kd_strategy_SAH
    /// prints  with geosets: progress, and what extract() says; else a line for each null node,
    ///         which gets the box of the one before it
    /// errors  what is thrown leaves it, and nothing is built then
    ///
    /// Every node is held by a reference until the next build. A node without a volume is the
    /// origin. With geosets a source core that no image needs them for loses its texture
    /// coordinates 0 to 3: extract(node, geoset, true, false, false, true, true).
    void build(const ::osg::NodePtr& root, const Setup& setup);

    /// Number of elements that a tree sorts.
    std::uint64_t element_count() const { return with_geosets ? built_count : node_count; }

    /// Extent of an element; both values stay, after a line on standard output, where `index` is
    /// not below `node_count`.
    void axis_min_max(std::uint64_t index, int axis, float& low, float& high) const;

    /// Number of a built element: `index`, or after a line on standard output the last one there
    /// is; -1 if there is none.
    std::int64_t simple_object(std::uint64_t index) const;

    /// The node of an element; null, after a line on standard output, if there is none.
    ::osg::NodePtr node(std::uint64_t index) const;

    /// Triangles of the elements `first` to `first + count - 1` when they were built: with geosets
    /// those of the trees, else getNumberOfTriangles(); 0 for elements that there are not. O(1).
    std::uint64_t triangles_of(std::uint64_t first, std::uint64_t count) const {
        const std::uint64_t end = triangles_before_.size() - 1;
        return triangles_before_[std::min(first + count, end)] -
               triangles_before_[std::min(first, end)];
    }

  private:
    void buildAll(const Setup& setup);
    void buildGeosets(const Setup& setup);
    bool buildGeoset(const ::osg::NodePtr& node, Geoset& geoset, Tree& tree, const Setup& setup);
    void storeBoxes();
    void countTriangles();
    void release();

    std::vector<std::uint64_t> triangles_before_{0};  ///< `element_count() + 1` entries
    std::vector<::osg::RefPtr<::osg::NodePtr>> held_; ///< references of `nodes`
};

/// Extents of whole nodes, with a check of the number.
struct node_extents {
    static constexpr bool flat = false;
    const float* low;
    const float* high;
    std::uint64_t count; ///< entries of both

    void read(std::uint64_t e, float& lo, float& hi) const {
        if (e >= count) {
            sayOutOfBounds();
            return;
        }
        lo = low[e];
        hi = high[e];
    }
    MORVA_API static void sayOutOfBounds();
};

template <typename Tree, typename Setup, typename Geoset>
std::uint64_t element_count(const osg_scene_geoset<Tree, Setup, Geoset>& scene) {
    return scene.element_count();
}

template <typename Tree, typename Setup, typename Geoset>
node_extents extents_on_axis(const osg_scene_geoset<Tree, Setup, Geoset>& scene, int axis) {
    if (scene.element_min == nullptr)
        return {nullptr, nullptr, 0};
    return {scene.element_min[axis], scene.element_max[axis], scene.node_count};
}

template <typename Tree, typename Setup, typename Geoset>
void osg_scene_geoset<Tree, Setup, Geoset>::axis_min_max(std::uint64_t index, int axis, float& low,
                                                         float& high) const {
    extents_on_axis(*this, axis).read(index, low, high);
}

/// Lowest and highest corner over all elements by strict comparisons, zero if there is none.
template <typename Tree, typename Setup, typename Geoset>
float_box corners_of_elements(const osg_scene_geoset<Tree, Setup, Geoset>& scene) {
    float_box box;
    for (int axis = 0; axis < 3; ++axis) {
        const node_extents extents = extents_on_axis(scene, axis);
        float& low = box.min[static_cast<std::size_t>(axis)];
        float& high = box.max[static_cast<std::size_t>(axis)];
        float lo = 0, hi = 0;
        for (std::uint64_t e = 0; e < scene.element_count(); ++e) {
            extents.read(e, lo, hi);
            if (e == 0 || lo < low)
                low = lo;
            if (e == 0 || hi > high)
                high = hi;
        }
    }
    return box;
}

/// The box of the whole, brought up to date by calc_bounding_box(): flat axes are repaired.
template <typename Tree, typename Setup, typename Geoset>
float_box refresh_bounding_box(osg_scene_geoset<Tree, Setup, Geoset>& scene) {
    scene.box = scene.element_count() == 0 ? float_box() : calc_bounding_box(scene);
    return scene.box;
}

/// Grows a scene below `parent` in the image of a tree: two groups for the children of each inner
/// node, and in the place of a leaf the nodes of its elements, which leave their old parents.
///
/// scene  only read; what it holds stays where it is in the world: a node whose parent's matrix to
///        the world is not the identity goes below a new transform with that matrix. A geometry
///        without a material of its own gets the one that it shows, on a copy of its core where
///        other nodes show another one
/// tree   over the elements of `scene`; one without nodes adds nothing
/// node   of the tree, 0 for all of it
///
/// What hangs below a node that is no element goes with it. Null nodes and nodes that `parent`
/// stands below are passed over. Linear in elements and nodes of the tree.
template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
MORVA_API void recBuild(::osg::NodePtr parent, osg_scene_geoset<Tree, Setup, Geoset>& scene,
                        NodeTree& tree, int node);

/// Appends the nodes of the elements below a tree node, numbered by the places that its leaves have
/// in the tree's indices and not by what stands there: over the whole tree that is the list.
///
/// out  with geosets: new nodes over the cores of the geosets, without references, which are the
///      caller's; else the scene's own nodes
/// A tree that is a single leaf gives nothing.
template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
MORVA_API void collectNodesFromSceneGeoset(const osg_scene_geoset<Tree, Setup, Geoset>& scene,
                                           const NodeTree& tree, unsigned int node,
                                           std::vector<::osg::NodePtr>& out);

/// Triangles of what collectNodesFromSceneGeoset() takes below a tree node, as they were when the
/// scene geoset was built; of a tree that is a single leaf, too. O(depth).
template <typename NodeTree, typename Tree, typename Setup, typename Geoset>
MORVA_API std::uint32_t
getNumberOfTrianglesInSceneGeoset(const NodeTree& tree,
                                  const osg_scene_geoset<Tree, Setup, Geoset>& scene, int node);

using bih_scene_geoset = osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>;
using kd_scene_geoset = osg_scene_geoset<kd_tree<float>, kd_build_setup, osg_geoset>;

extern template class osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>;
extern template class osg_scene_geoset<kd_tree<float>, kd_build_setup, osg_geoset>;

} // namespace morva::osg
