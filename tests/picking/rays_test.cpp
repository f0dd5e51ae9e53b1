// Rays in scenes beside their twins: by actions, in world coordinates; where a hit comes from.

#include "pick_scenes.h"

namespace {

using namespace picking_test;
using morva::osg::all_hits, morva::osg::first_hit, morva::osg::no_triangle, morva::osg::ray_hit;
using morva::osg::num_attachments, morva::osg::num_picktests;
using ::osg::Action;

TEST(GeometryEnter, FindsSmallAndLargeFloorsAndTheNearerPart) {
    const registered picking(morva::osg::register_morva_intersect);
    for (const auto& [width, height] : {std::pair(1e-5F, 1e-5F), {1e11F, 1e11F}, {1.F, 1e-30F}}) {
        const node_ref root(
            meshNode(triangles({{0, 0, 0}, {width, 0, 0}, {.5F * width, height, 0}})));
        const Line ray(Pnt3f(.75F * width, 0, width), Vec3f(0, 0, -1)); // squares beyond a float's
        EXPECT_EQ(std::get<4>(pick(root.get(), ray)), Vec3f(0, 0, 1)) << width << " by " << height;
    }
    const node_ref room( // whose floor is a wall of its box
        meshNode(triangles({{0, 0, 0}, {4, 0, 0}, {0, 4, 0}, {0, 0, 0}, {0, 4, 0}, {0, 0, 3}})));
    for (const float y : {2.F, 3.F, 4.F, 5.F, 6.F, 7.F})
        EXPECT_EQ(std::get<3>(pick(room.get(), Line(Pnt3f(1, y, 7), Pnt3f(1, 1, 0)))), 0) << y;
    const node_ref stack(group({meshNode(quads(1)), moved({0, 0, 2}, {meshNode(quads(1))})}));
    EXPECT_FLOAT_EQ(std::get<1>(pick(stack.get(), Line(Pnt3f(.2F, .7F, 9), Vec3f(0, 0, -1)))), 7);
}

TEST(EnterFunctions, AnswerAnyActionAndGoAsTheyCame) {
    const registered picking(morva::osg::register_bbox_intersect);
    const node_ref root(
        group({meshNode(quads(1)), meshNode(row(4, 1)), moved({20, 0, 0}, {meshNode(quads(1))})}));
    const Line down(Pnt3f(.01F, .99F, 7), Vec3f(0, 0, -1));
    const unsigned tests = num_picktests(), attached = num_attachments();
    EXPECT_EQ(pick(root.get(), down), found(true, 7.F, root->getChild(0), 0, Vec3f(0, 0, 1)));
    EXPECT_FALSE(std::get<0>(pick(root.get(), Line(Pnt3f(2.5F, 0, 7), Vec3f(0, 0, -1)))))
        << "lines alone";
    EXPECT_TRUE(root->getChild(0)->getVolume().isValid());
    morva::osg::unregister_morva_intersect();
    EXPECT_TRUE(std::get<0>(pick(root.get(), Line(Pnt3f(.3F, .6F, -7), Vec3f(0, 0, 1)))))
        << "back faces as before";
    EXPECT_EQ(num_picktests() - tests + num_attachments() - attached, 0U);
    morva::osg::register_morva_intersect();
    EXPECT_TRUE(std::get<0>(pick(root.get(), down)));
    EXPECT_EQ(num_attachments() - attached, 1U) << "the volumes of the others are missed";
    ::osg::CNodePtr part(root->getChild(0));
    const std::unique_ptr<Action> other(Action::create());
    EXPECT_EQ(morva::osg::geometry_enter(part, other.get()), Action::Continue);
    EXPECT_EQ(morva::osg::bbox_enter(part, other.get()), Action::Continue);
}

TEST(PickingThreads, FindOnAPreparedSceneWhatOneFinds) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(seedOf(43));
    const node_ref root(anyScene(rng, 12));
    morva::osg::precalc_BIH(root.get());
    root->updateVolume();
    std::vector<placed_triangle> world;
    place(root.get(), {}, true, world);
    std::vector<std::pair<found, float>> answers[5];
    const auto work = [&](unsigned thread) {
        std::mt19937 same(seedOf(44));
        for (int i = 0; i < 2000; ++i) {
            const Line line = anyRay(same, world);
            ray_hit hit;
            first_hit(root.get(), line, true, hit);
            answers[thread].emplace_back(pick(root.get(), line), hit.distance);
        }
    };
    const unsigned before = num_picktests(), attached = num_attachments();
    work(4);
    const unsigned once = num_picktests() - before;
    EXPECT_GT(once, 0U);
    inThreads(4, work);
    EXPECT_EQ(num_picktests() - before, 5 * once);
    EXPECT_EQ(num_attachments(), attached);
    for (const auto& answer : answers)
        EXPECT_EQ(answer, answers[4]);
}

void expectSame(const ray_hit& a, const ray_hit& b) {
    EXPECT_TRUE(a.node == b.node && a.object == b.object && a.triangle == b.triangle &&
                a.distance == b.distance && a.point == b.point && a.normal == b.normal &&
                a.back_face == b.back_face);
}

/// Expects those of all triangles one by one; false if an edge or the start is too near to tell.
bool expectTruth(const std::vector<ray_hit>& hits, const std::vector<placed_triangle>& world,
                 const Line& line, bool both_sides) {
    const Pnt3f start = line.getPosition();
    const Vec3f way = line.getDirection();
    const Pnt3d o(start[0], start[1], start[2]);
    const Vec3d d(way[0], way[1], way[2]);
    std::size_t met = 0, expected = 0;
    bool sure = true;
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
        if (least < 0.0 || at < 0.0 || (back && !both_sides))
            continue;
        met += std::count_if(hits.begin(), hits.end(), [&](const ray_hit& hit) {
            const Pnt3f end = start + way * hit.distance;
            const Vec3d normal(hit.normal[0], hit.normal[1], hit.normal[2]);
            return hit.node == t.node && hit.triangle == t.number && hit.back_face == back &&
                   std::abs(double{hit.distance} - at) <= 1e-5 * at &&
                   (hit.point - end).length() < 1e-5F * (60.F + end.subZero().length()) &&
                   (normal - n * (side / length)).length() < 1e-4;
        });
        ++expected;
    }
    EXPECT_TRUE(!sure || (met == hits.size() && expected == met));
    EXPECT_TRUE(std::is_sorted(hits.begin(), hits.end(), [](const auto& a, const auto& b) {
        return a.distance < b.distance;
    }));
    return sure;
}

TEST(Rays, MeetWhatAllTrianglesOneByOneTell) {
    std::mt19937 rng(seedOf(44));
    std::size_t met = 0, sure_ones = 0, by_action = 0;
    const int rounds = roundsOf(75);
    for (int round = 0; round < rounds; ++round) {
        const NodePtr root = anyScene(rng); // the frames above it count
        const node_ref top(transformed(anyFrame(rng), {transformed(anyFrame(rng), {root})}));
        std::vector<placed_triangle> world;
        place(top.get(), {}, true, world);
        for (int ray = 0; ray < 100; ++ray) {
            SCOPED_TRACE(testing::Message() << round << ", " << ray);
            const Line line = anyRay(rng, world);
            const bool both_sides = ray % 2 == 0;
            const std::vector<ray_hit> hits = all_hits(root, line, both_sides);
            ray_hit first;
            ASSERT_EQ(first_hit(root, line, both_sides, first), !hits.empty());
            if (!hits.empty())
                expectSame(first, hits.front());
            if (!expectTruth(hits, world, line, both_sides))
                continue;
            ++sure_ones;
            met += hits.size();
            // An action's line is in single precision: at edges it may differ.
            const float reach = ray % 5 == 0 ? 40.F : ::osg::Inf;
            const registered picking(
                both_sides     ? +[] { morva::osg::register_exact_intersect(true); }
                : ray % 4 == 1 ? +[] { morva::osg::register_exact_intersect(false); }
                               : +[] { morva::osg::register_morva_intersect(); });
            const found picked = pick(top.get(), line, reach);
            const float off = std::abs(std::get<1>(picked) - first.distance);
            if (!hits.empty() && first.distance < reach ? off < 1e-4F * (first.distance + 60.F)
                                                        : !std::get<0>(picked))
                ++by_action;
        }
    }
    EXPECT_GT(std::min(met, sure_ones), 66 * std::size_t(rounds));
    EXPECT_GT(by_action, sure_ones * 19 / 20) << sure_ones;
}

TEST(RayHits, SlipThroughNoSeamAndFindFlatPartsAwayFromZero) {
    const Vec3f down(0, 0, -1), up(0, 0, 1);
    const mesh_data wall = triangles({{0, 0, 5}, {4, 0, 5}, {0, 4, 5}});
    Matrix flattened;
    flattened.setScale(Vec3f(1, 1, 0));
    const node_ref tiles(meshNode(quads(4))), root(group({meshNode(wall)}));
    const node_ref twice(group({meshNode(wall), meshNode(wall)})),
        second(switched(1, {meshNode(wall), meshNode(wall)}));
    const node_ref gone(group({transformed(flattened, {meshNode(wall)}), ::osg::Node::create()}));
    gone->getChild(1)->addChild(meshNode(wall)); // below a node without a core
    const Line near(Pnt3f(1, 1, 6), down);
    const struct {
        const char* name;
        NodePtr node;
        Line ray;
        std::size_t fronts, both;
    } rows[] = {{"an edge", tiles.get(), Line(Pnt3f(2, .5F, 1), down), 2, 2},
                {"a border", tiles.get(), Line(Pnt3f(.5F, 0, 1), down), 1, 1},
                {"corners", tiles.get(), Line(Pnt3f(1, 0, 1), down), 3, 3},
                {"from beyond its box", root.get(), Line(Pnt3f(9, 1, 6), Pnt3f(1, 1, 5)), 1, 1},
                {"a seam's back", tiles.get(), Line(Pnt3f(.5F, .5F, -1), up), 0, 2},
                {"from the part itself", root.get(), Line(Pnt3f(1, 1, 5), down), 1, 1},
                {"two at one place", twice.get(), near, 2, 2},
                {"the second alone", second.get(), near, 1, 1},
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
}

TEST(ObjectNumbers, LeadToTheTrianglesThatAreKeptAndToTheirParts) {
    const Pnt3f o, x(1, 0, 0), y(0, 1, 0);
    mesh_data mesh = withIds(triangles({o, o, o, o, x, y, x, x, x, y, x, o}), 4);
    mesh.primitives = {{GL_TRIANGLES, 18}};
    mesh.indices = {0, 1, 2, 3, 4, 5, 0, 1, 4000, 6, 7, 8, 9, 10, 11, 0, 0, 0};
    const node_ref node(meshNode(mesh)), other(group());
    const ::osg::GeometryPtr core = coreOf(node.get());
    BIHAttachPayload payload;
    morva::osg::triangle_list& list = *payload.geoset;
    for (const char* expected : {"1/0 4/2 -1/-1 ", "1/0 4/2 -1/-1 ", "4/2 -1/-1 -1/-1 "}) {
        const bool is_changed = *expected == '4';
        if (is_changed) {
            core->getPositions()->setValue(Pnt3f(NAN, 0, 0), 4);
            morva::osg::mark_bih(node.get());
        }
        EXPECT_EQ(morva::osg::extract_node(node.get(), list), is_changed ? 5 : 4);
        EXPECT_EQ(morva::osg::extract_node(other.get(), list), 0) << "leaves it alone";
        ASSERT_EQ(list.count, is_changed ? 1U : 2U);
        EXPECT_EQ(list.triangles[list.count - 1].a[1], 1.F);
        std::string text; // triangles and parts
        for (unsigned i = 0; i < 3; ++i)
            text += std::to_string(int(morva::osg::triangle_of_object(core, i))) + "/" +
                    std::to_string(morva::osg::id_of_object(core, i)) + " ";
        EXPECT_EQ(text, expected);
        EXPECT_EQ(morva::osg::id_of_object(core, 0, morva::osg::textureUnit(2)), -1);
        morva::osg::precalc_BIH(node.get());
    }
    EXPECT_EQ(morva::osg::triangle_of_object(::osg::NullFC, 0), no_triangle);
}

} // namespace
