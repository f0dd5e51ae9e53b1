// Scenes of which some geometry must be left alone.
//
//     root       hidden parts and what draws nothing go
//     merge      what can be merged comes out once more: in new cores, in the world
//     root       and leaves the root; with it groups that are left empty
//     cells      of what the merge has left, and of what came out of it
//     result     group( cells, cells, what no cell took, root )

#include <morva/driver/morva_osg_auto.h>

#include <string>
#include <unordered_set>
#include <vector>

#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_node_looks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_taken_children.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge_stages.h>

namespace morva::osg {

namespace {

using ::osg::NodePtr;
using held_nodes = std::vector<::osg::RefPtr<NodePtr>>;

constexpr caught_texts cell_failure{
    "bad_alloc caught in optWithSkippedGeo: ", "Standard exception in optWithSkippedGeo: ",
    "Error occured in optWithSkippedGeo."};

using node_numbers = std::unordered_set<::osg::UInt32>;

/// Takes the children with these numbers off; the others keep their order.
void takeChildrenOff(const NodePtr& parent, const node_numbers& numbers) {
    std::vector<::osg::UInt32> places;
    for (::osg::UInt32 i = 0; i < parent->getNChildren(); ++i) {
        if (numbers.count(parent->getChild(i).getFieldContainerId()) != 0)
            places.push_back(i);
    }
    dropChildren(parent, places);
}

/// Takes nodes off their parents, and then the parents that are left empty, and theirs, as
/// deleteNode() does with one; a geometry that is left empty stays.
void takeOff(held_nodes leaving) {
    while (!leaving.empty()) {
        node_numbers numbers, known;
        std::vector<NodePtr> parents;
        for (const auto& node : leaving) {
            const NodePtr parent = node->getParent();
            numbers.insert(node.get().getFieldContainerId());
            if (parent != ::osg::NullFC && known.insert(parent.getFieldContainerId()).second)
                parents.push_back(parent);
        }
        held_nodes emptied;
        for (const NodePtr& parent : parents) {
            takeChildrenOff(parent, numbers);
            if (parent->getNChildren() == 0 && geometryOf(parent) == ::osg::NullFC &&
                parent->getParent() != ::osg::NullFC) // a root may have no reference to be held by
                emptied.emplace_back(parent);
        }
        leaving.swap(emptied);
    }
}

/// Whether extraction finds anything: points by themselves are not merged.
bool canBePoured(const NodePtr& node) {
    const ::osg::GeometryPtr core = geometryOf(node);
    return canBeExtracted(core) && offerOf(core, 3).room + offerOf(core, 2).room > 0;
}

/// Takes off what has come out of the merge; what stands below it takes its place.
void takePouredOff(const std::vector<NodePtr>& poured) {
    held_nodes leaving;
    for (const NodePtr& node : poured) {
        if (node->getParent() != ::osg::NullFC && canBePoured(node))
            leaving.emplace_back(node);
    }
    for (const auto& node : leaving) {
        if (node->getNChildren() > 0)
            taken_children(node.get(), 0).setHome(node->getParent());
    }
    takeOff(std::move(leaving));
}

/// For a root that is a geometry: a group over a node that shows the same and takes over its
/// children. Null for others.
NodePtr newWrapper(const NodePtr& root) {
    fresh<NodePtr> top(newStandIn(root));
    if (top.get() == ::osg::NullFC)
        return ::osg::NullFC;
    const NodePtr shown = top->getChild(0);
    takeOverLooks(shown, root);
    const ::osg::MaterialPtr material = getMaterial(root);
    if (geometryOf(root)->getMaterial() == ::osg::NullFC && material != ::osg::NullFC) {
        const ::osg::RefPtr<::osg::MaterialGroupPtr> group(::osg::MaterialGroup::create());
        const open_edit edit(group.get());
        group->setMaterial(material);
        giveCore(top.get(), group.get());
    }
    if (root->getNChildren() > 0)
        taken_children(root, 0).setHome(shown);
    return top.release();
}

/// buildSceneTree() as far as it comes.
NodePtr cellsOf(const NodePtr& root, const mergeGeo_setup& setup, const kd_build_setup& kd,
                const auto_options& options, cell_record& record) {
    cell_options cells;
    cells.flat = setup.flat;
    cells.opt = setup.opt;
    cells.optimizetc = setup.optimizetc;
    cells.hasIdMap = !setup.idmap.empty();
    cells.exact = options.exactatlas;
    cells.padding = options.atlaspadding;
    cells.numthreads = setup.numthreads;
    try {
        return buildSceneTree(root, kd, cells, record);
    } catch (...) {
        print_caught(cell_failure);
        return ::osg::NullFC;
    }
}

bool holdsGeometry(const NodePtr& node) {
    std::vector<NodePtr> found;
    collectsubTree(node, found);
    return !found.empty();
}

void addUnlessNull(const NodePtr& parent, fresh<NodePtr>& child) {
    if (child.get() != ::osg::NullFC)
        addChildTo(parent, child.get());
    child.release();
}

/// Everything but the rest: a group of the cells and of what no cell took.
NodePtr rebuilt(const NodePtr& root, const mergeGeo_setup& setup, const kd_build_setup& kd,
                const auto_options& options, auto_record& record) {
    fresh<NodePtr> result(newGroupNode());
    fresh<NodePtr> merged(newGroupNode());
    std::vector<NodePtr> poured;
    addChildTo(merged.get(), mergeGeo(root, kd, setup, &poured));
    takePouredOff(poured);
    getIDmapHandler().merged = true;

    fresh<NodePtr> cells(cellsOf(root, setup, kd, options, record.unmerged));
    fresh<NodePtr> rest(CollectNonMaterialNodes(cells.get()));
    addUnlessNull(merged.get(), rest);
    addUnlessNull(result.get(), cells);
    fresh<NodePtr> others(cellsOf(merged.get(), setup, kd, options, record.merged));
    addUnlessNull(result.get(), others);
    if (holdsGeometry(merged.get()))
        addUnlessNull(result.get(), merged);
    return result.release();
}

} // namespace

NodePtr optWithSkippedGeo(NodePtr root, mergeGeo_setup setup, kd_build_setup kd,
                          bool noTexCoordLimit, bool dropRest) {
    auto_record record;
    return optWithSkippedGeo(root, std::move(setup), kd, noTexCoordLimit, dropRest, {}, record);
}

NodePtr optWithSkippedGeo(NodePtr root, mergeGeo_setup setup, kd_build_setup kd,
                          bool noTexCoordLimit, bool dropRest, const auto_options& options,
                          auto_record& record) {
    say({"Optimizing Geometry and Textures."});
    record.unmerged = record.merged = {};
    ::osg::RefPtr<NodePtr> held; // the passes may take it off its parent; a root they can't
    if (root != ::osg::NullFC && root->getParent() != ::osg::NullFC)
        held = root;
    fresh<NodePtr> wrapper(newWrapper(root));
    const NodePtr top = wrapper.get() != ::osg::NullFC ? wrapper.get() : root;
    if (top != ::osg::NullFC) {
        deleteTravMaskZeroNodes(top);
        removeNonGeoParts(top);
    }
    if (noTexCoordLimit)
        setup.texcoords = -1;
    fresh<NodePtr> result(rebuilt(top, setup, kd, options, record));
    const bool is_unused = wrapper.get() != ::osg::NullFC && wrapper->getNChildren() == 0;
    // A hidden root is no part of what is shown; its mask would go with it below.
    if (!dropRest && !is_unused && top != ::osg::NullFC && top->getTravMask() != 0) {
        addChildTo(result.get(), top);
        wrapper.release();
    }
    removeGroupNodes(result.get(), below_choices::stay);
    std::vector<NodePtr> cores;
    const walk_start start(result.get());
    getGeometryNodes(start.get(), cores, false);
    say({"\nRebuilded Scene contains ", std::to_string(cores.size()), " Geometrycores."});
    return result.release();
}

} // namespace morva::osg
