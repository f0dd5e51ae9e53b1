// Lists of nodes.

#include <morva/core/morva_osg_tools.h>

#include <mutex>

#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSwitch.h>

namespace morva::osg {

namespace {

template <typename Core> bool isKindOf(const ::osg::NodePtr& node) {
    return node->getCore()->getType().isDerivedFrom(Core::getClassType());
}

/// Stand-ins for geometry nodes, each a group with one child that shares the core. Whoever got a
/// stand-in holds a plain pointer at best, so they are kept here until they are seen to be in
/// nobody's hands: at a later call, on the caller's thread.
class stand_ins {
  public:
    ::osg::NodePtr make(const ::osg::NodePtr& node) {
        const std::lock_guard<std::mutex> guard(mutex);
        groups.clear(); // a child that somebody references outlives its group
        ::osg::RefPtr<::osg::NodePtr> group(::osg::Node::create());
        group->setCore(::osg::Group::create());
        const ::osg::NodePtr child = ::osg::Node::create();
        child->setCore(node->getCore());
        group->addChild(child);
        groups.push_back(group);
        return group.get();
    }

  private:
    std::mutex mutex;
    std::vector<::osg::RefPtr<::osg::NodePtr>> groups;
};

/// The node itself, or a stand-in's group if it is a geometry.
::osg::NodePtr walkable(const ::osg::NodePtr& node) {
    static stand_ins& kept = *new stand_ins; // outlives every static object that may still call
    if (::osg::GeometryPtr::dcast(node->getCore()) == ::osg::NullFC)
        return node;
    return kept.make(node);
}

void append(std::vector<::osg::NodePtr>& to, const std::vector<::osg::NodePtr>& from) {
    to.insert(to.end(), from.begin(), from.end());
}

} // namespace

void getTravMaskZeroNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes, bool hidden) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return;
    hidden = hidden || node->getTravMask() == 0;
    if (hidden && isKindOf<::osg::Geometry>(node))
        nodes.push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        getTravMaskZeroNodes(node->getChild(i), nodes, hidden);
}

void getSkippedNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes) {
    if (node == ::osg::NullFC)
        return;
    if (shouldSkipNode(node)) {
        nodes.push_back(node);
        return;
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        getSkippedNodes(node->getChild(i), nodes);
}

void collectsubTree(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return;
    if (isKindOf<::osg::Geometry>(node)) {
        nodes.push_back(node);
        return;
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collectsubTree(node->getChild(i), nodes);
}

void getGeometryNodesForTree(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                             std::vector<::osg::NodePtr>& switches,
                             std::vector<::osg::NodePtr>& transparent) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC || node->getTravMask() == 0)
        return;
    if (isKindOf<::osg::Switch>(node) || isKindOf<::osg::DistanceLOD>(node)) {
        collectsubTree(node, switches);
        return;
    }
    if (isKindOf<::osg::Geometry>(node)) {
        if (shouldSkipNode(node))
            return;
        bool transparent_pixels = false;
        bool blends = false;
        getImage(node, transparent_pixels, blends);
        (transparent_pixels || hasMaterialAlpha(node) ? transparent : plain).push_back(node);
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        getGeometryNodesForTree(node->getChild(i), plain, switches, transparent);
}

unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                              std::vector<::osg::NodePtr>& transparent, bool withSwitches) {
    if (node == ::osg::NullFC)
        return 0;
    std::vector<::osg::NodePtr> switches;
    getGeometryNodesForTree(walkable(node), plain, switches, transparent);
    if (withSwitches)
        append(plain, switches);
    return static_cast<unsigned int>(switches.size());
}

unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes,
                              bool withSwitches) {
    if (node == ::osg::NullFC)
        return static_cast<unsigned int>(nodes.size());
    std::vector<::osg::NodePtr> switches;
    std::vector<::osg::NodePtr> transparent;
    getGeometryNodesForTree(walkable(node), nodes, switches, transparent);
    if (withSwitches)
        append(nodes, switches);
    const auto ahead = static_cast<unsigned int>(nodes.size());
    append(nodes, transparent);
    return ahead;
}

void CollectNodeNames(::osg::NodePtr node,
                      std::map<std::string, std::vector<::osg::NodePtr>>& names) {
    if (node == ::osg::NullFC)
        return;
    if (const char* name = ::osg::getName(node))
        names[name].push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        CollectNodeNames(node->getChild(i), names);
}

} // namespace morva::osg
