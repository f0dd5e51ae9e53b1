// Extraction of triangles: against the naive way, and the rules that no oracle shows.

#include "naive_extract.h"
#include "split_scenes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include <OpenSG/OSGChunkMaterial.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGTransform.h>

#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::extract;
using tri::osg_geoset;

/// Compares all rows, to the last bit.
void expectRows(const tri::rows& expected, const osg_geoset& geoset) {
    ASSERT_EQ(geoset.vertex_count, expected.size());
    const tri::rows found = tri::rowsOf(geoset.geometry.get(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_EQ(tri::numbersOf(found[i]), tri::numbersOf(expected[i])) << "row " << i;
}

/// A scene of one geometry below a transform; the root holds it.
struct placed_scene {
    placed_scene(const ::osg::GeometryPtr& geometry, const ::osg::Matrix& matrix)
        : root(::osg::Node::create()) {
        const ::osg::TransformPtr transform = ::osg::Transform::create();
        transform->setMatrix(matrix);
        root->setCore(transform);
        node = tri::nodeOf(geometry, "part");
        root->addChild(node);
    }
    ::osg::NodeRefPtr root;
    ::osg::NodePtr node;
};

class ExtractOracle : public testing::TestWithParam<tri::random_form> {};

TEST_P(ExtractOracle, AgreesWithTheIteratorOverManyNodes) {
    std::mt19937 rng(4711);
    const tri::registration_off ids_are_kept;
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        osg_geoset geoset;
        if (round % 3 == 0)
            geoset.vertex_capacity = rng() % 200; // a budget that may or may not do
        tri::naive_soup expected;
        for (int i = 0; i < 4; ++i) {
            const ::osg::GeometryPtr geometry = tri::randomTriangles(rng, GetParam());
            const tri::placement place{rng() % 2 == 0};
            const placed_scene scene(geometry, place.matrix());
            const bool run_setup = rng() % 4 == 0;
            const unsigned int rogue =
                extract(scene.node, geoset, place.placed, false, false, run_setup, false);
            EXPECT_EQ(rogue, tri::naiveExtract(geometry, expected, place));
            if (run_setup && morva::osg::getNumberOfTriangles(geometry) > 0)
                tri::naiveSetup(expected);
            expectRows(expected.vertices, geoset);
        }
        const ::osg::GeometryPtr core = geoset.geometry.get();
        EXPECT_EQ(core->getNormals() != ::osg::NullFC, expected.normals);
        EXPECT_EQ(core->getColors() != ::osg::NullFC, expected.colors);
        EXPECT_EQ(core->getTexCoords7() != ::osg::NullFC, expected.ids);
        geoset.setup();
        EXPECT_EQ(geoset.size, expected.vertices.size() / 3);
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
    }
}

std::string formName(const testing::TestParamInfo<tri::random_form>& instance) {
    const char* const names[] = {"plain", "one_index", "index_per_property"};
    return std::string(names[static_cast<int>(instance.param.indices)]) +
           (instance.param.other_forms ? "_other_forms" : "_usual_forms");
}

INSTANTIATE_TEST_SUITE_P(, ExtractOracle,
                         testing::Values(tri::random_form{flat::layout::plain, false},
                                         tri::random_form{flat::layout::plain, true},
                                         tri::random_form{flat::layout::one_index, false},
                                         tri::random_form{flat::layout::one_index, true},
                                         tri::random_form{flat::layout::index_per_property, false},
                                         tri::random_form{flat::layout::index_per_property, true}),
                         formName);

/// A triangle with its right angle at `at`.
std::vector<::osg::Pnt3f> triangleAt(float x, float y = 0, float z = 0) {
    return {::osg::Pnt3f(x, y, z), ::osg::Pnt3f(x + 1, y, z), ::osg::Pnt3f(x, y + 1, z)};
}

std::vector<::osg::Pnt3f> manyTriangles(unsigned int count) {
    std::vector<::osg::Pnt3f> positions;
    for (unsigned int i = 0; i < count; ++i) {
        for (const ::osg::Pnt3f& p : triangleAt(static_cast<float>(2 * i)))
            positions.push_back(p);
    }
    return positions;
}

::osg::GeometryPtr withNormals(const ::osg::GeometryPtr& geometry) {
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    normals->editField().resize(geometry->getPositions()->size(), ::osg::Vec3f(1.0F, 0.0F, 0.0F));
    geometry->setNormals(normals);
    return geometry;
}

unsigned int pour(const ::osg::GeometryPtr& geometry, osg_geoset& geoset, bool run_setup = false) {
    const ::osg::NodeRefPtr node(tri::nodeOf(geometry));
    return extract(node.get(), geoset, false, false, false, run_setup, false);
}

TEST(Extract, FieldsGrowByThreeTimesTheBudgetAndNewOnesByTheBudget) {
    osg_geoset geoset;
    pour(tri::soup(manyTriangles(10)), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 30U);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()), 30);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getNormals()), -1);

    pour(withNormals(tri::soup(manyTriangles(10))), geoset);
    EXPECT_EQ(geoset.vertex_capacity, 60U);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()), 180);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getNormals()), 60);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(0), ::osg::Vec3f(0.0F, 1.0F, 0.0F));

    geoset.setup();
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()), 180);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getNormals()), 180);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getTypes()), 1);
    EXPECT_EQ(geoset.geometry->getTypes()->getValue(0), 4U);
    EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), 60U);

    osg_geoset with_budget;
    with_budget.vertex_capacity = 1000;
    pour(tri::soup(manyTriangles(10)), with_budget);
    pour(tri::soup(manyTriangles(10)), with_budget);
    EXPECT_EQ(tri::lengthOf(with_budget.geometry->getPositions()), 1000);
}

TEST(Extract, LengthsCountTrianglesOfferedNotKept) {
    osg_geoset geoset;
    const ::osg::Pnt3f p(1.0F, 2.0F, 3.0F);
    EXPECT_EQ(pour(tri::soup({p, p, p, p, p, p}), geoset), 2U);
    EXPECT_EQ(geoset.vertex_count, 0U);
    EXPECT_EQ(geoset.geometry->getLengths()->getValue(0), 6U);
    geoset.setup();
    EXPECT_EQ(geoset.size, 0U);

    // Many more offered than kept: normals are calculated over a length beyond the fields.
    osg_geoset mostly_rogue;
    std::vector<::osg::Pnt3f> positions(300, p);
    for (const ::osg::Pnt3f& corner : triangleAt(0))
        positions.push_back(corner);
    EXPECT_EQ(pour(tri::soup(positions), mostly_rogue, true), 100U);
    EXPECT_EQ(mostly_rogue.size, 1U);
    EXPECT_EQ(mostly_rogue.geometry->getLengths()->getValue(0), 303U);
    EXPECT_EQ(mostly_rogue.geometry->getNormals()->getValue(2), ::osg::Vec3f(0.0F, 0.0F, 1.0F));
}

TEST(Extract, CountsOfPrimitivesThatDoNotAddUpAreSafe) {
    struct odd_case {
        const char* name;
        std::vector<std::pair<int, unsigned>> primitives;
        unsigned int points; ///< positions that there are
        std::uint64_t kept;  ///< vertices that come out
    };
    const odd_case cases[] = {
        {"a quad strip alone counts for nothing", {{8, 4}}, 4, 0},
        {"a quad strip beside triangles comes along", {{4, 3}, {8, 5}}, 8, 12},
        {"a strip of one wraps the count", {{5, 1}, {4, 6}}, 7, 6},
        {"a fan of none wraps it by two", {{6, 0}, {4, 3}, {4, 3}, {4, 3}}, 9, 9},
        {"lengths beyond the data end with it", {{4, 3000000000U}}, 7, 6},
        {"a fan beyond the data ends with it", {{6, 4000000000U}}, 5, 9},
        {"leftovers of triangles and quads are dropped", {{4, 5}, {7, 7}}, 12, 9},
        {"points and lines give nothing", {{0, 3}, {1, 4}, {4, 3}}, 10, 3}};
    for (const odd_case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<::osg::Pnt3f> positions;
        for (unsigned int i = 0; i < c.points; ++i) {
            const auto x = static_cast<float>(i);
            positions.push_back(::osg::Pnt3f(x, x * x, x * x * x));
        }
        osg_geoset geoset;
        EXPECT_EQ(pour(flat::geometryOf(c.primitives, positions), geoset, true), 0U);
        EXPECT_EQ(geoset.vertex_count, c.kept);
        EXPECT_EQ(tri::broken_rule_of(geoset), "");
    }
}

TEST(Extract, CornersOutsideTheSourceMakeTheirTriangleRogue) {
    const ::osg::GeometryPtr geometry = withNormals(tri::soup(manyTriangles(2)));
    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    for (const ::osg::UInt32 index : {0U, 1U, 2U, 0U, 1U, 77U, 3U, 4U, 4294967295U})
        indices->addValue(index);
    geometry->setIndices(indices);
    geometry->getLengths()->setValue(9, 0);
    // Attributes may lead nowhere: they read zero.
    geometry->getNormals()->resize(1);
    osg_geoset geoset;
    EXPECT_EQ(pour(geometry, geoset), 2U);
    EXPECT_EQ(geoset.vertex_count, 3U);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(0), ::osg::Vec3f(1.0F, 0.0F, 0.0F));
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(1), ::osg::Vec3f(0.0F, 0.0F, 0.0F));
}

TEST(Extract, HugeAndUndefinedCornersAreLeftOut) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<::osg::Pnt3f> positions;
    for (const float x : {9e11F, 2e12F, nan, std::numeric_limits<float>::infinity()}) {
        positions.insert(positions.end(),
                         {::osg::Pnt3f(x, 0, 0), ::osg::Pnt3f(0, 1, 0), ::osg::Pnt3f(0, 0, 1)});
    }
    osg_geoset geoset;
    EXPECT_EQ(pour(tri::soup(positions), geoset, true), 3U);
    EXPECT_EQ(geoset.size, 1U);
    EXPECT_EQ(geoset.bbox.max[0], 9e11F);
}

TEST(Extract, RoomThatSetupTookBackComesAgain) {
    osg_geoset geoset;
    geoset.clear();
    pour(tri::soup(manyTriangles(2)), geoset, true);
    EXPECT_EQ(tri::lengthOf(geoset.geometry->getPositions()), 18);
    pour(tri::soup(manyTriangles(50)), geoset, true);
    EXPECT_EQ(geoset.size, 52U);
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
    EXPECT_EQ(tri::cornersOf(geoset, 51)[0], ::osg::Pnt3f(98.0F, 0.0F, 0.0F));
}

TEST(Extract, ASourceThatSharesPropertiesWithTheGeosetIsSafe) {
    osg_geoset geoset;
    pour(tri::soup(manyTriangles(40)), geoset, true);
    const ::osg::NodeRefPtr own(tri::nodeOf(geoset.geometry.get()));
    EXPECT_EQ(extract(own.get(), geoset, true, false, false, true, false), 0U);
    EXPECT_GE(geoset.size, 80U);
    EXPECT_EQ(tri::cornersOf(geoset, 40), tri::cornersOf(geoset, 0));
    EXPECT_EQ(tri::cornersOf(geoset, 79), tri::cornersOf(geoset, 39));
    EXPECT_EQ(tri::broken_rule_of(geoset), "");
}

// ---- world coordinates

TEST(ExtractToWorld, MovesPositionsAndTurnsNormalsWithoutScalingThem) {
    // Rows: x' = -2 y + 5, y' = 3 x, z' = 4 z - 1: a quarter turn, scaled.
    const ::osg::Matrix matrix(0, -2, 0, 5, 3, 0, 0, 0, 0, 0, 4, -1, 0, 0, 0, 1);
    const ::osg::GeometryPtr geometry = withNormals(tri::soup(triangleAt(1, 2, 3)));
    geometry->getNormals()->setValue(::osg::Vec3f(0.0F, 0.0F, 2.0F), 1);
    geometry->getNormals()->setValue(::osg::Vec3f(0.0F, 1e-7F, 0.0F), 2);
    const placed_scene scene(geometry, matrix);

    osg_geoset world, local;
    EXPECT_EQ(extract(scene.node, world, true, false, false, true, false), 0U);
    EXPECT_EQ(extract(scene.node, local, false, false, false, true, false), 0U);
    EXPECT_EQ(tri::cornersOf(local, 0), triangleAt(1, 2, 3));
    EXPECT_EQ(tri::cornersOf(world, 0),
              (std::vector<::osg::Pnt3f>{::osg::Pnt3f(1, 3, 11), ::osg::Pnt3f(1, 6, 11),
                                         ::osg::Pnt3f(-1, 3, 11)}));
    const ::osg::GeoNormalsPtr normals = world.geometry->getNormals();
    const ::osg::Vec3f expected[3] = {::osg::Vec3f(0, 1, 0), ::osg::Vec3f(0, 0, 1),
                                      ::osg::Vec3f(-1e-7F, 0, 0)};
    for (::osg::UInt32 k = 0; k < 3; ++k) {
        for (::osg::UInt32 i = 0; i < 3; ++i)
            EXPECT_NEAR(normals->getValue(k)[i], expected[k][i], 2e-6F) << k << " " << i;
    }
    EXPECT_LT(normals->getValue(2).length(), 2e-7F) << "a normal of no length is not blown up";
}

// ---- normals of nodes without any

TEST(ExtractWithoutNormals, MakesAllNormalsAnewEachTime) {
    osg_geoset geoset;
    pour(withNormals(tri::soup(manyTriangles(2))), geoset);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(0), ::osg::Vec3f(1.0F, 0.0F, 0.0F));
    pour(tri::soup(manyTriangles(1)), geoset);
    for (::osg::UInt32 i = 0; i < 9; ++i)
        EXPECT_EQ(geoset.geometry->getNormals()->getValue(i), ::osg::Vec3f(0.0F, 0.0F, 1.0F));
    pour(withNormals(tri::soup(manyTriangles(1))), geoset);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(9), ::osg::Vec3f(1.0F, 0.0F, 0.0F));
    pour(tri::soup(manyTriangles(1)), geoset);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(9), ::osg::Vec3f(0.0F, 0.0F, 1.0F));
}

TEST(ExtractWithoutNormals, SeesWhatChangedSinceTheLastTime) {
    osg_geoset geoset;
    pour(withNormals(tri::soup(manyTriangles(3))), geoset);
    pour(tri::soup(manyTriangles(1)), geoset, true);
    geoset.ModifyObject(::osg::Pnt3f(0, 0, 0), ::osg::Pnt3f(0, 1, 0), ::osg::Pnt3f(0, 0, 1), 1);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(3), ::osg::Vec3f(0.0F, 0.0F, 1.0F));
    pour(tri::soup(manyTriangles(1)), geoset, true);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(3), ::osg::Vec3f(1.0F, 0.0F, 0.0F));

    // Another property in the place of the normals starts from nothing known.
    const ::osg::GeoNormals3fPtr other = ::osg::GeoNormals3f::create();
    other->editField().resize(geoset.geometry->getPositions()->size());
    geoset.geometry->setNormals(other);
    pour(tri::soup(manyTriangles(1)), geoset, true);
    EXPECT_EQ(geoset.geometry->getNormals()->getValue(0), ::osg::Vec3f(0.0F, 0.0F, 1.0F));
}

// ---- IDs

/// The process-wide handler, as it is before a run.
morva::osg::idmapHandler& freshHandler() {
    morva::osg::getIDmapHandler().reset();
    return morva::osg::getIDmapHandler();
}

std::vector<float> idsOf(const osg_geoset& geoset) {
    std::vector<float> ids;
    const ::osg::GeoTexCoordsPtr property = geoset.geometry->getTexCoords7();
    for (::osg::UInt32 i = 0; property != ::osg::NullFC && i < geoset.vertex_count; ++i)
        ids.push_back(property->getValue(i)[0]);
    return ids;
}

TEST(ExtractIds, GivesEachNameItsNumberAndBox) {
    morva::osg::idmapHandler& handler = freshHandler();
    const ::osg::Matrix up(1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 10, 0, 0, 0, 1);
    const placed_scene scene(tri::soup(triangleAt(0)), up);
    const ::osg::NodeRefPtr second(tri::nodeOf(tri::soup(triangleAt(5)), "second"));
    const ::osg::GeometryPtr named_core = tri::soup(triangleAt(7));
    ::osg::setName(named_core, "core");
    const ::osg::NodeRefPtr third(tri::nodeOf(named_core));

    osg_geoset geoset;
    extract(scene.node, geoset, true, false, true, false, false);
    extract(second.get(), geoset, true, false, true, false, false);
    extract(third.get(), geoset, false, false, true, false, false);
    handler.releaseHeldLock();
    EXPECT_EQ(idsOf(geoset), (std::vector<float>{0, 0, 0, 1, 1, 1, 2, 2, 2}));
    EXPECT_EQ(handler.names, (std::vector<std::string>{"part", "second", "core"}));
    EXPECT_EQ(handler.mins[0], ::osg::Pnt3f(0.0F, 0.0F, 10.0F));
    EXPECT_EQ(handler.maxs[1], ::osg::Pnt3f(6.0F, 1.0F, 0.0F));
}

TEST(ExtractIds, NamelessNodesGetNoneAndSaySo) {
    freshHandler();
    osg_geoset geoset;
    const ::osg::NodeRefPtr node(tri::nodeOf(tri::soup(triangleAt(0))));
    testing::internal::CaptureStdout();
    extract(node.get(), geoset, false, false, true, false, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Node has no name and will not get an IDmap.\n");
    EXPECT_TRUE(geoset.geometry->getTexCoords7() == ::osg::NullFC);
}

TEST(ExtractIds, AreKeptAndNotGivenOnceTheMergeHasRun) {
    morva::osg::idmapHandler& handler = freshHandler();
    const auto with_ids = [](float id) {
        const ::osg::GeometryPtr geometry = tri::soup(triangleAt(0));
        const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
        ids->editField().resize(3, id);
        geometry->setTexCoords7(ids);
        return geometry;
    };
    const tri::registration_off after_the_merge;
    const ::osg::NodeRefPtr old(tri::nodeOf(with_ids(42.0F), "old"));
    const ::osg::NodeRefPtr other(tri::nodeOf(tri::soup(triangleAt(0)), "other"));
    osg_geoset geoset;
    // The core has IDs from the first node on, so the second writes some too: 0.
    extract(old.get(), geoset, false, false, false, false, false);
    extract(other.get(), geoset, false, false, false, false, false);
    EXPECT_EQ(idsOf(geoset), (std::vector<float>{42, 42, 42, 0, 0, 0}));
    EXPECT_TRUE(handler.names.empty());
    handler.reset();
}

TEST(ExtractIds, WithoutAnIndexFallBackToTheNodesOwn) {
    morva::osg::idmapHandler& handler = freshHandler();
    std::string taken = "taken";
    ::osg::Pnt3f zero;
    handler.insertNodeName(taken, zero, zero, ::osg::NullFC, "");
    const ::osg::GeometryPtr geometry = tri::soup(triangleAt(0));
    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    for (::osg::UInt32 i = 0; i < 3; ++i)
        indices->addValue(i);
    geometry->setIndices(indices);
    geometry->editMFIndexMapping()->push_back(::osg::UInt16(::osg::Geometry::MapPosition));
    const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
    ids->editField().resize(3, 9.0F);
    geometry->setTexCoords7(ids);
    const ::osg::NodeRefPtr node(tri::nodeOf(geometry, "node"));
    osg_geoset geoset;
    extract(node.get(), geoset, false, false, true, false, false);
    EXPECT_EQ(idsOf(geoset), (std::vector<float>{1, 1, 1}));
    handler.reset();
}

// ---- materials and textures

TEST(ExtractMaterial, IsTheFirstOfItsOwnThenOfAGroupIfAsked) {
    const ::osg::ChunkMaterialPtr of_group = ::osg::ChunkMaterial::create();
    const ::osg::MaterialGroupPtr group = ::osg::MaterialGroup::create();
    group->setMaterial(of_group);
    const ::osg::NodeRefPtr root(::osg::Node::create());
    root->setCore(group);
    const ::osg::NodePtr bare = tri::nodeOf(tri::soup(triangleAt(0)));
    const ::osg::NodePtr own = tri::nodeOf(tri::soup(triangleAt(0)));
    const ::osg::ChunkMaterialPtr of_core = ::osg::ChunkMaterial::create();
    ::osg::GeometryPtr::dcast(own->getCore())->setMaterial(of_core);
    root->addChild(bare);
    root->addChild(own);

    osg_geoset asked, not_asked;
    extract(bare, asked, false, true, false, false, false);
    EXPECT_TRUE(asked.geometry->getMaterial() == of_group);
    extract(bare, not_asked, false, false, false, false, false);
    EXPECT_TRUE(not_asked.geometry->getMaterial() == ::osg::NullFC);
    extract(own, not_asked, false, true, false, false, false);
    EXPECT_TRUE(not_asked.geometry->getMaterial() == of_core);
    extract(own, asked, false, true, false, false, false);
    EXPECT_TRUE(asked.geometry->getMaterial() == of_group) << "the first one stays";
}

TEST(ExtractTexture, CoordinatesOfAnUntexturedNodeGoWhenAskedTo) {
    const ::osg::GeometryPtr geometry = tri::soup(triangleAt(0));
    const ::osg::GeoTexCoords2fPtr uv = ::osg::GeoTexCoords2f::create();
    uv->editField().resize(3, ::osg::Vec2f(0.5F, 0.5F));
    geometry->setTexCoords(uv);
    geometry->setTexCoords3(uv);
    const ::osg::NodeRefPtr node(tri::nodeOf(geometry));
    osg_geoset kept, cleaned;
    extract(node.get(), kept, false, false, false, false, false);
    EXPECT_EQ(tri::lengthOf(kept.geometry->getTexCoords3()), 3);
    extract(node.get(), cleaned, false, false, false, false, true);
    EXPECT_EQ(tri::lengthOf(cleaned.geometry->getTexCoords()), -1);
    EXPECT_TRUE(geometry->getTexCoords() == ::osg::NullFC);
    EXPECT_TRUE(geometry->getTexCoords3() == ::osg::NullFC);
}

// ---- what cannot be extracted

TEST(Extract, RefusesWithOneLineAndNoChange) {
    const ::osg::NodeRefPtr coreless(::osg::Node::create());
    const ::osg::NodeRefPtr grouped(::osg::Node::create());
    grouped->setCore(::osg::Group::create());
    const ::osg::NodeRefPtr empty(tri::nodeOf(::osg::Geometry::create()));
    const ::osg::NodeRefPtr lines(tri::nodeOf(flat::geometryOf({{1, 3}}, triangleAt(0))));
    const ::osg::NodeRefPtr sound(tri::nodeOf(tri::soup(triangleAt(0))));
    osg_geoset geoset, without_core;
    without_core.geometry = ::osg::NullFC;
    struct refusal {
        const char* name;
        ::osg::NodePtr node;
        osg_geoset& into;
        const char* line;
    };
    const refusal cases[] = {
        {"null", ::osg::NullFC, geoset, "Morva_osg_geoset_tools::Extract: No Node\n"},
        {"no_core", coreless.get(), geoset, "Morva_osg_geoset_tools::Extract: No Core\n"},
        {"group", grouped.get(), geoset, "Morva_osg_geoset_tools::Extract: No GeometryCore\n"},
        {"nothing_to_draw", empty.get(), geoset, ""},
        {"no_triangles", lines.get(), geoset, ""},
        {"no_target", sound.get(), without_core,
         "Morva_osg_geoset_tools::Extract: No Geometry in geoset!\n"}};
    for (const refusal& c : cases) {
        SCOPED_TRACE(c.name);
        testing::internal::CaptureStdout();
        EXPECT_EQ(extract(c.node, c.into, true, true, true, true, true), 0U);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.line);
        EXPECT_EQ(c.into.vertex_count, 0U);
    }
}

TEST(Extract, LeavesNoContainerBehind) {
    std::mt19937 rng(11);
    const unsigned int live = split::liveContainers();
    for (int round = 0; round < 20; ++round) {
        const ::osg::NodeRefPtr node(
            tri::nodeOf(tri::randomTriangles(rng, {flat::layout::one_index, true})));
        osg_geoset geoset;
        extract(node.get(), geoset, true, true, false, true, round % 2 == 0);
        if (round % 3 == 0)
            geoset.clear();
    }
    EXPECT_EQ(split::liveContainers(), live);
}

TEST(FillFCwithValue, WritesEveryRowAndAcceptsNull) {
    const ::osg::GeoColors4fPtr colors = ::osg::GeoColors4f::create();
    const ::osg::GeoColorsRefPtr keep_colors(colors);
    colors->resize(3);
    morva::osg::fillFCwithValue(::osg::GeoColorsPtr(colors), ::osg::Color3f(0.25F, 0.5F, 1.0F));
    EXPECT_EQ(colors->getValue(2), ::osg::Color3f(0.25F, 0.5F, 1.0F));
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    const ::osg::GeoNormalsRefPtr keep_normals(normals);
    normals->resize(2);
    morva::osg::fillFCwithValue(::osg::GeoNormalsPtr(normals), ::osg::Vec3f(1.0F, 2.0F, 3.0F));
    EXPECT_EQ(normals->getValue(0), ::osg::Vec3f(1.0F, 2.0F, 3.0F));
    morva::osg::fillFCwithValue(::osg::GeoTexCoordsPtr(), ::osg::Vec2f(1.0F, 2.0F));
}

} // namespace
