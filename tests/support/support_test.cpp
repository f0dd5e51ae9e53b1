// The shared test tools themselves: a comparison that cannot fail would hide every fault.

#include "tests/support/test.h"

#include <iomanip>

namespace {

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
    return firstDifference(worldMesh(a), worldMesh(b), {1e-4F, 1e-3F, 1e-5F});
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
        [](mesh_data& m) { m.colors.resize(3, ::osg::Color3f(1, 0, 0)); },
        [](mesh_data& m) { m.secondary.resize(3, ::osg::Color3f(1, 0, 0)); },
        [](mesh_data& m) { m.coordinates.resize(3, ::osg::Vec2f(1, 0)); },
        [](mesh_data& m) { m.positions[0][0] = std::numeric_limits<float>::quiet_NaN(); },
        [](mesh_data& m) { m.primitives.clear(); }};
    for (const change& apply : changes) {
        mesh_data changed = oneTriangle();
        apply(changed);
        EXPECT_NE(difference(meshNode(oneTriangle()), meshNode(changed)), "");
        EXPECT_NE(difference(meshNode(changed), meshNode(oneTriangle())), "");
        EXPECT_EQ(difference(meshNode(changed), meshNode(changed)), "");
    }
    const auto twice = [] { return group({meshNode(oneTriangle()), meshNode(oneTriangle())}); };
    EXPECT_NE(difference(meshNode(oneTriangle()), twice()), ""); // a multiset
    mesh_data other_id = oneTriangle();
    other_id.ids.assign(3, 5.0F);
    EXPECT_EQ(difference(meshNode(oneTriangle()), meshNode(other_id)), "");
    mesh_choice with_ids;
    with_ids.ids = true;
    EXPECT_NE(difference(meshNode(oneTriangle()), meshNode(other_id), with_ids), "");
}

TEST(WorldMesh, ComparesWithinTolerances) {
    mesh_data near = oneTriangle(), far = oneTriangle(), bent = oneTriangle();
    near.positions = {{0.00003F, 0, 0}, {1, 0.00002F, 0}, {-0.00001F, 1, 0}};
    far.positions[1][1] = 0.001F;
    bent.normals[0] = ::osg::Vec3f(0, 0.01F, 1);
    const auto both = [&] { return group({meshNode(near), meshNode(oneTriangle())}); };
    EXPECT_EQ(looseDifference(meshNode(oneTriangle()), meshNode(near)), "");
    EXPECT_EQ(looseDifference(both(), both()), "");
    EXPECT_NE(looseDifference(meshNode(oneTriangle()), meshNode(far)), "");
    EXPECT_NE(looseDifference(meshNode(oneTriangle()), meshNode(bent)), "");
    EXPECT_NE(looseDifference(meshNode(oneTriangle()), both()), "");
    EXPECT_NE(looseDifference(both(), meshNode(near)), "");
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

TEST(SceneBuilders, DrawWhatTheyPromise) {
    const struct {
        mesh_data mesh;
        double area;
        std::array<float, 3> max;
    } rows[] = {{quads(3), 3, {4, 1, 0}},    {strip(6), 2, {3, 1, 0}},
                {strip(6, 8), 2, {3, 1, 0}}, {fan(3), 0.14776, {1.95534F, 0.56464F, 0}},
                {cube(), 6, {2, 1, 1}},      {row(7, 3), 0, {0, 0, 0}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const node_ref root(moved({1, 0, 0}, {meshNode(row.mesh)}));
        const mesh_summary summary = summaryOf(worldMesh(root.get()));
        EXPECT_NEAR(summary.area, row.area, 1e-5);
        EXPECT_EQ(summary.min[0], summary.triangles == 0 ? 0.0F : 1.0F);
        for (std::size_t axis = 0; axis < 3; ++axis)
            EXPECT_NEAR(summary.max[axis], row.max[axis], 1e-5);
    }
    // The cube's faces look outward: each normal agrees with its triangle's winding.
    const geometry_ref box(geometryOf(cube()));
    for (auto it = box->beginTriangles(); it != box->endTriangles(); ++it) {
        const ::osg::Vec3f n =
            (it.getPosition(1) - it.getPosition(0)).cross(it.getPosition(2) - it.getPosition(0));
        EXPECT_EQ(n, it.getNormal(0));
    }
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
