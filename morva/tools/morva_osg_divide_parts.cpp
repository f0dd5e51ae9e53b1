#include <morva/tools/morva_osg_divide_parts.h>

#include <cstddef>
#include <new>
#include <vector>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_node_looks.h>
#include <morva/core/morva_osg_taken_children.h>
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

/// The primitives of lines and points of a core.
std::vector<primitive_run> thinPrimitives(const ::osg::GeometryPtr& core) {
    std::vector<primitive_run> runs;
    forEachPrimitive(core, cornersOf(core), rest_rule::left_out, [&](const primitive_run& run) {
        if (run.type <= GL_LINE_STRIP && run.length > 0)
            runs.push_back(run);
    });
    return runs;
}

/// Gives a geometry the indices of the runs' corners as they are; a corner without any takes the
/// row of its number.
template <typename Form>
void setThinIndices(const ::osg::GeometryPtr& geometry, const ::osg::GeometryPtr& core,
                    const std::vector<primitive_run>& runs) {
    const property_block<::osg::UInt32> all = readBlock(core->getIndices());
    const bool indexed = core->getIndices() != ::osg::NullFC;
    const std::size_t stride = indexed ? indicesPerCorner(core) : 1;
    const ::osg::RefPtr<typename Form::PtrType> chosen(Form::create());
    using value = typename Form::StoredType;
    for (const primitive_run& run : runs) {
        for (std::size_t i = run.first * stride; i < (run.first + run.length) * stride; ++i)
            chosen->editField().push_back(static_cast<value>(indexed ? all[i] : i));
    }
    geometry->setIndices(chosen.get());
}

void setThinPrimitives(const ::osg::GeometryPtr& geometry, const std::vector<primitive_run>& runs) {
    const ::osg::RefPtr<::osg::GeoPTypesUI8Ptr> types(::osg::GeoPTypesUI8::create());
    const ::osg::RefPtr<::osg::GeoPLengthsUI32Ptr> lengths(::osg::GeoPLengthsUI32::create());
    for (const primitive_run& run : runs) {
        types->editField().push_back(static_cast<::osg::UInt8>(run.type));
        lengths->editField().push_back(static_cast<::osg::UInt32>(run.length));
    }
    geometry->setTypes(types.get());
    geometry->setLengths(lengths.get());
}

/// A node with the lines and points of a core, null if it has none. It shares the core's
/// properties, whatever their form, and has an index to what it takes of them.
NodePtr nodeOfThinPrimitives(const ::osg::GeometryPtr& core) {
    const std::vector<primitive_run> runs = thinPrimitives(core);
    if (runs.empty())
        return ::osg::NullFC;
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    fresh<NodePtr> node(newNodeWith(geometry));
    setThinPrimitives(geometry, runs);
    if (::osg::GeoIndicesUI16Ptr::dcast(core->getIndices()) != ::osg::NullFC)
        setThinIndices<::osg::GeoIndicesUI16>(geometry, core, runs);
    else
        setThinIndices<::osg::GeoIndicesUI32>(geometry, core, runs);
    for (const vertex_property which : all_properties) {
        withProperty(core, geometry, which,
                     [](const auto& property, const auto& take) { take(property); });
    }
    if (core->getIndices() != ::osg::NullFC) { // else there is one index, which leads everywhere
        for (const ::osg::UInt16 bits : core->getIndexMapping())
            geometry->editMFIndexMapping()->push_back(bits);
    }
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
