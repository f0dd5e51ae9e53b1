#include <morva/driver/morva_osg_hierarchy_stage.h>

#include <vector>

#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_cleanup.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

namespace {

constexpr caught_texts hierarchy_failure{
    "bad_alloc caught in scene hierarchy: ", "Standard exception in scene hierarchy: ",
    "Error occured in scene hierarchy."};

/// As getGeometryNodes() without switches, but a root that is a geometry is itself in the list.
std::vector<::osg::NodePtr> partsOf(const ::osg::NodePtr& root) {
    std::vector<::osg::NodePtr> parts, switches, transparent;
    getGeometryNodesForTree(root, parts, switches, transparent);
    parts.insert(parts.end(), transparent.begin(), transparent.end());
    return parts;
}

void growBelow(const ::osg::NodePtr& top, const ::osg::NodePtr& root, taking how) {
    bih_scene_geoset scene; // whole nodes: no geosets
    scene.nodes = partsOf(root);
    scene.build(::osg::NullFC, build_setup{2000000, 0});
    kd_tree<float> tree;
    compile(scene, tree, kd_build_setup{1, 150, 3, 1.0F, 2.0F, 0.95F, false},
            kd_strategy_ObjMedian());
    growHierarchy(top, scene, tree, 0, how);
}

bool holdsGeometry(const ::osg::NodePtr& node) {
    if (geometryOf(node) != ::osg::NullFC)
        return true;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        if (holdsGeometry(node->getChild(i)))
            return true;
    }
    return false;
}

/// Moves the children of `root` that still hold geometry below `top`, in their order.
void takeRest(const ::osg::NodePtr& top, const ::osg::NodePtr& root) {
    std::vector<::osg::RefPtr<::osg::NodePtr>> left;
    for (::osg::UInt32 i = root->getNChildren(); i-- > 0;) {
        if (!holdsGeometry(root->getChild(i)))
            continue;
        left.emplace_back(root->getChild(i));
        takeChildOff(root, i);
    }
    for (auto child = left.rbegin(); child != left.rend(); ++child)
        addChildTo(top, child->get());
}

} // namespace

::osg::NodePtr buildSceneHierarchy(const ::osg::NodePtr& root, bool own) {
    say({"Building Scene Hierarchy for final scenegraph..."});
    fresh<::osg::NodePtr> top(newGroupNode());
    try {
        growBelow(top.get(), root, own ? taking::the_node : taking::a_new_node);
        if (own)
            takeRest(top.get(), root);
        removeEmptyParts(top.get());
    } catch (...) {
        print_caught(hierarchy_failure);
        if (!own || top->getNChildren() == 0)
            return root;
    }
    say({"done."});
    if (own)
        const fresh<::osg::NodePtr> rest(root);
    return top.release();
}

} // namespace morva::osg
