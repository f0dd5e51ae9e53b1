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
            placed_triangle t = {node, unsigned(it.getIndex()), {}, shown};
            for (int k = 0; k < 3; ++k)
                to_world.multMatrixPnt(Pnt3d(p[k][0], p[k][1], p[k][2]), t.corners[k]);
            t.is_met &= !morva::osg::is_rogue(p[0], p[1], p[2]);
            all.push_back(t);
        }
    }
    const auto choice = ::osg::SwitchPtr::dcast(node->getCore());
    for (int i = 0; i < int(node->getNChildren()); ++i)
        place(node->getChild(i), to_world,
              shown && (choice == ::osg::NullFC || choice->getChoice() == ::osg::Switch::ALL ||
                        choice->getChoice() == i),
              all);
}

/// A ray at a place of some triangle, perhaps a corner, or along an axis; now and then one from
/// nowhere, from infinity, or without a direction.
inline Line anyRay(std::mt19937& rng, const std::vector<placed_triangle>& world) {
    const Pnt3f eye(anyVector(rng, 60.F));
    const placed_triangle t = world.empty() ? placed_triangle() : world[rng() % world.size()];
    const float u = rng() % 16 == 0 ? 0.F : between(rng, 0, 1),
                v = u == 0.F ? u : between(rng, 0, 1 - u);
    const Pnt3d p = t.corners[0] + (t.corners[1] - t.corners[0]) * double{u} +
                    (t.corners[2] - t.corners[0]) * double{v};
    const Pnt3f at{float(p[0]), float(p[1]), float(p[2])};
    Vec3f odd, axis;
    odd[rng() % 3] = rng() % 2 == 0 ? NAN : ::osg::Inf;
    axis[rng() % 3] = rng() % 2 == 0 ? 1.F : -1.F;
    const unsigned kind = rng() % 64;
    if (kind < 3)
        return kind == 0 ? Line(eye + odd, at - eye) : Line(at, kind == 1 ? odd : Vec3f());
    return kind % 4 != 0 ? Line(eye, at) : Line(at - axis * between(rng, 0, 40), axis);
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
