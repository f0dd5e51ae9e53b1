#include <morva/occlusion/morva_osg_ambient_occlusion_prepare.h>

#include <map>
#include <set>

#include <OpenSG/OSGGeoFunctions.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_edits.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>

namespace morva::osg {

namespace {

using node_ids = std::set<::osg::UInt32>;

void giveCopy(const ::osg::NodePtr& node) {
    const ::osg::RefPtr<::osg::GeometryPtr> own(copyOfCore(geometryOf(node)));
    reportWhole(own.get());
    giveCore(node, own.get());
}

/// Gives the geometry below a node that has no material of its own this one; those of `treated`
/// are left out.
void keepMaterial(const ::osg::NodePtr& node, const ::osg::MaterialPtr& material,
                  const node_ids& treated) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry != ::osg::NullFC && geometry->getMaterial() == ::osg::NullFC &&
        treated.count(node.getFieldContainerId()) == 0) {
        giveOwnCore(node);
        giveMaterial(geometryOf(node), material);
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        keepMaterial(node->getChild(i), material, treated);
}

/// Takes the material off a node, its own and that of the outermost group above it, which becomes
/// a plain group.
void takeMaterial(const ::osg::NodePtr& node, const node_ids& treated) {
    giveMaterial(geometryOf(node), ::osg::NullFC);
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group == ::osg::NullFC)
        return;
    const ::osg::RefPtr<::osg::MaterialPtr> material(
        ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial());
    if (material.get() != ::osg::NullFC)
        keepMaterial(group, material.get(), treated);
    const ::osg::RefPtr<::osg::GroupPtr> plain(::osg::Group::create());
    giveCore(group, plain.get());
}

void prepare(const ::osg::NodePtr& node, bool replaceColors, const node_ids& treated) {
    if (geometryOf(node) == ::osg::NullFC)
        return;
    if (replaceColors)
        takeMaterial(node, treated);
    else if (getImage(node) == ::osg::NullFC)
        MaterialColorIntoVertex(node);
}

} // namespace

void giveOwnCore(const ::osg::NodePtr& node) {
    if (node->getCore()->getParents().size() > 1)
        giveCopy(node);
}

void giveOwnCores(const std::vector<::osg::NodePtr>& nodes) {
    std::map<::osg::UInt32, std::size_t> holders; // in the list; 0 for cores that are taken
    for (const ::osg::NodePtr& node : nodes)
        ++holders[node->getCore().getFieldContainerId()];
    for (const ::osg::NodePtr& node : nodes) {
        std::size_t& listed = holders[node->getCore().getFieldContainerId()];
        const bool is_its_own = listed > 0 && node->getCore()->getParents().size() == listed;
        listed = 0;
        if (!is_its_own)
            giveCopy(node);
    }
}

void PrepareGeometryForAO(::osg::NodePtr node, bool replaceColors) {
    if (node != ::osg::NullFC)
        prepare(node, replaceColors, {node.getFieldContainerId()});
}

void prepareAll(const std::vector<::osg::NodePtr>& nodes, bool replaceColors) {
    node_ids treated;
    for (const ::osg::NodePtr& node : nodes)
        treated.insert(node.getFieldContainerId());
    for (const ::osg::NodePtr& node : nodes)
        prepare(node, replaceColors, treated);
}

void giveSingleIndex(const ::osg::GeometryPtr& geometry) {
    if (geometry->getPositions() == ::osg::NullFC)
        return;
    const geometry_edit edit(geometry);
    joinEqualVertices(geometry);
    ::osg::createSingleIndex(geometry);
}

void giveNewNormals(const ::osg::GeometryPtr& geometry) {
    if (geometry->getPositions() == ::osg::NullFC)
        return;
    const geometry_edit edit(geometry);
    joinEqualVertices(geometry);
    ::osg::calcVertexNormals(geometry);
    mapWithPositions(geometry, vertex_property::normal);
    ::osg::createSingleIndex(geometry);
}

} // namespace morva::osg
