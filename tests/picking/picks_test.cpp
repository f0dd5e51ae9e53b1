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

/// A list and a tree of the test's own, from the scene graph's iterator.
struct twin_core {
    std::vector<morva::float_triangle> kept;
    morva::osg::triangle_list list;
    morva::bih_tree<float> tree;

    explicit twin_core(const ::osg::GeometryPtr& core) {
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            const Pnt3f p[3] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
            if (morva::osg::is_rogue(p[0], p[1], p[2]))
                continue;
            kept.emplace_back();
            morva::osg::set(kept.back().a, p[0]);
            morva::osg::set(kept.back().b, p[1]);
            morva::osg::set(kept.back().c, p[2]);
        }
        list = {kept.data(), kept.size(), {}};
        morva::compile(list, tree, {3, 50});
    }
};

std::map<::osg::UInt32, std::unique_ptr<twin_core>> twins; // by core
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

/// Step by step, without any way around a step.
Action::ResultE twinEnter(CNodePtr& node, Action* action) {
    auto& picking = dynamic_cast<IntersectAction&>(*action);
    const NodePtr at(node);
    if (at->getVolume().isValid() && !at->getVolume().intersect(picking.getLine()))
        return Action::Skip;
    std::unique_ptr<twin_core>& twin = twins[at->getCore().getFieldContainerId()];
    if (twin == nullptr)
        twin = std::make_unique<twin_core>(coreOf(at));
    ++twin_tests;
    float3 o, d, inverse, to;
    morva::osg::set(o, picking.getLine().getPosition());
    morva::osg::set(d, picking.getLine().getDirection());
    float in, out;
    if (twin->tree.active == 0 || !clipTwin(twin->list.box, o, d, in, out))
        return Action::Continue;
    morva::intersection_point<float, float3, float3> hit;
    morva::empty_trace_statistics none;
    for (const float end : {out, out * 1.00001F}) {
        for (std::size_t i = 0; i < 3; ++i) {
            to[i] = o[i] + d[i] * end;
            inverse[i] = 1.F / d[i];
        }
        if (!hit.hit)
            morva::fire_ray_rec(twin->tree, 0, twin->list, o, to, inverse, in, end, hit, none, -1);
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
    std::mt19937 rng(41);
    std::size_t hits = 0;
    for (int round = 0; round < 150; ++round) {
        SCOPED_TRACE(round);
        const node_ref root(anyScene(rng));
        const std::vector<placed_triangle> world = placedTriangles(root.get());
        if (round % 2 == 0)
            root->updateVolume(); // else nothing is passed over by its volume
        twins.clear();
        for (int ray = 0; ray < 100; ++ray) {
            SCOPED_TRACE(ray);
            const Line line = anyRay(rng, world);
            const float reach = ray % 5 == 0 ? 40.F : ::osg::Inf;
            const unsigned before = num_picktests();
            twin_tests = 0;
            const found twin = pickByTwin(root.get(), line, reach);
            ASSERT_EQ(pick(root.get(), line, reach), twin);
            ASSERT_EQ(num_picktests() - before, twin_tests);
            hits += std::get<0>(twin) ? 1 : 0;
        }
    }
    EXPECT_GT(hits, 3000U);
    twins.clear();
}

TEST(GeometryEnter, LosesNoTriangleInTheWallsOfItsBox) {
    const registered picking(morva::osg::register_morva_intersect);
    std::mt19937 rng(42);
    for (int round = 0; round < 100; ++round) {
        const node_ref root(group({transformed(anyFrame(rng), {meshNode(room(rng))})}));
        const std::vector<placed_triangle> world = placedTriangles(root.get());
        Pnt3f inside;
        for (const placed_triangle& t : world)
            inside += Vec3f(t.at(1.F / 3.F, 1.F / 3.F)) * (1.F / static_cast<float>(world.size()));
        for (const placed_triangle& t : world) {
            const Pnt3f aim = t.at(between(rng, .1F, .4F), between(rng, .1F, .4F));
            EXPECT_TRUE(std::get<0>(pick(root.get(), Line(inside, aim)))) << t.number;
        }
    }
}

/// A small square of two triangles that face up, at this place.
mesh_data tile(float x, float z) {
    return triangles(
        {{x, 0, z}, {x + 1, 0, z}, {x + 1, 1, z}, {x, 0, z}, {x + 1, 1, z}, {x, 1, z}});
}

const Line down(Pnt3f(.25F, .5F, 10), Vec3f(0, 0, -1));

TEST(GeometryEnter, CountsAndAnswers) {
    const registered picking(morva::osg::register_morva_intersect);
    const node_ref root(group({meshNode(tile(0, 0)), meshNode(tile(20, 0))}));
    root->updateVolume();
    const unsigned attached = num_attachments(), tests = num_picktests();
    EXPECT_TRUE(std::get<0>(pick(root.get(), down)));
    EXPECT_TRUE(std::get<0>(pick(root.get(), down)));
    EXPECT_EQ(num_attachments() - attached, 1U) << "the other one's volume is missed";
    EXPECT_EQ(num_picktests() - tests, 2U);
    // The functions by themselves, and what is not theirs.
    CNodePtr part(root->getChild(0));
    const std::unique_ptr<Action> other(Action::create());
    EXPECT_EQ(morva::osg::geometry_enter(part, other.get()), Action::Continue);
    EXPECT_EQ(morva::osg::bbox_enter(part, other.get()), Action::Continue);
    const std::unique_ptr<IntersectAction> aside(
        IntersectAction::create(Line(Pnt3f(5, 5, 5), Vec3f(0, 0, 1))));
    EXPECT_EQ(morva::osg::geometry_enter(part, aside.get()), Action::Skip);
    EXPECT_EQ(num_picktests() - tests, 2U);
    // A line of NaN comes through where no volume is valid: counted, and no hit.
    root->invalidateVolume();
    root->getChild(0)->invalidateVolume();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const Line& line :
         {Line(Pnt3f(nan, 0, 0), Vec3f(0, 0, -1)), Line(Pnt3f(.2F, .5F, 9), Vec3f(0, nan, -1))}) {
        const std::unique_ptr<IntersectAction> action(IntersectAction::create(line));
        EXPECT_EQ(morva::osg::geometry_enter(part, action.get()), Action::Continue);
        EXPECT_FALSE(action->didHit());
    }
    EXPECT_EQ(num_picktests() - tests, 4U);
}

TEST(GeometryEnter, GivesUnitNormalsAtAnySize) {
    const registered picking(morva::osg::register_morva_intersect);
    const struct {
        float x, y;
    } rows[] = {{1e-5F, 1e-5F}, {1, 1}, {1e11F, 1e11F}, {1, 1e-30F}}; // squares beyond a float's
    for (const auto& size : rows) {
        const node_ref root(
            meshNode(triangles({{0, 0, 0}, {size.x, 0, 0}, {.5F * size.x, size.y, 0}})));
        const auto [hit, t, node, object, x, y, z] =
            pick(root.get(), Line(Pnt3f(.75F * size.x, 0, size.x), Vec3f(0, 0, -1)));
        EXPECT_TRUE(hit);
        EXPECT_EQ(Vec3f(x, y, z), Vec3f(0, 0, 1)) << size.x << " by " << size.y;
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
    std::mt19937 rng(43);
    const node_ref root(group({anyScene(rng), anyScene(rng), anyScene(rng)}));
    morva::osg::precalc_BIH(root.get());
    root->updateVolume();
    const std::vector<placed_triangle> world = placedTriangles(root.get());
    std::vector<Line> lines;
    for (int i = 0; i < 2000; ++i)
        lines.push_back(anyRay(rng, world));
    std::vector<std::pair<found, float>> answers[5];
    const auto work = [&](unsigned thread) {
        for (const Line& line : lines) {
            morva::osg::ray_hit hit;
            hit.distance = -1;
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
