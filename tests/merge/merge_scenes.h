#pragma once

// Small scenes for the tests of the merge pass, built top down:
//
//     group({tri(red, 0), tri(blue, 1), moved({5, 0, 0}, {tri(red, 2)})})

#include <string>
#include <vector>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialChunk.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGTransform.h>

#include <morva/merge/morva_osg_geomerge.h>

#include "../geosets/split_scenes.h"

namespace scene {

using nodes = std::vector<::osg::NodePtr>;

inline ::osg::NodePtr under(const ::osg::NodeCorePtr& core, const nodes& children) {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(core);
    for (const ::osg::NodePtr& child : children)
        node->addChild(child);
    return node;
}

inline ::osg::NodePtr group(const nodes& children) {
    return under(::osg::Group::create(), children);
}

inline ::osg::NodePtr moved(const ::osg::Vec3f& by, const nodes& children) {
    const ::osg::TransformPtr transform = ::osg::Transform::create();
    ::osg::Matrix matrix;
    matrix.setTranslate(by);
    transform->setMatrix(matrix);
    return under(transform, children);
}

inline ::osg::NodePtr materialGroup(const ::osg::MaterialPtr& material, const nodes& children) {
    const ::osg::MaterialGroupPtr core = ::osg::MaterialGroup::create();
    core->setMaterial(material);
    return under(core, children);
}

inline ::osg::SimpleMaterialPtr plain(float red) {
    const ::osg::SimpleMaterialPtr material = ::osg::SimpleMaterial::create();
    material->setDiffuse(::osg::Color3f(red, 0.5F, 0.25F));
    return material;
}

/// A material with an alpha below 1.
inline ::osg::ChunkMaterialPtr glass() {
    const ::osg::ChunkMaterialPtr material = ::osg::ChunkMaterial::create();
    const ::osg::MaterialChunkPtr chunk = ::osg::MaterialChunk::create();
    chunk->setDiffuse(::osg::Color4f(0, 0, 1, 0.5F));
    material->addChunk(chunk);
    return material;
}

/// `count` triangles in a row along x from (x, 0, 0) on, each of size 1, with normals along z.
inline ::osg::NodePtr strip(const ::osg::MaterialPtr& material, float x, unsigned count = 1,
                            const char* name = nullptr) {
    std::vector<::osg::Pnt3f> corners;
    for (unsigned i = 0; i < count; ++i) {
        const float at = x + static_cast<float>(i);
        corners.insert(corners.end(), {{at, 0, 0}, {at + 1, 0, 0}, {at, 1, 0}});
    }
    const ::osg::GeometryPtr geometry = flat::geometryOf({{4, 3 * count}}, corners);
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    normals->editField().resize(corners.size(), ::osg::Vec3f(0, 0, 1));
    geometry->setNormals(normals);
    geometry->setMaterial(material);
    return flat::nodeOf(geometry, name);
}

inline ::osg::GeometryPtr coreOf(const ::osg::NodePtr& node) {
    return ::osg::GeometryPtr::dcast(node->getCore());
}

/// Geometry nodes below a node, in order.
inline void geometries(const ::osg::NodePtr& node, nodes& list) {
    if (coreOf(node) != ::osg::NullFC)
        list.push_back(node);
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        geometries(node->getChild(i), list);
}

/// Triangles below a node in world coordinates, positions alone.
inline std::multiset<std::vector<std::vector<float>>> worldTriangles(const ::osg::NodePtr& root) {
    nodes list;
    geometries(root, list);
    std::multiset<std::vector<std::vector<float>>> bag;
    for (const ::osg::NodePtr& node : list) {
        const ::osg::Matrix matrix = node->getToWorld();
        const ::osg::GeometryPtr geometry = coreOf(node);
        for (auto it = geometry->beginTriangles(); !it.isAtEnd(); ++it) {
            split::triangle t(3);
            for (::osg::Int32 k = 0; k < 3; ++k) {
                ::osg::Pnt3f p;
                matrix.multMatrixPnt(it.getPosition(k), p);
                split::append(t[static_cast<std::size_t>(k)], p, 3);
            }
            bag.insert(split::turned(t));
        }
    }
    return bag;
}

/// Settings that print no more than they must.
inline morva::osg::mergeGeo_setup quiet() {
    morva::osg::mergeGeo_setup setup;
    setup.silent = true;
    return setup;
}

inline morva::kd_build_setup cells(unsigned max_elements) {
    return {max_elements, 100, 3, 1.0F, 2.0F, 0.95F, false};
}

} // namespace scene
