// Collision against a twin that takes every step for every pair.

#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGTransform.h>

#include <morva/collision/morva_osg_collision.h>
#include <morva/collision/morva_osg_containment.h>
#include <morva/core/morva_osg.h>
#include <morva/trees/bih_tree.h>

#include "naive_collision.h"
#include "solids.h"

namespace {

using namespace morva_test;
using morva::osg::CollisionParam;
using morva::osg::CollisionResults;
using ::osg::Matrix;
using ::osg::NodePtr;
using ::osg::Pnt3f;
using ::osg::Vec3f;

constexpr float infinity = std::numeric_limits<float>::infinity();

/// A node below a transform of its own, which the test moves.
struct thing {
    explicit thing(const mesh_data& mesh)
        : node(meshNode(mesh)), root(transformed(Matrix(), {node})) {}

    void put(const Matrix& matrix) const {
        ::osg::TransformPtr::dcast(root->getCore())->setMatrix(matrix);
        root->invalidateVolume();
    }
    bool fitted() const {
        return naive_collision::payloadOf(node)->tree->companions.find(
                   morva::companion_slot::fitted_boxes) != nullptr;
    }

    NodePtr node;
    node_ref root;
};

Matrix shifted(const Vec3f& by) {
    Matrix matrix;
    matrix.setTranslate(by[0], by[1], by[2]);
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

/// Matrices of A and B for one of several kinds of trouble.
void pose(std::mt19937& rng, unsigned kind, const thing& a, const thing& b) {
    const auto factor = [&rng] { return 0.2F + std::abs(randomVector(rng, 1.5F)[0]); };
    const float size = factor(), other = factor();
    const Vec3f near = randomVector(rng, 2.F), even(size, size, size);
    Matrix place_a, place_b = placed(rng, near, Vec3f(other, other, other));
    switch (kind % 10) {
    case 0: // nothing but a shift
        place_b = shifted(near);
        break;
    case 1: { // faces in one plane that is on no axis, with a gap in between
        Vec3f along(2.F + 0.1F * size, 0.2F * near[1], 0.F);
        obliqueAxes().multMatrixVec(along);
        place_b = shifted(along);
        if (kind % 20 == 1) // B as built along its own axes, and turned to those of A
            place_b.mult(obliqueAxes());
        break;
    }
    case 2: // one inside the other
        place_b = placed(rng, 0.05F * near, Vec3f(0.3F, 0.3F, 0.3F) * other);
        break;
    case 3: // far away, where coordinates are coarse
        place_a = placed(rng, Vec3f(1e6F, -3e5F, 2e6F), even);
        place_b = placed(rng, Vec3f(1e6F, -3e5F, 2e6F) + near, even);
        break;
    case 4: // stretched
        place_a = placed(rng, Vec3f(), Vec3f(size, other, 1.F));
        place_b = placed(rng, near, Vec3f(1.F, size, other));
        break;
    case 5: // mirrored
        place_b = placed(rng, near, Vec3f(-size, size, size));
        break;
    case 6: // flattened: no inverse
        place_a = placed(rng, 0.3F * near, Vec3f(size, 0.F, size));
        break;
    case 7: // flattened on the other side
        place_b = placed(rng, near, Vec3f(size, size, 0.F));
        break;
    case 8: // both turned alike, so that they meet as built but for rounding
        place_a = placed(rng, Vec3f(3.F, 5.F, 7.F), Vec3f(1.F, 1.F, 1.F));
        place_b = place_a;
        place_b.mult(shifted(0.7F * near));
        break;
    default:
        break;
    }
    a.put(place_a);
    b.put(place_b);
}

bool samePoint(const Pnt3f& a, const Pnt3f& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

TEST(CollisionOracle, AnswersAndPointsAreThoseOfEveryStep) {
    std::mt19937 rng(1729);
    const std::vector<thing> all_a = things(rng), all_b = things(rng);
    unsigned contacts = 0;
    for (unsigned round = 0; round < 10000; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const thing& a = all_a[rng() % all_a.size()];
        const thing& b = round % 50 == 0 ? a : all_b[rng() % all_b.size()];
        pose(rng, round, a, b);
        const naive_result expected = naive_collision::collide(a.node, b.node);
        CollisionResults results;
        results.collided = true;
        results.point = Pnt3f(1, 2, 3);
        ASSERT_EQ(morva::osg::do_collide(a.node, b.node, results), expected.collided);
        ASSERT_EQ(results.collided, expected.collided);
        ASSERT_TRUE(samePoint(results.point, expected.collided ? expected.point : Pnt3f(1, 2, 3)));
        contacts += expected.collided ? 1 : 0;
    }
    EXPECT_GT(contacts, 3000U);
    EXPECT_LT(contacts, 7000U);
    for (const thing& one : {all_a[1], all_a[3], all_a[7], all_a[12]})
        EXPECT_TRUE(one.fitted()) << "the companions were not tried";
}

TEST(TestNodes, CountsPairsAndFindsTheFirstContactFromTheRootsOn) {
    std::mt19937 rng(99);
    const std::vector<thing> all_a = things(rng), all_b = things(rng);
    for (unsigned round = 0; round < 1000; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const thing& a = all_a[rng() % all_a.size()];
        const thing& b = all_b[rng() % all_b.size()];
        pose(rng, round % 2 == 0 ? 9 : 1, a, b);
        const naive_result expected = naive_collision::collide(a.node, b.node);
        const auto *tree_a = naive_collision::payloadOf(a.node),
                   *tree_b = naive_collision::payloadOf(b.node);
        const auto as_float3 = [](const triple& t) { return morva::float3{t[0], t[1], t[2]}; };
        const Matrix matrix = naive_collision::poseOf(a.node, b.node);
        const box_of_triples box_a = naive_collision::boxOf(a.node);
        const box_of_triples own = naive_collision::boxOf(b.node);
        const box_of_triples moved = naive_collision::aroundCorners(matrix, own);
        morva::math::transformation_matrix<float> b_to_a;
        morva::osg::set(b_to_a, matrix);
        const auto test = [&](int node_a, int node_b, std::uint64_t& pairs,
                              morva::float3& contact) {
            return morva::osg::test_nodes(
                as_float3(box_a[0]), as_float3(box_a[1]), as_float3(moved[0]), as_float3(moved[1]),
                as_float3(own[0]), as_float3(own[1]), *tree_a->tree, *tree_a->geoset, node_a,
                *tree_b->tree, *tree_b->geoset, node_b, b_to_a, pairs, contact);
        };
        std::uint64_t pairs = 5;
        morva::float3 contact;
        ASSERT_EQ(test(0, 0, pairs, contact), expected.collided);
        ASSERT_EQ(pairs, expected.pairs + 5);
        Pnt3f point(contact[0], contact[1], contact[2]);
        a.node->getToWorld().multMatrixPnt(point);
        ASSERT_TRUE(!expected.collided || samePoint(point, expected.point));
        EXPECT_FALSE(test(-1, 0, pairs, contact) || test(0, 1 << 20, pairs, contact));
        EXPECT_EQ(pairs, expected.pairs + 5);
    }
}

/// Parts of several kinds in a heap, below groups and transforms.
node_ref assembly(std::mt19937& rng, unsigned parts, float reach) {
    node_list below;
    for (unsigned i = 0; i < parts; ++i) {
        const float size = 0.1F + 0.5F * std::abs(randomVector(rng, 1.F)[0]);
        const Vec3f scale = i % 17 == 0 ? Vec3f(size, 3.F * size, size) : Vec3f(size, size, size);
        const mesh_data mesh = i % 3 == 0 ? ballMesh(4) : i % 3 == 1 ? blockMesh(1) : waveMesh(3);
        Matrix matrix = placed(rng, randomVector(rng, reach), scale);
        if (i % 29 == 7)
            matrix[i % 3] = ::osg::Vec4f(0.F, 0.F, 0.F, 0.F);
        if (i == 11)
            matrix[3][0] = infinity;
        below.push_back(transformed(matrix, {meshNode(mesh)}));
    }
    return node_ref(group({group(below), switched(0, {meshNode(ballMesh(3))})}));
}

TEST(Collision, FindsThePairsOfTwoAssembliesInTheOrderOfTheLists) {
    std::mt19937 rng(5);
    for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const node_ref a = assembly(rng, 20U << (round % 3), 4.F);
        const node_ref b = assembly(rng, 60U << (round % 3), 4.F);
        const std::vector<naive_result> expected = naive_collision::collideAll(a.get(), b.get());
        const std::vector<CollisionResults> found =
            morva::osg::collisions(a.get(), b.get(), CollisionParam());
        ASSERT_EQ(found.size(), expected.size());
        ASSERT_GT(found.size(), 5U);
        for (std::size_t i = 0; i < found.size(); ++i) {
            EXPECT_TRUE(found[i].collided);
            EXPECT_EQ(found[i].nodeA, expected[i].a);
            EXPECT_EQ(found[i].nodeB, expected[i].b);
            EXPECT_TRUE(samePoint(found[i].point, expected[i].point));
        }
        CollisionResults first;
        EXPECT_TRUE(morva::osg::collision(a.get(), b.get(), CollisionParam(), first));
        EXPECT_EQ(first.nodeA, expected[0].a);
        EXPECT_EQ(first.nodeB, expected[0].b);
        EXPECT_TRUE(samePoint(first.point, expected[0].point));
    }
}

TEST(Collision, LooksAtNeighboursAloneInLongLists) {
    const ::osg::GeometryPtr core = geometryOf(blockMesh(1));
    const auto grid = [&core](const Vec3f& by) {
        node_list nodes;
        for (int i = 0; i < 4150; ++i)
            nodes.push_back(moved(
                Vec3f(5.F * static_cast<float>(i % 64), 5.F * static_cast<float>(i / 64), 0.F),
                {nodeOf(core)}));
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
    const node_ref ball(meshNode(ballMesh(4)));
    const node_ref empty(meshNode(mesh_data())), plain(group()), coreless(::osg::Node::create());
    const node_ref unseen(hidden(meshNode(ballMesh(4))));
    const node_ref far(moved(Vec3f(9, 0, 0), {meshNode(ballMesh(4))}));
    const node_ref endless(moved(Vec3f(infinity, 0, 0), {meshNode(ballMesh(4))}));
    const node_ref points(meshNode(row(5, 0)));
    const node_ref emptied(meshNode(ballMesh(4)));
    morva::osg::attach_bih(emptied.get());
    emptied->updateVolume();
    coreOf(emptied.get())->setLengths(::osg::GeoPLengthsUI32::create());
    morva::osg::mark_bih(emptied.get());
    const std::pair<const char*, NodePtr> others[] = {
        {"null", ::osg::NullFC},           {"without triangles", empty.get()},
        {"a group", plain.get()},          {"no core", coreless.get()},
        {"hidden", unseen.get()},          {"far", far->getChild(0)},
        {"endless", endless->getChild(0)}, {"points", points.get()},
        {"emptied", emptied.get()}};
    for (const auto& [name, other] : others) {
        SCOPED_TRACE(name);
        for (const auto& [a, b] : {std::pair(ball.get(), other), std::pair(other, ball.get())}) {
            CollisionResults results;
            results.collided = true;
            results.point = Pnt3f(1, 2, 3);
            results.nodeA = results.nodeB = ball.get();
            EXPECT_FALSE(morva::osg::do_collide(a, b, results));
            EXPECT_FALSE(results.collided);
            results.collided = true;
            const unsigned before = morva::osg::num_colltests();
            EXPECT_FALSE(morva::osg::collision(a, b, CollisionParam(), results));
            EXPECT_EQ(morva::osg::num_colltests(), before + 1);
            EXPECT_FALSE(results.collided);
            EXPECT_TRUE(results.nodeA == ball.get() && results.nodeB == ball.get());
            EXPECT_TRUE(samePoint(results.point, Pnt3f(1, 2, 3)));
            EXPECT_TRUE(morva::osg::collisions(a, b, CollisionParam()).empty());
        }
    }
}

TEST(Collision, KeepsTreesWhileNodesMoveAndSeesWhatIsMarked) {
    const thing a(ballMesh(12)), b(blockMesh(4));
    CollisionResults results;
    const unsigned before = morva::osg::num_attachments();
    for (int i = 0; i < 200; ++i) {
        b.put(shifted(Vec3f(0.01F * static_cast<float>(i) + 1.005F, 0.F, 0.F)));
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

TEST(Containment, ClosedPartsAndWhatIsInsideOfThem) {
    const auto scaled = [](float s, const NodePtr& node) {
        Matrix matrix;
        matrix.setScale(s);
        return transformed(matrix, {node});
    };
    mesh_data torn = ballMesh(8), turned = ballMesh(8);
    torn.positions.resize(torn.positions.size() - 3);
    torn.primitives[0].second -= 3;
    std::swap(turned.positions[0], turned.positions[1]);
    // A block in two nodes, the seam off by rounding.
    mesh_data halves[2] = {blockMesh(2), blockMesh(2)};
    for (int i = 0; i < 2; ++i) {
        auto& corners = halves[i].positions;
        const auto middle = corners.begin() + 72;
        i == 0 ? corners.erase(middle, corners.end()) : corners.erase(corners.begin(), middle);
        halves[i].primitives[0].second = 72;
    }
    const node_ref split(
        group({meshNode(halves[0]), moved(Vec3f(1e-7F, 0, 0), {meshNode(halves[1])})}));
    const node_ref ball(meshNode(ballMesh(8))), open(meshNode(torn)), flipped(meshNode(turned));
    const node_ref sheet(meshNode(waveMesh(4))), seed(scaled(0.2F, meshNode(blockMesh(1))));
    const node_ref seeds(group({scaled(0.3F, meshNode(ballMesh(3))),
                                moved(Vec3f(0.5F, 0, 0), {scaled(0.1F, meshNode(ballMesh(3)))})}));
    const node_ref partly(group(
        {scaled(0.3F, meshNode(ballMesh(3))), moved(Vec3f(4, 0, 0), {meshNode(ballMesh(3))})}));
    mesh_data shell = ballMesh(8), hollow = baked(ballMesh(8), [] {
                                       Matrix matrix;
                                       matrix.setScale(-0.9F); // inside out
                                       return matrix;
                                   }());
    shell.positions.insert(shell.positions.end(), hollow.positions.begin(), hollow.positions.end());
    shell.primitives[0].second *= 2;
    const node_ref hull(meshNode(shell));

    struct row_of_table {
        const char* name;
        NodePtr node;
        bool closed, holds_seed, holds_seeds, holds_partly;
    };
    for (const row_of_table& row : {row_of_table{"ball", ball.get(), true, true, true, false},
                                    {"in two nodes", split.get(), true, true, true, false},
                                    {"torn", open.get(), false, false, false, false},
                                    {"one turned over", flipped.get(), false, false, false, false},
                                    {"sheet", sheet.get(), false, false, false, false},
                                    {"hollow", hull.get(), true, false, false, false},
                                    {"null", ::osg::NullFC, false, false, false, false}}) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(morva::osg::is_closed(row.node), row.closed);
        EXPECT_EQ(morva::osg::contains(row.node, seed.get()), row.holds_seed);
        EXPECT_EQ(morva::osg::contains(row.node, seeds.get()), row.holds_seeds);
        EXPECT_EQ(morva::osg::contains(row.node, partly.get()), row.holds_partly);
        EXPECT_FALSE(morva::osg::contains(row.node, ::osg::NullFC));
        EXPECT_FALSE(morva::osg::contains(seed.get(), row.node));
    }
}

} // namespace
