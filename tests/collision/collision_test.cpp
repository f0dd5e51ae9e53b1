// Collision against a twin that takes every step for every pair.

#include "tests/support/test.h"

#include <morva/collision/morva_osg_collision.h>
#include <morva/collision/morva_osg_containment.h>
#include <morva/core/morva_osg.h>

#include "naive_collision.h"
#include "solids.h"
#include "tests/support/shortage.h"

namespace {

using morva::osg::CollisionParam;
using morva::osg::CollisionResults;

constexpr float infinity = std::numeric_limits<float>::infinity();

/// A node below a transform of its own, which the test moves.
struct thing {
    explicit thing(const mesh_data& mesh)
        : node(meshNode(mesh)), root(transformed(Matrix(), {node})) {}

    void put(const Matrix& matrix) const {
        ::osg::TransformPtr::dcast(root->getCore())->setMatrix(matrix);
        root->invalidateVolume();
    }

    NodePtr node;
    node_ref root;
};

bool isFitted(const NodePtr& node) {
    return payloadOf(node)->tree->companions.find(morva::companion_slot::fitted_boxes) != nullptr;
}

Matrix shifted(const Vec3f& by) {
    Matrix matrix;
    matrix.setTransform(by);
    return matrix;
}

/// Parts are built along these axes.
Matrix obliqueAxes() {
    std::mt19937 rng(4);
    return placed(rng, Vec3f(0, 0, 0), Vec3f(1, 1, 1));
}

std::vector<thing> things(std::mt19937& rng) {
    const Matrix oblique = obliqueAxes();
    std::vector<thing> all;
    for (const mesh_data& mesh :
         {ballMesh(6), ballMesh(16), blockMesh(1), blockMesh(6), baked(blockMesh(5), oblique),
          baked(blockMesh(4), oblique), waveMesh(8), waveMesh(20), baked(waveMesh(9), oblique),
          pileMesh(1), pileMesh(70), soup(rng, 60), soup(rng, 300)})
        all.emplace_back(mesh);
    return all;
}

/// Moves A and B near each other: as built, along oblique axes, turned alike or far away together,
/// one inside the other; some stretched, mirrored or flattened, which has no inverse.
void pose(std::mt19937& rng, const thing& a, const thing& b) {
    const float size = between(rng, 0.2F, 1.7F), other = between(rng, 0.2F, 1.7F);
    const Vec3f near = anyVector(rng, 2.F), even(size, size, size), one(1, 1, 1);
    Vec3f along(2.F + 0.1F * size, 0.2F * near[1], 0.F); // a gap between faces in one plane
    obliqueAxes().multMatrixVec(along);
    const Vec3f scales[] = {even, Vec3f(size, other, 1.F), Vec3f(-size, size, size),
                            Vec3f(size, 0.F, size), Vec3f(size, size, 0.F)};
    const Matrix frames[] = {Matrix(), Matrix(), placed(rng, Vec3f(3, 5, 7), one),
                             placed(rng, Vec3f(1e6F, -3e5F, 2e6F), even)};
    const Matrix places[] = {shifted(near),
                             shifted(0.7F * near),
                             shifted(along),
                             placed(rng, near, other * one),
                             placed(rng, 0.05F * near, 0.3F * one),
                             placed(rng, near, scales[rng() % 5])};
    Matrix place_a = frames[rng() % 4], place_b = place_a;
    place_b.mult(places[rng() % 6]);
    if (rng() % 6 == 0)
        place_a.mult(placed(rng, 0.3F * near, scales[rng() % 5]));
    if (rng() % 6 == 0)
        place_b.mult(obliqueAxes());
    a.put(place_a);
    b.put(place_b);
}

/// The descent alone, with nothing but the boxes before it.
void expectSameDescent(const naive_pair& expected) {
    const auto number = [](const Pnt3f& p) { return morva::float3{p[0], p[1], p[2]}; };
    const morva::osg::BIHAttachPayload &a = *expected.tree_a, &b = *expected.tree_b;
    morva::math::transformation_matrix<float> b_to_a;
    morva::osg::set(b_to_a, expected.pose);
    std::uint64_t pairs = 5;
    morva::float3 contact = number(expected.contact);
    const auto test = [&](int node_a, int node_b) {
        return morva::osg::test_nodes(
            number(expected.box_a.low), number(expected.box_a.high), number(expected.box_b.low),
            number(expected.box_b.high), number(expected.own.low), number(expected.own.high),
            *a.tree, *a.geoset, node_a, *b.tree, *b.geoset, node_b, b_to_a, pairs, contact);
    };
    ASSERT_EQ(test(0, 0), expected.collided);
    EXPECT_FALSE(test(-1, 0) || test(0, 1 << 20));
    ASSERT_EQ(pairs, expected.pairs + 5);
    ASSERT_EQ(Pnt3f(contact[0], contact[1], contact[2]) - expected.contact, Vec3f());
}

TEST(CollisionOracle, AnswersAndPointsAreThoseOfEveryStep) {
    std::mt19937 rng(seedOf(1729));
    const std::vector<thing> all_a = things(rng), all_b = things(rng);
    unsigned contacts = 0;
    for (unsigned round = 0; round < roundsOf(10000U); ++round) {
        SCOPED_TRACE(round);
        const thing& a = all_a[rng() % all_a.size()];
        const thing& b = round % 50 == 0 ? a : all_b[rng() % all_b.size()];
        pose(rng, a, b);
        const naive_pair expected(a.node, b.node);
        CollisionResults results;
        results.collided = true;
        results.point = Pnt3f(1, 2, 3);
        ASSERT_EQ(morva::osg::do_collide(a.node, b.node, results), expected.collided);
        ASSERT_EQ(results.collided, expected.collided);
        ASSERT_EQ(results.point - (expected.collided ? expected.point : Pnt3f(1, 2, 3)), Vec3f());
        if (round % 7 == 0 && expected.tree_b != nullptr)
            expectSameDescent(expected);
        contacts += expected.collided ? 1 : 0;
    }
    EXPECT_GT(contacts, 3000U);
    EXPECT_LT(contacts, 7000U);
    for (const thing& one : {all_a[1], all_a[3], all_a[7], all_a[12]})
        EXPECT_TRUE(isFitted(one.node)) << "the companions were not tried";
}

TEST(Collision, FindsThePairsOfTwoScenesInTheOrderOfTheLists) {
    std::mt19937 rng(seedOf(5));
    const auto scene = [&rng](int frames) {
        mesh_data shape = ballMesh(3);
        for (Pnt3f& corner : shape.positions)
            corner *= 20.F;
        Matrix flat, endless;
        flat[1] = ::osg::Vec4f(0.F, 0.F, 0.F, 0.F);
        flat[3][0] = 1e3F; // its inverse counts as the identity: what it meets is elsewhere
        endless[3][0] = infinity;
        // Without frames the one node that meets something is far from where that is.
        const node_ref root(frames == 0 ? group({moved(Vec3f(5e3F, 0, 0), {meshNode(shape)})})
                                        : anyScene(rng, frames));
        root->addChild(transformed(flat, {meshNode(shape)}));
        if (frames != 0)
            root->addChild(transformed(endless, {meshNode(shape)}));
        return root;
    };
    std::size_t contacts = 0;
    for (int round = 0; round < 10; ++round) {
        SCOPED_TRACE(round);
        const node_ref a = scene(round == 9 ? 0 : 15 << (round % 3));
        const mesh_data slab = triangles({{-40, -1, 1}, {40, -1, 1}, {0, 40, 1}});
        const node_ref b =
            round == 9
                ? node_ref(group({meshNode(slab), moved(Vec3f(5e3F, 0, 0), {meshNode(slab)})}))
                : scene(25 << (round % 3));
        const std::vector<naive_pair> expected = naiveContacts(a.get(), b.get());
        std::vector<CollisionResults> found =
            morva::osg::collisions(a.get(), b.get(), CollisionParam());
        ASSERT_EQ(found.size(), expected.size());
        ASSERT_FALSE(found.empty());
        contacts += found.size();
        CollisionResults first;
        if (morva::osg::collision(a.get(), b.get(), CollisionParam(), first) || !found.empty())
            found.push_back(first);
        for (std::size_t i = 0; i < found.size(); ++i) {
            const naive_pair& pair = expected[i % expected.size()]; // at last the first again
            EXPECT_TRUE(found[i].collided);
            EXPECT_TRUE(found[i].nodeA == pair.a && found[i].nodeB == pair.b);
            EXPECT_EQ(found[i].point - pair.point, Vec3f());
        }
    }
    EXPECT_GT(contacts, 300U);
}

TEST(Collision, LooksAtNeighboursAloneInLongLists) {
    const geometry_ref core(geometryOf(blockMesh(1)));
    const auto grid = [&core](const Vec3f& by) {
        node_list nodes;
        for (int i = 0; i < 4150; ++i)
            nodes.push_back(
                moved(5.F * Vec3f(float(i % 64), float(i / 64), 0.F), {nodeOf(core.get())}));
        return moved(by, nodes);
    };
    const node_ref a(grid(Vec3f(0, 0, 0))), b(grid(Vec3f(2.5F, 2.5F, 0.1F)));
    EXPECT_TRUE(morva::osg::collisions(a.get(), b.get(), CollisionParam()).empty());
    const NodePtr late = b->getChild(4000);
    ::osg::TransformPtr::dcast(late->getCore())->setMatrix(shifted(Vec3f(8.2F, 2.4F, 0.F)));
    late->invalidateVolume();
    CollisionResults results;
    ASSERT_TRUE(morva::osg::collision(a.get(), b.get(), CollisionParam(), results));
    EXPECT_EQ(results.nodeA, a->getChild(66)->getChild(0)); // at (10, 5)
    EXPECT_EQ(results.nodeB, late->getChild(0));
}

TEST(Collision, TellsEveryKindOfFalseAndLeavesTheRest) {
    const char* const names[] = {"null",   "without triangles", "a group", "no core", "hidden",
                                 "points", "emptied",           "far",     "endless"};
    const mesh_data shape = ballMesh(4);
    const node_ref root(group({meshNode(shape), meshNode(mesh_data()), group(),
                               ::osg::Node::create(), hidden(meshNode(shape)), meshNode(row(5, 0)),
                               meshNode(shape), moved(Vec3f(9, 0, 0), {meshNode(shape)}),
                               moved(Vec3f(infinity, 0, 0), {meshNode(shape)})}));
    const NodePtr ball = root->getChild(0), emptied = root->getChild(6);
    morva::osg::attach_bih(emptied);
    emptied->updateVolume();
    coreOf(emptied)->setLengths(::osg::GeoPLengthsUI32::create());
    morva::osg::mark_bih(emptied);
    for (unsigned i = 0; i < 9; ++i) {
        SCOPED_TRACE(names[i]);
        const NodePtr place = i == 0 ? NodePtr() : root->getChild(i);
        const NodePtr other = i < 7 ? place : place->getChild(0);
        for (const auto& [a, b] : {std::pair(ball, other), std::pair(other, ball)}) {
            CollisionResults results;
            results.point = Pnt3f(1, 2, 3);
            results.nodeA = results.nodeB = ball;
            const unsigned before = morva::osg::num_colltests();
            for (const bool alone : {true, false}) {
                results.collided = true;
                EXPECT_FALSE(alone ? morva::osg::do_collide(a, b, results)
                                   : morva::osg::collision(a, b, CollisionParam(), results));
                EXPECT_FALSE(results.collided);
                EXPECT_EQ(morva::osg::num_colltests() - before, alone ? 0U : 1U);
            }
            EXPECT_TRUE(results.nodeA == ball && results.nodeB == ball);
            EXPECT_EQ(results.point, Pnt3f(1, 2, 3));
            EXPECT_TRUE(morva::osg::collisions(a, b, CollisionParam()).empty());
        }
    }
}

TEST(Collision, KeepsTreesWhileNodesMoveAndSeesWhatIsMarked) {
    const thing a(ballMesh(12)), b(blockMesh(4));
    CollisionResults results;
    const unsigned before = morva::osg::num_attachments();
    for (int i = 0; i < 200; ++i) {
        b.put(shifted(Vec3f(0.01F * float(i) + 1.005F, 0.F, 0.F)));
        const bool touch =
            morva::osg::collision(a.root.get(), b.root.get(), CollisionParam(), results);
        EXPECT_EQ(touch, i < 100) << i; // the ball ends at 1, the block begins at its place - 1
    }
    EXPECT_EQ(morva::osg::num_attachments(), before + 2);
    b.put(shifted(Vec3f(3, 0, 0)));
    ::osg::GeometryPtr core = coreOf(b.node);
    for (::osg::UInt32 i = 0; i < core->getPositions()->getSize(); ++i)
        core->getPositions()->setValue(core->getPositions()->getValue(i) - Vec3f(2, 0, 0), i);
    b.node->invalidateVolume();
    morva::osg::mark_bih(b.node);
    EXPECT_TRUE(morva::osg::collision(a.root.get(), b.root.get(), CollisionParam(), results));
    EXPECT_EQ(morva::osg::num_attachments(), before + 2);
}

NodePtr scaled(float factor, const mesh_data& mesh) {
    return transformed(Matrix(factor, 0, 0, 0, 0, factor, 0, 0, 0, 0, factor, 0, 0, 0, 0, 1),
                       {meshNode(mesh)});
}

TEST(Containment, ClosedPartsAndWhatIsInsideOfThem) {
    const mesh_data whole = ballMesh(8), small = ballMesh(3);
    mesh_data torn = whole, turned = whole, shell = whole, specked = whole;
    torn.positions.resize(torn.positions.size() - 3);
    torn.primitives[0].second -= 3;
    std::swap(turned.positions[0], turned.positions[1]);
    for (const Pnt3f& p : whole.positions) // another one in it, inside out
        shell.positions.push_back(p * -0.9F);
    shell.primitives[0].second *= 2;
    for (const Pnt3f& p : blockMesh(1).positions) // too fine to join what is merely near
        specked.positions.push_back(p * 1e-6F);
    specked.primitives[0].second += 36;
    mesh_data nicked = specked;
    nicked.positions.resize(nicked.positions.size() - 3);
    nicked.primitives[0].second -= 3;
    // A block in two nodes, the seam off by rounding.
    const corner_list block = blockMesh(2).positions;
    const NodePtr half = meshNode(triangles({block.begin(), block.begin() + 72})),
                  other = meshNode(triangles({block.begin() + 72, block.end()}));
    const node_ref seed(scaled(0.2F, blockMesh(1)));
    const node_ref seeds(
        group({scaled(0.3F, small), moved(Vec3f(0.5F, 0, 0), {scaled(0.1F, small)})}));
    const node_ref partly(group({scaled(0.3F, small), moved(Vec3f(4, 0, 0), {meshNode(small)})}));
    const struct {
        const char* name;
        node_ref node;
        bool closed, holds_seeds; ///< one seed as several, but never where some are elsewhere
    } rows[] = {
        {"ball", node_ref(meshNode(whole)), true, true},
        {"in two nodes", node_ref(group({half, moved(Vec3f(1e-7F, 0, 0), {other})})), true, true},
        {"with a speck", node_ref(meshNode(specked)), true, true},
        {"with a torn speck", node_ref(meshNode(nicked)), false, false},
        {"torn", node_ref(meshNode(torn)), false, false},
        {"one turned over", node_ref(meshNode(turned)), false, false},
        {"sheet", node_ref(meshNode(waveMesh(4))), false, false},
        {"hollow", node_ref(meshNode(shell)), true, false},
        {"null", node_ref(::osg::NullFC), false, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(morva::osg::is_closed(row.node.get()), row.closed);
        EXPECT_EQ(morva::osg::contains(row.node.get(), seed.get()), row.holds_seeds);
        EXPECT_EQ(morva::osg::contains(row.node.get(), seeds.get()), row.holds_seeds);
        EXPECT_FALSE(morva::osg::contains(row.node.get(), partly.get()));
        EXPECT_FALSE(morva::osg::contains(row.node.get(), ::osg::NullFC));
        EXPECT_FALSE(morva::osg::contains(seed.get(), row.node.get()));
    }
}

TEST(Collision, AnswersTheLiteralWayWithoutRoomForCompanions) {
    std::mt19937 rng(3);
    const Matrix inside = placed(rng, Vec3f(), Vec3f(0.97F, 0.97F, 0.97F));
    unsigned int thrown = 0, answered = 0;
    failInTurn(1, [&](const auto& starved) {
        const node_ref a(meshNode(ballMesh(10)));
        const node_ref b(transformed(inside, {meshNode(ballMesh(10))}));
        const bool expected = naive_pair(a.get(), b->getChild(0)).collided;
        morva::osg::CollisionResults results;
        bool ended = false;
        const bool failed = starved(
            [&] { ended = morva::osg::do_collide(a.get(), b->getChild(0), results) == expected; });
        EXPECT_TRUE(failed || (ended && isFitted(a.get())));
        thrown += ended ? 0 : 1;
        answered += failed && ended && !(isFitted(a.get()) && isFitted(b->getChild(0))) ? 1 : 0;
        EXPECT_EQ(morva::osg::do_collide(a.get(), b->getChild(0), results), expected);
    });
    EXPECT_GT(thrown, 0U);
    EXPECT_GT(answered, 1U);
}

} // namespace
