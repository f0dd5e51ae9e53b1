// A comparison that cannot fail would hide every fault. One that fails too often its users see.

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
                       const mesh_choice& choice = {}, const mesh_tolerance& allowed = {0, 0, 0}) {
    const node_ref held_a(a), held_b(b);
    return firstDifference(worldMesh(a, choice), worldMesh(b, choice), allowed);
}

} // namespace

TEST(WorldMesh, SeesEveryKindOfDifference) {
    using change = void (*)(mesh_data&);
    const change changes[] = {
        [](mesh_data& m) { m.positions[1][2] = std::numeric_limits<float>::denorm_min(); },
        [](mesh_data& m) { m.positions[1][1] = 0.001F; },
        [](mesh_data& m) { m.normals[0] = ::osg::Vec3f(0, 0.01F, 1); },
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
        const mesh_tolerance allowed = {1e-4F, 1e-3F, 1e-5F}; // enough for the first one alone
        EXPECT_EQ(difference(meshNode(oneTriangle()), meshNode(changed), {}, allowed).empty(),
                  &apply == changes);
    }
    const auto twice = [] { return group({meshNode(oneTriangle()), meshNode(oneTriangle())}); };
    EXPECT_NE(difference(meshNode(oneTriangle()), twice()), ""); // a multiset
    EXPECT_NE(difference(twice(), meshNode(oneTriangle())), "");
    mesh_data other_id = oneTriangle();
    other_id.ids.assign(3, 5.0F);
    EXPECT_EQ(difference(meshNode(oneTriangle()), meshNode(other_id)), "");
    mesh_choice with_ids;
    with_ids.ids = true;
    EXPECT_NE(difference(meshNode(oneTriangle()), meshNode(other_id), with_ids), "");
}
