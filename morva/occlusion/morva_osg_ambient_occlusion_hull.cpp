// Hulls: of a model the elements that are the most open.

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_matrix.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_bake.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_copies.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_prepare.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace morva::osg {

namespace {

/// Share of the model's diagonal up to where a hit counts whole.
constexpr double distance_share = 0.75;
/// Triangles of a core, and depth of the trees, of the merge that hulls start with.
constexpr unsigned int core_size = 500, tree_depth = 100;

/// What is kept: elements above the threshold, and so many that are equal to it.
struct hull_threshold {
    double value = 0.0;
    unsigned int equals_left = 0;
};

/// The threshold above which less than `most` of the values lie. Values that are no numbers come
/// first. No threshold, 0, for 0 and where all may stay.
hull_threshold thresholdOf(std::vector<double> values, unsigned int most) {
    hull_threshold found;
    if (most == 0 || most >= values.size())
        return found;
    const auto numbers = std::partition(values.begin(), values.end(),
                                        [](double value) { return std::isnan(value); });
    std::sort(numbers, values.end());
    const std::size_t place = values.size() - most;
    found.value = static_cast<double>(static_cast<float>(values[place]));
    for (std::size_t i = place + 1; i < values.size() && values[i] == found.value; ++i)
        ++found.equals_left;
    return found;
}

/// The values of all elements of some nodes, in order.
std::vector<double> valuesOfElements(const std::vector<::osg::NodePtr>& nodes,
                                     element_values::source from) {
    constexpr vertex_property chosen[] = {vertex_property::position, vertex_property::color,
                                          vertex_property::texcoords6};
    std::vector<double> values;
    for (const ::osg::NodePtr& node : nodes) {
        const geometry_columns columns(geometryOf(node), chosen);
        const element_values read(columns, from);
        forEachElement(columns,
                       [&](const hull_element& element) { values.push_back(read.of(element)); });
    }
    return values;
}

/// Where a child of a node has this matrix to the world: the node, or a new transform below it.
::osg::NodePtr placeBelow(const ::osg::NodePtr& parent, const ::osg::Matrix& matrix) {
    if (isIdentity(matrix))
        return parent;
    fresh<::osg::NodePtr> place(newTransformNode(matrix));
    addChildTo(parent, place.get());
    return place.release();
}

/// Nodes of a scene and where they stand in the world, before any of them moves.
struct placed_nodes {
    explicit placed_nodes(const std::vector<::osg::NodePtr>& list) {
        for (const ::osg::NodePtr& node : list) {
            nodes.emplace_back(node);
            matrices.push_back(node->getToWorld());
        }
    }

    /// Moves them below a node, each below a transform that keeps its place if it needs one.
    void moveTo(const ::osg::NodePtr& parent) const {
        for (std::size_t i = 0; i < nodes.size(); ++i)
            addChildTo(placeBelow(parent, matrices[i]), nodes[i].get());
    }

    std::vector<::osg::RefPtr<::osg::NodePtr>> nodes;
    std::vector<::osg::Matrix> matrices;
};

/// The topmost children that hold hidden geometry.
std::vector<::osg::NodePtr> hiddenHolders(const ::osg::NodePtr& top) {
    std::vector<::osg::NodePtr> hidden, holders;
    getTravMaskZeroNodes(top, hidden, false);
    for (::osg::NodePtr node : hidden) {
        while (node != top && node->getParent() != top)
            node = node->getParent();
        if (node != top && (holders.empty() || holders.back() != node)) // in order of the children
            holders.push_back(node);
    }
    return holders;
}

/// Moves what holds hidden geometry over to the place of what was shown.
void moveHidden(const ::osg::NodePtr& from, const ::osg::NodePtr& to) {
    for (const ::osg::NodePtr& holder : hiddenHolders(from))
        addChildTo(placeBelow(to, from->getToWorld()), holder);
}

/// Gives each node the elements that stay.
template <typename Copy>
void reduce(const std::vector<::osg::NodePtr>& nodes, hull_threshold kept, const Copy& copy) {
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::RefPtr<::osg::GeometryPtr> core(copy(node, kept.value, kept.equals_left));
        giveCore(node, core.get());
    }
}

/// Traces the merged nodes and leaves of each what is open enough.
void traceAndReduce(const ::osg::NodePtr& merged, const std::vector<::osg::NodePtr>& nodes,
                    unsigned int most, const bake_setup& how) {
    const traced_scene scene(merged);
    bake_setup setup = how;
    setup.view = vertex_view::all_around;
    setup.distance = diagonalOf(merged) * distance_share;
    say({"Calc Ambient Occlusion: "});
    std::vector<vertex_values> geometries;
    for (const ::osg::NodePtr& node : nodes) {
        giveOwnCore(node);
        geometries.push_back(untraced(node, vertex_view::all_around));
    }
    bakeAll(geometries, scene.rays(), setup, storeInSlot6);
    reduce(nodes, thresholdOf(valuesOfElements(nodes, element_values::source::slot6), most),
           copyPrimitivesWithAOThreshold);
}

} // namespace

::osg::NodePtr hullOf(const ::osg::NodePtr& root, const mergeGeo_setup& setup,
                      unsigned int maxPrimitives, int shots, unsigned int threads) {
    bake_setup how;
    how.rays = rayVecsOf(shots);
    how.threads = threads;
    if (how.rays.empty()) {
        sayNoRays(shots);
        return root;
    }
    kd_build_setup kd;
    kd.max_elements = core_size;
    kd.max_depth = tree_depth;
    mergeGeo_setup local = setup;
    local.opt = 1;
    const fresh<::osg::NodePtr> merged(mergeGeo(root, kd, local));
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(merged.get(), nodes, false);
    fresh<::osg::NodePtr> result(newGroupNode());
    if (getNumberOfPrimitives(nodes) > maxPrimitives)
        traceAndReduce(merged.get(), nodes, maxPrimitives, how);
    placed_nodes(nodes).moveTo(result.get());
    moveHidden(merged.get(), result.get());
    return result.release();
}

::osg::NodePtr buildModelHull(::osg::NodePtr root, mergeGeo_setup const& setup,
                              unsigned int maxPrimitives, unsigned int shots, bool) {
    return hullOf(root, setup, maxPrimitives, static_cast<int>(shots), 1);
}

::osg::NodePtr buildModelHullWithVertexColors(::osg::NodePtr root, unsigned int maxPrimitives) {
    fresh<::osg::NodePtr> result(newGroupNode());
    if (root == ::osg::NullFC)
        return result.release();
    const walk_start start(root);
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(start.get(), nodes, false);
    hull_threshold kept;
    if (maxPrimitives != 0)
        kept = thresholdOf(valuesOfElements(nodes, element_values::source::colors), maxPrimitives);
    say({"GeoNodes: ", std::to_string(nodes.size())});
    const placed_nodes placed(nodes);
    reduce(nodes, kept, copyPrimitivesWithAOThresholdInColors);
    placed.moveTo(result.get());
    moveHidden(root, result.get());
    return result.release();
}

} // namespace morva::osg
