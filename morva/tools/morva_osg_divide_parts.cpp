#include <morva/tools/morva_osg_divide_parts.h>

#include <cstddef>
#include <vector>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGSimpleAttachments.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
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

/// Takes over what a node is apart from its core and children. The name is its own: a change of one
/// is none of the other.
void takeLikeness(const NodePtr& from, const NodePtr& to) {
    const open_edit edit(to);
    to->setTravMask(from->getTravMask());
    for (const auto& [key, attachment] : from->getSFAttachments()->getValue()) {
        if (::osg::NamePtr::dcast(attachment) == ::osg::NullFC)
            to->addAttachment(attachment, static_cast<::osg::UInt16>(key & 0xffffU));
    }
    if (const ::osg::Char8* name = ::osg::getName(from))
        ::osg::setName(to, name);
}

/// The primitives of lines and points of a core.
std::vector<primitive_run> thinPrimitives(const ::osg::GeometryPtr& core) {
    std::vector<primitive_run> runs;
    forEachPrimitive(core, cornersOf(core), rest_rule::left_out, [&](const primitive_run& run) {
        if (run.type <= GL_LINE_STRIP && run.length > 0)
            runs.push_back(run);
    });
    return runs;
}

/// The indices of the runs' corners as they are; a corner without any takes the row of its number.
template <typename Form>
typename Form::PtrType indicesOf(const ::osg::GeometryPtr& core,
                                 const std::vector<primitive_run>& runs) {
    const property_block<::osg::UInt32> all = readBlock(core->getIndices());
    const bool indexed = core->getIndices() != ::osg::NullFC;
    const std::size_t stride = indexed ? indicesPerCorner(core) : 1;
    fresh<typename Form::PtrType> chosen(Form::create());
    using value = typename Form::StoredType;
    for (const primitive_run& run : runs) {
        for (std::size_t i = run.first * stride; i < (run.first + run.length) * stride; ++i)
            chosen->editField().push_back(static_cast<value>(indexed ? all[i] : i));
    }
    return chosen.release();
}

void setThinPrimitives(const ::osg::GeometryPtr& geometry, const std::vector<primitive_run>& runs) {
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    geometry->setTypes(types);
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    geometry->setLengths(lengths);
    for (const primitive_run& run : runs) {
        types->editField().push_back(static_cast<::osg::UInt8>(run.type));
        lengths->editField().push_back(static_cast<::osg::UInt32>(run.length));
    }
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
        geometry->setIndices(indicesOf<::osg::GeoIndicesUI16>(core, runs));
    else
        geometry->setIndices(indicesOf<::osg::GeoIndicesUI32>(core, runs));
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

/// Moves all children of a node behind those of another one.
void moveChildren(const NodePtr& from, const NodePtr& to) {
    while (from->getNChildren() > 0)
        addChildTo(to, from->getChild(0));
}

void replaceInParent(const NodePtr& node, const NodePtr& by) {
    const NodePtr parent = node->getParent();
    const open_edit of_parent(parent, Node::ChildrenFieldMask);
    const open_edit of_node(node, Node::ParentFieldMask), of_new(by, Node::ParentFieldMask);
    parent->replaceChildBy(node, by);
}

} // namespace

NodePtr putInPlace(const NodePtr& node, fresh<NodePtr>& made) {
    fresh<NodePtr> thin(nodeOfThinPrimitives(geometryOf(node)));
    const bool is_root = node->getParent() == ::osg::NullFC;
    // What has no parent is perhaps held by nobody, and would go with the hold.
    const ::osg::RefPtr<NodePtr> replaced(is_root ? NodePtr() : node);
    NodePtr now = node;
    if (is_root) {
        moveChildren(node, made.get());
        giveCore(node, made->getCore());
        moveChildren(made.get(), node);
        made.reset(NodePtr());
    } else {
        takeLikeness(node, made.get());
        replaceInParent(node, made.get());
        now = made.release();
        moveChildren(node, now);
    }
    if (thin.get() != ::osg::NullFC)
        addChildTo(now, thin.get());
    thin.release();
    return now;
}

} // namespace morva::osg
