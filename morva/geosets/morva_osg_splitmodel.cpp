#include <morva/geosets/morva_osg_splitmodel.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_shared_steps.h>
#include <morva/geosets/morva_osg_core_filling.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/idmap/morva_osg_late_names.h>
#include <morva/trees/tree_ranges.h>

namespace morva::osg {

namespace {

/// What stands for a core that could not be made; null if even that cannot be made.
::osg::NodePtr emptyGeometryNode() {
    try {
        const ::osg::GeometryPtr none = createGeo();
        none->getTypes()->clear(); // it has no length, either
        return newNodeWith(none);
    } catch (...) {
        return ::osg::NullFC;
    }
}

/// A geometry node under the next name, to be filled.
::osg::NodePtr newNamedGeometry() {
    fresh<::osg::NodePtr> node(newNodeWith(::osg::Geometry::create()));
    nameGeometry(node.get(), &idmapHandler::getNextMergedGeometryName);
    return node.release();
}

void printCoreError() {
    print_caught({"Bad_Alloc caught in MakeGeoCore: ", "Standard exception in MakeGeoCore: ",
                  "Error occured in MakeGeoCore."});
}

/// What `make` gives, or what stands for it if it throws, after a line.
template <typename Make>::osg::NodePtr orEmpty(const Make& make) {
    try {
        return make();
    } catch (...) {
        printCoreError();
    }
    return emptyGeometryNode();
}

/// Whether the tree has that node; it has none below 0.
template <typename T> bool hasNode(const T& tree, int node) {
    return has_node(tree, static_cast<std::uint64_t>(node));
}

/// Start of the run of objects below a node: that of its leftmost leaf.
template <typename T> unsigned int firstBelow(const T& tree, int node) {
    return static_cast<unsigned int>(range_below(tree, static_cast<std::uint64_t>(node)).first);
}

/// Objects below each node of a subtree, counted once.
class cell_counts {
  public:
    template <typename T> cell_counts(const T& tree, int node) : base_(node) {
        if (hasNode(tree, node))
            fill(tree, node);
    }
    unsigned int at(int node) const {
        const auto place = static_cast<std::size_t>(node - base_);
        return place < counts_.size() ? counts_[place] : 0;
    }

  private:
    template <typename T> unsigned int fill(const T& tree, int node) {
        const auto place = static_cast<std::size_t>(node - base_);
        if (place >= counts_.size())
            counts_.resize(place + 1);
        unsigned int count = 0;
        if (tree.nodes[node].is_leaf()) {
            count = tree.nodes[node].range_count();
        } else {
            count = fill(tree, node + 1);
            count += fill(tree, tree.nodes[node].right_child());
        }
        counts_[place] = count;
        return count;
    }

    int base_;
    std::vector<unsigned int> counts_; ///< of node `base_ + i`
};

void addFresh(const ::osg::NodePtr& parent, const ::osg::NodePtr& child) {
    if (child == ::osg::NullFC)
        return;
    fresh<::osg::NodePtr> made(child);
    addChildTo(parent, made.get());
    made.release();
}

/// A core that is named and in its place, and still to be filled.
struct waiting_core {
    ::osg::NodePtr node;       ///< has a parent
    unsigned int first, count; ///< range in the tree's indices
    bool failed = false;       ///< could not be filled
};

/// Puts what stands for a core that could not be made in its place.
void replaceByEmpty(const ::osg::NodePtr& failed) {
    const ::osg::NodePtr parent = failed->getParent();
    fresh<::osg::NodePtr> empty(emptyGeometryNode());
    if (empty.get() == ::osg::NullFC) {
        takeChildOff(parent, static_cast<::osg::UInt32>(parent->findChild(failed)));
        return;
    }
    const open_edit edit(parent);
    parent->replaceChildBy(failed, empty.get());
    reportChange(empty.release());
}

/// What stays the same in all steps of one cut.
template <typename T, typename G> struct cut_context {
    const T& tree;
    const G& geoset;
    const cell_counts& counts;
    unsigned int limit; ///< objects of one core
    int opt;
    bool calcnormals;
    std::vector<waiting_core>* waiting; ///< takes cores in, to be filled later; null: done at once

    ::osg::NodePtr core(unsigned int first, unsigned int count) const {
        if (waiting == nullptr)
            return MakeGeoCore(tree, geoset, first, count, opt, calcnormals);
        return orEmpty([&] {
            fresh<::osg::NodePtr> node(newNamedGeometry());
            waiting->push_back({node.get(), first, count});
            return node.release();
        });
    }

    /// Any thread.
    void fill(waiting_core& core) const noexcept {
        try {
            fillCore(geometryOf(core.node), tree, geoset, core.first, core.count, opt, calcnormals);
        } catch (...) {
            printCoreError();
            core.failed = true;
        }
    }
};

template <typename T, typename G>
::osg::NodePtr cutCell(const cut_context<T, G>& context, int node, int parts) {
    const T& tree = context.tree;
    const unsigned int first = firstBelow(tree, node);
    if (parts == 1 || !hasNode(tree, node) || tree.nodes[node].is_leaf()) {
        return context.core(first, context.counts.at(node));
    }
    const int left_node = node + 1;
    const int right_node = tree.nodes[node].right_child();
    const unsigned int left = context.counts.at(left_node);
    const unsigned int right = context.counts.at(right_node);
    const bool fits = std::uint64_t(left) + right <= context.limit;
    if (!fits && parts == 2) {
        return Node_to_2GeoCores(tree, context.geoset, node, context.opt, context.calcnormals);
    }

    fresh<::osg::NodePtr> group(newGroupNode());
    if (fits) {
        addFresh(group.get(), context.core(first, left + right));
    } else if (parts == 0) {
        if (left != 0)
            addFresh(group.get(), cutCell(context, left_node, 0));
        if (right != 0)
            addFresh(group.get(), cutCell(context, right_node, 0));
    } else {
        const int left_parts = calcleftpart(left, right, parts);
        if (left_parts > 0)
            addFresh(group.get(), cutCell(context, left_node, left_parts));
        if (parts - left_parts >= 1) {
            addFresh(group.get(), cutCell(context, right_node, parts - left_parts));
        }
    }
    return group.release();
}

/// cutCell() of a node that is cut, for a task that may be helped: first all cores in their places
/// and under their names, in their order, then what is in them.
template <typename T, typename G>
::osg::NodePtr cutInSteps(cut_context<T, G> context, int node, int parts) {
    std::vector<waiting_core> waiting;
    context.waiting = &waiting;
    fresh<::osg::NodePtr> group(cutCell(context, node, parts));
    shareSteps(waiting.size(), [&](std::size_t i) { context.fill(waiting[i]); });
    for (const waiting_core& core : waiting) {
        if (core.failed)
            replaceByEmpty(core.node);
    }
    return group.release();
}

} // namespace

template <typename T, typename G>
::osg::NodePtr MakeGeoCore(T const& tree, G const& geoset, unsigned int first, unsigned int count,
                           int opt, bool calcnormals) {
    return orEmpty([&] {
        fresh<::osg::NodePtr> node(newNamedGeometry());
        fillCore(geometryOf(node.get()), tree, geoset, first, count, opt, calcnormals);
        return node.release();
    });
}

template <typename T, typename G>
::osg::NodePtr Node_to_2GeoCores(T const& tree, G const& geoset, int node, int opt,
                                 bool calcnormals) {
    fresh<::osg::NodePtr> group(newGroupNode());
    const unsigned int first = firstBelow(tree, node);
    unsigned int left = 0;
    unsigned int right = 0;
    if (hasNode(tree, node) && !tree.nodes[node].is_leaf()) {
        const auto right_node = static_cast<unsigned int>(tree.nodes[node].right_child());
        left = static_cast<unsigned int>(triangle_count(tree, static_cast<unsigned>(node) + 1));
        right = static_cast<unsigned int>(triangle_count(tree, right_node));
    } else if (hasNode(tree, node)) {
        left = tree.nodes[node].range_count();
    }
    addFresh(group.get(), MakeGeoCore(tree, geoset, first, left, opt, calcnormals));
    addFresh(group.get(), MakeGeoCore(tree, geoset, first + left, right, opt, calcnormals));
    return group.release();
}

template <typename T, typename G>
::osg::NodePtr Make_N_GeometryCores(T const& tree, G const& geoset, int node, int parts,
                                    unsigned int limit, int opt, bool calcnormals) {
    const cell_counts counts(tree, node);
    const cut_context<T, G> context{tree, geoset, counts, limit, opt, calcnormals, nullptr};
    const bool is_cut = parts != 1 && hasNode(tree, node) && !tree.nodes[node].is_leaf();
    return is_cut && hasHelp() ? cutInSteps(context, node, parts) : cutCell(context, node, parts);
}

template <typename T, typename G>
::osg::NodePtr Split(T const& tree, G const& geoset, int node, int parts, unsigned int limit,
                     ::osg::NodePtr model, int opt, bool calcnormals) {
    if (parts > 0 && static_cast<std::uint64_t>(parts) > tree.leaf_count)
        parts = 0;
    const ::osg::NodePtr result =
        Make_N_GeometryCores(tree, geoset, node, parts, limit, opt, calcnormals);
    if (model == ::osg::NullFC || result == ::osg::NullFC)
        return result;
    const ::osg::MaterialGroupPtr material = ::osg::MaterialGroupPtr::dcast(model->getCore());
    if (material != ::osg::NullFC) {
        giveCore(result, material);
    }
    return result;
}

int calcleftpart(unsigned int l, unsigned int r, int n) {
    if (l == 0)
        return 0;
    if (r == 0)
        return n;
    const float total = static_cast<float>(std::uint64_t(l) + r);
    const float share = static_cast<float>(n) * static_cast<float>(l) / total + 0.5F;
    // Near the largest int the product rounds up to a value that no int has.
    int left = share < 2147483648.0F ? static_cast<int>(share) : n;
    if (left == n)
        left = n - 1;
    if (left == 0)
        left = 1;
    return left;
}

#define MORVA_SPLITMODEL_INSTANCE(G)                                                               \
    template MORVA_API ::osg::NodePtr MakeGeoCore(kd_tree<float> const&, G const&, unsigned int,   \
                                                  unsigned int, int, bool);                        \
    template MORVA_API ::osg::NodePtr Node_to_2GeoCores(kd_tree<float> const&, G const&, int, int, \
                                                        bool);                                     \
    template MORVA_API ::osg::NodePtr Make_N_GeometryCores(kd_tree<float> const&, G const&, int,   \
                                                           int, unsigned int, int, bool);          \
    template MORVA_API ::osg::NodePtr Split(kd_tree<float> const&, G const&, int, int,             \
                                            unsigned int, ::osg::NodePtr, int, bool)
MORVA_SPLITMODEL_INSTANCE(osg_geoset);
MORVA_SPLITMODEL_INSTANCE(osg_line_geoset);
MORVA_SPLITMODEL_INSTANCE(osg_point_geoset);

} // namespace morva::osg
