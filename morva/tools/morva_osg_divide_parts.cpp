#include <morva/tools/morva_osg_divide_parts.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_node_looks.h>
#include <morva/core/morva_osg_taken_children.h>
#include <morva/core/morva_osg_thin_primitives.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/trees/kd_strategies.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

using ::osg::Node;
using ::osg::NodePtr;

node_triangles::node_triangles(const NodePtr& node, const division_options& options) {
    geoset.lean = true;
    extract_options wanted;
    wanted.run_setup = true;
    wanted.clean_texcoords = options.clean_texcoords;
    wanted.known_ids_only = options.known_ids_only;
    extract(node, geoset, wanted);
}

bool node_triangles::sort(const kd_build_setup& setup) {
    if (geoset.size == 0)
        return false;
    compile(geoset, tree, setup, kd_strategy_median());
    geoset.dropExtents(); // cores are made without them
    return true;
}

NodePtr node_triangles::split(int parts, unsigned int limit,
                              const division_options& options) const {
    return Split(tree, geoset, 0, parts, limit, ::osg::NullFC, options.level, options.calcnormals);
}

bool node_triangles::allOnOneSide() const {
    if (tree.nodes[0].is_leaf())
        return false;
    const auto right = static_cast<unsigned int>(tree.nodes[0].right_child());
    return triangle_count(tree, 1) == geoset.size || triangle_count(tree, right) == geoset.size;
}

namespace {

/// Numbers of rows, each once, rising.
using row_list = std::vector<::osg::UInt32>;

/// Gives a geometry those rows of a core's property that there are, byte by byte, in its own form.
void copyRows(const ::osg::GeometryPtr& core, const ::osg::GeometryPtr& geometry,
              vertex_property which, const row_list& rows) {
    withProperty(core, geometry, which, [&](const auto& source, const auto& take) {
        if (source == ::osg::NullFC)
            return;
        const ::osg::RefPtr<std::decay_t<decltype(source)>> copy(source->clone());
        // Colours of three bytes don't tell their size on every platform.
        const auto* stored = core->getProperty(mappingBit(which));
        const std::size_t bytes = dynamic_cast<const ::osg::GeoColors3ub*>(stored) != nullptr
                                      ? 3
                                      : copy->getDimension() * copy->getFormatSize();
        const auto end = std::lower_bound(rows.begin(), rows.end(), source->size());
        ::osg::UInt8* to = copy->getData();
        for (auto row = rows.begin(); row != end; ++row, to += bytes) // never behind its source
            std::memmove(to, copy->getData() + *row * bytes, bytes);
        copy->resize(static_cast<std::size_t>(end - rows.begin()));
        copy->shrink();
        take(copy.get());
    });
}

/// What the runs use of one of a core's indices; without any, their corners.
row_list rowsOf(const property_block<::osg::UInt32>& all, std::size_t slot, std::size_t stride,
                const std::vector<primitive_run>& runs) {
    row_list rows;
    for (const primitive_run& run : runs) {
        for (std::size_t corner = run.first; corner < run.first + run.length; ++corner)
            rows.push_back(all.empty() ? static_cast<::osg::UInt32>(corner)
                                       : all[corner * stride + slot]);
    }
    return rows;
}

/// Takes over the vertices of the runs: unindexed as they were, or with as many indices.
///
/// returns  the new indices, none if there were none
std::vector<::osg::UInt32> takeThinVertices(const ::osg::GeometryPtr& core,
                                            const ::osg::GeometryPtr& geometry,
                                            const std::vector<primitive_run>& runs) {
    const auto all = readBlock(core->getIndices());
    const auto& mapping = core->getIndexMapping();
    const bool one_for_all = all.empty() || mapping.size() == 0;
    const std::size_t stride = one_for_all ? 1 : mapping.size();
    std::vector<::osg::UInt32> indices;
    for (std::size_t slot = 0; slot < stride; ++slot) {
        const row_list used = rowsOf(all, slot, stride, runs);
        row_list rows = used;
        std::sort(rows.begin(), rows.end());
        rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
        for (const vertex_property which : all_properties) {
            if (one_for_all ||
                core->calcMappingIndex(mappingBit(which)) == static_cast<::osg::Int16>(slot))
                copyRows(core, geometry, which, rows);
        }
        if (all.empty())
            break;
        indices.resize(used.size() * stride);
        for (std::size_t i = 0; i < used.size(); ++i)
            indices[i * stride + slot] = static_cast<::osg::UInt32>(
                std::lower_bound(rows.begin(), rows.end(), used[i]) - rows.begin());
        if (!one_for_all)
            geometry->editMFIndexMapping()->push_back(mapping[static_cast<::osg::UInt32>(slot)]);
    }
    return indices;
}

/// Gives a geometry indices in a form; they are not greater than those that had it before.
template <typename Form>
void setIndices(const ::osg::GeometryPtr& geometry, const std::vector<::osg::UInt32>& indices) {
    const ::osg::RefPtr<typename Form::PtrType> made(Form::create());
    for (const ::osg::UInt32 index : indices)
        made->editField().push_back(static_cast<typename Form::StoredType>(index));
    geometry->setIndices(made.get());
}

/// A node with the lines and points of a core, null if it has none. It shares no property, and has
/// no more of them than it uses.
NodePtr nodeOfThinPrimitives(const ::osg::GeometryPtr& core) {
    const std::vector<primitive_run> runs = thinPrimitives(core);
    if (runs.empty())
        return ::osg::NullFC;
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    fresh<NodePtr> node(newNodeWith(geometry));
    setPrimitives(geometry, runs);
    const std::vector<::osg::UInt32> indices = takeThinVertices(core, geometry, runs);
    if (::osg::GeoIndicesUI16Ptr::dcast(core->getIndices()) != ::osg::NullFC)
        setIndices<::osg::GeoIndicesUI16>(geometry, indices);
    else if (!indices.empty())
        setIndices<::osg::GeoIndicesUI32>(geometry, indices);
    geometry->setMaterial(core->getMaterial());
    if (const ::osg::Char8* name = ::osg::getName(core))
        ::osg::setName(geometry, name);
    reportWhole(geometry);
    return node.release();
}

/// Makes room for more children, so that adding them can't fail.
void reserveChildren(const NodePtr& node, std::size_t more) {
    node->editMFChildren()->reserve(node->getNChildren() + more);
}

/// Makes a change that is done, or not, whatever it throws behind that: then only a line in the
/// change list has no room, this aspect is right, and others learn of it later.
template <typename Change, typename IsDone>
void changeOnce(const Change& change, const IsDone& isDone) {
    try {
        change();
    } catch (const std::bad_alloc&) {
        if (!isDone())
            throw;
    }
}

/// Puts core and children of `made` into a node without a parent.
void fillRoot(const NodePtr& node, const NodePtr& made) {
    reserveChildren(node, made->getNChildren() + 1);
    const taken_children own(node, 0); // come back last
    taken_children parts(made, 0);
    const ::osg::NodeCorePtr core = made->getCore();
    changeOnce([&] { giveCore(node, core); }, [&] { return node->getCore() == core; });
    parts.setHome(node);
}

/// Puts `made` in the place of a node with a parent.
void replace(const NodePtr& node, const NodePtr& made) {
    const NodePtr parent = node->getParent();
    takeOverLooks(made, node);
    reserveChildren(made, node->getNChildren() + 1);
    reserveChildren(parent, 1);
    const ::osg::RefPtr<NodePtr> replaced(node);
    taken_children own(node, 0);
    const open_edit of_parent(parent, Node::ChildrenFieldMask);
    const open_edit of_node(node, Node::ParentFieldMask), of_new(made, Node::ParentFieldMask);
    changeOnce([&] { parent->replaceChildBy(node, made); },
               [&] { return made->getParent() == parent; });
    own.setHome(made);
}

} // namespace

NodePtr putInPlace(const NodePtr& node, fresh<NodePtr>& made) {
    // All that needs memory comes first: behind it no part of the node is left out.
    fresh<NodePtr> thin(nodeOfThinPrimitives(geometryOf(node)));
    NodePtr now = node;
    if (node->getParent() == ::osg::NullFC) {
        fillRoot(node, made.get());
    } else {
        replace(node, made.get());
        now = made.release();
    }
    if (thin.get() != ::osg::NullFC)
        changeOnce([&] { addChildTo(now, thin.get()); }, [&] { return thin->getParent() == now; });
    thin.release();
    return now;
}

} // namespace morva::osg
