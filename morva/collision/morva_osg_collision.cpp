#include <morva/collision/morva_osg_collision.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGMatrix.h>

#include <morva/collision/morva_osg_fitted_boxes.h>
#include <morva/collision/morva_osg_placed_nodes.h>
#include <morva/collision/morva_osg_tree_descent.h>
#include <morva/core/morva_osg.h>
#include <morva/picking/morva_osg_core_trees.h>
#include <morva/trees/bih_tree.h>

namespace morva::osg {

namespace {

/// As many pairs of nodes make the companions worth their time.
constexpr std::uint64_t least_patience = 64;

/// Below this many pairs each is asked.
constexpr std::size_t few_pairs = 256;

/// A box in single precision.
struct float_bounds {
    ::osg::Pnt3f low, high;
};

/// The box around the eight corners of a box behind a matrix.
float_bounds boxBehind(const ::osg::Matrix& matrix, const ::osg::Pnt3f& low,
                       const ::osg::Pnt3f& high) {
    float_bounds box;
    for (unsigned corner = 0; corner < 8; ++corner) {
        ::osg::Pnt3f p((corner & 1) != 0 ? high[0] : low[0], (corner & 2) != 0 ? high[1] : low[1],
                       (corner & 4) != 0 ? high[2] : low[2]);
        matrix.multMatrixPnt(p);
        for (::osg::UInt32 k = 0; k < 3; ++k) {
            if (corner == 0 || p[k] < box.low[k])
                box.low[k] = p[k];
            if (corner == 0 || p[k] > box.high[k])
                box.high[k] = p[k];
        }
    }
    return box;
}

float3 pointOf(const ::osg::Pnt3f& p) {
    float3 point;
    set(point, p);
    return point;
}

/// The companion of a tree, or null. Made if `wanted`, by whoever wants it first; null without
/// memory.
const fitted_boxes* fittedBoxes(const BIHAttachPayload& payload, bool wanted) {
    const bih_companions& companions = payload.tree->companions;
    const bih_companion* found = companions.find(companion_slot::fitted_boxes);
    if (found == nullptr && wanted && companions.due(companion_slot::fitted_boxes, 1)) {
        try {
            fitted_boxes* const made = fitBoxes(*payload.tree, *payload.geoset);
            companions.publish(companion_slot::fitted_boxes, made);
            found = made;
        } catch (const std::bad_alloc&) { // without it, then
        }
    }
    return static_cast<const fitted_boxes*>(found);
}

/// Two trees in one pose.
class tree_pair {
  public:
    tree_pair(const BIHAttachPayload& a, const BIHAttachPayload& b, const ::osg::Matrix& b_to_a,
              const placed_node& place_a, const placed_node& place_b, const float_bounds& b_box)
        : a_(a), b_(b), low_a_(pointOf(place_a.low)), high_a_(pointOf(place_a.high)),
          low_b_(pointOf(place_b.low)),
          high_b_(pointOf(place_b.high)), boxes_{lanesOf(low_a_),
                                                 lanesOf(high_a_),
                                                 lanesOf(pointOf(b_box.low)),
                                                 lanesOf(pointOf(b_box.high)),
                                                 low_b_,
                                                 high_b_} {
        set(matrix_, b_to_a);
    }

    /// The first contact, in A's coordinates.
    bool touch(float3& contact) const {
        const std::uint64_t patience =
            least_patience + (a_.tree->node_count + b_.tree->node_count) / 2;
        bool gave_up = false, found = false;
        if (filtered(false, found, contact))
            return found;
        found = descend(any_pair(), patience, gave_up, contact);
        if (!gave_up || filtered(true, found, contact))
            return found;
        return descend(any_pair(), unlimited_patience, gave_up, contact);
    }

  private:
    static constexpr std::uint64_t unlimited_patience = std::numeric_limits<std::uint64_t>::max();

    /// With the companions; false if they are not there, and can't be made or were not `wanted`.
    bool filtered(bool wanted, bool& found, float3& contact) const {
        const fitted_boxes* const a = fittedBoxes(a_, wanted);
        const fitted_boxes* const b = fittedBoxes(b_, wanted);
        if (a == nullptr || b == nullptr)
            return false;
        const fitted_filter filter({*a, low_a_, high_a_}, {*b, low_b_, high_b_}, matrix_);
        if (!filter.suits())
            return false;
        bool gave_up = false;
        found = descend(filter, unlimited_patience, gave_up, contact);
        return true;
    }

    template <typename Filter>
    bool descend(const Filter& filter, std::uint64_t patience, bool& gave_up,
                 float3& contact) const {
        pair_descent<Filter> descent({*a_.tree, *a_.geoset}, {*b_.tree, *b_.geoset}, matrix_,
                                     filter, patience);
        const bool ended = descent.visit(0, 0, boxes_);
        gave_up = descent.gaveUp();
        if (!ended || gave_up)
            return false;
        contact = descent.contact();
        return true;
    }

    const BIHAttachPayload& a_;
    const BIHAttachPayload& b_;
    const float3 low_a_, high_a_, low_b_, high_b_;
    const pair_boxes boxes_;
    math::transformation_matrix<float> matrix_;
};

bool overlap(const placed_node& a, const float_bounds& b) {
    for (::osg::UInt32 k = 0; k < 3; ++k)
        if (b.low[k] > a.high[k] || a.low[k] > b.high[k])
            return false;
    return true;
}

/// Whether the triangles of two usable nodes touch; the first contact in world coordinates.
bool touch(const placed_node& a, const ::osg::Matrix& world_to_a, const placed_node& b,
           ::osg::Pnt3f& point) {
    ::osg::Matrix b_to_a = world_to_a;
    b_to_a.mult(b.to_world);
    if (!isFinite(b_to_a))
        return false;
    const float_bounds b_box = boxBehind(b_to_a, b.low, b.high);
    if (!overlap(a, b_box))
        return false;
    BIHAttachPayload* const tree_a = payloadFor(a.node);
    if (tree_a == nullptr || !isReady(a.node, *tree_a))
        return false;
    BIHAttachPayload* const tree_b = payloadFor(b.node);
    if (tree_b == nullptr || !isReady(b.node, *tree_b))
        return false;
    float3 contact;
    if (!tree_pair(*tree_a, *tree_b, b_to_a, a, b, b_box).touch(contact))
        return false;
    set(point, contact);
    a.to_world.multMatrixPnt(point);
    return true;
}

/// Whether the boxes of two subtrees leave room for a contact.
bool boxesMeet(const ::osg::NodePtr& a, const ::osg::NodePtr& b, float tolerance) {
    if (a == ::osg::NullFC || b == ::osg::NullFC)
        return false;
    ::osg::DynamicVolume box_a, box_b;
    a->getWorldVolume(box_a);
    b->getWorldVolume(box_b);
    if (!box_a.isValid() || box_a.isEmpty() || !box_b.isValid() || box_b.isEmpty())
        return false;
    ::osg::Pnt3f low, high;
    box_a.getBounds(low, high);
    const ::osg::Vec3f more(tolerance, tolerance, tolerance);
    box_a.extendBy(low - more);
    box_a.extendBy(high + more);
    return box_a.intersect(box_b);
}

/// Tells `tell` of each pair of geometry nodes in contact, in the order of the lists, until it
/// answers true. Pairs whose boxes can't meet are not asked.
template <typename Tell>
void findContacts(const ::osg::NodePtr& a, const ::osg::NodePtr& b, const Tell& tell) {
    const std::vector<placed_node> list_a = placeGeometryNodes(a), list_b = placeGeometryNodes(b);
    std::vector<std::uint32_t> all(list_b.size()), near;
    for (std::uint32_t i = 0; i < all.size(); ++i)
        all[i] = i;
    std::vector<placed_ball> balls;
    if (list_a.size() * list_b.size() > few_pairs)
        std::transform(list_b.begin(), list_b.end(), std::back_inserter(balls), ballOf);
    const ball_tree places(std::move(balls));
    CollisionResults contact;
    contact.collided = true;
    for (const placed_node& node_a : list_a) {
        ::osg::Matrix world_to_a;
        near_query query;
        const bool choosy = invert(node_a.to_world, world_to_a) &&
                            list_a.size() * list_b.size() > few_pairs &&
                            nearQueryOf(node_a, world_to_a, query);
        if (choosy)
            places.findNear(query, near);
        for (const std::uint32_t i : choosy ? near : all) {
            if (!touch(node_a, world_to_a, list_b[i], contact.point))
                continue;
            contact.nodeA = node_a.node;
            contact.nodeB = list_b[i].node;
            if (tell(contact))
                return;
        }
    }
}

} // namespace

CollisionParam::CollisionParam() : tolerance(0.01F) {}

bool collision(::osg::NodePtr a, ::osg::NodePtr b, CollisionParam const& param,
               CollisionResults& results) {
    countOne(num_colltests());
    results.collided = false;
    if (!boxesMeet(a, b, param.tolerance))
        return false;
    findContacts(a, b, [&results](const CollisionResults& contact) {
        results = contact;
        return true;
    });
    return results.collided;
}

bool do_collide(::osg::NodePtr a, ::osg::NodePtr b, CollisionResults& results) {
    const placed_node node_a = placeNode(a), node_b = placeNode(b);
    results.collided = false;
    if (!node_a.usable || !node_b.usable)
        return false;
    ::osg::Matrix world_to_a;
    invert(node_a.to_world, world_to_a);
    results.collided = touch(node_a, world_to_a, node_b, results.point);
    return results.collided;
}

std::vector<CollisionResults> collisions(::osg::NodePtr a, ::osg::NodePtr b,
                                         CollisionParam const& param) {
    std::vector<CollisionResults> contacts;
    if (boxesMeet(a, b, param.tolerance))
        findContacts(a, b, [&contacts](const CollisionResults& contact) {
            contacts.push_back(contact);
            return false;
        });
    return contacts;
}

} // namespace morva::osg
