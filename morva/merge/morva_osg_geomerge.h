#pragma once

// The merge pass: all geometry of one material is poured together and cut again into cores of
// bounded size.
//
//     scene --getGeometryNodes--> GeoMerge: material A -> n0 n3 n4     one entry, one group
//                                           material B -> n1 n2
//     group --extract--> geosets, in batches --kd-tree--> Split --> cores
//
//     result                        Group
//       group A                     Group, one per entry, in order of the entries
//         batch 0                   Group, one per flush of a geoset
//           what Split gives        a geometry node, or groups of them
//       holder of a transparent     Transform with the to-world matrix of the carried node
//
// Source nodes are read and stay where they are; transparent and hidden ones that are carried
// over leave their old parents. Runs must not overlap: the ID map is one per process. A group
// shares nothing with another but the ID map, so that each could run on a thread of its own.

#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_params.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/trees/bih_tree.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// Orders materials as they were first met, null before all of them. Neither addresses nor numbers
/// of containers count: which of several equal materials is kept can differ from run to run.
struct by_meeting {
    /// Place of each material in the order of meeting, from 1, by its number.
    const std::map<::osg::UInt32, std::size_t>* places;

    std::size_t placeOf(const ::osg::MaterialPtr& material) const;
    bool operator()(const ::osg::MaterialPtr& a, const ::osg::MaterialPtr& b) const {
        return placeOf(a) < placeOf(b);
    }
};

/// The merge groups of a scene: one entry per material, or with `mergeSameName` one per material
/// and name of node. Holds its materials, since baking can take the last other reference; nodes
/// are the scene's.
class MORVA_API GeoMerge {
  public:
    using group_map = std::multimap<::osg::MaterialPtr, std::vector<::osg::NodePtr>, by_meeting>;

    GeoMerge() = default;
    explicit GeoMerge(const mergeGeo_setup& setup)
        : mergeSameName(setup.mergesamename), ignoreMaterial(setup.ignorematerial) {}
    GeoMerge(const GeoMerge&) = delete;
    GeoMerge& operator=(const GeoMerge&) = delete;

    /// The groups in the order in which their materials came, that of the null material first; of
    /// one material in order of coming.
    const group_map& groups() const { return entries_; }

    /// Enters a geometry node under its material; other nodes are left out.
    ///
    /// The material is the geometry's own, or else that of the topmost material group above the
    /// node unless `noGroupSearch`. With `mergeSameName` a nameless node takes the name of its
    /// core, or "NoName", for good.
    void insertNode(::osg::NodePtr node, bool noGroupSearch);

    /// Returns the topmost node above `node` whose core is a MaterialGroup, or null.
    static ::osg::NodePtr searchMaterialGroup(::osg::NodePtr node);

    /// Bakes the material colour of every group with fewer triangles than `triangle_limit` into
    /// its vertices. Nodes that could be baked have no material any more and move to a group of
    /// the null material; the null material's own groups are passed over.
    void bakeSmallGroups(int triangle_limit);

    bool mergeSameName = false;  ///< one group per material and name
    bool ignoreMaterial = false; ///< all nodes are of the null material

  private:
    /// A group's key: place of the material, and the name without which no groups of one material
    /// are told apart.
    using group_key = std::pair<std::size_t, std::string>;

    std::map<::osg::UInt32, std::size_t> met_; ///< see by_meeting; 0 is the null material
    group_map entries_{by_meeting{&met_}};
    std::vector<::osg::MaterialRefPtr> held_; ///< the materials of `entries_`
    std::map<group_key, group_map::iterator> entry_of_;
};

/// Merges a scene, and returns the new root, which carries no reference.
///
/// root    stays in place; null gives an empty result
/// kd      `max_elements` bounds the triangles of an output core, `max_depth` the tree; the other
///         fields are fixed by the pass: elements are never cut
/// setup   options; see mergeGeo_setup
/// prints  progress to standard output; "Found ... different Materials." comes even when silent
/// errors  none leave the pass: one line on standard error, and the result holds what was
///         finished by then
MORVA_API ::osg::NodePtr mergeGeo(::osg::NodePtr root, const kd_build_setup& kd,
                                  const mergeGeo_setup& setup);

/// Merges the nodes of one group, and returns a group node over its batches.
///
/// material  of the output; null: the output takes the first one that a source geometry has
/// nodes     in the order in which they are poured; none gives a null node
/// limit     triangles, lines or points of one batch; a batch ends with the node that exceeds it
/// errors    exceptions of triangle and line batches leave the function, and what was made until
///           then is destroyed
MORVA_API ::osg::NodePtr mergeGeometryInVector(::osg::MaterialPtr material,
                                               const std::vector<::osg::NodePtr>& nodes,
                                               const kd_build_setup& kd,
                                               const mergeGeo_setup& setup, unsigned int limit);

/// The same with batches that a tree over the nodes decides on: as long as the nodes below a tree
/// node have `limit` triangles or more, each of its children gets batches of its own.
///
/// A batch takes the next nodes of the list, as many as there are below its tree node, and not
/// those that stand there: what lies together need not come into one batch. Fewer triangles than
/// `limit` give the result of mergeGeometryInVector().
/// errors  as above
MORVA_API ::osg::NodePtr mergeGeometryInVectorWithHierarchy(
    ::osg::MaterialPtr material, const std::vector<::osg::NodePtr>& nodes, const kd_build_setup& kd,
    const mergeGeo_setup& setup, unsigned int limit);

/// The part of it below `node` of a tree over a scene geoset; null if there are no nodes.
MORVA_API ::osg::NodePtr
mergeGeometryInVectorWithHierarchy(::osg::MaterialPtr material, const bih_tree<float>& tree,
                                   const bih_scene_geoset& scene, const kd_build_setup& kd,
                                   const mergeGeo_setup& setup, unsigned int limit, int node);

} // namespace morva::osg
