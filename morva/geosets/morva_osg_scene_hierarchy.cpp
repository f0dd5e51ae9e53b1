#include <morva/geosets/morva_osg_scene_hierarchy.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_matrix.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/trees/tree_ranges.h>

namespace morva::osg {

namespace {

/// Whether all nodes with a core show it in one material.
bool showsAlike(const ::osg::GeometryPtr& core, const ::osg::MaterialPtr& material) {
    const auto& holders = core->getParents();
    return std::all_of(holders.begin(), holders.end(), [&](const ::osg::NodePtr& holder) {
        return getMaterial(holder) == material;
    });
}

::osg::GeometryPtr copyWith(const ::osg::GeometryPtr& core, const ::osg::MaterialPtr& material) {
    fresh<::osg::GeometryPtr> copy(copyOfCore(core));
    copy->setMaterial(material);
    reportWhole(copy.get());
    return copy.release();
}

/// A node like another one, with another core. The name is its own: a change of one is none of the
/// other.
::osg::NodePtr likenessOf(const ::osg::NodePtr& node, const ::osg::NodeCorePtr& core) {
    fresh<::osg::NodePtr> made(newNodeWith(core));
    const open_edit edit(made.get());
    made->setTravMask(node->getTravMask());
    for (const auto& [key, attachment] : node->getSFAttachments()->getValue()) {
        if (::osg::NamePtr::dcast(attachment) == ::osg::NullFC)
            made->addAttachment(attachment, static_cast<::osg::UInt16>(key & 0xffffU));
    }
    if (const ::osg::Char8* name = ::osg::getName(node))
        ::osg::setName(made.get(), name);
    return made.release();
}

} // namespace

::osg::NodeCorePtr settled_cores::coreFor(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr core = geometryOf(node);
    if (core == ::osg::NullFC || core->getMaterial() != ::osg::NullFC)
        return node->getCore();
    const ::osg::MaterialPtr shown = getMaterial(node);
    const number core_number = core.getFieldContainerId();
    const auto [known, is_new] = contested_.emplace(core_number, false);
    if (is_new)
        known->second = !showsAlike(core, shown);
    if (!known->second) {
        if (shown != ::osg::NullFC)
            giveMaterial(core, shown);
        return core;
    }
    if (shown == ::osg::NullFC)
        return core;
    auto& copy = copies_[{core_number, shown.getFieldContainerId()}];
    if (copy == ::osg::NullFC)
        copy = copyWith(core, shown);
    return copy.get();
}

moved_nodes::moved_nodes(taking how, const ::osg::NodePtr& goal) : how_(how) {
    for (::osg::NodePtr up = goal; up != ::osg::NullFC; up = up->getParent())
        above_goal_.insert(up.getFieldContainerId());
}

void moved_nodes::add(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC || above_goal_.count(node.getFieldContainerId()) != 0)
        return;
    const auto [at, is_new] = nodes_.try_emplace(node.getFieldContainerId());
    if (!is_new)
        return;
    noted& entry = at->second;
    entry.node = node;
    entry.core = cores_.coreFor(node);
    if (node->getParent() != ::osg::NullFC)
        entry.to_world = node->getParent()->getToWorld();
    else
        entry.to_world.setIdentity();
    entry.at_origin = isIdentity(entry.to_world);
    if (how_ == taking::the_node)
        settleBelow(node);
}

void moved_nodes::settleBelow(const ::osg::NodePtr& node) {
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        const ::osg::NodePtr child = node->getChild(i);
        if (!settled_.insert(child.getFieldContainerId()).second)
            continue; // by a node in between
        if (geometryOf(child) != ::osg::NullFC) {
            const ::osg::RefPtr<::osg::NodeCorePtr> core(cores_.coreFor(child));
            if (core.get() != child->getCore())
                giveCore(child, core.get());
        }
        settleBelow(child);
    }
}

void moved_nodes::detach() {
    if (how_ != taking::the_node)
        return;
    std::map<::osg::UInt32, ::osg::NodePtr> parents;
    for (const auto& [number, entry] : nodes_) {
        const ::osg::NodePtr parent = entry.node->getParent();
        if (parent != ::osg::NullFC)
            parents.emplace(parent.getFieldContainerId(), parent);
    }
    for (const auto& [number, parent] : parents) {
        // From the end, and what is to stay as well: taking single ones out would move all behind.
        std::vector<::osg::RefPtr<::osg::NodePtr>> staying;
        for (::osg::UInt32 i = parent->getNChildren(); i-- > 0; takeChildOff(parent, i)) {
            if (nodes_.count(parent->getChild(i).getFieldContainerId()) == 0)
                staying.emplace_back(parent->getChild(i));
        }
        for (auto child = staying.rbegin(); child != staying.rend(); ++child)
            addChildTo(parent, child->get());
    }
}

void moved_nodes::hang(const ::osg::NodePtr& parent, const ::osg::NodePtr& node) const {
    if (node == ::osg::NullFC)
        return;
    const auto found = nodes_.find(node.getFieldContainerId());
    if (found == nodes_.end())
        return;
    const noted& entry = found->second;
    fresh<::osg::NodePtr> shown(how_ == taking::the_node ? node
                                                         : likenessOf(node, entry.core.get()));
    if (shown->getCore() != entry.core.get())
        giveCore(shown.get(), entry.core.get());
    if (entry.at_origin) {
        addChildTo(parent, shown.get());
    } else {
        fresh<::osg::NodePtr> holder(newTransformNode(entry.to_world));
        addChildTo(holder.get(), shown.get());
        addChildTo(parent, holder.get());
        holder.release();
    }
    shown.release();
}

namespace {

/// What a hierarchy is grown from.
template <typename NodeTree> struct growth {
    const NodeTree& tree;
    index_range range;                  ///< of the tree's indices
    std::vector<::osg::NodePtr> listed; ///< nodes of the elements of `range`
    moved_nodes moved;

    /// Two groups for the children of each inner node, and what stands in the leaves.
    void grow(const ::osg::NodePtr& parent, std::uint64_t node) const {
        std::uint64_t left = 0, right = 0;
        if (!children_of(tree, node, left, right)) {
            const index_range leaf = range_of(tree.nodes[node]);
            for (std::uint64_t k = 0; k < leaf.count; ++k)
                moved.hang(parent, listed[leaf.first - range.first + k]);
            return;
        }
        const ::osg::NodePtr first = newGroupBelow(parent), second = newGroupBelow(parent);
        grow(first, left);
        grow(second, right);
    }

    static ::osg::NodePtr newGroupBelow(const ::osg::NodePtr& parent) {
        fresh<::osg::NodePtr> made(newGroupNode());
        addChildTo(parent, made.get());
        return made.release();
    }
};

} // namespace

template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
void growHierarchy(const ::osg::NodePtr& parent, const osg_scene_geoset<Tree, Setup, Geoset>& scene,
                   const NodeTree& tree, int node, taking how) {
    const auto start = static_cast<std::uint64_t>(node);
    if (parent == ::osg::NullFC || !has_node(tree, start))
        return;
    growth<NodeTree> all{tree, range_below(tree, start), {}, moved_nodes(how, parent)};
    for (std::uint64_t k = all.range.first; k < all.range.first + all.range.count; ++k) {
        all.listed.push_back(scene.node(tree.indices[k]));
        all.moved.add(all.listed.back());
    }
    all.moved.detach();
    all.grow(parent, start);
}

template <typename Tree, typename Setup, typename Geoset, typename NodeTree>
void recBuild(::osg::NodePtr parent, osg_scene_geoset<Tree, Setup, Geoset>& scene, NodeTree& tree,
              int node) {
    growHierarchy(parent, scene, tree, node, taking::the_node);
}

template void growHierarchy(const ::osg::NodePtr&, const bih_scene_geoset&, const kd_tree<float>&,
                            int, taking);

template void recBuild(::osg::NodePtr, bih_scene_geoset&, bih_tree<float>&, int);
template void recBuild(::osg::NodePtr, bih_scene_geoset&, kd_tree<float>&, int);
template void recBuild(::osg::NodePtr, kd_scene_geoset&, bih_tree<float>&, int);
template void recBuild(::osg::NodePtr, kd_scene_geoset&, kd_tree<float>&, int);

} // namespace morva::osg
