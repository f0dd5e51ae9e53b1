#include "flat_scenes.h"

#include <gtest/gtest.h>

#include <cmath>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGLineIterator.h>
#include <OpenSG/OSGMaterialGroup.h>
#include <OpenSG/OSGSimpleMaterial.h>
#include <OpenSG/OSGTransform.h>

#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::osg::extract;
using morva::osg::osg_line_geoset;

/// All carried values of one vertex, in printable numbers.
using vertex = std::vector<float>;

void append(vertex& v, const ::osg::Pnt3f& p) { v.insert(v.end(), {p[0], p[1], p[2]}); }
void append(vertex& v, const ::osg::Vec3f& n) { v.insert(v.end(), {n[0], n[1], n[2]}); }
void append(vertex& v, const ::osg::Color3f& c) { v.insert(v.end(), {c[0], c[1], c[2]}); }

/// What the platform's own line iterator sees, with the defaults for what the source lacks.
std::vector<vertex> linesByIterator(const ::osg::GeometryPtr& geometry) {
    std::vector<vertex> result;
    for (::osg::LineIterator it = geometry->beginLines(); it != geometry->endLines(); ++it) {
        for (int k = 0; k < 2; ++k) {
            vertex v;
            append(v, it.getPosition(k));
            if (geometry->getNormals() != ::osg::NullFC)
                append(v, it.getNormal(k));
            if (geometry->getColors() != ::osg::NullFC)
                append(v, it.getColor(k));
            if (geometry->getSecondaryColors() != ::osg::NullFC) {
                append(v, it.getSecondaryColor(k));
            }
            result.push_back(v);
        }
    }
    return result;
}

/// The first `count` rows of a geoset's fields, from row `first` on.
template <typename Geoset>
std::vector<vertex> rowsOf(const Geoset& geoset, std::size_t first, std::size_t count) {
    std::vector<vertex> result;
    const ::osg::GeometryPtr core = geoset.geometry.get();
    for (auto row = static_cast<::osg::UInt32>(first); row < first + count; ++row) {
        vertex v;
        append(v, core->getPositions()->getValue(row));
        if (core->getNormals() != ::osg::NullFC)
            append(v, core->getNormals()->getValue(row));
        if (core->getColors() != ::osg::NullFC)
            append(v, core->getColors()->getValue(row));
        if (core->getSecondaryColors() != ::osg::NullFC) {
            append(v, core->getSecondaryColors()->getValue(row));
        }
        result.push_back(v);
    }
    return result;
}

TEST(LineExtract, GivesTheLinesOfTheIteratorInEveryLayout) {
    std::mt19937 rng(20301);
    for (int round = 0; round < 300; ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const auto form = static_cast<flat::layout>(round % 3);
        const ::osg::NodeRefPtr node(flat::nodeOf(flat::randomLines(rng, form)));
        const ::osg::GeometryPtr source = ::osg::GeometryPtr::dcast(node->getCore());
        osg_line_geoset lines;
        extract(node.get(), lines, round % 2 == 0, false, false, false);
        const std::vector<vertex> expected = linesByIterator(source);
        ASSERT_EQ(lines.vertex_count, expected.size());
        if (round % 2 == 1) {
            EXPECT_EQ(rowsOf(lines, 0, lines.vertex_count), expected);
        }
        EXPECT_EQ(lines.geometry->getTypes()->getValue(0), 1);
        EXPECT_EQ(lines.geometry->getLengths()->getValue(0), expected.size());
        EXPECT_TRUE(lines.geometry->getTexCoords7() == ::osg::NullFC);
    }
}

struct exit_case {
    const char* name;
    ::osg::NodePtr (*make)();
    const char* message;
};

::osg::NodePtr groupNode() {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(::osg::Group::create());
    return node;
}

class LineExtractExit : public testing::TestWithParam<exit_case> {};

TEST_P(LineExtractExit, SaysWhyAndLeavesTheGeosetAlone) {
    const ::osg::NodeRefPtr node(GetParam().make());
    osg_line_geoset lines;
    testing::internal::CaptureStdout();
    EXPECT_EQ(extract(node.get(), lines, true, true, true, true), 0U);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), GetParam().message);
    EXPECT_EQ(lines.vertex_count, 0U);
    EXPECT_TRUE(lines.geometry->getPositions() == ::osg::NullFC);
}

INSTANTIATE_TEST_SUITE_P(
    , LineExtractExit,
    testing::Values(
        exit_case{"no_node", [] { return ::osg::NodePtr(); },
                  "Morva_osg_line_geoset_tools::Extract: No Node\n"},
        exit_case{"no_core", [] { return ::osg::Node::create(); },
                  "Morva_osg_line_geoset_tools::Extract: No Core\n"},
        exit_case{"a_group", groupNode, "Morva_osg_line_geoset_tools::Extract: No GeometryCore\n"},
        exit_case{"no_properties", [] { return flat::nodeOf(::osg::Geometry::create()); }, ""},
        exit_case{
            "triangles_only",
            [] {
                return flat::nodeOf(flat::geometryOf({{4, 3}}, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}));
            },
            ""}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(LineExtract, WorldCoordinatesTurnNormalsWithoutScalingThem) {
    const ::osg::GeometryPtr source = flat::geometryOf({{1, 2}}, {{1, 0, 0}, {1, 2, 3}});
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    normals->editField().push_back(::osg::Vec3f(1, 0, 0));
    normals->editField().push_back(::osg::Vec3f(0, 0, 0)); // nothing to bring to length 1
    source->setNormals(normals);
    const ::osg::NodeRefPtr root(::osg::Node::create());
    const ::osg::TransformPtr place = ::osg::Transform::create();
    ::osg::Matrix matrix;
    // x to y, y to -x, everything doubled, then moved.
    matrix.setValue(0, -2, 0, 10, 2, 0, 0, 20, 0, 0, 2, 30, 0, 0, 0, 1);
    place->setMatrix(matrix);
    root->setCore(place);
    const ::osg::NodePtr node = flat::nodeOf(source);
    root->addChild(node);

    osg_line_geoset lines;
    extract(node, lines, true, false, false, true);
    EXPECT_EQ(lines.geometry->getPositions()->getValue(0), ::osg::Pnt3f(10, 22, 30));
    EXPECT_EQ(lines.geometry->getPositions()->getValue(1), ::osg::Pnt3f(6, 22, 36));
    EXPECT_EQ(lines.geometry->getNormals()->getValue(0), ::osg::Vec3f(0, 1, 0));
    EXPECT_EQ(lines.geometry->getNormals()->getValue(1), ::osg::Vec3f(0, 0, 0));
    EXPECT_FLOAT_EQ(lines.axis_min[0][0], 6.0F);
    EXPECT_FLOAT_EQ(lines.axis_max[2][0], 36.0F);
    EXPECT_FLOAT_EQ(lines.bbox.extent[0], 4.0F);
}

TEST(LineExtract, WhatANodeLacksReadsTheDefault) {
    std::mt19937 rng(7);
    const ::osg::NodeRefPtr bare(flat::nodeOf(flat::geometryOf({{1, 2}}, {{0, 0, 0}, {1, 1, 1}})));
    const ::osg::GeometryPtr dressed = flat::geometryOf({{1, 2}}, {{2, 0, 0}, {3, 1, 1}});
    dressed->setColors(flat::someColors(rng, 2));
    flat::addNormals(dressed, rng, 2);
    const ::osg::NodeRefPtr coloured(flat::nodeOf(dressed));
    osg_line_geoset lines;
    extract(bare.get(), lines, false, false, false, false);
    extract(coloured.get(), lines, false, false, false, false);
    extract(bare.get(), lines, false, false, false, false);
    ASSERT_EQ(lines.vertex_count, 6U);
    EXPECT_EQ(rowsOf(lines, 1, 1)[0], (vertex{1, 1, 1, 0, 1, 0, 1, 1, 1}));
    EXPECT_EQ(rowsOf(lines, 2, 2), linesByIterator(dressed));
    EXPECT_EQ(rowsOf(lines, 4, 1)[0], (vertex{0, 0, 0, 0, 1, 0, 1, 1, 1}));
    EXPECT_EQ(lines.geometry->getLengths()->getValue(0), 6U);
}

TEST(LineExtract, MaterialIsTheSourcesOwnOrThatOfTheOutermostGroup) {
    const ::osg::SimpleMaterialRefPtr own(::osg::SimpleMaterial::create());
    const ::osg::SimpleMaterialRefPtr outer(::osg::SimpleMaterial::create());
    const ::osg::NodeRefPtr root(::osg::Node::create());
    const ::osg::MaterialGroupPtr group = ::osg::MaterialGroup::create();
    group->setMaterial(outer.get());
    root->setCore(group);
    const ::osg::GeometryPtr with = flat::geometryOf({{1, 2}}, {{0, 0, 0}, {1, 1, 1}});
    with->setMaterial(own.get());
    root->addChild(flat::nodeOf(with));
    root->addChild(flat::nodeOf(flat::geometryOf({{1, 2}}, {{0, 0, 0}, {1, 1, 1}})));

    osg_line_geoset lines;
    extract(root->getChild(1), lines, false, false, false, false);
    EXPECT_TRUE(lines.geometry->getMaterial() == ::osg::NullFC);
    extract(root->getChild(1), lines, false, true, false, false);
    EXPECT_EQ(lines.geometry->getMaterial(), outer.get());
    lines.clear();
    extract(root->getChild(0), lines, false, true, false, false);
    EXPECT_EQ(lines.geometry->getMaterial(), own.get());
}

class LineExtractIds : public testing::Test {
  protected:
    LineExtractIds() { morva::osg::getIDmapHandler().reset(); }
    ~LineExtractIds() override { morva::osg::getIDmapHandler().reset(); }

    static ::osg::NodePtr line(const char* name) {
        return flat::nodeOf(flat::geometryOf({{1, 2}}, {{0, 0, 0}, {1, 2, 3}}), name);
    }
    std::vector<float> ids() const {
        std::vector<float> result;
        const ::osg::GeoTexCoordsPtr field = lines.geometry->getTexCoords7();
        if (field == ::osg::NullFC)
            return result;
        for (::osg::UInt32 i = 0; i < lines.vertex_count; ++i) {
            result.push_back(field->getValue(i)[0]);
        }
        return result;
    }
    osg_line_geoset lines;
};

TEST_F(LineExtractIds, EveryNameHasItsId) {
    const ::osg::NodeRefPtr nodes[] = {::osg::NodeRefPtr(line("a")), ::osg::NodeRefPtr(line("b")),
                                       ::osg::NodeRefPtr(line("a"))};
    for (const ::osg::NodeRefPtr& node : nodes) {
        extract(node.get(), lines, false, false, true, false);
    }
    EXPECT_EQ(ids(), (std::vector<float>{0, 0, 1, 1, 0, 0}));
    EXPECT_EQ(morva::osg::getIDmapHandler().maxs[0], ::osg::Pnt3f(1, 2, 3));
}

TEST_F(LineExtractIds, ANamelessNodeGetsNoneAndSaysSo) {
    const ::osg::NodeRefPtr nameless(line(nullptr));
    testing::internal::CaptureStdout();
    extract(nameless.get(), lines, false, false, true, false);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Node has no name and will not get an IDmap.\n");
    EXPECT_TRUE(lines.geometry->getTexCoords7() == ::osg::NullFC);

    // The name of the core will do.
    ::osg::setName(nameless->getCore(), "core");
    extract(nameless.get(), lines, false, false, true, false);
    EXPECT_EQ(ids(), (std::vector<float>{0, 0, 0, 0}));
    EXPECT_EQ(morva::osg::getIDmapHandler().names, std::vector<std::string>{"core"});
}

TEST_F(LineExtractIds, IdsOfTheSourceAreKept) {
    const ::osg::NodeRefPtr node(line("a"));
    const ::osg::GeoTexCoords2fPtr own = ::osg::GeoTexCoords2f::create();
    own->editField().push_back(::osg::Vec2f(7, 1));
    own->editField().push_back(::osg::Vec2f(8, 1));
    ::osg::GeometryPtr::dcast(node->getCore())->setTexCoords7(own);
    morva::osg::getIDmapHandler().merged = true;
    extract(node.get(), lines, false, false, false, false);
    const ::osg::NodeRefPtr other(line("b"));
    extract(other.get(), lines, false, false, false, false); // switched on by what is there
    EXPECT_EQ(ids(), (std::vector<float>{7, 8, 0, 0}));
    EXPECT_TRUE(morva::osg::getIDmapHandler().names.empty());
}

TEST(LineExtract, LengthsThatPromiseTooMuchReadNothingPastTheEnd) {
    std::mt19937 rng(3);
    const ::osg::GeometryPtr broken =
        flat::geometryOf({{1, 2}, {3, 900}, {1, 2}}, flat::gridPoints(rng, 6));
    const ::osg::NodeRefPtr node(flat::nodeOf(broken));
    osg_line_geoset lines;
    extract(node.get(), lines, false, false, false, true);
    EXPECT_EQ(lines.size, 4U); // one, and three of the four vertices that are left

    flat::addIndex(broken, rng, flat::layout::one_index, 904, 40); // most lead past the positions
    osg_line_geoset wild;
    extract(node.get(), wild, false, false, false, true);
    EXPECT_EQ(wild.size, 901U);
    EXPECT_LE(wild.bbox.max[0], 1.0F);
    EXPECT_GE(wild.bbox.min[0], -1.0F);
}

TEST(LineExtract, AStripOfNoneAsksForMoreThanThereIsAndOnlyThatNodeIsLost) {
    const ::osg::NodeRefPtr node(
        flat::nodeOf(flat::geometryOf({{3, 0}, {1, 2}}, {{0, 0, 0}, {1, 2, 3}})));
    osg_line_geoset lines;
    testing::internal::CaptureStderr();
    // One below none, and one line: the count wraps to 0, and nothing is extracted.
    extract(node.get(), lines, false, false, false, true);
    EXPECT_EQ(lines.vertex_count, 0U);
    const ::osg::NodeRefPtr worse(flat::nodeOf(flat::geometryOf({{3, 0}}, {{0, 0, 0}, {1, 2, 3}})));
    extract(worse.get(), lines, false, false, false, true);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "bad_alloc caught in Extract geometry in morva::osg_line_geoset: std::bad_alloc\n");
    EXPECT_EQ(lines.size, 0U);
}

} // namespace
