#include <morva/merge/morva_osg_geomerge.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/merge/morva_osg_geomerge_stages.h>
#include <morva/merge/morva_osg_task_list.h>
#include <morva/merge/threadHandler.h>

namespace morva::osg {

namespace {

/// What the pass takes from the input scene.
struct scene_parts {
    std::vector<::osg::NodePtr> nodes;       ///< to be merged
    std::vector<::osg::NodePtr> transparent; ///< to be carried over
    std::vector<::osg::NodePtr> hidden;      ///< to be carried over
};

/// A stand-in that shows what its node shows: the material that the node inherits comes from the
/// group above, and the traversal mask is the node's. Name and place in the world are not.
::osg::NodePtr newLikeness(const ::osg::NodePtr& node) {
    fresh<::osg::NodePtr> top(newStandIn(node));
    if (top.get() == ::osg::NullFC)
        return ::osg::NullFC;
    const open_edit mask(top->getChild(0), ::osg::Node::TravMaskFieldMask);
    top->getChild(0)->setTravMask(node->getTravMask());
    const ::osg::NodePtr above = searchMaterialGroup(node);
    if (above != ::osg::NullFC) {
        const ::osg::RefPtr<::osg::MaterialGroupPtr> group(::osg::MaterialGroup::create());
        const open_edit edit(group.get());
        group->setMaterial(::osg::MaterialGroupPtr::dcast(above->getCore())->getMaterial());
        giveCore(top.get(), group.get());
    }
    return top.release();
}

/// Collects below a root that is a geometry: its stand-in shows the core alone.
void collectBelowGeometry(::osg::NodePtr root, const mergeGeo_setup& setup, scene_parts& parts) {
    if (root->getTravMask() == 0 || shouldSkipNode(root))
        return;
    std::vector<::osg::NodePtr> switches, transparent;
    alpha_scans scans;
    for (::osg::UInt32 i = 0; i < root->getNChildren(); ++i)
        getGeometryNodesForTree(root->getChild(i), parts.nodes, switches, transparent, scans);
    std::vector<::osg::NodePtr>& to = setup.alphageometry ? parts.nodes : parts.transparent;
    to.insert(to.end(), transparent.begin(), transparent.end());
}

void collectParts(const ::osg::NodePtr& root, const ::osg::NodePtr& start,
                  const mergeGeo_setup& setup, scene_parts& parts) {
    if (setup.alphageometry) {
        getGeometryNodes(start, parts.nodes, false);
    } else {
        getGeometryNodes(start, parts.nodes, parts.transparent, false);
    }
    if (start != root)
        collectBelowGeometry(root, setup, parts);
    if (setup.keeprenderfalse)
        getTravMaskZeroNodes(root, parts.hidden, false);
}

/// The caller's bounds; the other fields are fixed by the pass, which cuts no element.
kd_build_setup treeSetup(const kd_build_setup& kd) {
    kd_build_setup local;
    local.max_elements = kd.max_elements;
    local.max_depth = kd.max_depth;
    return local;
}

/// Moves the children of a node to its own parent, in their order, behind those that it has: what
/// hangs below a geometry is a part of its own, and is not to go where the geometry goes.
void moveChildrenUp(const ::osg::NodePtr& node) {
    const ::osg::NodePtr parent = node->getParent();
    const ::osg::UInt32 count = node->getNChildren();
    if (parent == ::osg::NullFC || count == 0)
        return;
    std::vector<::osg::RefPtr<::osg::NodePtr>> children;
    for (::osg::UInt32 i = 0; i < count; ++i)
        children.emplace_back(node->getChild(i));
    for (::osg::UInt32 i = count; i-- > 0;) // the last one first: the others keep their places
        takeChildOff(node, i);
    for (const auto& child : children)
        addChildTo(parent, child.get());
}

/// Gives a node whose primitives have no lengths a core of its own where each has the length that
/// is read into them: all the vertices that there are. Other nodes keep theirs.
void giveLengths(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
    if (core == ::osg::NullFC || core->getTypes() == ::osg::NullFC ||
        core->getLengths() != ::osg::NullFC)
        return;
    const ::osg::RefPtr<::osg::GeometryPtr> own(copyOfCore(core));
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    own->setLengths(lengths);
    lengths->editField().resize(core->getTypes()->size(),
                                static_cast<::osg::UInt32>(cornersOf(core)));
    reportWhole(own.get());
    giveCore(node, own.get());
}

/// Moves nodes below the result, each under a transform that keeps its place in the world.
///
/// cache   not null: what optimizeCache() gives for the node stands in its place; the node itself
///         then stays where it is, unless it is handed through
/// poured  takes those that stay
void carryOver(const std::vector<::osg::NodePtr>& nodes, const ::osg::NodePtr& result,
               const mergeGeo_setup* cache = nullptr, poured_nodes poured = nullptr) {
    for (::osg::NodePtr node : nodes) {
        if (node == ::osg::NullFC)
            continue;
        fresh<::osg::NodePtr> holder(newTransformNode(node->getToWorld()));
        setMaterialInGeometry(node);
        giveLengths(node);
        moveChildrenUp(node);
        fresh<::osg::NodePtr> carried(cache != nullptr ? optimizeNode(node, *cache) : node);
        if (carried.get() != ::osg::NullFC)
            addChildTo(holder.get(), carried.get()); // the node itself leaves its old parent
        const bool copied = carried.get() != ::osg::NullFC && carried.get() != node;
        carried.release();
        addChildTo(result, holder.get());
        holder.release();
        if (copied && poured != nullptr)
            poured->push_back(node);
    }
}

/// Groups the parts by material; small groups lose their material to their vertices.
void groupParts(scene_parts& parts, const mergeGeo_setup& setup, GeoMerge& merge) {
    for (::osg::NodePtr& node : parts.nodes) {
        if (!shouldSkipNode(node))
            merge.insertNode(node, false);
    }
    if (setup.vertexcolor >= 1)
        merge.bakeSmallGroups(setup.vertexcolor);
    say({"Found ", std::to_string(merge.groups().size()), " different Materials."});
}

/// The whole pass into `result`; what throws leaves there what was finished.
void mergeInto(fresh<::osg::NodePtr>& result, const ::osg::NodePtr& root, const kd_build_setup& kd,
               const mergeGeo_setup& setup, poured_nodes poured) {
    const walk_start start(root, newLikeness(root));
    scene_parts parts;
    collectParts(root, start.get(), setup, parts);
    kd_build_setup local = treeSetup(kd);
    if (!setup.silent || setup.cacheopt) {
        say({"Merging Geometry with ", std::to_string(parts.nodes.size()), " GeometryCore(s)..."});
        // The cache order works on whole groups: cells would only cut its runs short.
        if (setup.cacheopt)
            local.max_elements = batch_limit;
    }
    GeoMerge merge(setup);
    groupParts(parts, setup, merge);
    threadHandler handler("MORVA_GEOMERGE", threadsOf(setup));
    mergeGroups(merge, local, setup, handler, result.get(), poured);
    say_over_progress({"Done merging.        "});
    if (setup.cacheopt)
        result.reset(optimizeNodeCache(result.get(), setup));
    carryOver(parts.transparent, result.get(), setup.cacheopt ? &setup : nullptr, poured);
    carryOver(parts.hidden, result.get());
}

} // namespace

std::size_t by_meeting::placeOf(const ::osg::MaterialPtr& material) const {
    return material == ::osg::NullFC ? 0 : places->at(material.getFieldContainerId());
}

::osg::NodePtr GeoMerge::searchMaterialGroup(::osg::NodePtr node) {
    return morva::osg::searchMaterialGroup(node);
}

void GeoMerge::insertNode(::osg::NodePtr node, bool noGroupSearch) {
    if (geometryOf(node) == ::osg::NullFC)
        return;
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());

    ::osg::MaterialPtr material;
    if (!ignoreMaterial) {
        material = geometry->getMaterial();
        if (material == ::osg::NullFC && !noGroupSearch) {
            const ::osg::NodePtr group = searchMaterialGroup(node);
            if (group != ::osg::NullFC) {
                material = ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial();
            }
        }
    }

    if (material != ::osg::NullFC && met_.count(material.getFieldContainerId()) == 0) {
        held_.push_back(::osg::MaterialRefPtr(material));
        met_.emplace(material.getFieldContainerId(), held_.size());
    }
    group_key key(entries_.key_comp().placeOf(material), std::string());
    if (mergeSameName) {
        const ::osg::Char8* name = ::osg::getName(node);
        if (name != nullptr) {
            key.second = name;
        } else {
            const ::osg::Char8* core_name = ::osg::getName(geometry);
            key.second = core_name != nullptr ? core_name : "NoName";
            ::osg::setName(node, key.second);
        }
    }
    const auto found = entry_of_.find(key);
    if (found != entry_of_.end()) {
        found->second->second.push_back(node);
        return;
    }
    const auto entry = entries_.emplace(material, std::vector<::osg::NodePtr>(1, node));
    entry_of_.emplace(std::move(key), entry);
}

void GeoMerge::bakeSmallGroups(int triangle_limit) {
    // Baked nodes go to groups of the null material, which come first: the walk meets none anew.
    for (auto& [material, nodes] : entries_) {
        if (material == ::osg::NullFC || nodes.empty())
            continue;
        double triangles = 0.0;
        for (const ::osg::NodePtr& node : nodes) {
            triangles += counttriangles(::osg::GeometryPtr::dcast(node->getCore()));
        }
        if (!(static_cast<double>(triangle_limit) > triangles))
            continue;
        std::vector<::osg::NodePtr> kept;
        for (const ::osg::NodePtr& node : nodes) {
            if (MaterialColorIntoVertex(node)) {
                insertNode(node, true);
            } else {
                kept.push_back(node);
            }
        }
        nodes.swap(kept);
    }
}

::osg::NodePtr mergeGeo(::osg::NodePtr root, const kd_build_setup& kd,
                        const mergeGeo_setup& setup) {
    return mergeGeo(root, kd, setup, nullptr);
}

::osg::NodePtr mergeGeo(const ::osg::NodePtr& root, const kd_build_setup& kd,
                        const mergeGeo_setup& setup, poured_nodes poured) {
    fresh<::osg::NodePtr> result(newGroupNode());
    try {
        mergeInto(result, root, kd, setup, poured);
    } catch (...) {
        print_caught(merge_failure);
    }
    if (!setup.silent)
        say({"done."});
    return result.release();
}

} // namespace morva::osg
