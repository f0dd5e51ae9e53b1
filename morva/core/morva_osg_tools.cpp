#include <morva/core/morva_osg_tools.h>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGCubeTextureChunk.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSwitchMaterial.h>

#include <morva/core/morva_osg_node_core.h>

namespace morva::osg {

namespace {

/// Extent of the node's volume on an axis.
float extentOf(const ::osg::NodePtr& node, unsigned int axis) {
    node->updateVolume();
    ::osg::Pnt3f low, high;
    node->getVolume().getBounds(low, high);
    return high[axis] - low[axis];
}

} // namespace

unsigned int getNodeCount(::osg::NodePtr node) {
    unsigned int count = 1;
    if (node == ::osg::NullFC)
        return count;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += getNodeCount(node->getChild(i));
    return count;
}

void collect_geo_nodes(::osg::NodePtr node, std::list<::osg::NodePtr>& nodes) {
    if (node->getCore() != ::osg::NullFC &&
        node->getCore()->getType() == ::osg::Geometry::getClassType())
        nodes.push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collect_geo_nodes(node->getChild(i), nodes);
}

::osg::NodePtr searchMaterialGroup(const ::osg::NodePtr& node) {
    ::osg::NodePtr outermost;
    if (node == ::osg::NullFC)
        return outermost;
    // Outer groups override inner ones, so the walk goes on to the root.
    for (::osg::NodePtr above = node->getParent(); above != ::osg::NullFC;
         above = above->getParent()) {
        if (isKindOf<::osg::MaterialGroup>(above))
            outermost = above;
    }
    return outermost;
}

::osg::MaterialPtr getMaterial(::osg::NodePtr node) {
    const ::osg::GeometryPtr geometry = geometryOf(node);
    if (geometry == ::osg::NullFC)
        return ::osg::NullFC;
    if (geometry->getMaterial() != ::osg::NullFC)
        return geometry->getMaterial();
    const ::osg::NodePtr group = searchMaterialGroup(node);
    if (group == ::osg::NullFC)
        return ::osg::NullFC;
    return ::osg::MaterialGroupPtr::dcast(group->getCore())->getMaterial();
}

bool shouldSkipNode(::osg::NodePtr& node) {
    if (geometryOf(node) == ::osg::NullFC)
        return false;
    if (node->getTravMask() == 0)
        return true;
    const ::osg::MaterialPtr material = getMaterial(node);
    if (material == ::osg::NullFC)
        return false;
    if (::osg::SwitchMaterialPtr::dcast(material) != ::osg::NullFC)
        return true;
    const ::osg::ChunkMaterialPtr chunks = ::osg::ChunkMaterialPtr::dcast(material);
    if (chunks == ::osg::NullFC)
        return false;
    for (::osg::UInt32 i = 0; i < chunks->getMFChunks()->size(); ++i) {
        if (::osg::CubeTextureChunkPtr::dcast(chunks->getChunks(i)) != ::osg::NullFC)
            return true;
    }
    return false;
}

unsigned int cntShouldSkipNodes(::osg::NodePtr node) {
    if (node == ::osg::NullFC)
        return 0;
    unsigned int count = shouldSkipNode(node) ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += cntShouldSkipNodes(node->getChild(i));
    return count;
}

float ModelWidth(const ::osg::NodePtr& node) { return extentOf(node, 0); }
float ModelHeight(const ::osg::NodePtr& node) { return extentOf(node, 1); }
float ModelLength(const ::osg::NodePtr& node) { return extentOf(node, 2); }

} // namespace morva::osg
