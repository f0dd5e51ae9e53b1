#include <morva/picking/morva_osg_intersect_action.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGIntersectAction.h>
#include <OpenSG/OSGLine.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg.h>
#include <morva/picking/morva_osg_core_trees.h>
#include <morva/picking/morva_osg_exact_rays.h>
#include <morva/trees/ray_traversal.h>

namespace morva::osg {

using ::osg::Action;
using ::osg::CNodePtr;
using ::osg::IntersectAction;
using ::osg::NodePtr;
using hit_record = intersection_point<float, float3, float3>;

namespace {

void registerEnter(Action::ResultE (*function)(CNodePtr&, Action*)) {
    IntersectAction::registerEnterDefault(
        ::osg::Geometry::getClassType(),
        ::osg::osgTypedFunctionFunctor2CPtrRef<Action::ResultE, CNodePtr, Action*>(function));
}

bool isFinite(const float3& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

float lengthOf(const float3& v) { return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]); }

/// To length 1, also where the square of the length leaves the range of a float.
void normalise(float3& normal) {
    const float factor = 1.0F / lengthOf(normal);
    if (factor == 0.0F || !std::isfinite(factor)) {
        const float largest =
            std::max({std::abs(normal[0]), std::abs(normal[1]), std::abs(normal[2])});
        for (std::size_t i = 0; i < 3; ++i)
            normal[i] /= largest;
    }
    normal.normalize();
}

/// A line on its way through a core's tree, by the box of the tree's list.
struct core_ray {
    float3 from, direction, inverse;
    float entry = 0.0F, exit = 0.0F;

    /// The first triangle before the parameter `end`.
    void fire(const BIHAttachPayload& payload, float end, hit_record& hit) const {
        float3 to;
        for (std::size_t i = 0; i < 3; ++i)
            to[i] = from[i] + direction[i] * end;
        empty_trace_statistics none;
        fire_ray_rec(*payload.tree, 0, *payload.geoset, from, to, inverse, entry, end, hit, none,
                     -1);
    }
};

/// The first triangle of a core that a line in its frame meets from the front.
hit_record firstTriangle(const BIHAttachPayload& payload, core_ray& ray) {
    hit_record hit;
    if (!clip_ray(payload.geoset->box, ray.from, ray.direction, ray.entry, ray.exit))
        return hit;
    for (std::size_t i = 0; i < 3; ++i)
        ray.inverse[i] = 1.0F / ray.direction[i];
    ray.fire(payload, ray.exit, hit);
    // The exit is rounded: a triangle that lies in that wall of the box, such as the floor of an
    // open room, may be just behind it.
    if (!hit.hit)
        ray.fire(payload, std::min(ray.exit * 1.00001F, std::numeric_limits<float>::max()), hit);
    return hit;
}

/// How far hits count.
double reachOf(const IntersectAction& action) {
    const float reach = action.getMaxDist();
    return static_cast<double>(action.didHit() ? std::min(reach, action.getHitT()) : reach);
}

/// Whether all triangles of a core lie behind `reach` by more than any rounding. The box is not
/// that of the list, whose flat axes are elsewhere.
bool isBehind(const BIHAttachPayload& payload, const ::osg::Line& line, double reach) {
    constexpr double rounding = 1e-4;
    double entry = 0.0, exit = 0.0;
    const list_facts& facts = *payload_access::facts(payload);
    return clipWidened(facts.box, rayOf(line), rounding, entry, exit) &&
           entry > reach * (1.0 + rounding);
}

template <bool both_sides> Action::ResultE exactEnter(CNodePtr& node, Action* action) {
    auto* const picking = dynamic_cast<IntersectAction*>(action);
    const NodePtr at(node);
    if (picking == nullptr || at == ::osg::NullFC)
        return Action::Continue;
    const exact_ray ray = rayOf(picking->getLine());
    if (isMissed(at->getVolume(), ray, reachOf(*picking)))
        return Action::Skip;
    BIHAttachPayload* const payload = payloadFor(at);
    if (payload == nullptr || !isReady(at, *payload))
        return Action::Continue;
    core_hit hit;
    if (firstInCore(*payload, ray, both_sides, reachOf(*picking), hit)) {
        ::osg::Vec3f normal = unitVector(normalOf(*payload, hit.object));
        picking->setHit(static_cast<float>(hit.t), at, static_cast<::osg::Int32>(hit.object),
                        normal);
    }
    return Action::Continue;
}

} // namespace

void register_morva_intersect() { registerEnter(&geometry_enter); }
void register_bbox_intersect() { registerEnter(&bbox_enter); }
void register_exact_intersect(bool both_sides) {
    registerEnter(both_sides ? &exactEnter<true> : &exactEnter<false>);
}
void unregister_morva_intersect() {
    IntersectAction::registerEnterDefault(
        ::osg::Geometry::getClassType(),
        ::osg::osgTypedMethodFunctor2BaseCPtrRef<Action::ResultE, ::osg::GeometryPtr, CNodePtr,
                                                 Action*>(&::osg::Geometry::intersect));
}

Action::ResultE geometry_enter(CNodePtr& node, Action* action) {
    auto* const picking = dynamic_cast<IntersectAction*>(action);
    const NodePtr at(node);
    if (picking == nullptr || at == ::osg::NullFC)
        return Action::Continue;
    const ::osg::Line& line = picking->getLine();
    const ::osg::DynamicVolume& volume = at->getVolume();
    if (volume.isValid() && !volume.isInfinite() && !volume.intersect(line))
        return Action::Skip;
    BIHAttachPayload* const payload = payloadFor(at);
    if (payload == nullptr)
        return Action::Continue;
    countOne(num_picktests());
    core_ray ray;
    set(ray.from, line.getPosition());
    set(ray.direction, line.getDirection());
    if (!isFinite(ray.from) || !isFinite(ray.direction) || !isReady(at, *payload) ||
        isBehind(*payload, line, reachOf(*picking)))
        return Action::Continue;
    hit_record hit = firstTriangle(*payload, ray);
    if (!hit.hit)
        return Action::Continue;
    const float distance = lengthOf(
        {hit.point[0] - ray.from[0], hit.point[1] - ray.from[1], hit.point[2] - ray.from[2]});
    if (!std::isfinite(distance))
        return Action::Continue;
    normalise(hit.normal);
    ::osg::Vec3f normal;
    set(normal, hit.normal);
    picking->setHit(distance, at, hit.index, normal);
    return Action::Continue;
}

Action::ResultE bbox_enter(CNodePtr& node, Action* action) {
    auto* const picking = dynamic_cast<IntersectAction*>(action);
    const NodePtr at(node);
    if (picking == nullptr || at == ::osg::NullFC)
        return Action::Continue;
    float enter = 0.0F, exit = 0.0F;
    if (!at->getVolume().isValid())
        at->updateVolume();
    if (at->getVolume().isValid() && !at->getVolume().intersect(picking->getLine(), enter, exit))
        return Action::Skip;
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(at->getCore());
    if (geometry == ::osg::NullFC)
        return Action::Continue;
    const ::osg::TriangleIterator first = geometry->beginTriangles();
    if (first != geometry->endTriangles()) {
        ::osg::Vec3f normal(0.0F, 0.0F, 1.0F);
        picking->setHit(enter, at, first.getIndex(), normal);
    }
    return Action::Continue;
}

std::string get_info(::osg::NodeCorePtr core) {
    const ::osg::MorvaAttachBIHPtr found = attachmentOf(core);
    if (found == ::osg::NullFC)
        return "No BIHTree.";
    const BIHAttachPayload& payload = found->getFieldPtr()->getValue();
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "BIHTree, A/N/L/D/MP/NT, bbox: ";
    if (!hasTree(payload)) {
        text << " INACTIVE/";
        return text.str();
    }
    const bih_tree<float>& tree = *payload.tree;
    const triangle_list& list = *payload.geoset;
    text << " ACTIVE/" << tree.node_count << "/" << tree.leaf_count << "/" << tree.max_depth_reached
         << "/" << tree.max_leaf_size << "/" << list.count << " " << list.box.min << "/"
         << list.box.max;
    return text.str();
}

} // namespace morva::osg
