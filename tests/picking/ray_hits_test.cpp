// Rays in world coordinates beside all triangles one by one; where a hit comes from.

#include "pick_scenes.h"

#include <morva/core/morva_osg_geometry_tools.h>

namespace {

using namespace picking_test;
using morva::osg::all_hits, morva::osg::first_hit, morva::osg::no_triangle, morva::osg::ray_hit;
using wide = std::array<long double, 3>;

wide minus(const wide& a, const wide& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
wide cross(const wide& a, const wide& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}
long double dot(const wide& a, const wide& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
wide widened(const Pnt3f& p) { return {p[0], p[1], p[2]}; }

/// To the world by one matrix after the other, without rounding to single precision.
wide inWorld(wide p, const NodePtr& node) {
    if (const auto transform = ::osg::TransformPtr::dcast(node->getCore());
        transform != ::osg::NullFC) {
        const Matrix& m = transform->getMatrix();
        const wide q = p;
        for (unsigned r = 0; r < 3; ++r)
            p[r] = m[0][r] * q[0] + m[1][r] * q[1] + m[2][r] * q[2] + m[3][r];
    }
    return node->getParent() == ::osg::NullFC ? p : inWorld(p, node->getParent());
}

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

bool isMirrored(const NodePtr& node) { return node->getToWorld().det3() < 0.F; }

/// A triangle in world coordinates, and whether rays that meet it see the winding from behind.
struct wide_triangle {
    NodePtr node;
    unsigned number;
    wide a, b, c;
    bool mirrored;
};

std::vector<wide_triangle> wideTriangles(const NodePtr& root) {
    std::vector<wide_triangle> all;
    for (const NodePtr& node : geometryNodes(root)) {
        if (!isShown(node))
            continue;
        for (auto it = coreOf(node)->beginTriangles(); it != coreOf(node)->endTriangles(); ++it) {
            const Pnt3f p[3] = {it.getPosition(0), it.getPosition(1), it.getPosition(2)};
            if (!morva::osg::is_rogue(p[0], p[1], p[2]))
                all.push_back({node, static_cast<unsigned>(it.getIndex()),
                               inWorld(widened(p[0]), node), inWorld(widened(p[1]), node),
                               inWorld(widened(p[2]), node), isMirrored(node)});
        }
    }
    return all;
}

/// What a ray meets, by node and triangle; `sure` is false if an edge is too near to tell.
struct naive_hit {
    long double t;
    bool back_face;
    wide normal;
};
using naive_hits = std::map<std::pair<NodePtr, unsigned>, naive_hit>;

naive_hits naiveHits(const std::vector<wide_triangle>& world, const Line& line, bool both_sides,
                     bool& sure) {
    const wide o = widened(line.getPosition()), d = widened(Pnt3f(line.getDirection()));
    naive_hits hits;
    for (const wide_triangle& t : world) {
        const wide n = cross(minus(t.b, t.a), minus(t.c, t.a));
        const long double facing = dot(d, n), length = std::sqrt(dot(n, n));
        if (facing == 0.0L)
            continue;
        const long double at = dot(minus(t.a, o), n) / facing;
        const wide p = {o[0] + at * d[0], o[1] + at * d[1], o[2] + at * d[2]};
        long double least = 1.0L; // distance to an edge, by that of the corner across
        for (const auto& [u, v] : {std::pair(t.a, t.b), std::pair(t.b, t.c), std::pair(t.c, t.a)})
            least = std::min(least, dot(cross(minus(v, u), minus(p, u)), n) / (length * length));
        if (std::abs(least) < 1e-6L || std::abs(at) < 1e-6L || std::abs(facing) < 1e-6L * length)
            sure = sure && least < -1e-3L;
        const bool back = (facing > 0.0L) != t.mirrored;
        const long double side = t.mirrored ? -1.0L / length : 1.0L / length;
        if (least >= 0.0L && at >= 0.0L && (both_sides || !back))
            hits[{t.node, t.number}] = {at, back, {n[0] * side, n[1] * side, n[2] * side}};
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
    std::size_t met = 0, unsure = 0;
    for (int round = 0; round < 120; ++round) {
        SCOPED_TRACE(round);
        const node_ref top(group({transformed(anyFrame(rng), {anyScene(rng)})}));
        const NodePtr root = top->getChild(0)->getChild(0); // the frames above it count
        const std::vector<wide_triangle> world = wideTriangles(root);
        const std::vector<placed_triangle> aims = placedTriangles(root);
        for (int ray = 0; ray < 100; ++ray) {
            SCOPED_TRACE(ray);
            const Line line = anyRay(rng, aims);
            const bool both_sides = ray % 2 == 0;
            bool sure = true;
            naive_hits naive = naiveHits(world, line, both_sides, sure);
            const std::vector<ray_hit> hits = all_hits(root, line, both_sides);
            ray_hit first;
            ASSERT_EQ(first_hit(root, line, both_sides, first), !hits.empty());
            if (!hits.empty())
                expectSame(first, hits.front());
            if (!sure) {
                ++unsure;
                continue;
            }
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
}

TEST(RayHits, ComeThroughAnActionToo) {
    std::mt19937 rng(45);
    std::size_t hits = 0;
    for (int round = 0; round < 40; ++round) {
        const node_ref root(anyScene(rng));
        const std::vector<placed_triangle> aims = placedTriangles(root.get());
        for (int ray = 0; ray < 50; ++ray) {
            const Line line = anyRay(rng, aims);
            const bool both_sides = ray % 2 == 0;
            const registered picking(both_sides
                                         ? +[] { morva::osg::register_exact_intersect(true); }
                                         : +[] { morva::osg::register_exact_intersect(false); });
            const auto [hit, t, node, object, x, y, z] = pick(root.get(), line);
            ray_hit first;
            const bool is_first = first_hit(root.get(), line, both_sides, first);
            // Single precision on the way down: at an edge the two may differ.
            const bool same =
                hit == is_first && (!hit || std::abs(t - first.distance) <= 1e-4F * (t + 60.F));
            hits += same ? 1 : 0;
        }
    }
    EXPECT_GE(hits, 1950U);
}

TEST(RayHits, SlipThroughNoSeam) {
    std::mt19937 rng(46);
    const node_ref tiles(meshNode(quads(4))); // exactly onto edges and corners
    for (const Pnt3f& at : {Pnt3f(1, .5F, 1), Pnt3f(.5F, .5F, 1), Pnt3f(2, 0, 1), Pnt3f(0, 0, 1),
                            Pnt3f(.5F, 0, 1), Pnt3f(3, 1, 1), Pnt3f(4, 1, 1)})
        EXPECT_FALSE(all_hits(tiles.get(), Line(at, Vec3f(0, 0, -1)), false).empty()) << at;

    // A closed shell of 12 x 24 squares around 0, each corner rounded in its own way.
    std::vector<Pnt3f> shell;
    const auto corner = [](int i, int k) {
        const float up = 3.1415926F * static_cast<float>(i) / 12.F,
                    around = 6.2831852F * static_cast<float>(k % 24) / 24.F;
        return i % 12 == 0 ? Pnt3f(0, 0, i == 0 ? 1.F : -1.F)
                           : Pnt3f(std::sin(up) * std::cos(around), std::sin(up) * std::sin(around),
                                   std::cos(up));
    };
    for (int i = 0; i < 12; ++i) {
        for (int k = 0; k < 24; ++k)
            for (const auto& [a, b] : {std::pair(0, 0), std::pair(1, 0), std::pair(1, 1),
                                       std::pair(0, 0), std::pair(1, 1), std::pair(0, 1)})
                shell.push_back(corner(i + a, k + b));
    }
    for (int round = 0; round < 20; ++round) {
        const NodePtr part = meshNode(triangles(shell));
        const node_ref root(group({transformed(anyFrame(rng), {part})}));
        const std::vector<placed_triangle> world = placedTriangles(root.get());
        Pnt3f inside;
        part->getToWorld().multMatrixPnt(Pnt3f(0.1F, 0.2F, -0.1F), inside);
        for (const placed_triangle& t : world) {
            for (int k = 0; k < 3; ++k) {
                const Pnt3f middle = t.corners[k] + (t.corners[(k + 1) % 3] - t.corners[k]) * 0.5F;
                for (const Pnt3f& aim : {t.corners[k], middle})
                    EXPECT_FALSE(all_hits(root.get(), Line(inside, aim), true).empty());
            }
        }
    }
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
