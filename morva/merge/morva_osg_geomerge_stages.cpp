#include <morva/merge/morva_osg_geomerge_stages.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <map>
#include <numeric>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/merge/morva_osg_merge_tasks.h>
#include <morva/merge/morva_osg_name_order.h>
#include <morva/merge/morva_osg_task_list.h>

namespace morva::osg {

namespace {

/// Whether a material has an image that shows.
bool hasImage(const ::osg::MaterialPtr& material) { return imageOf(material) != ::osg::NullFC; }

/// Brings source nodes into the state in which extraction leaves them, so that tasks side by side
/// only read what they share: cores and properties.
///
/// returns  false, with nothing lost, if what a node of some group takes off a core another node
///          is to have: the outcome then depends on who comes first, and the groups must run in
///          their order
bool settleSources(const GeoMerge& merge, const mergeGeo_setup& setup) {
    if (!setup.deleteunusedtc)
        return true;
    std::map<::osg::GeometryPtr, bool> is_unused; // whether a core's coordinates are to go
    std::map<::osg::MaterialPtr, bool> has_image; // looking into an image takes long
    for (const auto& [material, nodes] : merge.groups()) {
        for (const ::osg::NodePtr& node : nodes) {
            const ::osg::GeometryPtr core = geometryOf(node);
            if (!canBeExtracted(core) || !hasTexCoords(core) || offerOf(core, 3).room == 0)
                continue;
            const ::osg::MaterialPtr shown = getMaterial(node);
            const auto [known, is_new] = has_image.emplace(shown, false);
            if (is_new)
                known->second = hasImage(shown);
            if (is_unused.emplace(core, !known->second).first->second == known->second)
                return false;
        }
    }
    for (const auto& [core, unused] : is_unused) {
        if (unused)
            dropTexCoords(core);
    }
    return true;
}

/// What a task over the nodes has to do, in elements.
std::uint64_t workOn(const std::vector<::osg::NodePtr>& nodes) {
    const primitive_sums sums = sumPrimitives(nodes);
    return sums.triangles + sums.lines;
}

/// Numbers of the tasks, the one with the most work first: what ends last is small then, and the
/// large ones stand side by side while there are few results yet.
std::vector<std::size_t> largestFirst(const std::vector<std::uint64_t>& work) {
    std::vector<std::size_t> order(work.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return work[a] > work[b]; });
    return order;
}

/// Writes how much is done over what was written before.
void printProgress(std::size_t index, std::size_t count) {
    std::ostringstream text;
    text.precision(4);
    text << "\r" << 100.0 * static_cast<double>(index) / static_cast<double>(count) << "% ";
    say_progress(index, count, {text.str()});
}

/// Brings the volumes up to date that a tree over the nodes of a group asks for.
void settleVolumes(const GeoMerge& merge) {
    for (const auto& [material, nodes] : merge.groups()) {
        for (const ::osg::NodePtr& node : nodes) {
            if (node != ::osg::NullFC)
                node->updateVolume();
        }
    }
}

void notePoured(const std::vector<::osg::NodePtr>& nodes, poured_nodes poured) {
    if (poured != nullptr)
        poured->insert(poured->end(), nodes.begin(), nodes.end());
}

/// mergeGroups() with a task for each group, once the sources are settled.
void mergeOnWorkers(const GeoMerge& merge, const kd_build_setup& kd, const mergeGeo_setup& setup,
                    threadHandler& handler, const ::osg::NodePtr& result, poured_nodes poured) {
    const settled_names names(merge, setup); // after the sources: editing invalidates volumes
    if (setup.mergehierarchy)
        settleVolumes(merge);
    task_list<mergeGeometryMTArguments> tasks(
        handler, setup.mergehierarchy ? mergeGeometryInVectorWithHierarchyMultithread
                                      : mergeGeometryInVectorMultithread);
    std::vector<const GeoMerge::group_map::value_type*> groups;
    std::vector<std::uint64_t> work;
    for (const auto& group : merge.groups()) {
        groups.push_back(&group);
        work.push_back(workOn(group.second));
    }
    for (const std::size_t place : largestFirst(work)) {
        mergeGeometryMTArguments task;
        task.material = &groups[place]->first;
        task.nodes = &groups[place]->second;
        task.kd = &kd;
        task.setup = &setup;
        task.limit = batch_limit;
        tasks.start(task, place);
    }
    tasks.joinInto(result, [&](std::size_t place) { notePoured(groups[place]->second, poured); });
}

} // namespace

void mergeGroups(const GeoMerge& merge, const kd_build_setup& kd, const mergeGeo_setup& setup,
                 threadHandler& handler, const ::osg::NodePtr& result, poured_nodes poured) {
    if (setup.numthreads > 1 && canForetellNames(merge, setup) && settleSources(merge, setup)) {
        mergeOnWorkers(merge, kd, setup, handler, result, poured);
        return;
    }
    for (const auto& [material, nodes] : merge.groups()) {
        const held_lock_end end;
        fresh<::osg::NodePtr> group(
            setup.mergehierarchy
                ? mergeGeometryInVectorWithHierarchy(material, nodes, kd, setup, batch_limit)
                : mergeGeometryInVector(material, nodes, kd, setup, batch_limit));
        if (group.get() == ::osg::NullFC)
            continue;
        addChildTo(result, group.get());
        group.release();
        notePoured(nodes, poured);
    }
}

::osg::NodePtr optimizeNode(const ::osg::NodePtr& node, const mergeGeo_setup& setup) {
    bool above_limit = false;
    return optimizeCache(node, above_limit, cache_limit, setup.opt == 2);
}

::osg::NodePtr optimizeNodeCache(const ::osg::NodePtr& merged, const mergeGeo_setup& setup) {
    fresh<::osg::NodePtr> cached(newGroupNode());
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(merged, nodes, false);
    say({"Run Cacheopt...(", std::to_string(nodes.size()), ") Nodes."});
    threadHandler handler("MORVA_CACHEOPT", threadsOf(setup));

    if (setup.numthreads > 1) {
        task_list<cacheoptMTArguments> tasks(handler, CacheOptMultithread);
        std::vector<std::uint64_t> work;
        work.reserve(nodes.size());
        for (const ::osg::NodePtr& node : nodes)
            work.push_back(workOn({node}));
        for (const std::size_t place : largestFirst(work)) {
            cacheoptMTArguments task;
            task.limit = cache_limit;
            task.per_property = setup.opt == 2;
            task.source = nodes[place];
            tasks.start(std::move(task), place);
        }
        tasks.joinInto(cached.get());
        return cached.release();
    }
    // All before the first one moves: what throws leaves the merged tree as it is.
    std::deque<fresh<::osg::NodePtr>> made;
    for (const ::osg::NodePtr& node : nodes) {
        made.emplace_back(optimizeNode(node, setup));
        printProgress(made.size() - 1, nodes.size());
    }
    for (fresh<::osg::NodePtr>& node : made) {
        addChildTo(cached.get(), node.get());
        node.release();
    }
    return cached.release();
}

} // namespace morva::osg
