// Picking by actions: geometry_enter() beside its literal twin, bbox_enter(), registering.

#include "pick_scenes.h"

#include <morva/trees/ray_traversal.h>

namespace {

using namespace picking_test;
using morva::float3;
using morva::osg::num_attachments, morva::osg::num_colltests, morva::osg::num_picktests;
using ::osg::Action;
using ::osg::CNodePtr;
using ::osg::Geometry;
using ::osg::IntersectAction;

unsigned twin_tests = 0;

bool clipTwin(const morva::float_box& box, const float3& o, const float3& d, float& in,
              float& out) {
    in = 0.F;
    out = 3.4028235e38F;
    for (std::size_t i = 0; i < 3; ++i) {
        if (std::abs(d[i]) < 1e-6F) {
            if (o[i] < box.min[i] || o[i] > box.max[i])
                return false;
            continue;
        }
        const float a = (box.min[i] - o[i]) * (1.F / d[i]), b = (box.max[i] - o[i]) * (1.F / d[i]);
        in = std::max(in, std::min(a, b));
        out = std::min(out, std::max(a, b));
    }
    return in <= out;
}

/// Step by step, without any way around a step, on the tree that the core has.
Action::ResultE twinEnter(CNodePtr& node, Action* action) {
    auto& picking = dynamic_cast<IntersectAction&>(*action);
    const NodePtr at(node);
    if (at->getVolume().isValid() && !at->getVolume().intersect(picking.getLine()))
        return Action::Skip;
    const morva::osg::BIHAttachPayload& twin = payloadOn(at);
    ++twin_tests;
    float3 o, d, inverse, to;
    morva::osg::set(o, picking.getLine().getPosition());
    morva::osg::set(d, picking.getLine().getDirection());
    float in, out;
    if (twin.tree->active == 0 || !clipTwin(twin.geoset->box, o, d, in, out))
        return Action::Continue;
    morva::intersection_point<float, float3, float3> hit;
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
        return Action::Continue;
    Vec3f normal, way;
    for (unsigned i = 0; i < 3; ++i)
        way[i] = hit.point[i] - o[i];
    hit.normal.normalize();
    morva::osg::set(normal, hit.normal);
    const float distance = std::sqrt(way[0] * way[0] + way[1] * way[1] + way[2] * way[2]);
    picking.setHit(distance, at, hit.index, normal);
    return Action::Continue;
}

found pickByTwin(const NodePtr& root, const Line& line, float reach) {
    const std::unique_ptr<IntersectAction> action(IntersectAction::create(line, reach));
    action->registerEnterFunction(
        Geometry::getClassType(),
        ::osg::osgTypedFunctionFunctor2CPtrRef<Action::ResultE, CNodePtr, Action*>(twinEnter));
    return foundBy(*action, root);
}

TEST(GeometryEnter, FindsWhatItsLiteralTwinFinds) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(seedOf(41));
    std::size_t hits = 0;
    for (int round = 0; round < roundsOf(150); ++round) {
        SCOPED_TRACE(round);
        const node_ref root(anyScene(rng));
        const std::vector<placed_triangle> world = placedTriangles(root.get());
        if (round % 2 == 0)
            root->updateVolume(); // else nothing is passed over by its volume
        for (int ray = 0; ray < 100; ++ray) {
            SCOPED_TRACE(ray);
            const Line line = anyRay(rng, world);
            const float reach = ray % 5 == 0 ? 40.F : ::osg::Inf;
            const unsigned before = num_picktests();
            twin_tests = 0;
            const found answer = pick(root.get(), line, reach); // makes the trees
            ASSERT_EQ(answer, pickByTwin(root.get(), line, reach));
            ASSERT_EQ(num_picktests() - before, twin_tests);
            hits += std::get<0>(answer) ? 1 : 0;
        }
    }
    EXPECT_GT(hits, 3000U);
}

/// A small square of two triangles that face up, at this place.
mesh_data tile(float x, float z) {
    return triangles(
        {{x, 0, z}, {x + 1, 0, z}, {x + 1, 1, z}, {x, 0, z}, {x + 1, 1, z}, {x, 1, z}});
}

TEST(GeometryEnter, CountsAndAnswers) {
    const registered picking(morva::osg::register_morva_intersect);
    const node_ref root(group({meshNode(tile(0, 0)), meshNode(tile(20, 0))}));
    const Line down(Pnt3f(.25F, .5F, 10), Vec3f(0, 0, -1));
    root->updateVolume();
    const unsigned attached = num_attachments(), tests = num_picktests();
    EXPECT_TRUE(std::get<0>(pick(root.get(), down)) && std::get<0>(pick(root.get(), down)));
    EXPECT_EQ(num_attachments() - attached, 1U) << "the other one's volume is missed";
    EXPECT_EQ(num_picktests() - tests, 2U);
    // The functions by themselves, and what is not theirs.
    CNodePtr part(root->getChild(0));
    const std::unique_ptr<Action> other(Action::create());
    EXPECT_EQ(morva::osg::geometry_enter(part, other.get()), Action::Continue);
    EXPECT_EQ(morva::osg::bbox_enter(part, other.get()), Action::Continue);
    const auto enter = [&part](const Line& line) {
        const std::unique_ptr<IntersectAction> action(IntersectAction::create(line));
        const Action::ResultE result = morva::osg::geometry_enter(part, action.get());
        EXPECT_FALSE(action->didHit());
        return result;
    };
    EXPECT_EQ(enter(Line(Pnt3f(5, 5, 5), Vec3f(0, 0, 1))), Action::Skip);
    EXPECT_EQ(num_picktests() - tests, 2U);
    // A line of NaN comes through where no volume is valid: counted, and no hit.
    root->getChild(0)->invalidateVolume();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(enter(Line(Pnt3f(nan, 0, 0), Vec3f(0, 0, -1))), Action::Continue);
    EXPECT_EQ(enter(Line(Pnt3f(.2F, .5F, 9), Vec3f(0, nan, -1))), Action::Continue);
    EXPECT_EQ(num_picktests() - tests, 4U);
}

TEST(GeometryEnter, GivesUnitNormalsAtAnySize) {
    const registered picking(morva::osg::register_morva_intersect);
    for (const auto& [width, height] : {std::pair(1e-5F, 1e-5F),
                                        {1.F, 1.F},
                                        {1e11F, 1e11F},
                                        {1.F, 1e-30F}}) { // squares beyond a float's
        const node_ref root(
            meshNode(triangles({{0, 0, 0}, {width, 0, 0}, {.5F * width, height, 0}})));
        const auto [hit, t, node, object, x, y, z] =
            pick(root.get(), Line(Pnt3f(.75F * width, 0, width), Vec3f(0, 0, -1)));
        EXPECT_TRUE(hit && Vec3f(x, y, z) == Vec3f(0, 0, 1)) << width << " by " << height;
    }
}

TEST(BboxEnter, EntersTheVolumeWhereThereAreTriangles) {
    const registered picking(morva::osg::register_bbox_intersect);
    const node_ref root(group({meshNode(tile(0, 0)), meshNode(row(4, 1))}));
    const unsigned tests = num_picktests(), attached = num_attachments();
    for (const bool updated : {false, true}) {
        SCOPED_TRACE(updated);
        EXPECT_EQ(pick(root.get(), Line(Pnt3f(.01F, .99F, 7), Vec3f(0, 0, -1))),
                  found(true, 7.F, root->getChild(0), 0, 0.F, 0.F, 1.F));
        EXPECT_FALSE(std::get<0>(pick(root.get(), Line(Pnt3f(2.5F, 0, 7), Vec3f(0, 0, -1)))))
            << "lines alone";
        EXPECT_TRUE(root->getChild(0)->getVolume().isValid());
        root->updateVolume();
    }
    morva::osg::unregister_morva_intersect();
    EXPECT_EQ(std::get<3>(pick(root.get(), Line(Pnt3f(.3F, .6F, -7), Vec3f(0, 0, 1)))), 1)
        << "back faces as before";
    EXPECT_EQ(num_picktests() - tests + num_attachments() - attached, 0U);
}

TEST(PickingThreads, FindOnAPreparedSceneWhatOneFinds) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(seedOf(43));
    const node_ref root(anyScene(rng, 12));
    morva::osg::precalc_BIH(root.get());
    root->updateVolume();
    const std::vector<placed_triangle> world = placedTriangles(root.get());
    std::vector<std::pair<found, float>> answers[5];
    const auto work = [&](unsigned thread) {
        std::mt19937 same(seedOf(44));
        for (int i = 0; i < 2000; ++i) {
            const Line line = anyRay(same, world);
            morva::osg::ray_hit hit;
            morva::osg::first_hit(root.get(), line, true, hit);
            answers[thread].emplace_back(pick(root.get(), line), hit.distance);
        }
    };
    const unsigned before = num_picktests(), attached = num_attachments();
    work(4);
    const unsigned once = num_picktests() - before;
    inThreads(4, work);
    EXPECT_EQ(num_picktests() - before, 5 * once);
    EXPECT_EQ(num_attachments(), attached);
    for (const auto& answer : answers)
        EXPECT_EQ(answer, answers[4]);
}

} // namespace
