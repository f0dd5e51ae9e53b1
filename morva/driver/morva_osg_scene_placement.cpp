#include <morva/driver/morva_osg_scene_placement.h>

#include <map>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterialGroup.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_fresh.h>

namespace morva::osg {

void changeMaterialForNode(::osg::NodePtr node, ::osg::MaterialPtr material) {
    if (node == ::osg::NullFC || getMaterial(node) == material)
        return;
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group != ::osg::NullFC) {
        ::osg::MaterialGroupPtr::dcast(group->getCore())->setMaterial(material);
        return;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC && geometry->getMaterial() != material) {
        geometry->setMaterial(material);
    }
}

void changeMaterialsInScene(::osg::NodePtr node, ::osg::MaterialPtr material) {
    std::vector<::osg::NodePtr> nodes;
    const walk_start start(node);
    getGeometryNodes(start.get(), nodes, false);
    for (const ::osg::NodePtr& geometry_node : nodes) {
        changeMaterialForNode(geometry_node, material);
    }
}

::osg::MaterialPtr getMostUsedMaterialInScene(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return ::osg::NullFC;
    std::vector<::osg::NodePtr> nodes;
    const walk_start start(node);
    getGeometryNodes(start.get(), nodes, false);

    std::map<::osg::MaterialPtr, unsigned int> primitives;
    for (const ::osg::NodePtr& geometry_node : nodes) {
        primitives[getMaterial(geometry_node)] += getNumberOfPrimitives(geometry_node);
    }
    ::osg::MaterialPtr most_used;
    unsigned int highest = 0;
    for (const auto& entry : primitives) {
        if (entry.second > highest) {
            highest = entry.second;
            most_used = entry.first;
        }
    }
    return most_used;
}

void reduceSceneMaterialsToOne(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return;
    changeMaterialsInScene(node, getMostUsedMaterialInScene(node));
}

} // namespace morva::osg
