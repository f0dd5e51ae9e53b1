// One merge group, in batches by a tree over its nodes.

#include <morva/merge/morva_osg_geomerge.h>

#include <cstdint>
#include <vector>

#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_new_nodes.h>

namespace morva::osg {

namespace {

/// The tree over a group's nodes: one node in a leaf, as far as space divides them.
constexpr build_setup node_tree{1, 100};

} // namespace

::osg::NodePtr mergeGeometryInVectorWithHierarchy(::osg::MaterialPtr material,
                                                  const std::vector<::osg::NodePtr>& nodes,
                                                  const kd_build_setup& kd,
                                                  const mergeGeo_setup& setup, unsigned int limit) {
    bih_scene_geoset scene; // whole nodes: no geosets
    scene.nodes = nodes;
    scene.build(::osg::NullFC, node_tree);
    bih_tree<float> tree;
    compile(scene, tree, node_tree);
    return mergeGeometryInVectorWithHierarchy(material, tree, scene, kd, setup, limit, 0);
}

::osg::NodePtr
mergeGeometryInVectorWithHierarchy(::osg::MaterialPtr material, const bih_tree<float>& tree,
                                   const bih_scene_geoset& scene, const kd_build_setup& kd,
                                   const mergeGeo_setup& setup, unsigned int limit, int node) {
    if (tree.nodes == nullptr || node < 0 || static_cast<std::uint64_t>(node) > tree.node_count)
        return ::osg::NullFC;
    const bih_node<float>& here = tree.nodes[node];
    if (here.is_leaf() || getNumberOfTrianglesInSceneGeoset(tree, scene, node) < limit) {
        std::vector<::osg::NodePtr> batch;
        collectNodesFromSceneGeoset(scene, tree, static_cast<unsigned int>(node), batch);
        std::vector<::osg::RefPtr<::osg::NodePtr>> held; // those of geosets are new
        for (const ::osg::NodePtr& collected : batch)
            held.emplace_back(collected);
        return mergeGeometryInVector(material, batch, kd, setup, limit);
    }
    fresh<::osg::NodePtr> out(newGroupNode());
    for (const int child : {node + 1, static_cast<int>(here.right)}) {
        fresh<::osg::NodePtr> made(
            mergeGeometryInVectorWithHierarchy(material, tree, scene, kd, setup, limit, child));
        if (made.get() == ::osg::NullFC)
            continue;
        addChildTo(out.get(), made.get());
        made.release();
    }
    return out.release();
}

} // namespace morva::osg
