#pragma once

// The two stages of the merge pass that can run on workers: groups into cores, and cores into
// cache order.
//
//     mergeGroups        one task per group; group nodes in the order of the groups
//     optimizeNodeCache  one task per geometry node; in the order of the nodes
//
// With `numthreads` above 1 each task has a worker of its own; otherwise all run on the calling
// thread, one after the other. The outcome is the same to the last byte, names and IDs included.
// Before tasks run side by side mergeGroups() brings the source nodes into the state in which
// they are only read, and enters their names in the ID map; generated names are given at the join.

#include <cstdint>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_limits.h>
#include <morva/core/morva_osg_params.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/merge/threadHandler.h>

namespace morva::osg {

/// Workers at a time that the setup asks for; 1 for none.
constexpr unsigned int threadsOf(const mergeGeo_setup& setup) {
    return setup.numthreads > 1 ? static_cast<unsigned int>(setup.numthreads) : 1;
}

/// What extraction may find in a group, see offerOf().
struct primitive_sums {
    std::uint64_t triangles = 0;
    std::uint64_t lines = 0;
    std::uint64_t points = 0;
};

/// Sums over the nodes that are not null.
primitive_sums sumPrimitives(const std::vector<::osg::NodePtr>& nodes);

/// Input nodes whose geometry is in the result as well; null: not asked for.
using poured_nodes = std::vector<::osg::NodePtr>*;

/// Merges group after group into children of `result`.
///
/// poured  the nodes of each group that came to its end are appended
/// errors  on one thread they leave the function; on workers each costs one group, and one line
///         on standard error
void mergeGroups(const GeoMerge& merge, const kd_build_setup& kd, const mergeGeo_setup& setup,
                 threadHandler& handler, const ::osg::NodePtr& result,
                 poured_nodes poured = nullptr);

/// Puts the geometry nodes below `merged` into cache order, and returns a new group of what
/// optimizeCache() gives for them, in their order. Nodes that it hands through move there.
///
/// prints  the number of nodes; on one thread the share that is done, after "\r"
/// errors  as for mergeGroups(); the nodes stay below `merged` then
::osg::NodePtr optimizeNodeCache(const ::osg::NodePtr& merged, const mergeGeo_setup& setup);

/// optimizeCache() as the merge pass asks for it.
::osg::NodePtr optimizeNode(const ::osg::NodePtr& node, const mergeGeo_setup& setup);

/// mergeGeo(), for a caller that takes the input apart afterwards.
///
/// poured  the nodes that are still where they were, and have come out as well, are appended: those
///         that were poured together, and transparent ones that came out in cache order
::osg::NodePtr mergeGeo(const ::osg::NodePtr& root, const kd_build_setup& kd,
                        const mergeGeo_setup& setup, poured_nodes poured);

} // namespace morva::osg
