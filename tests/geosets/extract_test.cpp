// Extraction of triangles: against the naive way, and the rules that no oracle shows.

#include "naive_extract.h"

namespace {

using namespace tri;

mesh_data withNormals(mesh_data mesh) {
    mesh.normals.assign(mesh.positions.size(), {1, 0, 0});
    return mesh;
}

::osg::Vec3f normalAt(const osg_geoset& geoset, ::osg::UInt32 row) {
    return geoset.geometry->getNormals()->getValue(row);
}

const ::osg::Vec3f along_x(1, 0, 0), along_y(0, 1, 0), along_z(0, 0, 1);

TEST(ExtractOracle, AgreesWithTheIteratorOverManyNodes) {
    std::mt19937 rng(4711);
    const registration_off ids_are_kept;
    const unsigned int live = liveContainers();
    for (int round = 0; round < 900; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const random_form form{static_cast<layout>(round % 3), round % 2 == 0};
        osg_geoset geoset;
        if (round % 5 == 0)
            geoset.vertex_capacity = rng() % 200; // a budget that may or may not do
        naive_soup expected;
        for (int i = 0; i < 4; ++i) {
            const ::osg::GeometryPtr geometry = randomGeometry(rng, form);
            const placement place{rng() % 2 == 0};
            const node_ref root(transformed(place.matrix(), {nodeOf(geometry)}));
            const wishes w{place.placed, false, false, rng() % 4 == 0, false};
            const unsigned int rogue = pour(root->getChild(0), geoset, w);
            EXPECT_EQ(rogue, naiveExtract(geometry, expected, place));
            if (w.setup && morva::osg::getNumberOfTriangles(geometry) > 0)
                naiveSetup(expected);
            ASSERT_EQ(geoset.vertex_count, expected.vertices.size());
            ASSERT_EQ(numbersOf(rowsOf(geoset.geometry.get(), geoset.vertex_count)),
                      numbersOf(expected.vertices));
        }
        const ::osg::GeometryPtr core = geoset.geometry.get();
        EXPECT_EQ(core->getNormals() != ::osg::NullFC, expected.normals);
        EXPECT_EQ(core->getColors() != ::osg::NullFC, expected.colors);
        EXPECT_EQ(core->getTexCoords7() != ::osg::NullFC, expected.ids);
        if (expected.offered > 0) {
            EXPECT_EQ(core->getLengths()->getValue(0), expected.offered);
        }
        geoset.setup();
        EXPECT_EQ(geoset.size, expected.vertices.size() / 3);
        EXPECT_EQ(broken_rule_of(geoset), "");
    }
    EXPECT_EQ(liveContainers(), live);
}

TEST(Extract, FieldsGrowByThreeTimesTheBudgetAndNewOnesByTheBudget) {
    osg_geoset geoset;
    const ::osg::GeometryPtr core = geoset.geometry.get();
    pour(elements(3, 10), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 30U);
    EXPECT_EQ(lengthOf(core->getPositions()), 30);
    EXPECT_EQ(lengthOf(core->getNormals()), -1);

    pour(withNormals(elements(3, 10)), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 60U);
    EXPECT_EQ(lengthOf(core->getPositions()), 180);
    EXPECT_EQ(lengthOf(core->getNormals()), 60);
    EXPECT_EQ(normalAt(geoset, 0), along_y);

    geoset.setup();
    EXPECT_EQ(lengthOf(core->getPositions()), 180);
    EXPECT_EQ(lengthOf(core->getNormals()), 180);
    EXPECT_EQ(lengthOf(core->getTypes()), 1);
    EXPECT_EQ(core->getTypes()->getValue(0), 4U);

    osg_geoset with_budget;
    with_budget.vertex_capacity = 1000;
    pour(elements(3, 10), with_budget);
    pour(elements(3, 10), with_budget);
    EXPECT_EQ(lengthOf(with_budget.geometry->getPositions()), 1000);
}

TEST(Extract, CountsOfPrimitivesThatDoNotAddUpAreSafe) {
    const struct {
        const char* name;
        std::vector<std::pair<unsigned, unsigned>> primitives;
        unsigned int points;  ///< positions that there are
        std::uint64_t kept;   ///< vertices that come out
        unsigned int offered; ///< vertices that are counted
    } cases[] = {
        {"a quad strip alone counts for nothing", {{8, 4}}, 4, 0, 0},
        {"a quad strip beside triangles comes along uncounted", {{4, 3}, {8, 5}}, 8, 12, 3},
        {"a quad counts as two, a rest as half of one", {{7, 6}}, 6, 6, 9},
        {"a strip of one wraps the count", {{5, 1}, {4, 6}}, 7, 6, 3},
        {"a fan of none wraps it by two", {{6, 0}, {4, 3}, {4, 3}, {4, 3}}, 9, 9, 3},
        {"lengths beyond the data end with it", {{4, 3000000000U}}, 7, 6, 6},
        {"a fan beyond the data ends with it", {{6, 4000000000U}}, 5, 9, 9},
        {"leftovers of triangles and quads are dropped", {{4, 5}, {7, 7}}, 12, 9, 12},
        {"points and lines give nothing", {{0, 3}, {1, 4}, {4, 3}}, 10, 3, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        piece positions;
        for (unsigned int i = 0; i < c.points; ++i) {
            const auto x = static_cast<float>(i);
            positions.push_back(::osg::Pnt3f(x, x * x, x * x * x));
        }
        osg_geoset geoset;
        EXPECT_EQ(pour(meshOf(c.primitives, positions), geoset, set_up), 0U);
        EXPECT_EQ(geoset.vertex_count, c.kept);
        EXPECT_EQ(broken_rule_of(geoset), "");
        if (c.offered == 0)
            continue;
        EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), c.offered);
        for (::osg::UInt32 row = 0; row < c.kept; ++row)
            EXPECT_NEAR(normalAt(geoset, row).length(), 1.0F, 1e-5F);
    }
}

TEST(Extract, RogueTrianglesAreLeftOutAndStillCounted) {
    const ::osg::Pnt3f p(1, 2, 3);
    piece positions(300, p); // normals are calculated over a length beyond the fields
    for (const float x : {9e11F, 2e12F, nan_value, std::numeric_limits<float>::infinity()})
        positions.insert(positions.end(), {{x, 0, 0}, {0, 1, 0}, {0, 0, 1}});
    osg_geoset geoset;
    EXPECT_EQ(pour(meshOf({{4, 312}}, positions), geoset, set_up), 103U);
    EXPECT_EQ(geoset.size, 1U);
    EXPECT_EQ(geoset.bbox.max[0], 9e11F);
    EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), 312U);
    EXPECT_NEAR(normalAt(geoset, 2).length(), 1.0F, 1e-5F);

    osg_geoset none;
    EXPECT_EQ(pour(meshOf({{4, 6}}, piece(6, p)), none, set_up), 2U);
    EXPECT_EQ(none.size + none.vertex_count, 0U);
    EXPECT_EQ(none.geometry->getLengths()->getValue(0), 6U);

    // So are corners outside the source; attributes may lead nowhere and read zero.
    mesh_data wild = withNormals(elements(3, 2));
    wild.primitives = {{4, 9}};
    wild.indices = {0, 1, 2, 0, 1, 77, 3, 4, 4294967295U};
    wild.normals.resize(1);
    osg_geoset inside;
    EXPECT_EQ(pour(wild, inside), 2U);
    EXPECT_EQ(inside.vertex_count, 3U);
    EXPECT_EQ(normalAt(inside, 0), along_x);
    EXPECT_EQ(normalAt(inside, 1), ::osg::Vec3f(0, 0, 0));
}

TEST(Extract, ASourceThatSharesPropertiesWithTheGeosetIsSafe) {
    osg_geoset geoset;
    pour(elements(3, 40), geoset, set_up);
    const node_ref own(nodeOf(geoset.geometry.get()));
    EXPECT_EQ(pour(own.get(), geoset, {true, false, false, true, false}), 0U);
    EXPECT_GE(geoset.size, 80U);
    EXPECT_EQ(cornersOf(geoset, 40), cornersOf(geoset, 0));
    EXPECT_EQ(cornersOf(geoset, 79), cornersOf(geoset, 39));
    EXPECT_EQ(broken_rule_of(geoset), "");
}

TEST(ExtractWithoutNormals, MakesAllNormalsAnewEachTimeAndSeesWhatChanged) {
    osg_geoset geoset;
    pour(withNormals(elements(3, 2)), geoset);
    EXPECT_EQ(normalAt(geoset, 0), along_x);
    pour(elements(3, 1), geoset);
    for (::osg::UInt32 i = 0; i < 9; ++i)
        EXPECT_EQ(normalAt(geoset, i), along_z);
    pour(withNormals(elements(3, 1)), geoset);
    EXPECT_EQ(normalAt(geoset, 9), along_x);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normalAt(geoset, 9), along_z);

    geoset.ModifyObject(::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(0, 1, 0), ::osg::Pnt3f(0, 0, 1), 1);
    EXPECT_EQ(normalAt(geoset, 3), along_z);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normalAt(geoset, 3), along_x);

    // Another property in the place of the normals starts from nothing known.
    const ::osg::GeoNormals3fPtr other = ::osg::GeoNormals3f::create();
    other->editField().resize(geoset.geometry->getPositions()->size());
    geoset.geometry->setNormals(other);
    pour(elements(3, 1), geoset, set_up);
    EXPECT_EQ(normalAt(geoset, 0), along_z);
}

TEST(ExtractIds, WithoutAnIndexFallBackToTheNodesOwn) {
    morva::osg::idmapHandler& handler = morva::osg::getIDmapHandler();
    handler.reset();
    std::string taken = "taken";
    ::osg::Pnt3f zero;
    handler.insertNodeName(taken, zero, zero, ::osg::NullFC, "");
    mesh_data mesh = elements(3, 1);
    mesh.indices = {0, 1, 2};
    mesh.mapping = {::osg::Geometry::MapPosition};
    mesh.ids.assign(3, 9.0F);
    const node_ref node(named("node", meshNode(mesh)));
    osg_geoset geoset;
    pour(node.get(), geoset, {false, false, true, false, false});
    for (const corner& c : rowsOf(geoset.geometry.get(), 3))
        EXPECT_EQ(c.id, 1.0F);
    handler.reset();
}

TEST(ExtractTexture, CoordinatesOfAnUntexturedNodeGoWhenAskedTo) {
    mesh_data mesh = elements(3, 1);
    mesh.coordinates.assign(3, ::osg::Vec2f(0.5F, 0.5F));
    const node_ref node(meshNode(mesh));
    const ::osg::GeometryPtr geometry = coreOf(node);
    geometry->setTexCoords3(geometry->getTexCoords());
    osg_geoset kept, cleaned;
    pour(node.get(), kept);
    EXPECT_EQ(lengthOf(kept.geometry->getTexCoords3()), 3);
    pour(node.get(), cleaned, {false, false, false, false, true});
    EXPECT_EQ(lengthOf(cleaned.geometry->getTexCoords()), -1);
    EXPECT_EQ(lengthOf(geometry->getTexCoords()) + lengthOf(geometry->getTexCoords3()), -2);
}

// A host fills what it has just made: nobody else holds it yet.
TEST(FillFCwithValue, WritesEveryRowOfWhatNobodyHoldsAndAcceptsNull) {
    const ::osg::GeoColors4fPtr colors = ::osg::GeoColors4f::create();
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    colors->resize(3);
    normals->resize(2);
    morva::osg::fillFCwithValue(colors, ::osg::Color3f(0.25F, 0.5F, 1.0F));
    morva::osg::fillFCwithValue(normals, ::osg::Vec3f(1.0F, 2.0F, 3.0F));
    morva::osg::fillFCwithValue(::osg::GeoTexCoordsPtr(), ::osg::Vec2f(1.0F, 2.0F));
    const ::osg::GeoColorsRefPtr held_colors(colors);
    const ::osg::GeoNormalsRefPtr held_normals(normals);
    EXPECT_EQ(colors->getValue(2), ::osg::Color3f(0.25F, 0.5F, 1.0F));
    EXPECT_EQ(normals->getValue(1), ::osg::Vec3f(1.0F, 2.0F, 3.0F));
}

} // namespace
