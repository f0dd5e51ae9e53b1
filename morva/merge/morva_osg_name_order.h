#pragma once

// The names of all groups in the ID map, before workers start.
//
// Extraction enters a name when it comes to the node, and IDs and appearances count from there on:
// with workers that would be as timing wills. So the caller's thread enters them ahead, in the
// order of the groups and of the nodes in them, each by the first of the three extractions (of
// triangles, lines and points) that would; workers only look them up:
//
//     if (canForetellNames(merge, setup)) {
//         const settled_names names(merge, setup);
//         ... start workers, and join them ...
//     }
//
// A name enters where the setup wants IDs. Without that it does where vertices carry IDs anyhow:
// the node's own, or those that the geoset has got from a node before.

#include <morva/core/morva_osg_params.h>
#include <morva/merge/morva_osg_geomerge.h>

namespace morva::osg {

/// Whether it is known before extraction which names it will enter. It is not where some nodes of
/// a group bring IDs and others do not, nobody wants IDs, and the group may fill several batches:
/// where a batch ends depends on what extraction leaves out, or on the tree of `mergehierarchy`.
bool canForetellNames(const GeoMerge& merge, const mergeGeo_setup& setup);

/// Enters the names and brings the volumes up to date that are asked for by it. While it lives
/// extraction enters no name and asks for no volume. Leaves the ID map's lock free.
class settled_names {
  public:
    settled_names(const GeoMerge& merge, const mergeGeo_setup& setup);
    settled_names(const settled_names&) = delete;
    settled_names& operator=(const settled_names&) = delete;
    ~settled_names();
};

} // namespace morva::osg
