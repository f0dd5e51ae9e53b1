#pragma once

// The two twins of rays: the step of a picking action, literally, and all triangles one by one.

#include "pick_scenes.h"

#include <morva/trees/ray_traversal.h>

namespace picking_test {

inline unsigned twin_tests = 0;

/// Step by step, without any way around a step, on the tree that the core has.
inline ::osg::Action::ResultE twinEnter(::osg::CNodePtr& node, ::osg::Action* action) {
    auto& picking = dynamic_cast<::osg::IntersectAction&>(*action);
    const NodePtr at(node);
    if (at->getVolume().isValid() && !at->getVolume().intersect(picking.getLine()))
        return ::osg::Action::Skip;
    const BIHAttachPayload& twin = payloadOn(at);
    ++twin_tests;
    morva::float3 o, d, inverse, to;
    morva::osg::set(o, picking.getLine().getPosition());
    morva::osg::set(d, picking.getLine().getDirection());
    float in, out;
    if (twin.tree->active == 0 || !morva::clip_ray(twin.geoset->box, o, d, in, out))
        return ::osg::Action::Continue;
    morva::intersection_point<float, morva::float3, morva::float3> hit;
    morva::empty_trace_statistics none;
    for (const float end : {out, out * 1.00001F}) {
        for (std::size_t i = 0; i < 3; ++i) {
            to[i] = o[i] + d[i] * end;
            inverse[i] = 1.F / d[i];
        }
        if (!hit.hit)
            morva::fire_ray_rec(*twin.tree, 0, *twin.geoset, o, to, inverse, in, end, hit, none,
                                -1);
    }
    if (!hit.hit)
        return ::osg::Action::Continue;
    Vec3f normal, way;
    for (unsigned i = 0; i < 3; ++i)
        way[i] = hit.point[i] - o[i];
    hit.normal.normalize();
    morva::osg::set(normal, hit.normal);
    picking.setHit(std::sqrt(way[0] * way[0] + way[1] * way[1] + way[2] * way[2]), at, hit.index,
                   normal);
    return ::osg::Action::Continue;
}

inline found pickByTwin(const NodePtr& root, const Line& line, float reach) {
    const std::unique_ptr<::osg::IntersectAction> action(
        ::osg::IntersectAction::create(line, reach));
    action->registerEnterFunction(
        ::osg::Geometry::getClassType(),
        ::osg::osgTypedFunctionFunctor2CPtrRef<::osg::Action::ResultE, ::osg::CNodePtr,
                                               ::osg::Action*>(twinEnter));
    return foundBy(*action, root);
}

/// Whether an action would come to a node.
inline bool isShown(const NodePtr& node) {
    const NodePtr above = node->getParent();
    if (node->getTravMask() == 0 || above == ::osg::NullFC)
        return node->getTravMask() != 0;
    const auto choice = ::osg::SwitchPtr::dcast(above->getCore());
    return (choice == ::osg::NullFC || choice->getChoice() == ::osg::Switch::ALL ||
            above->findChild(node) == choice->getChoice()) &&
           isShown(above);
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
        if (!std::isfinite(at) || t.rogue || !isShown(t.node))
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

} // namespace picking_test
