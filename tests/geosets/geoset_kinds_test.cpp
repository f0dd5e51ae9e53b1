// Extraction of triangles, lines and points alike.

#include "triangle_scenes.h"

namespace {

using namespace tri;

template <typename G> struct GeosetKinds : testing::Test {
    GeosetKinds() { handler.reset(); }
    ~GeosetKinds() override { handler.reset(); }

    static mesh_data some(unsigned count, const ::osg::Vec3f& at = {0, 0, 0}) {
        return elements(G::corners, count, at);
    }

    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    G geoset;
};
using kinds = testing::Types<osg_geoset, osg_line_geoset, osg_point_geoset>;
TYPED_TEST_SUITE(GeosetKinds, kinds);

TYPED_TEST(GeosetKinds, ExtractRefusesWithOneLineAndNoChange) {
    const char* const kind[] = {"point_", "line_", ""};
    const std::string tools =
        std::string("Morva_osg_") + kind[TypeParam::corners - 1] + "geoset_tools::Extract: ";
    TypeParam without_core;
    without_core.geometry = ::osg::NullFC;
    const struct {
        node_ref node;
        TypeParam& into;
        std::string line;
    } cases[] = {{node_ref(), this->geoset, tools + "No Node\n"},
                 {node_ref(::osg::Node::create()), this->geoset, tools + "No Core\n"},
                 {node_ref(group()), this->geoset, tools + "No GeometryCore\n"},
                 {node_ref(nodeOf(::osg::Geometry::create())), this->geoset, ""},
                 {node_ref(meshNode(this->some(1))), without_core,
                  "Morva_osg_geoset_tools::Extract: No Geometry in geoset!\n"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.line);
        EXPECT_EQ(toldBy([&] {
                      extract(c.node.get(), c.into, {true, true, true, true, true});
                  }),
                  c.line);
        EXPECT_EQ(c.into.vertex_count, 0U);
    }
    const node_ref whole(meshNode(this->some(1))); // by the flags one by one
    if constexpr (TypeParam::corners == 3)
        extract(whole.get(), this->geoset, false, false, false, true, false);
    else
        extract(whole.get(), this->geoset, false, false, false, true);
    EXPECT_EQ(this->geoset.size, 1U);
    without_core.setup();
    without_core.calc_bounding_box();
    EXPECT_EQ(without_core.size, 0U);
}

TYPED_TEST(GeosetKinds, ExtractTurnsNormalsWithoutScalingThemAndEntersTheBoxAskedFor) {
    // Rows: x' = -2 y + 5, y' = 3 x, z' = 4 z - 1: a quarter turn, scaled.
    const ::osg::Matrix matrix(0, -2, 0, 5, 3, 0, 0, 0, 0, 0, 4, -1, 0, 0, 0, 1);
    mesh_data mesh = this->some(3 / TypeParam::corners + 1, {1, 2, 3});
    mesh.normals.assign(mesh.positions.size(), {1, 0, 0});
    mesh.normals[1] = {0, 0, 2};
    mesh.normals[2] = {0, 1e-7F, 0}; // of no length: not blown up
    const node_ref root(
        transformed(matrix, {named("a", meshNode(mesh)), named("b", meshNode(mesh))}));
    extract(root->getChild(0), this->geoset, {true, false, true, true, false});
    const ::osg::Vec3f turned[3] = {{0, 1, 0}, {0, 0, 1}, {-1e-7F, 0, 0}};
    const rows world = rowsOf(this->geoset.geometry.get(), 3);
    for (std::size_t k = 0; k < 3; ++k) {
        const ::osg::Pnt3f& p = mesh.positions[k];
        EXPECT_EQ(world[k].position, ::osg::Pnt3f(5 - 2 * p[1], 3 * p[0], 4 * p[2] - 1));
        EXPECT_NEAR((world[k].normal - turned[k]).length(), 0, 2e-6F) << k;
    }
    EXPECT_LT(world[2].normal.length(), 2e-7F);
    extract(root->getChild(1), this->geoset, {false, false, true, true, false});
    EXPECT_EQ(this->handler.mins[0][2], 11);
    EXPECT_EQ(this->handler.mins[1], ::osg::Pnt3f(1, 2, 3));
}

} // namespace
