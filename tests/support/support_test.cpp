// The shared test tools themselves: a comparison that cannot fail would hide every fault.

#include "tests/support/live_containers.h"
#include "tests/support/mesh_multiset.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

#include <cmath>
#include <iomanip>
#include <iostream>
#include <limits>

#include <OpenSG/OSGTriangleIterator.h>
#include <gtest/gtest.h>

using namespace morva_test;

namespace {

const mesh_tolerance loose{1e-4F, 1e-3F, 1e-5F};

mesh_data oneTriangle() {
    mesh_data mesh;
    mesh.primitives = {{4, 3}};
    mesh.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    mesh.normals.assign(3, {0, 0, 1});
    mesh.ids.assign(3, 4.0F);
    return mesh;
}

std::string difference(const ::osg::NodePtr& a, const ::osg::NodePtr& b,
                       const mesh_choice& choice = {}) {
    const node_ref held_a(a), held_b(b);
    return firstDifference(worldMesh(a, choice), worldMesh(b, choice));
}

std::string looseDifference(const ::osg::NodePtr& a, const ::osg::NodePtr& b) {
    const node_ref held_a(a), held_b(b);
    return firstDifference(worldMesh(a), worldMesh(b), loose);
}

} // namespace

TEST(WorldMesh, DoesNotDependOnNodesIndicesOrTheFirstCorner) {
    mesh_data turned = oneTriangle(), indexed = oneTriangle();
    turned.positions = {{1, 0, 0}, {0, 1, 0}, {-0.0F, 0, 0}};
    indexed.positions = {{0, 1, 0}, {0, 0, 0}, {1, 0, 0}};
    indexed.indices = {1, 2, 0};
    EXPECT_EQ(difference(meshNode(oneTriangle()), meshNode(turned)), "");
    EXPECT_EQ(difference(meshNode(oneTriangle()), group({hidden(meshNode(indexed))})), "");
    mesh_data shifted = oneTriangle();
    for (::osg::Pnt3f& position : shifted.positions)
        position[0] -= 2;
    EXPECT_EQ(difference(meshNode(oneTriangle()), moved({2, 0, 0}, {meshNode(shifted)})), "");
}

TEST(WorldMesh, SeesEveryKindOfDifference) {
    using change = void (*)(mesh_data&);
    const change changes[] = {
        [](mesh_data& m) { m.positions[1][2] = std::numeric_limits<float>::denorm_min(); },
        [](mesh_data& m) { std::swap(m.positions[0], m.positions[1]); }, // winding
        [](mesh_data& m) { m.normals[2] = ::osg::Vec3f(0, 1, 0); },
        [](mesh_data& m) {
            m.colors.assign(3, {1, 0, 0});
        },
        [](mesh_data& m) {
            m.secondary.assign(3, {1, 0, 0});
        },
        [](mesh_data& m) {
            m.coordinates.assign(3, {1, 0});
        },
        [](mesh_data& m) { m.positions[0][0] = std::numeric_limits<float>::quiet_NaN(); },
        [](mesh_data& m) { m.primitives = {}; }};
    for (const change& apply : changes) {
        mesh_data changed = oneTriangle();
        apply(changed);
        EXPECT_NE(difference(meshNode(oneTriangle()), meshNode(changed)), "");
        EXPECT_NE(difference(meshNode(changed), meshNode(oneTriangle())), "");
        EXPECT_EQ(difference(meshNode(changed), meshNode(changed)), "");
    }
    mesh_data other_id = oneTriangle();
    other_id.ids.assign(3, 5.0F);
    EXPECT_EQ(difference(meshNode(oneTriangle()), meshNode(other_id)), "");
    mesh_choice with_ids;
    with_ids.ids = true;
    EXPECT_NE(difference(meshNode(oneTriangle()), meshNode(other_id), with_ids), "");
    EXPECT_NE(difference(meshNode(oneTriangle()),
                         group({meshNode(oneTriangle()), meshNode(oneTriangle())})),
              ""); // a multiset
}

TEST(WorldMesh, ComparesWithinTolerances) {
    mesh_data near = oneTriangle(), far = oneTriangle(), bent = oneTriangle();
    near.positions = {{0.00003F, 0, 0}, {1, 0.00002F, 0}, {-0.00001F, 1, 0}};
    far.positions[1][1] = 0.001F;
    bent.normals[0] = ::osg::Vec3f(0, 0.01F, 1);
    EXPECT_EQ(looseDifference(meshNode(oneTriangle()), meshNode(near)), "");
    EXPECT_NE(looseDifference(meshNode(oneTriangle()), meshNode(far)), "");
    EXPECT_NE(looseDifference(meshNode(oneTriangle()), meshNode(bent)), "");
    EXPECT_NE(
        looseDifference(meshNode(oneTriangle()), group({meshNode(near), meshNode(oneTriangle())})),
        "");
    EXPECT_NE(looseDifference(group({meshNode(near), meshNode(oneTriangle())}), meshNode(near)),
              "");
}

TEST(WorldMesh, TurnsNormalsWithTheSurface) {
    ::osg::Matrix matrix;
    matrix.setScale(2, 1, 1);
    mesh_data slope = oneTriangle();
    slope.positions = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    slope.normals.assign(3, {0.57735026F, 0.57735026F, 0.57735026F});
    mesh_data expected = slope;
    expected.positions = {{2, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    expected.normals.assign(3, {0.33333333F, 0.66666666F, 0.66666666F});
    EXPECT_EQ(looseDifference(meshNode(expected), transformed(matrix, {meshNode(slope)})), "");
}

TEST(WorldMesh, SumsAreaAndBox) {
    const node_ref root(moved({1, 0, 0}, {meshNode(quads(3))}));
    const mesh_summary summary = summaryOf(worldMesh(root.get()));
    EXPECT_EQ(summary.triangles, 6U);
    EXPECT_DOUBLE_EQ(summary.area, 3.0);
    EXPECT_EQ(summary.min, (std::array<float, 3>{1, 0, 0}));
    EXPECT_EQ(summary.max, (std::array<float, 3>{4, 1, 0}));
    EXPECT_EQ(summaryOf({}).triangles, 0U);
}

TEST(SceneBuilders, DrawWhatTheyPromise) {
    const auto areaOf = [](const mesh_data& mesh) {
        const node_ref node(meshNode(mesh));
        return summaryOf(worldMesh(node.get())).area;
    };
    EXPECT_DOUBLE_EQ(areaOf(quads(5)), 5.0);
    EXPECT_DOUBLE_EQ(areaOf(strip(6)), 2.0);
    EXPECT_DOUBLE_EQ(areaOf(strip(6, 8)), 2.0);
    EXPECT_NEAR(areaOf(fan(9, 9)), 7 * 0.5 * std::sin(0.3), 1e-6);
    EXPECT_DOUBLE_EQ(areaOf(row(7, 3)), 0.0);
    // The cube's faces look outward: each normal agrees with its triangle's winding.
    const geometry_ref box(geometryOf(cube()));
    EXPECT_DOUBLE_EQ(areaOf(cube()), 6.0);
    for (auto it = box->beginTriangles(); it != box->endTriangles(); ++it) {
        const ::osg::Vec3f n =
            (it.getPosition(1) - it.getPosition(0)).cross(it.getPosition(2) - it.getPosition(0));
        EXPECT_EQ(n, it.getNormal(0));
    }
}

TEST(SceneBuilders, LeaveNothingBehind) {
    const unsigned int before = liveContainers();
    {
        std::mt19937 rng(4);
        const node_ref root(group(
            {meshNode(withAttributes(mixture(rng, 9), rng), simple({1, 0, 0})),
             switched(0, {meshNode(withIndex(soup(rng, 3), rng))}), detailed({group()}),
             materialGroup(chunked({1, 1, 1, 1}, imageOf(::osg::Image::OSG_RGBA_PF, 2, 2)), {}),
             meshNode(quads(1), choiceOf(0, {cubeTextured()}))}));
        EXPECT_GT(liveContainers(), before);
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(StreamCapture, GivesTextAndRestoresTheFormat) {
    const std::streamsize precision = std::cout.precision();
    stream_capture outer(std::cout);
    {
        stream_capture inner(std::cout);
        std::cout << std::setprecision(2) << 1.2345 << "\n";
        EXPECT_EQ(inner.text(), "1.2\n");
    }
    std::cout << "after";
    EXPECT_EQ(outer.text(), "after");
    EXPECT_EQ(std::cout.precision(), precision);
}
