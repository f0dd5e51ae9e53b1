#include <morva/geosets/morva_osg_splitmodel.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_index_rebuild.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_platform.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_shared_steps.h>
#include <morva/core/morva_span.h>
#include <morva/geosets/morva_osg_element_index.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/idmap/morva_osg_late_names.h>
#include <morva/trees/tree_ranges.h>

namespace morva::osg {

namespace {

/// Most entries of a property that is stored in 16 bits.
constexpr std::size_t short_limit = 65534;

/// What the elements of a geoset are in a geometry.
template <typename G> struct element_form;
template <> struct element_form<osg_geoset> {
    static constexpr unsigned int corners = 3;
    static constexpr ::osg::UInt8 type = 4; ///< GL_TRIANGLES
};
template <> struct element_form<osg_line_geoset> {
    static constexpr unsigned int corners = 2;
    static constexpr ::osg::UInt8 type = 1; ///< GL_LINES
};
template <> struct element_form<osg_point_geoset> {
    static constexpr unsigned int corners = 1;
    static constexpr ::osg::UInt8 type = 0; ///< GL_POINTS
};

/// A run of sorted objects without those that the geoset does not have.
struct object_run {
    span<const std::uint64_t> objects; ///< in the tree's array, or in `kept`
    std::vector<std::uint64_t> kept;   ///< filled only if some were passed over
    unsigned int corners = 0;          ///< vertices of one object
};

template <typename T, typename G>
object_run validRun(const T& tree, const G& geoset, unsigned int first, unsigned int count) {
    object_run run;
    run.corners = element_form<G>::corners;
    run.objects = span<const std::uint64_t>(tree.indices, tree.index_count).subspan(first, count);
    const auto valid = [&](std::uint64_t object) { return object < geoset.size; };
    if (std::all_of(run.objects.begin(), run.objects.end(), valid))
        return run;

    for (std::size_t i = 0; i < run.objects.size(); ++i) {
        const std::uint64_t object = run.objects[i];
        if (valid(object)) {
            run.kept.push_back(object);
            continue;
        }
        say({"Index out of bounce.( Splitmodel )"});
        say({"I: ", std::to_string(first + i), " index: ", std::to_string(object),
             " num_objects: ", std::to_string(geoset.size)});
    }
    run.objects = run.kept;
    return run;
}

/// Copies the vertices of a run's objects; where the source is too short they read zero.
template <typename Row> void copyRows(span<const Row> source, const object_run& run, Row* out) {
    for (const std::uint64_t object : run.objects) {
        const std::size_t base = object * run.corners;
        for (std::size_t row = base; row < base + run.corners; ++row) {
            *out++ = row < source.size() ? source[row] : Row();
        }
    }
}

/// Fills a new property with the run's rows of `source`. `take` hands the property to the
/// geometry, which owns it from then on.
template <typename Concrete, typename Row, typename Take>
void rebuild(span<const Row> source, const object_run& run, const Take& take) {
    const Concrete made = Concrete::StoredObjectType::create();
    take(made);
    auto& rows = made->editField();
    rows.resize(run.objects.size() * run.corners);
    if (!rows.empty())
        copyRows(source, run, &rows[0]);
}

/// Gives `geometry` the run's rows of every property that the geoset's core has: coordinates of
/// one component as they are, all others in their usual forms.
void rebuildProperties(const ::osg::GeometryPtr& core, const object_run& run,
                       const ::osg::GeometryPtr& geometry) {
    for (const vertex_property which : all_properties) {
        withProperty(core, geometry, which, [&](const auto& source, const auto& take) {
            if (source == ::osg::NullFC && which != vertex_property::position)
                return;
            if constexpr (std::is_same_v<usual_form<decltype(source)>, ::osg::GeoTexCoords2fPtr>) {
                const auto single = ::osg::GeoTexCoords1fPtr::dcast(source);
                if (single != ::osg::NullFC)
                    return rebuild<::osg::GeoTexCoords1fPtr>(
                        span<const ::osg::Real32>(editSpan(single)), run, take);
            }
            const auto block = readBlock(source);
            rebuild<usual_form<decltype(source)>>(block.view(), run, take);
        });
    }
}

/// One primitive over all vertices; its length in 16 bits where it fits.
void setPrimitive(const ::osg::GeometryPtr& geometry, ::osg::UInt8 type, std::size_t vertices) {
    const ::osg::GeoPTypesPtr types = ::osg::GeoPTypesUI8::create();
    geometry->setTypes(types);
    types->addValue(type);
    ::osg::GeoPLengthsPtr lengths;
    if (vertices <= short_limit) {
        lengths = ::osg::GeoPLengthsUI16::create();
    } else {
        lengths = ::osg::GeoPLengthsUI32::create();
    }
    geometry->setLengths(lengths);
    lengths->addValue(static_cast<::osg::UInt32>(vertices));
}

/// Copies the values of `source` into a new property of the form `Concrete`, given to the
/// geometry by `take`.
template <typename Concrete, typename Ptr, typename Take>
void restore(const Ptr& source, const Take& take) {
    const ::osg::RefPtr<Ptr> kept(source);
    const auto block = readBlock(source);
    const Concrete made = Concrete::StoredObjectType::create();
    take(made);
    auto& field = made->editField();
    field.reserve(block.view().size());
    using value = std::decay_t<decltype(field[0])>;
    for (const ::osg::UInt32 entry : block.view())
        field.push_back(static_cast<value>(entry));
}

template <typename Ptr> bool fitsShort(const Ptr& property) {
    const auto block = readBlock(property);
    return std::all_of(block.view().begin(), block.view().end(),
                       [](::osg::UInt32 value) { return value <= 65535; });
}

/// Strips by the scene graph. Lengths are kept wide meanwhile: one strip stitched of many can be
/// longer than the triangles that it stands for.
void optimisePrimitives(const ::osg::GeometryPtr& geometry) {
    const bool was_short =
        ::osg::GeoPLengthsUI16Ptr::dcast(geometry->getLengths()) != ::osg::NullFC;
    restore<::osg::GeoPLengthsUI32Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
    joinEqualVertices(geometry);
    ::osg::createSingleIndex(geometry);
    morva::osg::createOptimizedPrimitives(geometry, 1, true, false, 16, false, true, false);
    if (!was_short || !fitsShort(geometry->getLengths()))
        return;
    restore<::osg::GeoPLengthsUI16Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
}

void calculateNormals(const ::osg::GeometryPtr& geometry) {
    geometry->setNormals(::osg::NullFC);
    joinEqualVertices(geometry);
    ::osg::createSingleIndex(geometry);
    calcCreaseNormals(geometry, crease_angle);
}

/// The index of the output levels 1 and 2 over all properties, in the forms of the functions that
/// handle five.
void indexAllProperties(const ::osg::GeometryPtr& geometry, bool per_property) {
    unindexVertices(geometry);
    indexVertices(geometry, per_property);
    restore<::osg::GeoPLengthsUI32Ptr>(geometry->getLengths(),
                                       [&](const auto& made) { geometry->setLengths(made); });
}

/// Brings triangles from the unindexed form to that of the output level.
void applyLevel(const ::osg::GeometryPtr& geometry, int opt, const osg_geoset*) {
    if ((opt == 1 || opt == 2) && hasFurtherProperties(geometry)) {
        indexAllProperties(geometry, opt == 2);
        return;
    }
    if (opt == 1)
        rebuildAsTriangles(geometry, triangle_index::common);
    if (opt == 2)
        rebuildAsTriangles(geometry, triangle_index::per_property);
    if (opt == 3)
        optimisePrimitives(geometry);
}

/// As for triangles. What rebuilds triangles drops lines and points, so they are indexed apart.
template <typename G> void applyLevel(const ::osg::GeometryPtr& geometry, int opt, const G*) {
    if (opt == 1)
        indexVertices(geometry, false);
    if (opt == 2)
        indexVertices(geometry, true);
    if (opt == 3) {
        joinEqualVertices(geometry);
        ::osg::createSingleIndex(geometry);
    }
}

/// Stores the indices in 16 bits if there are few; the values must fit, too: a strip can use
/// fewer indices than there are vertices.
void narrowIndices(const ::osg::GeometryPtr& geometry) {
    const ::osg::GeoIndicesPtr indices = geometry->getIndices();
    if (indices == ::osg::NullFC || indices->size() > short_limit || !fitsShort(indices))
        return;
    restore<::osg::GeoIndicesUI16Ptr>(indices,
                                      [&](const auto& made) { geometry->setIndices(made); });
}

template <typename G>
void fillGeometry(const ::osg::GeometryPtr& geometry, const object_run& run, const G& geoset,
                  int opt, bool calcnormals) {
    constexpr bool triangles = element_form<G>::corners == 3;
    // A geoset without a core has nothing, as the new geometry has.
    const ::osg::GeometryPtr core =
        geoset.geometry == ::osg::NullFC ? geometry : geoset.geometry.get();
    const geometry_edit edit(geometry);
    rebuildProperties(core, run, geometry);
    setPrimitive(geometry, element_form<G>::type, run.objects.size() * run.corners);
    geometry->setMaterial(core->getMaterial());

    if (calcnormals && triangles)
        calculateNormals(geometry);
    if (opt < 0 || opt > 3) {
        say({"Splitmodel: OutputLevel ", std::to_string(opt), " not supported"});
    }
    applyLevel(geometry, opt, &geoset);
    narrowIndices(geometry);
}

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
            const auto geometry = ::osg::GeometryPtr::dcast(core.node->getCore());
            fillGeometry(geometry, validRun(tree, geoset, core.first, core.count), geoset, opt,
                         calcnormals);
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
        fillGeometry(::osg::GeometryPtr::dcast(node->getCore()),
                     validRun(tree, geoset, first, count), geoset, opt, calcnormals);
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
