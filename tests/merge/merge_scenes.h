#pragma once

// Small scenes for the tests of the merge pass, on top of the shared builders:
//
//     group({strip(red, 0), strip(blue, 1), moved({5, 0, 0}, {strip(red, 2)})})

#include <string>
#include <vector>

#include <morva/merge/morva_osg_geomerge.h>

#include "../geosets/split_scenes.h"
#include "../support/scene_builders.h"

namespace scene {

using morva_test::coreOf;
using morva_test::group;
using morva_test::materialGroup;
using morva_test::moved;
using nodes = morva_test::node_list;

inline ::osg::SimpleMaterialPtr plain(float red) { return morva_test::simple({red, 0.5F, 0.25F}); }
/// A material with an alpha below 1.
inline ::osg::ChunkMaterialPtr glass() { return morva_test::chunked({0, 0, 1, 0.5F}); }

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

/// Triangles below a node in world coordinates, positions alone.
inline std::multiset<std::vector<std::vector<float>>> worldTriangles(const ::osg::NodePtr& root) {
    std::multiset<std::vector<std::vector<float>>> bag;
    for (const ::osg::NodePtr& node : morva_test::geometryNodes(root)) {
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
