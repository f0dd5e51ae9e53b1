// Walks, and the first hit of a ray.

#include <OpenSG/OSGIntersectAction.h>
#include <OpenSG/OSGQuaternion.h>

#include "geometry_support.h"

namespace {

using namespace geometry_test;

typedef std::unique_ptr<IntersectAction> pick;

NodePtr scaled(const Vec3f& factors, const node_list& children) {
    Matrix matrix;
    matrix.setScale(factors);
    return transformed(matrix, children);
}

/// The triangle (0,0,z) (1,0,z) (0,1,z).
NodePtr flatTriangle(Real32 z) {
    return nodeOf(makeTriangles({{0, 0, z}, {1, 0, z}, {0, 1, z}}).get());
}

const Line downward(Pnt3f(.25f, .25f, 10), Vec3f(0, 0, -1));

auto functor(Action::ResultE (*function)(CNodePtr&, Action*)) {
    return osgTypedFunctionFunctor2CPtrRef<Action::ResultE, CNodePtr, Action*>(function);
}

std::string visited;

Action::ResultE enterNamed(CNodePtr& node, Action* action) {
    EXPECT_EQ(NodePtr(node), action->getActNode());
    EXPECT_EQ(NodePtr(node)->getCore().getCPtr(), node.operator->());
    const std::string name = getName(NodePtr(node));
    visited += name;
    if (name == "last" && action->getNNodes() != 0) {
        action->addNode(action->getNode(action->getNNodes() - 1));
    } else if (name == "none") {
        action->useNodeList();
    }
    return name == "skip" ? Action::Skip : name == "quit" ? Action::Quit : Action::Continue;
}

Action::ResultE leaveNamed(CNodePtr& node, Action*) {
    visited += std::string("/") + getName(NodePtr(node.getNode()));
    return Action::Continue;
}

std::string walkOf(const NodePtr& root, Action::ResultE expected, UInt32 mask = 0xFFFFFFFFu) {
    const RefPtr<NodePtr> held(root);
    const std::unique_ptr<Action> action(Action::create());
    action->registerEnterFunction(Group::getClassType(), functor(&enterNamed));
    action->registerLeaveFunction(Group::getClassType(), functor(&leaveNamed));
    action->setTravMask(mask);
    visited.clear();
    EXPECT_EQ(action->apply(root), expected);
    return visited;
}

TEST(Walk, FollowsWhatTheFunctionsAnswer) {
    const struct {
        const char *scene, *visited;
        Action::ResultE result;
    } rows[] = {{"a(b() c())", "ab/bc/c/a", Action::Continue},
                {"a(skip(b()) c())", "askipc/c/a", Action::Continue},
                {"a(b(quit(c())) d())", "abquit/b/a", Action::Quit},
                {"last(b() c())", "lastc/c/last", Action::Continue},
                {"none(b())", "none/none", Action::Continue},
                {"$x(b())", "b/b", Action::Continue}, // what has no function is gone through
                {"a(.x b())", "a/a", Action::Quit}};  // no core
    for (const auto& row : rows)
        EXPECT_EQ(walkOf(sceneOf(row.scene), row.result), row.visited);
    EXPECT_EQ(walkOf(NullFC, Action::Continue), "");
    const NodePtr above = sceneOf("a(b(c()) d())");
    above->getChild(0)->setTravMask(2);
    EXPECT_EQ(walkOf(above, Action::Continue, 5), "ad/d/a");
}

TEST(Walk, IsNoDeeperInTheStackForALongChainNorIsItsEnd) {
    NodePtr root = flatTriangle(0);
    for (int i = 0; i < 20000; ++i)
        root = group({root});
    const RefPtr<NodePtr> held(root);
    const pick action(IntersectAction::create(downward));
    action->apply(root);
    EXPECT_TRUE(action->didHit());
}

struct name_collector {
    std::string names;
    Action::ResultE enter(NodePtr& node) {
        names += getName(node);
        return names.back() == 's' ? Action::Skip : Action::Continue;
    }
};
Action::ResultE quitAtB(NodePtr& node, Action::ResultE result) {
    visited += std::string("/") + getName(node) + (result == Action::Continue ? "" : "!");
    return *getName(node) == 'b' ? Action::Quit : Action::Continue;
}

TEST(Traverse, CallsEveryNodeWhateverItsMask) {
    const RefPtr<NodePtr> root(sceneOf("a(s(x()) b() c())"));
    root->getChild(1)->setTravMask(0);
    name_collector collector;
    const auto enter =
        osgTypedMethodFunctor1ObjPtrCPtrRef<Action::ResultE, name_collector, NodePtr>(
            &collector, &name_collector::enter);
    EXPECT_EQ(traverse(root, enter), Action::Continue);
    EXPECT_EQ(collector.names, "asbc");
    collector.names.clear();
    const auto leave =
        osgTypedFunctionFunctor2CPtrRef<Action::ResultE, NodePtr, Action::ResultE>(&quitAtB);
    visited.clear();
    EXPECT_EQ(traverse(root, enter, leave), Action::Quit);
    EXPECT_EQ(collector.names, "asb");
    EXPECT_EQ(visited, "/s/b/a!") << "left after Skip, too";
}

TEST(SetHit, TakesNearerAndEquallyNearHitsWithinTheDistance) {
    const RefPtr<NodePtr> root(group());
    const pick action(IntersectAction::create(downward, 5.f));
    EXPECT_EQ(action->getHitT(), -1.f);
    action->apply(root);
    Vec3f normal(0, 0, 1);
    const struct {
        Real32 t;
        Int32 triangle, expected;
    } table[] = {{-.5f, 1, -1}, {5.5f, 2, -1}, {std::nanf(""), 3, -1},
                 {5.f, 4, 4},   {3.f, 5, 5},   {4.f, 6, 5},
                 {3.f, 7, 7},   {0.f, 8, 8}};
    for (const auto& row : table) {
        action->setHit(row.t, root, row.triangle, normal);
        EXPECT_EQ(action->getHitTriangle(), row.expected) << row.t;
        EXPECT_EQ(action->didHit(), row.expected >= 0);
    }
    EXPECT_EQ(action->getHitPoint(), downward.getPosition());
    const auto passes = [&](Real32 enter, Real32 leave) {
        return action->setEnterLeave(enter, leave) == Action::Continue;
    };
    EXPECT_TRUE(passes(0.f, 1.f) && passes(-1.f, 6.f));
    EXPECT_FALSE(passes(1.f, 2.f) || passes(-2.f, -1.f)) << "behind the hit, behind the start";
    action->apply(root);
    EXPECT_FALSE(action->didHit()) << "each walk begins anew";
    EXPECT_FALSE(passes(5.5f, 6.f)) << "beyond the distance";
    EXPECT_EQ(pick(IntersectAction::create())->getMaxDist(), 0.f);
}

/// Which of the triangles at heights 1 to n below `core` is hit from above; 0 for none.
Real32 heightHitBelow(const NodeCorePtr& core, int n) {
    node_list children;
    for (int i = 1; i <= n; ++i)
        children.push_back(flatTriangle(static_cast<Real32>(i)));
    const RefPtr<NodePtr> root(nodeOf(core, children));
    const pick action(IntersectAction::create(downward));
    action->apply(root);
    return action->didHit() ? action->getHitPoint()[2] : 0.f;
}

TEST(IntersectDefaults, SwitchesShowTheirChoice) {
    for (const Int32 choice : {-3, -2, -1, 0, 1, 2, 3}) {
        const SwitchPtr core = Switch::create();
        core->setChoice(choice);
        const Int32 shown = choice == Switch::ALL ? 3 : choice < 3 ? choice + 1 : 0;
        EXPECT_EQ(heightHitBelow(core, 3), Real32(shown > 0 ? shown : 0)) << choice;
    }
    EXPECT_EQ(heightHitBelow(MaterialGroup::create(), 2), 2.f);
}

TEST(IntersectDefaults, AValidVolumeSparesTheWalkAStaleOneDoesNot) {
    const RefPtr<NodePtr> root(group({flatTriangle(0)}));
    const pick action(IntersectAction::create(downward));
    DynamicVolume aside;
    aside.extendBy(Pnt3f(50, 50, 50));
    root->editVolume(false) = aside;
    action->apply(root);
    EXPECT_FALSE(action->didHit());
    root->invalidateVolume();
    action->apply(root);
    EXPECT_TRUE(action->didHit());
}

Action::ResultE hitNothing(CNodePtr&, Action*) { return Action::Continue; }

TEST(IntersectDefaults, NewFunctionsHoldForActionsMadeAfterwards) {
    const RefPtr<NodePtr> root(flatTriangle(0));
    const pick before(IntersectAction::create(downward));
    IntersectAction::registerEnterDefault(Geometry::getClassType(), functor(&hitNothing));
    const pick between(IntersectAction::create(downward));
    IntersectAction::registerEnterDefault(
        Geometry::getClassType(),
        osgTypedMethodFunctor2BaseCPtrRef<Action::ResultE, GeometryPtr, CNodePtr, Action*>(
            &Geometry::intersect));
    const pick after(IntersectAction::create(downward));
    for (const pick* action : {&before, &between, &after})
        (*action)->apply(root);
    EXPECT_TRUE(before->didHit());
    EXPECT_FALSE(between->didHit());
    EXPECT_TRUE(after->didHit());
}

/// Geometries, listed in order of the walk, below groups and transforms, mirrors among them.
struct random_scene {
    std::mt19937 rng;
    std::vector<NodePtr> geometries;
    Real32 real(Real32 low, Real32 high) {
        return std::uniform_real_distribution<Real32>(low, high)(rng);
    }
    Vec3f vector(Real32 reach) {
        return Vec3f(real(-reach, reach), real(-reach, reach), real(-reach, reach));
    }
    NodePtr build(int depth) {
        if (depth == 0 || rng() % 4 == 0) {
            points all(rng() % 5 * 3);
            for (Pnt3f& p : all)
                p = Pnt3f(vector(3));
            geometries.push_back(nodeOf(makeTriangles(all).get()));
            return geometries.back();
        }
        if (rng() % 8 == 0) { // there and back; what is flat can't be hit
            const NodePtr inner = scaled(Vec3f(1e7f, 1e7f, 1e7f), {build(depth - 1)});
            const NodePtr flat = scaled(Vec3f(1, 1, 0), {flatTriangle(real(-3, 3))});
            return group({flat, scaled(Vec3f(1e-7f, 1e-7f, 1e-7f), {inner})});
        }
        node_list children;
        for (UInt32 i = rng() % 4; i-- > 0;)
            children.push_back(build(depth - 1));
        if (rng() % 3 == 0)
            return group(children);
        const TransformPtr core =
            rng() % 2 != 0 ? Transform::create() : TransformPtr(ComponentTransform::create());
        core->getMatrix().setTransform(vector(4), Quaternion(vector(1), real(0, 6)),
                                       Vec3f(real(.3f, 3), real(.3f, 3), real(-3, -.3f)));
        return nodeOf(core, children);
    }
};

TEST(IntersectOracle, AgreesWithTryingEveryTriangleInTheWorld) {
    int hits = 0, rays = 0, others = 0;
    testing::Message last;
    for (unsigned round = 0; round < roundsOf(200U); ++round) {
        SCOPED_TRACE(round);
        random_scene scene{std::mt19937(seedOf(round)), {}};
        const RefPtr<NodePtr> root(scene.build(4));
        std::vector<std::pair<points, NodePtr>> world; // triangles
        for (const NodePtr& node : scene.geometries) {
            forEachCorner(GeometryRefPtr(GeometryPtr::dcast(node->getCore())),
                          [&](const TriangleIterator& it, Int32 k) {
                              if (k == 0)
                                  world.emplace_back(points(3), node);
                              node->getToWorld().multMatrixPnt(it.getPosition(k),
                                                               world.back().first[UInt32(k)]);
                          });
        }
        if (round % 2 == 0)
            root->updateVolume();
        for (int ray = 0; ray < 10; ++ray) {
            const Pnt3f eye(scene.vector(12));
            Pnt3f aim(scene.vector(3));
            if (!world.empty()) { // at the middle of some triangle
                const points& t = world[scene.rng() % world.size()].first;
                aim = t[0] + ((t[1] - t[0]) + (t[2] - t[0])) * (1.f / 3.f);
            }
            const Line line(eye, aim);
            const Real32 reach = ray % 3 == 0 ? 10.f : Inf;
            const pick action(IntersectAction::create(line, reach));
            action->apply(root);
            std::size_t nearest = world.size();
            Real32 best = reach, at;
            Vec3f best_normal, normal;
            for (std::size_t i = 0; i < world.size(); ++i) {
                const points& t = world[i].first;
                if (line.intersect(t[0], t[1], t[2], at, &normal) && at >= 0 && at <= best)
                    best = at, nearest = i, best_normal = normal;
            }
            EXPECT_TRUE(action->getMaxDist() == reach && // as they were before the walk
                        action->getLine().getPosition() == line.getPosition() &&
                        action->getLine().getDirection() == line.getDirection());
            ++rays;
            hits += action->didHit() ? 1 : 0;
            bool same = action->didHit() == (nearest < world.size());
            if (same && action->didHit()) {
                // The geometry's own normal, brought to the world by the transposed inverse.
                Matrix back = action->getHitObject()->getToWorld();
                back.invert();
                back.transpose();
                back.multMatrixVec(action->getHitNormal(), normal);
                normal.normalize();
                const Pnt3f place = line.getPosition() + line.getDirection() * best;
                same = std::abs(action->getHitT() - best) < 1e-2f &&
                       action->getHitPoint().dist(place) < 1e-2f &&
                       action->getHitObject() == world[nearest].second &&
                       std::abs(normal.dot(best_normal)) > .999f;
            }
            others += same ? 0 : 1;
            if (!same)
                last << " round " << round << ", ray " << ray;
        }
    }
    // Where a ray meets an edge, or runs along a triangle, the roundings of the two ways differ.
    EXPECT_LE(others, rays / 400) << last;
    EXPECT_GT(hits, 300);
}

} // namespace
