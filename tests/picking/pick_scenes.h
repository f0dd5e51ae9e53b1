#pragma once

// Rays at the triangles of a scene, what they meet among all of them one by one, and what actions
// find with them.

#include "tests/support/test.h"

#include <OpenSG/OSGIntersectAction.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/picking/morva_osg_attach_bih.h>
#include <morva/picking/morva_osg_intersect_action.h>
#include <morva/picking/morva_osg_ray_hits.h>

#include "tests/support/placed_scenes.h"

namespace picking_test {

using morva::osg::BIHAttachPayload;
using ::osg::Line, ::osg::Matrix, ::osg::NodePtr, ::osg::Pnt3d, ::osg::Pnt3f, ::osg::Vec3d,
    ::osg::Vec3f;

/// A triangle of a scene where it stands.
struct placed_triangle {
    NodePtr node;
    unsigned number; ///< by the iterator
    Pnt3d corners[3];
    bool is_met; ///< shown, and no rogue

    /// The first corner, and so much of the ways from there to the other two.
    Pnt3f at(float u, float v) const {
        const Pnt3d p = corners[0] + (corners[1] - corners[0]) * double{u} +
                        (corners[2] - corners[0]) * double{v};
        return {static_cast<float>(p[0]), static_cast<float>(p[1]), static_cast<float>(p[2])};
    }
};

/// Adds all triangles below a node, whose parent stands by this matrix.
inline void place(const NodePtr& node, ::osg::Matrix4d to_world, bool shown,
                  std::vector<placed_triangle>& all) {
    const auto transform = ::osg::TransformPtr::dcast(node->getCore());
    if (transform != ::osg::NullFC) {
        ::osg::Matrix4d matrix;
        std::copy_n(transform->getMatrix().getValues(), 16, matrix.getValues());
        to_world.mult(matrix);
    }
    shown = shown && node->getTravMask() != 0;
    const ::osg::GeometryPtr core = coreOf(node);
    if (core != ::osg::NullFC) {
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            const Pnt3f p[] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
            placed_triangle t = {node, static_cast<unsigned>(it.getIndex()), {}, shown};
            for (int k = 0; k < 3; ++k)
                to_world.multMatrixPnt(Pnt3d(p[k][0], p[k][1], p[k][2]), t.corners[k]);
            t.is_met &= !morva::osg::is_rogue(p[0], p[1], p[2]);
            all.push_back(t);
        }
    }
    const auto choice = ::osg::SwitchPtr::dcast(node->getCore());
    for (int i = 0; i < static_cast<int>(node->getNChildren()); ++i)
        place(node->getChild(i), to_world,
              shown && (choice == ::osg::NullFC || choice->getChoice() == ::osg::Switch::ALL ||
                        choice->getChoice() == i),
              all);
}

/// What a ray meets, by node and triangle.
struct naive_hit {
    double t;
    bool back_face;
    Vec3d normal;
};
using naive_hits = std::map<std::pair<NodePtr, unsigned>, naive_hit>;

/// `sure` is cleared if an edge or the start is too near to tell.
inline naive_hits naiveHits(const std::vector<placed_triangle>& world, const Line& line,
                            bool both_sides, bool& sure) {
    const Pnt3f start = line.getPosition();
    const Vec3f way = line.getDirection();
    const Pnt3d o(start[0], start[1], start[2]);
    const Vec3d d(way[0], way[1], way[2]);
    naive_hits hits;
    for (const placed_triangle& t : world) {
        const Pnt3d &a = t.corners[0], &b = t.corners[1], &c = t.corners[2];
        const Vec3d n = (b - a).cross(c - a);
        const double facing = d.dot(n), length = n.length(), at = (a - o).dot(n) / facing;
        if (!std::isfinite(at) || !t.is_met)
            continue;
        const Pnt3d p = o + d * at;
        double least = 1.0; // distance to an edge, by that of the corner across
        for (const auto& [u, v] : {std::pair(a, b), std::pair(b, c), std::pair(c, a)})
            least = std::min(least, (v - u).cross(p - u).dot(n) / (length * length));
        if (std::abs(least) < 1e-6 || std::abs(at) < 1e-6 || std::abs(facing) < 1e-6 * length)
            sure = sure && least < -1e-3;
        // The front is a matter of the core's frame, and so is the side of the normal.
        const double side = t.node->getToWorld().det3() < 0.F ? -1.0 : 1.0;
        const bool back = facing * side > 0.0;
        if (least >= 0.0 && at >= 0.0 && (both_sides || !back))
            hits[{t.node, t.number}] = {at, back, n * (side / length)};
    }
    return hits;
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

inline found pick(const NodePtr& root, const Line& line, float reach = ::osg::Inf) {
    const std::unique_ptr<::osg::IntersectAction> action(
        ::osg::IntersectAction::create(line, reach));
    action->apply(root);
    return {action->didHit(), action->getHitT(), action->getHitObject(), action->getHitTriangle(),
            action->getHitNormal()};
}

/// Registers for as long as it lives.
struct registered {
    explicit registered(void (*function)()) { function(); }
    ~registered() { morva::osg::unregister_morva_intersect(); }
};

} // namespace picking_test
