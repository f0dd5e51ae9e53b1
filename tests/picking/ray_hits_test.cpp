// Rays in world coordinates beside all triangles one by one; where a hit comes from.

#include "pick_scenes.h"

namespace {

using namespace picking_test;
using morva::osg::all_hits, morva::osg::first_hit, morva::osg::no_triangle, morva::osg::ray_hit;

wide minus(const wide& a, const wide& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
wide cross(const wide& a, const wide& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
long double dot(const wide& a, const wide& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
/// Whether an action would come to a node.
bool isShown(const NodePtr& node) {
    const NodePtr above = node->getParent();
    if (node->getTravMask() == 0)
        return false;
    if (above == ::osg::NullFC)
        return true;
    const auto choice = ::osg::SwitchPtr::dcast(above->getCore());
    return (choice == ::osg::NullFC || choice->getChoice() == ::osg::Switch::ALL ||
            above->findChild(node) == choice->getChoice()) &&
           isShown(above);
}

/// What a ray meets, by node and triangle.
struct naive_hit {
    long double t;
    bool back_face;
    wide normal;
};
using naive_hits = std::map<std::pair<NodePtr, unsigned>, naive_hit>;

/// `sure` is cleared if an edge or the start is too near to tell.
naive_hits naiveHits(const std::vector<placed_triangle>& world, const Line& line, bool both_sides,
                     bool& sure) {
    wide o, d, p;
    for (unsigned i = 0; i < 3; ++i)
        o[i] = line.getPosition()[i], d[i] = line.getDirection()[i];
    naive_hits hits;
    for (const placed_triangle& t : world) {
        const wide &a = t.corners[0], &b = t.corners[1], &c = t.corners[2];
        const wide n = cross(minus(b, a), minus(c, a));
        const long double facing = dot(d, n), length = std::sqrt(dot(n, n));
        if (facing == 0.0L || t.rogue || !isShown(t.node))
            continue;
        const long double at = dot(minus(a, o), n) / facing;
        for (unsigned i = 0; i < 3; ++i)
            p[i] = o[i] + at * d[i];
        long double least = 1.0L; // distance to an edge, by that of the corner across
        for (const auto& [u, v] : {std::pair(a, b), std::pair(b, c), std::pair(c, a)})
            least = std::min(least, dot(cross(minus(v, u), minus(p, u)), n) / (length * length));
        if (std::abs(least) < 1e-6L || std::abs(at) < 1e-6L || std::abs(facing) < 1e-6L * length)
            sure = sure && least < -1e-3L;
        // The front is a matter of the core's frame, and so is the side of the normal.
        const long double side = t.node->getToWorld().det3() < 0.F ? -1.0L : 1.0L;
        const bool back = facing * side > 0.0L;
        if (least >= 0.0L && at >= 0.0L && (both_sides || !back)) {
            const long double unit = side / length;
            hits[{t.node, t.number}] = {at, back, {n[0] * unit, n[1] * unit, n[2] * unit}};
        }
    }
    return hits;
}

void expectSame(const ray_hit& a, const ray_hit& b) {
    EXPECT_TRUE(a.node == b.node && a.object == b.object && a.triangle == b.triangle &&
                a.distance == b.distance && a.point == b.point && a.normal == b.normal &&
                a.back_face == b.back_face);
}

TEST(RayHits, AreThoseOfAllTrianglesOneByOne) {
    std::mt19937 rng(44);
    std::size_t met = 0, unsure = 0, by_action = 0;
    for (int round = 0; round < 120; ++round) {
        SCOPED_TRACE(round);
        const node_ref top(group({transformed(anyFrame(rng), {anyScene(rng)})}));
        const NodePtr root = top->getChild(0)->getChild(0); // the frames above it count
        const std::vector<placed_triangle> world = placedTriangles(root);
        for (int ray = 0; ray < 100; ++ray) {
            SCOPED_TRACE(ray);
            const Line line = anyRay(rng, world);
            const bool both_sides = ray % 2 == 0;
            bool sure = true;
            naive_hits naive = naiveHits(world, line, both_sides, sure);
            const std::vector<ray_hit> hits = all_hits(root, line, both_sides);
            ray_hit first;
            ASSERT_EQ(first_hit(root, line, both_sides, first), !hits.empty());
            if (!hits.empty())
                expectSame(first, hits.front());
            // An action's line is in single precision: at edges it may differ.
            const registered picking(both_sides
                                         ? +[] { morva::osg::register_exact_intersect(true); }
                                         : +[] { morva::osg::register_exact_intersect(false); });
            const found picked = pick(top.get(), line);
            by_action += std::get<0>(picked) == !hits.empty() &&
                                 (hits.empty() || std::abs(std::get<1>(picked) - first.distance) <=
                                                      1e-4F * (first.distance + 60.F))
                             ? 1
                             : 0;
            unsure += sure ? 0 : 1;
            if (!sure)
                continue;
            float before = 0.F;
            for (const ray_hit& hit : hits) {
                const auto found = naive.find({hit.node, hit.triangle});
                ASSERT_NE(found, naive.end()) << hit.triangle;
                const naive_hit& truth = found->second;
                EXPECT_NEAR(hit.distance, static_cast<float>(truth.t), 1e-5F * hit.distance);
                EXPECT_EQ(hit.back_face, truth.back_face);
                EXPECT_LE(before, hit.distance);
                before = hit.distance;
                for (unsigned i = 0; i < 3; ++i) {
                    EXPECT_NEAR(hit.normal[i], static_cast<float>(truth.normal[i]), 1e-4F);
                    EXPECT_NEAR(hit.point[i],
                                line.getPosition()[i] + line.getDirection()[i] * hit.distance,
                                1e-5F * (hit.distance + 60.F));
                }
                EXPECT_EQ(morva::osg::triangle_of_object(coreOf(hit.node), hit.object),
                          hit.triangle);
                naive.erase(found);
            }
            EXPECT_TRUE(naive.empty()) << "missed triangle " << naive.begin()->first.second;
            met += hits.size();
        }
    }
    EXPECT_GT(met, 8000U);
    EXPECT_LT(unsure, 4000U);
    EXPECT_GT(by_action, 11700U) << "of 12000";
}

TEST(RayHits, SlipThroughNoSeam) {
    const node_ref tiles(meshNode(quads(4))); // exactly onto edges and corners
    for (const Pnt3f& at : {Pnt3f(1, .5F, 1), Pnt3f(.5F, .5F, 1), Pnt3f(2, 0, 1), Pnt3f(0, 0, 1),
                            Pnt3f(.5F, 0, 1), Pnt3f(3, 1, 1), Pnt3f(4, 1, 1)})
        EXPECT_FALSE(all_hits(tiles.get(), Line(at, Vec3f(0, 0, -1)), false).empty()) << at;
}

TEST(RayHits, FindFlatPartsAwayFromZeroAndNothingWhereThereIsNoRay) {
    mesh_data wall = triangles({{0, 0, 5}, {4, 0, 5}, {0, 4, 5}});
    const node_ref root(group({meshNode(wall)}));
    const Line near(Pnt3f(1, 1, 6), Vec3f(0, 0, -1)), behind(Pnt3f(1, 1, 3), Vec3f(0, 0, 1));
    {
        // The list's box lies around 0; a ray that starts beyond it finds nothing.
        const registered picking(morva::osg::register_morva_intersect);
        EXPECT_TRUE(std::get<0>(pick(root.get(), near)));
        EXPECT_FALSE(std::get<0>(pick(root.get(), Line(Pnt3f(9, 1, 6), Pnt3f(1, 1, 5)))));
    }
    EXPECT_EQ(all_hits(root.get(), near, false).size(), 1U);
    EXPECT_EQ(all_hits(root.get(), Line(Pnt3f(9, 1, 6), Pnt3f(1, 1, 5)), false).size(), 1U);
    EXPECT_EQ(all_hits(root.get(), behind, false).size(), 0U);
    EXPECT_TRUE(all_hits(root.get(), behind, true).at(0).back_face);
    const float inf = std::numeric_limits<float>::infinity(), nan = inf - inf;
    ray_hit untouched;
    untouched.object = 17;
    for (const Line& line :
         {Line(Pnt3f(1, 1, 6), Vec3f(0, 0, 0)), Line(Pnt3f(nan, 1, 6), Vec3f(0, 0, -1)),
          Line(Pnt3f(1, 1, inf), Vec3f(0, 0, -1)), Line(Pnt3f(1, 1, 6), Vec3f(0, nan, -1))}) {
        EXPECT_TRUE(all_hits(root.get(), line, true).empty());
        EXPECT_FALSE(first_hit(root.get(), line, true, untouched));
    }
    EXPECT_FALSE(first_hit(::osg::NullFC, near, true, untouched));
    EXPECT_EQ(untouched.object, 17U);
    Matrix flattened;
    flattened.setScale(Vec3f(1, 1, 0));
    const node_ref gone(group({transformed(flattened, {meshNode(wall)}), ::osg::Node::create()}));
    gone->getChild(1)->addChild(meshNode(wall)); // below a node without a core
    EXPECT_EQ(all_hits(gone.get(), near, true).size(), 1U);
}

TEST(ObjectNumbers, LeadToTrianglesAndParts) {
    std::mt19937 rng(47);
    for (int round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        mesh_data mesh =
            withIds(withCoordinates(round % 2 == 0 ? soup(rng, 30) : mixture(rng, 5), rng), 4);
        if (round % 3 != 0)
            mesh = round % 3 == 1 ? withIndex(mesh, rng) : withIndexPerProperty(mesh, rng);
        const node_ref node(meshNode(mesh));
        const ::osg::GeometryPtr core = coreOf(node.get());
        for (const bool prepared : {false, true}) {
            if (prepared)
                morva::osg::precalc_BIH(node.get());
            unsigned object = 0;
            for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
                if (morva::osg::is_rogue(it.getPosition(0), it.getPosition(1), it.getPosition(2)))
                    continue;
                EXPECT_EQ(morva::osg::triangle_of_object(core, object),
                          static_cast<unsigned>(it.getIndex()));
                EXPECT_EQ(morva::osg::id_of_object(core, object),
                          static_cast<int>(it.getTexCoords7(0)[0]));
                EXPECT_EQ(morva::osg::id_of_object(core, object, morva::osg::textureUnit(2)), -1);
                ++object;
            }
            EXPECT_EQ(morva::osg::triangle_of_object(core, object), no_triangle);
            EXPECT_EQ(morva::osg::id_of_object(core, object), -1);
        }
    }
    EXPECT_EQ(morva::osg::triangle_of_object(::osg::NullFC, 0), no_triangle);
    EXPECT_EQ(morva::osg::id_of_object(::osg::NullFC, 0), -1);
}

} // namespace
