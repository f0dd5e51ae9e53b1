#pragma once

// Scenes and rays for the tests of picking: rooms, flat parts away from 0, soups with rogue
// triangles, far parts; below transforms that turn, scale unevenly and mirror; some cores twice.

#include "tests/support/test.h"

#include <OpenSG/OSGIntersectAction.h>
#include <OpenSG/OSGQuaternion.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/picking/morva_osg_intersect_action.h>
#include <morva/picking/morva_osg_ray_hits.h>

namespace picking_test {

using ::osg::Line;
using ::osg::Matrix;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using ::osg::Vec3f;

inline float between(std::mt19937& rng, float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(rng);
}
inline Vec3f anyVector(std::mt19937& rng, float size) {
    const float x = between(rng, -size, size), y = between(rng, -size, size);
    return {x, y, between(rng, -size, size)};
}

/// A mesh of these triangles.
inline mesh_data triangles(const std::vector<Pnt3f>& corners) {
    mesh_data mesh;
    mesh.primitives = {{GL_TRIANGLES, static_cast<unsigned>(corners.size())}};
    mesh.positions = corners;
    return mesh;
}

/// Floor, ceiling and two walls of a room, seen from within; in the walls of its box.
inline mesh_data room(std::mt19937& rng) {
    const Pnt3f low(anyVector(rng, 50.F));
    const Vec3f size(between(rng, 1, 90), between(rng, 1, 90), between(rng, 1, 9));
    std::vector<Pnt3f> corners;
    const auto at = [&](int x, int y, int z) {
        corners.emplace_back(low[0] + size[0] * static_cast<float>(x),
                             low[1] + size[1] * static_cast<float>(y),
                             low[2] + size[2] * static_cast<float>(z));
    };
    const int quads[4][4] = {{0, 1, 3, 2}, {4, 6, 7, 5}, {0, 4, 5, 1}, {0, 2, 6, 4}};
    for (const auto& quad : quads) {
        for (const int k : {0, 1, 2, 0, 2, 3})
            at(quad[k] & 1, quad[k] >> 1 & 1, quad[k] >> 2);
    }
    return triangles(corners);
}

/// Triangles in one plane of an axis.
inline mesh_data flat(std::mt19937& rng) {
    std::vector<Pnt3f> corners;
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
        const Vec3f place = anyVector(rng, rng() % 8 == 0 ? 1e5F : 5.F);
        for (Pnt3f& corner : mesh.positions)
            corner += place;
        return mesh;
    }
}

inline Matrix anyFrame(std::mt19937& rng) {
    ::osg::Quaternion turn;
    turn.setValueAsAxisRad(anyVector(rng, 1.F) + Vec3f(2, 0, 0), between(rng, 0, 6));
    Vec3f scale(1, 1, 1);
    for (::osg::UInt32 i = 0; i < 3; ++i)
        scale[i] = between(rng, 0.2F, 4.F) * (rng() % 3 == 0 ? -1.F : 1.F);
    Matrix matrix;
    matrix.setTransform(anyVector(rng, 30.F), turn, rng() % 2 == 0 ? scale : Vec3f(1, 1, 1));
    return matrix;
}

/// Up to a dozen parts at two depths.
inline NodePtr anyScene(std::mt19937& rng) {
    const NodePtr root = group();
    ::osg::GeometryPtr last = ::osg::NullFC;
    for (int i = 0; i < 4; ++i) {
        const NodePtr frame = transformed(anyFrame(rng), {});
        for (unsigned k = rng() % 4; k > 0; --k) {
            if (last == ::osg::NullFC || rng() % 4 != 0)
                last = geometryOf(anyMesh(rng));
            const NodePtr part = nodeOf(last); // some cores twice
            frame->addChild(rng() % 3 == 0 ? transformed(anyFrame(rng), {part}) : part);
        }
        const int kind = static_cast<int>(rng() % 8);
        root->addChild(kind == 0   ? hidden(frame)
                       : kind == 1 ? switched(static_cast<int>(rng() % 4) - 2, {group(), frame})
                                   : frame);
    }
    return root;
}

using wide = std::array<long double, 3>;

/// To the world by one matrix after the other, not rounded to single precision.
inline wide inWorld(wide p, const NodePtr& node) {
    const auto transform = ::osg::TransformPtr::dcast(node->getCore());
    if (transform != ::osg::NullFC) {
        const Matrix& m = transform->getMatrix();
        const wide q = p;
        for (unsigned r = 0; r < 3; ++r)
            p[r] = m[0][r] * q[0] + m[1][r] * q[1] + m[2][r] * q[2] + m[3][r];
    }
    return node->getParent() == ::osg::NullFC ? p : inWorld(p, node->getParent());
}

/// A triangle of a scene where it stands.
struct placed_triangle {
    NodePtr node;
    unsigned number; ///< by the iterator
    wide corners[3];
    bool rogue;

    /// The first corner, and so much of the ways from there to the other two.
    Pnt3f at(float u, float v) const {
        Pnt3f point;
        for (unsigned i = 0; i < 3; ++i)
            point[i] = static_cast<float>(corners[0][i] + (corners[1][i] - corners[0][i]) * u +
                                          (corners[2][i] - corners[0][i]) * v);
        return point;
    }
};

/// All triangles below a node, also those that are not shown.
inline std::vector<placed_triangle> placedTriangles(const NodePtr& root) {
    std::vector<placed_triangle> all;
    for (const NodePtr& node : geometryNodes(root)) {
        for (auto it = coreOf(node)->beginTriangles(); it != coreOf(node)->endTriangles(); ++it) {
            const Pnt3f p[3] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
            all.push_back({node,
                           static_cast<unsigned>(it.getIndex()),
                           {},
                           morva::osg::is_rogue(p[0], p[1], p[2])});
            for (unsigned k = 0; k < 3; ++k)
                all.back().corners[k] = inWorld({p[k][0], p[k][1], p[k][2]}, node);
        }
    }
    return all;
}

/// A ray at a place of some triangle, or along an axis, or from a corner.
inline Line anyRay(std::mt19937& rng, const std::vector<placed_triangle>& world) {
    const Pnt3f eye(anyVector(rng, 60.F));
    if (world.empty())
        return {eye, anyVector(rng, 1.F)};
    const placed_triangle& t = world[rng() % world.size()];
    const float u = between(rng, 0, 1), v = between(rng, 0, 1 - u);
    if (rng() % 4 != 0)
        return {eye, t.at(u, v)};
    Vec3f axis;
    axis[rng() % 3] = rng() % 2 == 0 ? 1.F : -1.F;
    return {rng() % 4 == 0 ? t.at(0, 0) : t.at(u, v) - axis * between(rng, 0, 40), axis};
}

/// What an action found, to the last bit.
using found = std::tuple<bool, float, NodePtr, int, float, float, float>;

inline found foundBy(::osg::IntersectAction& action, const NodePtr& root) {
    action.apply(root);
    const Vec3f normal = action.getHitNormal();
    return {action.didHit(),
            action.getHitT(),
            action.getHitObject(),
            action.getHitTriangle(),
            normal[0],
            normal[1],
            normal[2]};
}
inline found pick(const NodePtr& root, const Line& line, float reach = ::osg::Inf) {
    const std::unique_ptr<::osg::IntersectAction> action(
        ::osg::IntersectAction::create(line, reach));
    return foundBy(*action, root);
}

/// Registers for as long as it lives.
struct registered {
    explicit registered(void (*function)()) { function(); }
    ~registered() { morva::osg::unregister_morva_intersect(); }
};

} // namespace picking_test
