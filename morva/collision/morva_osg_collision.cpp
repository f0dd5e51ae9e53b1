#include <morva/collision/morva_osg_collision.h>

#include <algorithm>
#include <cstdint>
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

/// Uses of a tree after which its companion is due. A descent counts for as many as it has visited
/// of the pairs that are worth the companions of both.
constexpr std::uint32_t uses_of_companion = 32;

/// Up to this many pairs of nodes are looked at one by one.
constexpr std::size_t few_pairs = 8192;

/// A box in single precision; last lanes are 0.
struct float_bounds {
    lanes low, high;
};

/// The box around the eight corners of a box behind a matrix, each as the matrix itself would move
/// it: x, y, z and the translation are added in this order.
float_bounds boxBehind(const ::osg::Matrix& matrix, const ::osg::Pnt3f& low,
                       const ::osg::Pnt3f& high) {
    lanes side[3][2], shift{matrix[3][0], matrix[3][1], matrix[3][2], 0.F};
    for (::osg::UInt32 c = 0; c < 3; ++c) {
        const lanes column{matrix[c][0], matrix[c][1], matrix[c][2], 0.F};
        side[c][0] = allLanes(low[c]) * column;
        side[c][1] = allLanes(high[c]) * column;
    }
    float_bounds box{};
    for (unsigned corner = 0; corner < 8; ++corner) {
        const lanes p =
            side[0][corner & 1] + side[1][corner >> 1 & 1] + side[2][corner >> 2] + shift;
        box.low = corner == 0 ? p : smaller(p, box.low);
        box.high = corner == 0 ? p : larger(p, box.high);
    }
    return box;
}

float3 pointOf(const ::osg::Pnt3f& p) {
    float3 point;
    set(point, p);
    return point;
}

/// The companion of a tree, or null.
const fitted_boxes* fittedBoxes(const BIHAttachPayload& payload) {
    return static_cast<const fitted_boxes*>(
        payload.tree->companions.find(companion_slot::fitted_boxes));
}

/// Counts uses of a tree; whoever completes them makes the companion. Without memory it stays away.
void countUses(const BIHAttachPayload& payload, std::uint32_t uses) {
    const bih_companions& companions = payload.tree->companions;
    if (!companions.due(companion_slot::fitted_boxes, uses_of_companion, uses))
        return;
    try {
        companions.publish(companion_slot::fitted_boxes, fitBoxes(*payload.tree, *payload.geoset));
    } catch (const std::bad_alloc&) { // the literal way stays
    }
}

/// Two trees in one pose.
class tree_pair {
  public:
    tree_pair(const BIHAttachPayload& a, const BIHAttachPayload& b, const ::osg::Matrix& b_to_a,
              const placed_node& place_a, const placed_node& place_b, const float_bounds& b_box)
        : a_(a), b_(b), low_a_(pointOf(place_a.low)), high_a_(pointOf(place_a.high)),
          low_b_(pointOf(place_b.low)),
          high_b_(pointOf(place_b.high)), box_b_{b_box.low, b_box.high, low_b_, high_b_} {
        set(matrix_, b_to_a);
    }

    /// The first contact, in A's coordinates.
    bool touch(float3& contact) const {
        bool found = false;
        if (filtered(found, contact))
            return found;
        const std::uint64_t patience = (a_.tree->node_count + b_.tree->node_count) / 2;
        pair_descent<any_pair> descent(a_side(), b_side(), matrix_, any_, patience);
        found = start(descent, contact);
        const std::uint32_t uses =
            descent.gaveUp()
                ? uses_of_companion
                : static_cast<std::uint32_t>(descent.visits() * uses_of_companion / (patience + 1));
        countUses(a_, uses);
        countUses(b_, uses);
        if (!descent.gaveUp() || filtered(found, contact))
            return found;
        pair_descent<any_pair> patient(a_side(), b_side(), matrix_, any_);
        return start(patient, contact);
    }

  private:
    tree_side a_side() const { return {*a_.tree, *a_.geoset}; }
    tree_side b_side() const { return {*b_.tree, *b_.geoset}; }

    /// With the companions; false if they are not there, or don't suit the pose.
    bool filtered(bool& found, float3& contact) const {
        const fitted_boxes *const a = fittedBoxes(a_), *const b = fittedBoxes(b_);
        if (a == nullptr || b == nullptr)
            return false;
        const fitted_filter filter({*a, low_a_, high_a_}, {*b, low_b_, high_b_}, matrix_);
        if (!filter.suits())
            return false;
        pair_descent<fitted_filter> descent(a_side(), b_side(), matrix_, filter);
        found = start(descent, contact);
        return true;
    }

    template <typename Filter> bool start(pair_descent<Filter>& descent, float3& contact) const {
        const bool ended = descent.visit(0, 0, {lanesOf(low_a_), lanesOf(high_a_)}, box_b_);
        if (!ended || descent.gaveUp())
            return false;
        contact = descent.contact();
        return true;
    }

    const BIHAttachPayload& a_;
    const BIHAttachPayload& b_;
    const float3 low_a_, high_a_, low_b_, high_b_;
    const carried_box box_b_;
    math::transformation_matrix<float> matrix_;
    any_pair any_;
};

bool overlap(const placed_node& a, const float_bounds& b) {
    return !anyLane((b.low > lanesOf(pointOf(a.high))) | (lanesOf(pointOf(a.low)) > b.high));
}

/// Whether the triangles of two nodes touch; the first contact in A's coordinates.
bool touch(const placed_node& a, const ::osg::Matrix& world_to_a, const placed_node& b,
           const ::osg::Matrix& b_to_world, ::osg::Pnt3f& point) {
    ::osg::Matrix b_to_a = world_to_a;
    b_to_a.mult(b_to_world);
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

/// The geometry nodes of two subtrees, without those whose boxes meet none of the other side.
struct node_lists {
    placed_list a, b;
    std::vector<near_query> queries; ///< one per node of `a`
    std::vector<placed_ball> balls;  ///< one per node of `b`

    node_lists(const ::osg::NodePtr& root_a, const ::osg::NodePtr& root_b)
        : a(placeGeometryNodes(root_a)), b(placeGeometryNodes(root_b)), queries(nearQueriesOf(a)),
          balls(ballsOf(b)) {
        keepNearQueries();
        keepNearBalls();
        keepNearQueries();
    }

  private:
    void keepNearQueries() {
        if (balls.empty())
            return;
        ball_heap all(balls.front());
        for (const placed_ball& ball : balls)
            all.add(ball);
        keep(a.nodes, queries, [&all](const near_query& query) { return !isBeyond(query, all); });
    }
    void keepNearBalls() {
        if (queries.empty())
            return;
        near_query all = queries.front();
        for (const near_query& query : queries)
            all = joined(all, query);
        keep(b.nodes, balls,
             [&all](const placed_ball& ball) { return !isBeyond(all, ball_heap(ball)); });
    }

    /// Keeps the nodes whose place does, in order.
    template <typename Place, typename IsKept>
    static void keep(std::vector<placed_node>& nodes, std::vector<Place>& places,
                     const IsKept& is_kept) {
        std::size_t kept = 0;
        for (std::size_t i = 0; i < nodes.size(); ++i) {
            if (!is_kept(places[i]))
                continue;
            if (kept != i) {
                nodes[kept] = nodes[i];
                places[kept] = places[i];
            }
            ++kept;
        }
        nodes.resize(kept);
        places.resize(kept);
    }
};

/// Tells `tell` of each pair of nodes in contact, in the order of the lists, until it answers true.
/// Pairs whose boxes can't meet are not asked.
template <typename Neighbours, typename Tell>
void findContacts(const node_lists& lists, const Neighbours& neighbours, const Tell& tell) {
    std::vector<std::uint32_t> near;
    CollisionResults contact;
    contact.collided = true;
    for (std::size_t i = 0; i < lists.queries.size(); ++i) {
        neighbours.findNear(lists.queries[i], near);
        if (near.empty())
            continue;
        const placed_node& a = lists.a.nodes[i];
        const ::osg::Matrix& a_to_world = lists.a.toWorld(a);
        const ::osg::Matrix world_to_a = inverseOrIdentity(a_to_world);
        for (const std::uint32_t j : near) {
            const placed_node& b = lists.b.nodes[j];
            if (!touch(a, world_to_a, b, lists.b.toWorld(b), contact.point))
                continue;
            a_to_world.multMatrixPnt(contact.point);
            contact.nodeA = a.node;
            contact.nodeB = b.node;
            if (tell(contact))
                return;
        }
    }
}

template <typename Tell>
void findContacts(const ::osg::NodePtr& a, const ::osg::NodePtr& b, const Tell& tell) {
    const node_lists lists(a, b);
    if (lists.queries.empty() || lists.balls.empty())
        return;
    if (lists.queries.size() * lists.balls.size() > few_pairs)
        findContacts(lists, ball_tree(lists.balls), tell);
    else
        findContacts(lists, ball_rows(lists.balls), tell);
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
    const placed_list place_a = placeNode(a), place_b = placeNode(b);
    results.collided = false;
    if (place_a.nodes.empty() || place_b.nodes.empty())
        return false;
    const placed_node &node_a = place_a.nodes[0], &node_b = place_b.nodes[0];
    const ::osg::Matrix& a_to_world = place_a.toWorld(node_a);
    ::osg::Pnt3f point;
    if (!touch(node_a, inverseOrIdentity(a_to_world), node_b, place_b.toWorld(node_b), point))
        return false;
    a_to_world.multMatrixPnt(point, results.point);
    return results.collided = true;
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
