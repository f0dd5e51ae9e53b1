#pragma once

// Rays at the triangles of a scene, and what actions find with them.

#include "tests/support/test.h"

#include <OpenSG/OSGIntersectAction.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/picking/morva_osg_intersect_action.h>
#include <morva/picking/morva_osg_ray_hits.h>

#include "tests/support/placed_scenes.h"

namespace picking_test {

using morva::osg::BIHAttachPayload;
using ::osg::Line;
using ::osg::Matrix;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using ::osg::Vec3f;

using ::osg::Pnt3d, ::osg::Vec3d;

/// To the world by one matrix after the other, not rounded to single precision.
inline Pnt3d inWorld(Pnt3d p, const NodePtr& node) {
    const auto transform = ::osg::TransformPtr::dcast(node->getCore());
    if (transform != ::osg::NullFC) {
        ::osg::Matrix4d matrix;
        std::copy_n(transform->getMatrix().getValues(), 16, matrix.getValues());
        matrix.multMatrixPnt(p);
    }
    return node->getParent() == ::osg::NullFC ? p : inWorld(p, node->getParent());
}

/// A triangle of a scene where it stands.
struct placed_triangle {
    NodePtr node;
    unsigned number; ///< by the iterator
    Pnt3d corners[3];
    bool rogue;

    /// The first corner, and so much of the ways from there to the other two.
    Pnt3f at(float u, float v) const {
        const Pnt3d p = corners[0] + (corners[1] - corners[0]) * double{u} +
                        (corners[2] - corners[0]) * double{v};
        return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    }
};

/// All triangles below a node, also those that are not shown.
inline std::vector<placed_triangle> placedTriangles(const NodePtr& root) {
    std::vector<placed_triangle> all;
    for (const NodePtr& node : geometryNodes(root)) {
        for (auto it = coreOf(node)->beginTriangles(); it != coreOf(node)->endTriangles(); ++it) {
            const Pnt3f a = it.getPosition(0), b = it.getPosition(1), c = it.getPosition(2);
            const auto at = [&](const Pnt3f& p) { return inWorld({p[0], p[1], p[2]}, node); };
            all.push_back({node,
                           static_cast<unsigned>(it.getIndex()),
                           {at(a), at(b), at(c)},
                           morva::osg::is_rogue(a, b, c)});
        }
    }
    return all;
}

/// A ray at a place of some triangle, or along an axis, or from a corner; now and then one from
/// nowhere, from infinity, or without a direction.
inline Line anyRay(std::mt19937& rng, const std::vector<placed_triangle>& world) {
    const Pnt3f eye(anyVector(rng, 60.F));
    if (world.empty())
        return {eye, anyVector(rng, 1.F)};
    const placed_triangle& t = world[rng() % world.size()];
    const float u = between(rng, 0, 1), v = between(rng, 0, 1 - u);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    Vec3f odd, axis;
    odd[rng() % 3] = rng() % 2 == 0 ? nan : ::osg::Inf;
    axis[rng() % 3] = rng() % 2 == 0 ? 1.F : -1.F;
    switch (rng() % 64) {
    case 0:
        return {eye + odd, t.at(u, v) - eye};
    case 1:
        return {eye, odd};
    case 2:
        return {t.at(u, v) + axis, Vec3f()};
    default:
        return rng() % 4 != 0   ? Line(eye, t.at(u, v))
               : rng() % 4 == 0 ? Line(t.at(0, 0), axis)
                                : Line(t.at(u, v) - axis * between(rng, 0, 40), axis);
    }
}

/// What an action found, to the last bit.
using found = std::tuple<bool, float, NodePtr, int, Vec3f>;

inline found foundBy(::osg::IntersectAction& action, const NodePtr& root) {
    action.apply(root);
    return {action.didHit(), action.getHitT(), action.getHitObject(), action.getHitTriangle(),
            action.getHitNormal()};
}
inline found pick(const NodePtr& root, const Line& line, float reach = ::osg::Inf) {
    const std::unique_ptr<::osg::IntersectAction> action(
        ::osg::IntersectAction::create(line, reach));
    return foundBy(*action, root);
}

inline ::osg::MorvaAttachBIHPtr attachmentOn(const NodePtr& node) {
    return ::osg::MorvaAttachBIHPtr::dcast(
        node->getCore()->findAttachment(::osg::MorvaAttachBIH::getClassType().getGroupId(), 0));
}
inline BIHAttachPayload& payloadOn(const NodePtr& node) {
    return attachmentOn(node)->getFieldPtr()->getValue();
}

/// Registers for as long as it lives.
struct registered {
    explicit registered(void (*function)()) { function(); }
    ~registered() { morva::osg::unregister_morva_intersect(); }
};

} // namespace picking_test
