#pragma once

// Random scenes in space for picking and collision: rooms, flat parts away from 0, soups with rogue
// triangles, far parts; below transforms that turn, scale unevenly and mirror; some cores twice.

#include <random>
#include <vector>

#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGQuaternion.h>
#include <OpenSG/OSGVector.h>

#include "tests/support/scene_builders.h"

namespace morva_test {

inline float between(std::mt19937& rng, float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(rng);
}
inline ::osg::Vec3f anyVector(std::mt19937& rng, float size) {
    const float x = between(rng, -size, size), y = between(rng, -size, size);
    return {x, y, between(rng, -size, size)};
}

/// Turned about any axis, scaled and moved.
inline ::osg::Matrix placed(std::mt19937& rng, const ::osg::Vec3f& by, const ::osg::Vec3f& scale) {
    ::osg::Matrix matrix;
    ::osg::Quaternion turn;
    turn.setValueAsAxisRad(anyVector(rng, 1.F) + ::osg::Vec3f(2, 0, 0), between(rng, 0, 6));
    matrix.setTransform(by, turn, scale);
    return matrix;
}

/// A mesh of these triangles.
inline mesh_data triangles(const std::vector<::osg::Pnt3f>& corners) {
    mesh_data mesh;
    mesh.primitives = {{GL_TRIANGLES, unsigned(corners.size())}};
    mesh.positions = corners;
    return mesh;
}

/// Floor, ceiling and two walls of a room, seen from within; in the walls of its box.
inline mesh_data room(std::mt19937& rng) {
    const ::osg::Pnt3f low(anyVector(rng, 50.F));
    const ::osg::Vec3f size(between(rng, 1, 90), between(rng, 1, 90), between(rng, 1, 9));
    const int quads[4][4] = {{0, 1, 3, 2}, {4, 6, 7, 5}, {0, 4, 5, 1}, {0, 2, 6, 4}};
    std::vector<::osg::Pnt3f> corners;
    for (const auto& quad : quads)
        for (const int k : {0, 1, 2, 0, 2, 3})
            corners.push_back(low + ::osg::Vec3f(quad[k] & 1 ? size[0] : 0,
                                                 quad[k] & 2 ? size[1] : 0,
                                                 quad[k] & 4 ? size[2] : 0));
    return triangles(corners);
}

/// Triangles in one plane of an axis.
inline mesh_data flat(std::mt19937& rng) {
    std::vector<::osg::Pnt3f> corners;
    const ::osg::UInt32 axis = rng() % 3;
    const float place = rng() % 4 == 0 ? 0.F : between(rng, -20, 20);
    for (int i = 0; i < 30; ++i) {
        corners.emplace_back(anyVector(rng, 10.F));
        corners.back()[axis] = place;
    }
    return triangles(corners);
}

inline mesh_data anyMesh(std::mt19937& rng) {
    switch (rng() % 4) {
    case 0:
        return room(rng);
    case 1:
        return flat(rng);
    case 2:
        return mixture(rng, 6);
    default:
        mesh_data mesh = soup(rng, 1 + rng() % 60);
        const ::osg::Vec3f place = anyVector(rng, rng() % 8 == 0 ? 1e5F : 5.F);
        for (::osg::Pnt3f& corner : mesh.positions)
            corner += place;
        return mesh;
    }
}

inline ::osg::Matrix anyFrame(std::mt19937& rng) {
    ::osg::Vec3f scale(1, 1, 1);
    for (::osg::UInt32 i = 0; i < 3 && rng() % 3 != 0; ++i)
        scale[i] = between(rng, 0.2F, 4.F) * (rng() % 3 == 0 ? -1.F : 1.F);
    return placed(rng, anyVector(rng, 30.F), scale);
}

/// Up to three parts for each of so many frames, at two depths.
inline ::osg::NodePtr anyScene(std::mt19937& rng, int frames = 4) {
    const ::osg::NodePtr root = group();
    ::osg::GeometryPtr last = ::osg::NullFC;
    for (int i = 0; i < frames; ++i) {
        const ::osg::NodePtr frame = transformed(anyFrame(rng), {});
        for (unsigned k = rng() % 4; k > 0; --k) {
            if (last == ::osg::NullFC || rng() % 4 != 0)
                last = geometryOf(anyMesh(rng));
            const ::osg::NodePtr part = nodeOf(last); // some cores twice
            frame->addChild(rng() % 3 == 0 ? transformed(anyFrame(rng), {part}) : part);
        }
        const int kind = int(rng() % 8);
        root->addChild(kind == 0   ? hidden(frame)
                       : kind == 1 ? switched(int(rng() % 4) - 2, {group(), frame})
                                   : frame);
    }
    return root;
}

} // namespace morva_test
