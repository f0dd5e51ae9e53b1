// Lists of nodes.

#include <morva/core/morva_osg_tools.h>

#include <algorithm>
#include <mutex>

#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSwitch.h>

#include <morva/core/morva_osg_alpha_scans.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_walk_start.h>

namespace morva::osg {

namespace {

/// Stand-ins for geometry nodes, each the only child of a group and with the core of the node that
/// it stands for. Callers hold them by plain pointers, in lists that outlive the next call, so a
/// stand-in stays until no other node shows its core or it was moved to another parent.
class stand_ins {
  public:
    /// The group of a stand-in for this node; the same one again while nobody changed it.
    ::osg::NodePtr groupFor(const ::osg::NodePtr& node) {
        const std::lock_guard<std::mutex> guard(mutex_);
        dropSome();
        entry& kept = entries_[node->getCore().getFieldContainerId()];
        if (kept.groups.empty() || !isFresh(kept.groups.back().get(), node->getCore())) {
            kept.core = node->getCore();
            kept.groups.emplace_back(newStandIn(node));
        }
        return kept.groups.back().get();
    }

  private:
    struct entry {
        ::osg::RefPtr<::osg::NodeCorePtr> core;
        std::vector<::osg::RefPtr<::osg::NodePtr>> groups; ///< of which the last may be given again
    };
    using entry_map = std::map<::osg::UInt32, entry>;

    static bool showsCore(const ::osg::NodePtr& group, const ::osg::NodeCorePtr& core) {
        return group->getNChildren() == 1 && group->getChild(0)->getCore() == core;
    }

    static bool isFresh(const ::osg::NodePtr& group, const ::osg::NodeCorePtr& core) {
        if (!showsCore(group, core))
            return false;
        const ::osg::NodePtr child = group->getChild(0);
        return child->getNChildren() == 0 && child->getTravMask() == ~::osg::UInt32(0) &&
               child->getSFAttachments()->getValue().empty();
    }

    /// Drops the groups that have lost their stand-in; all of them if no other node has the core.
    static void drop(entry& kept) {
        std::vector<::osg::RefPtr<::osg::NodePtr>> still;
        std::size_t own = 0;
        for (const auto& group : kept.groups) {
            if (group->getNChildren() == 0)
                continue;
            own += showsCore(group.get(), kept.core.get()) ? 1 : 0;
            still.push_back(group);
        }
        if (kept.core->getParents().size() <= own)
            still.clear();
        kept.groups.swap(still);
    }

    /// Looks at a few entries, in turn, so that a call's cost stays bounded.
    void dropSome() {
        for (std::size_t looks = std::min<std::size_t>(64, entries_.size()); looks > 0; --looks) {
            entry_map::iterator at = entries_.upper_bound(last_seen_);
            if (at == entries_.end())
                at = entries_.begin();
            last_seen_ = at->first;
            drop(at->second);
            if (at->second.groups.empty())
                entries_.erase(at);
        }
    }

    std::mutex mutex_;
    entry_map entries_; ///< by the core's container number, which is its own while it is held here
    ::osg::UInt32 last_seen_ = 0;
};

/// The node itself, or a stand-in's group if it is a geometry.
::osg::NodePtr walkable(const ::osg::NodePtr& node) {
    static stand_ins& kept = *new stand_ins; // outlives every static object that may still call
    if (geometryOf(node) == ::osg::NullFC)
        return node;
    return kept.groupFor(node);
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

void getGeometryNodesForTree(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& plain,
                             std::vector<::osg::NodePtr>& switches,
                             std::vector<::osg::NodePtr>& transparent, alpha_scans& scans) {
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC || node->getTravMask() == 0)
        return;
    if (isKindOf<::osg::Switch>(node) || isKindOf<::osg::DistanceLOD>(node)) {
        collectsubTree(node, switches);
        return;
    }
    if (isKindOf<::osg::Geometry>(node)) {
        ::osg::NodePtr shown = node;
        if (shouldSkipNode(shown))
            return;
        const bool see_through = scans.isTransparent(getImage(node)) || hasMaterialAlpha(node);
        (see_through ? transparent : plain).push_back(node);
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        getGeometryNodesForTree(node->getChild(i), plain, switches, transparent, scans);
}

void getGeometryNodesForTree(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                             std::vector<::osg::NodePtr>& switches,
                             std::vector<::osg::NodePtr>& transparent) {
    alpha_scans scans;
    getGeometryNodesForTree(node, plain, switches, transparent, scans);
}

unsigned int getGeometryNodes(const ::osg::NodePtr& node, std::vector<::osg::NodePtr>& plain,
                              std::vector<::osg::NodePtr>& transparent, bool withSwitches,
                              alpha_scans& scans) {
    if (node == ::osg::NullFC)
        return 0;
    std::vector<::osg::NodePtr> switches;
    getGeometryNodesForTree(walkable(node), plain, switches, transparent, scans);
    if (withSwitches)
        append(plain, switches);
    return static_cast<unsigned int>(switches.size());
}

unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& plain,
                              std::vector<::osg::NodePtr>& transparent, bool withSwitches) {
    alpha_scans scans;
    return getGeometryNodes(node, plain, transparent, withSwitches, scans);
}

unsigned int getGeometryNodes(::osg::NodePtr node, std::vector<::osg::NodePtr>& nodes,
                              bool withSwitches) {
    std::vector<::osg::NodePtr> transparent;
    getGeometryNodes(node, nodes, transparent, withSwitches);
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
