#pragma once

// Small scenes for the tests of the merge pass, on top of the shared builders.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/merge/morva_osg_geomerge.h>

namespace morva_test {

using material_ref = ::osg::MaterialRefPtr;
using morva::osg::mergeGeo_setup;

inline ::osg::SimpleMaterialPtr plain(float red) { return simple({red, 0.5F, 0.25F}); }

/// `count` triangles in a row along x from (x, 0, 0) on, each of size 1, with normals along z.
inline mesh_data rowOfTriangles(unsigned count, float x) {
    mesh_data mesh;
    mesh.primitives = {{4, 3 * count}};
    for (unsigned i = 0; i < count; ++i) {
        const float at = x + float(i);
        mesh.positions.insert(mesh.positions.end(), {{at, 0, 0}, {at + 1, 0, 0}, {at, 1, 0}});
    }
    mesh.normals.resize(mesh.positions.size(), ::osg::Vec3f(0, 0, 1));
    return mesh;
}
inline ::osg::NodePtr part(const ::osg::MaterialPtr& material, float x, unsigned count = 1) {
    return meshNode(rowOfTriangles(count, x), material);
}

/// What is drawn in the world, by positions alone; no triangles that are lines or points.
inline world_mesh shapeOf(const ::osg::NodePtr& root) {
    mesh_choice choice;
    choice.normals = choice.colors = choice.coordinates = false;
    choice.dropped = morva::osg::is_rogue;
    return worldMesh(root, choice);
}

/// Lines and points of a core, by the lengths of its primitives.
inline std::array<std::size_t, 2> thinOnes(const ::osg::NodePtr& node) {
    std::array<std::size_t, 2> counts{};
    const ::osg::GeometryPtr core = coreOf(node);
    for (::osg::UInt32 i = 0; i < core->getTypes()->size(); ++i) {
        const std::size_t type = core->getTypes()->getValue(i);
        const std::size_t length = core->getLengths()->getValue(i);
        if (type == 0)
            counts[1] += length;
        else if (type < 4 && length > 1)
            counts[0] += type == 1 ? length / 2 : type == 2 ? length : length - 1;
    }
    return counts;
}

/// Settings that print no more than they must.
inline mergeGeo_setup quiet() {
    mergeGeo_setup setup;
    setup.silent = true;
    return setup;
}

inline morva::kd_build_setup cells(unsigned max_elements) {
    return {max_elements, 100, 3, 1.0F, 2.0F, 0.95F, false};
}

} // namespace morva_test
