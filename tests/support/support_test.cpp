// The shared test tools themselves: a comparison that cannot fail would hide every fault.

#include "tests/support/test.h"

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

TEST(WorldMesh, ComparesWithinTolerancesAndTurnsNormals) {
    mesh_data one = oneTriangle(), near = one, far = one, bent = one, slope = one, steep = one;
    near.positions = {{0.00003F, 0, 0}, {1, 0.00002F, 0}, {-0.00001F, 1, 0}};
    far.positions[1][1] = 0.001F;
    bent.normals[0] = ::osg::Vec3f(0, 0.01F, 1);
    slope.positions = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    slope.normals.assign(3, {0.57735026F, 0.57735026F, 0.57735026F});
    steep.positions = {{2, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    steep.normals.assign(3, {0.33333333F, 0.66666666F, 0.66666666F});
    ::osg::Matrix doubled;
    doubled.setScale(2, 1, 1);
    const auto both = [&] { return group({meshNode(near), meshNode(one)}); };
    const std::tuple<::osg::NodePtr, ::osg::NodePtr, bool> rows[] = {
        {meshNode(one), meshNode(near), true},
        {both(), both(), true},
        {meshNode(one), meshNode(far), false},
        {meshNode(one), meshNode(bent), false},
        {meshNode(one), both(), false},
        {both(), meshNode(near), false},
        {meshNode(steep), transformed(doubled, {meshNode(slope)}), true}};
    for (const auto& [a, b, equal] : rows) {
        const node_ref held_a(a), held_b(b);
        const std::string found =
            firstDifference(worldMesh(a), worldMesh(b), {1e-4F, 1e-3F, 1e-5F});
        EXPECT_EQ(found.empty(), equal) << found;
    }
}
