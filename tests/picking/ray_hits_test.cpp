// Rays in world coordinates beside all triangles one by one; where a hit comes from.

#include "pick_scenes.h"

namespace {

using namespace picking_test;
using morva::osg::all_hits, morva::osg::first_hit, morva::osg::no_triangle, morva::osg::ray_hit;

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
    double t;
    bool back_face;
    Vec3d normal;
};
using naive_hits = std::map<std::pair<NodePtr, unsigned>, naive_hit>;

/// `sure` is cleared if an edge or the start is too near to tell.
naive_hits naiveHits(const std::vector<placed_triangle>& world, const Line& line, bool both_sides,
                     bool& sure) {
    const Pnt3f start = line.getPosition();
    const Vec3f way = line.getDirection();
    const Pnt3d o(start[0], start[1], start[2]);
    const Vec3d d(way[0], way[1], way[2]);
    naive_hits hits;
    for (const placed_triangle& t : world) {
        const Pnt3d &a = t.corners[0], &b = t.corners[1], &c = t.corners[2];
        const Vec3d n = (b - a).cross(c - a);
        const double facing = d.dot(n), length = n.length();
        if (facing == 0.0 || t.rogue || !isShown(t.node))
            continue;
        const double at = (a - o).dot(n) / facing;
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

void expectSame(const ray_hit& a, const ray_hit& b) {
    EXPECT_TRUE(a.node == b.node && a.object == b.object && a.triangle == b.triangle &&
                a.distance == b.distance && a.point == b.point && a.normal == b.normal &&
                a.back_face == b.back_face);
}

TEST(RayHits, AreThoseOfAllTrianglesOneByOne) {
    std::mt19937 rng(seedOf(44));
    std::size_t met = 0, unsure = 0, by_action = 0;
    for (int round = 0; round < roundsOf(120); ++round) {
        SCOPED_TRACE(round);
        const NodePtr root = anyScene(rng); // the frames above it count
        const node_ref top(transformed(anyFrame(rng), {transformed(anyFrame(rng), {root})}));
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

TEST(RayHits, SlipThroughNoSeamAndFindFlatPartsAwayFromZero) {
    const float inf = std::numeric_limits<float>::infinity(), nan = inf - inf;
    const Vec3f down(0, 0, -1);
    const mesh_data wall = triangles({{0, 0, 5}, {4, 0, 5}, {0, 4, 5}});
    Matrix flattened;
    flattened.setScale(Vec3f(1, 1, 0));
    const node_ref tiles(meshNode(quads(4))), root(group({meshNode(wall)}));
    const node_ref twice(group({meshNode(wall), meshNode(wall)})),
        second(switched(1, {meshNode(wall), meshNode(wall)}));
    const node_ref gone(group({transformed(flattened, {meshNode(wall)}), ::osg::Node::create()}));
    gone->getChild(1)->addChild(meshNode(wall)); // below a node without a core
    const Line near(Pnt3f(1, 1, 6), down), slanted(Pnt3f(9, 1, 6), Pnt3f(1, 1, 5)),
        behind(Pnt3f(1, 1, 3), Vec3f(0, 0, 1));
    const struct {
        const char* name;
        NodePtr node;
        Line ray;
        std::size_t fronts, both;
    } rows[] = {{"an edge", tiles.get(), Line(Pnt3f(2, .5F, 1), down), 2, 2},
                {"a diagonal", tiles.get(), Line(Pnt3f(.5F, .5F, 1), down), 2, 2},
                {"its back", tiles.get(), Line(Pnt3f(.5F, .5F, -1), Vec3f(0, 0, 1)), 0, 2},
                {"a border", tiles.get(), Line(Pnt3f(.5F, 0, 1), down), 1, 1},
                {"corners", tiles.get(), Line(Pnt3f(1, 0, 1), down), 3, 3},
                {"a flat part", root.get(), near, 1, 1},
                {"from beyond its box", root.get(), slanted, 1, 1},
                {"from the back", root.get(), behind, 0, 1},
                {"from the part itself", root.get(), Line(Pnt3f(1, 1, 5), down), 1, 1},
                {"two at one place", twice.get(), near, 2, 2},
                {"the second alone", second.get(), near, 1, 1},
                {"no direction", root.get(), Line(Pnt3f(1, 1, 6), Vec3f(0, 0, 0)), 0, 0},
                {"nowhere", root.get(), Line(Pnt3f(nan, 1, 6), down), 0, 0},
                {"endless", root.get(), Line(Pnt3f(1, 1, inf), down), 0, 0},
                {"to nowhere", root.get(), Line(Pnt3f(1, 1, 6), Vec3f(0, nan, -1)), 0, 0},
                {"flattened, and without a core", gone.get(), near, 1, 1},
                {"null", NodePtr(), near, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const bool both_sides : {false, true}) {
            const std::size_t count = both_sides ? row.both : row.fronts;
            ray_hit first;
            first.object = 17;
            const std::vector<ray_hit> hits = all_hits(row.node, row.ray, both_sides);
            ASSERT_EQ(hits.size(), count);
            EXPECT_EQ(first_hit(row.node, row.ray, both_sides, first), count != 0);
            if (count != 0)
                expectSame(first, hits.front()); // of equals the first node's first triangle
            EXPECT_EQ(first.object == 17, count == 0);
            EXPECT_EQ(first.back_face, row.both > row.fronts && both_sides);
        }
    }
    // By the list's box, which lies around 0, a ray that starts beyond it finds nothing.
    const registered picking(morva::osg::register_morva_intersect);
    EXPECT_TRUE(std::get<0>(pick(root.get(), near)));
    EXPECT_FALSE(std::get<0>(pick(root.get(), slanted)));
}

TEST(ObjectNumbers, LeadToTrianglesAndParts) {
    std::mt19937 rng(seedOf(47));
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(round);
        mesh_data mesh =
            withIds(withCoordinates(round % 2 == 0 ? soup(rng, 30) : mixture(rng, 5), rng), 4);
        if (round % 3 != 0)
            mesh = round % 3 == 1 ? withIndex(mesh, rng) : withIndexPerProperty(mesh, rng);
        const node_ref node(meshNode(mesh));
        const ::osg::GeometryPtr core = coreOf(node.get());
        for (const char* state : {"", "prepared", "changed"}) {
            SCOPED_TRACE(state);
            if (state[0] == 'p')
                morva::osg::precalc_BIH(node.get());
            if (state[0] == 'c') {
                core->getPositions()->setValue(Pnt3f(NAN, 0, 0), 0);
                morva::osg::mark_bih(node.get());
            }
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
