#include <morva/geosets/morva_osg_cell_sources.h>

#include <utility>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_thin_primitives.h>
#include <morva/geosets/morva_osg_scene_hierarchy.h>

namespace morva::osg {

void settleSources(const std::vector<::osg::NodePtr>& nodes) {
    settled_cores settled;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::RefPtr<::osg::NodeCorePtr> core(settled.coreFor(node));
        if (core.get() != node->getCore())
            giveCore(node, core.get());
    }
}

::osg::GeometryPtr restOf(const ::osg::GeometryPtr& core) {
    const std::vector<primitive_run> runs = thinPrimitives(core);
    if (runs.empty())
        return ::osg::NullFC;

    fresh<::osg::GeometryPtr> rest(copyOfCore(core));
    rest->setMaterial(core->getMaterial());
    setPrimitives(rest.get(), runs);
    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    rest->setIndices(indices);
    const geometry_columns columns(core, {});
    const std::size_t stride = columns.indexed() ? columns.stride() : 1;
    for (const primitive_run& run : runs) {
        for (std::size_t i = run.first * stride; i < (run.first + run.length) * stride; ++i)
            indices->editField().push_back(columns.indexed() ? columns.indices()[i]
                                                             : static_cast<::osg::UInt32>(i));
    }
    if (!columns.indexed())
        rest->editMFIndexMapping()->clear();
    reportWhole(rest.get());
    return rest.release();
}

namespace {

/// Takes all children off a node.
std::vector<::osg::RefPtr<::osg::NodePtr>> takeChildren(const ::osg::NodePtr& node) {
    std::vector<::osg::RefPtr<::osg::NodePtr>> children(node->getNChildren());
    for (::osg::UInt32 i = node->getNChildren(); i-- > 0; takeChildOff(node, i))
        children[i] = node->getChild(i);
    return children;
}

} // namespace

source_removal::source_removal(const std::vector<::osg::NodePtr>& nodes) {
    std::vector<::osg::NodePtr> tops;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::RefPtr<::osg::GeometryPtr> rest(restOf(geometryOf(node)));
        if (rest != ::osg::NullFC) {
            staying_.push_back({node, rest});
        } else if (node->getParent() != ::osg::NullFC) {
            going_.insert(node.getFieldContainerId());
            tops.push_back(node);
        }
    }
    for (const ::osg::NodePtr& node : tops)
        parentAbove(node);
    for (std::size_t i = 0, met = parents_.size(); i < met; ++i) {
        if (parents_[i].children == 0)
            loseChild(parents_[i].node);
    }
}

/// The next node above that does not go itself.
source_removal::parent_node& source_removal::parentAbove(const ::osg::NodePtr& node) {
    ::osg::NodePtr parent = node->getParent();
    while (goes(parent))
        parent = parent->getParent();
    const auto [known, is_new] =
        parent_at_.try_emplace(parent.getFieldContainerId(), parents_.size());
    if (is_new) {
        parents_.push_back({parent, 0});
        std::size_t& children = parents_.back().children;
        forEachStaying(parent, [&children](const ::osg::NodePtr&) { ++children; });
    }
    return parents_[known->second];
}

/// Enters a parent that is left without children as one that goes, and those above it that this
/// leaves without. A root stays, and what is drawn.
void source_removal::loseChild(::osg::NodePtr child) {
    while (child->getParent() != ::osg::NullFC && geometryOf(child) == ::osg::NullFC &&
           emptied_.insert(child.getFieldContainerId()).second) {
        parent_node& above = parentAbove(child);
        if (--above.children > 0)
            return;
        child = above.node;
    }
}

/// Calls `use` with the children of a parent that do not go, and behind them with those of its
/// children that go, and so on.
template <typename Use>
void source_removal::forEachStaying(const ::osg::NodePtr& parent, const Use& use) const {
    std::vector<::osg::NodePtr> going;
    const auto look = [&](const ::osg::NodePtr& above) {
        for (::osg::UInt32 i = 0; i < above->getNChildren(); ++i) {
            const ::osg::NodePtr child = above->getChild(i);
            if (goes(child))
                going.push_back(child);
            else
                use(child);
        }
    };
    look(parent);
    for (std::size_t i = 0; i < going.size(); ++i) {
        const ::osg::NodePtr above = going[i];
        look(above);
    }
}

void source_removal::takeOff(const ::osg::NodePtr& parent) const {
    std::vector<::osg::RefPtr<::osg::NodePtr>> staying;
    forEachStaying(parent, [&](const ::osg::NodePtr& child) {
        if (emptied_.count(child.getFieldContainerId()) == 0)
            staying.emplace_back(child);
    });
    // All of them, and the last one first: taking single ones out would move all behind.
    std::vector<::osg::RefPtr<::osg::NodePtr>> taken = takeChildren(parent);
    for (std::size_t i = 0; i < taken.size(); ++i) {
        const ::osg::NodePtr child = taken[i].get();
        if (!goes(child))
            continue;
        for (auto& below : takeChildren(child))
            taken.push_back(below);
    }
    for (const auto& child : staying)
        addChildTo(parent, child.get());
}

void source_removal::run() {
    for (const staying_node& each : staying_)
        giveCore(each.node, each.rest.get());
    std::vector<::osg::RefPtr<::osg::NodePtr>> held; // parents below others that go
    held.reserve(parents_.size());
    for (const parent_node& parent : parents_) {
        if (parent.node->getParent() != ::osg::NullFC)
            held.emplace_back(parent.node);
    }
    for (const parent_node& parent : parents_)
        takeOff(parent.node);
}

} // namespace morva::osg
