// Extraction of triangles, lines and points alike.

#include "tests/support/triangle_scenes.h"

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

// Rows of what came before get the default of an attribute that is new, and later ones that lack
// it, too; of triangles normals are then made for all.
TYPED_TEST(GeosetKinds, ExtractionAppendsAndFillsInWhatIsMissing) {
    constexpr unsigned n = TypeParam::corners;
    const ::osg::MaterialRefPtr first(bareMaterial()), other(bareMaterial());
    TypeParam target;
    const auto take = [&](const ::osg::GeometryPtr& core, const char* name, bool ids) {
        const node_ref node(nodeOf(core));
        if (name != nullptr)
            named(name, node);
        const std::string told = toldBy([&] {
            extract(node.get(), target, {false, false, ids, false, false});
        });
        return told + std::to_string(target.geometry->getLengths()->getValue(0) / n);
    };
    const auto expectRows = [&](std::size_t element, std::size_t count, const corner& expected) {
        rows all = rowsOf(target.geometry.get(), n * (element + count));
        for (std::size_t v = n * element; v < all.size(); ++v) {
            all[v].position = expected.position;
            EXPECT_TRUE(same(numbersOf(all[v]), numbersOf(expected))) << v;
        }
    };
    const ::osg::Vec3f up(0, 1, 0), made = n == 3 ? ::osg::Vec3f(0, 0, 1) : up;
    const ::osg::Color3f white(1, 1, 1), green(0, 1, 0), blue(0, 0, 1);
    const ::osg::Vec2f uv = n == 3 ? ::osg::Vec2f(0.5F, 0.25F) : ::osg::Vec2f();

    EXPECT_EQ(take(geometryOf(this->some(2)), nullptr, true),
              "Node has no name and will not get an IDmap.\n2");
    EXPECT_EQ(lengthOf(target.geometry->getTexCoords7()), -1);
    expectRows(0, 2, corner());
    mesh_data full = this->some(2);
    full.normals.assign(2 * n, {1, 0, 0});
    full.colors.assign(2 * n, green);
    full.secondary.assign(2 * n, blue);
    full.coordinates.assign(2 * n, {0.5F, 0.25F});
    full.ids.assign(2 * n, 7);
    target.vertex_capacity = 100000; // whoever said so: the fields are shorter
    EXPECT_EQ(take(geometryOf(full, first), "b", false), "4");
    expectRows(0, 2, {{}, up, white, white, {}, 0});
    expectRows(2, 2, {{}, {1, 0, 0}, green, blue, {uv}, 7});
    mesh_data later = this->some(3);
    if (n == 3) { // without area along a slope: the normal of the one before
        for (std::size_t k = 0; k < 3; ++k)
            later.positions[6 + k] = ::osg::Pnt3f(float(k), float(k), float(k));
    }
    const ::osg::GeometryPtr without_lengths = geometryOf(later, other);
    without_lengths->setLengths(::osg::NullFC);
    EXPECT_EQ(take(without_lengths, "c", false), "7");
    expectRows(0, 2, {{}, made, white, white, {}, 0});
    expectRows(4, 3, {{}, made, white, white, {}, 1});
    EXPECT_EQ(target.geometry->getMaterial(), first.get());
    // The first vertex says whether an element brings IDs.
    mesh_data indexed = this->some(2);
    indexed.ids = {5};
    indexed.mapping = {::osg::Geometry::MapPosition, ::osg::Geometry::MapTexCoords7};
    for (unsigned v = 0; v < 2 * n; ++v)
        indexed.indices.insert(indexed.indices.end(), {v, (v < n) == (v % n == 0) ? 0 : ~0U});
    EXPECT_EQ(take(geometryOf(indexed), "b", false), "9");
    const rows ids = rowsOf(target.geometry.get(), 9 * n);
    for (unsigned v = 0; v < 2 * n; ++v)
        EXPECT_EQ(ids[7 * n + v].id, v == 0 ? 5.0F : 0.0F) << v;
    this->handler.releaseHeldLock();
    EXPECT_EQ(this->handler.names, (std::vector<std::string>{"b", "c"}));
    mesh_data far = this->some(3, {0, 0, 9});
    far.positions.back()[0] = n == 3 ? -50.0F : nan_value; // triangles without a place are left out
    far.primitives.front().second += 300;                  // that nobody has
    EXPECT_EQ(take(geometryOf(far), "d", false), "12");
    target.setup();
    EXPECT_EQ(target.bbox.max[2], 9.0F);
    EXPECT_EQ(target.bbox.max[0], n == 1 ? 2.0F : 3.0F);
}

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
