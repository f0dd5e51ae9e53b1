#include "split_scenes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include <OpenSG/OSGLineIterator.h>
#include <OpenSG/OSGPrimitiveIterator.h>
#include <OpenSG/OSGSimpleMaterial.h>

#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using morva::kd_build_setup;
using morva::kd_tree;
using morva::osg::MakeGeoCore;
using morva::osg::osg_geoset;

/// A geoset over a geometry, and its tree of cells of at most `cell` triangles.
struct sorted_soup {
    sorted_soup(const ::osg::GeometryPtr& source, unsigned cell) {
        const ::osg::NodeRefPtr node(flat::nodeOf(source, "soup"));
        morva::osg::extract(node.get(), geoset, false, false, false, true, false);
        morva::compile(geoset, tree, kd_build_setup{cell, 40, 3, 1.0F, 2.0F, 0.95F, false},
                       morva::kd_strategy_ObjMedian());
    }
    osg_geoset geoset;
    kd_tree<float> tree;
};

::osg::GeometryPtr coreOf(const ::osg::NodeRefPtr& node) {
    return ::osg::GeometryPtr::dcast(node->getCore());
}

TEST(MakeGeoCore, EveryLevelKeepsTheTrianglesWithAllTheirValues) {
    std::mt19937 rng(4601);
    for (int round = 0; round < 60; ++round) {
        const ::osg::GeometryPtr source = split::randomSoup(rng, 1 + rng() % 60);
        const ::osg::RefPtr<::osg::GeometryPtr> held(source);
        const sorted_soup soup(source, 8);
        for (int opt = 0; opt <= 3; ++opt) {
            SCOPED_TRACE(testing::Message() << "round " << round << " opt " << opt);
            const auto count = static_cast<unsigned>(soup.geoset.size);
            const ::osg::NodeRefPtr node(MakeGeoCore(soup.tree, soup.geoset, 0, count, opt, false));
            EXPECT_EQ(split::trianglesOf(coreOf(node)), split::trianglesOf(source));
        }
    }
}

TEST(MakeGeoCore, LevelZeroIsTheRunInItsOrderWithoutIndex) {
    std::mt19937 rng(4602);
    const ::osg::RefPtr<::osg::GeometryPtr> source(split::randomSoup(rng, 50));
    const sorted_soup soup(source.get(), 5);
    const ::osg::NodeRefPtr node(MakeGeoCore(soup.tree, soup.geoset, 7, 20, 0, false));
    const ::osg::GeometryPtr core = coreOf(node);
    ASSERT_EQ(core->getPositions()->size(), 60U);
    EXPECT_TRUE(core->getIndices() == ::osg::NullFC);
    EXPECT_EQ(core->getTypes()->getValue(0), 4);
    EXPECT_EQ(core->getLengths()->getValue(0), 60U);
    EXPECT_TRUE(::osg::GeoTexCoords1fPtr::dcast(core->getTexCoords7()) != ::osg::NullFC);
    for (::osg::UInt32 v = 0; v < 60; ++v) {
        const auto row = static_cast<::osg::UInt32>(3 * soup.tree.indices[7 + v / 3] + v % 3);
        const ::osg::GeometryPtr from = soup.geoset.geometry.get();
        EXPECT_EQ(core->getPositions()->getValue(v), from->getPositions()->getValue(row));
        EXPECT_EQ(core->getTexCoords7()->getValue(v), from->getTexCoords7()->getValue(row));
    }
}

TEST(MakeGeoCore, NodeAndCoreGetOneNewNameAndTheGeosetsMaterial) {
    std::mt19937 rng(4603);
    const ::osg::RefPtr<::osg::GeometryPtr> source(split::randomSoup(rng, 3));
    source->setMaterial(::osg::SimpleMaterial::create());
    const sorted_soup soup(source.get(), 5);
    const unsigned int number = morva::osg::getIDmapHandler().mergedCount;
    const ::osg::NodeRefPtr first(MakeGeoCore(soup.tree, soup.geoset, 0, 3, 1, false));
    const ::osg::NodeRefPtr second(MakeGeoCore(soup.tree, soup.geoset, 0, 3, 1, false));
    EXPECT_EQ(::osg::getName(first.get()), "MG_" + std::to_string(number));
    EXPECT_EQ(::osg::getName(coreOf(first)), "MG_" + std::to_string(number));
    EXPECT_EQ(::osg::getName(second.get()), "MG_" + std::to_string(number + 1));
    EXPECT_EQ(coreOf(first)->getMaterial(), source->getMaterial());
}

TEST(MakeGeoCore, StoresIn16BitsUpTo65534Entries) {
    struct form_case {
        unsigned triangles;
        bool short_form;
    };
    for (const form_case& c : {form_case{21844, true}, form_case{21845, false}}) {
        std::mt19937 rng(4604);
        const ::osg::RefPtr<::osg::GeometryPtr> source(split::randomSoup(rng, c.triangles));
        const sorted_soup soup(source.get(), 100000);
        const ::osg::NodeRefPtr plain(
            MakeGeoCore(soup.tree, soup.geoset, 0, c.triangles, 0, false));
        const auto lengths = ::osg::GeoPLengthsUI16Ptr::dcast(coreOf(plain)->getLengths());
        EXPECT_EQ(lengths != ::osg::NullFC, c.short_form);
        const ::osg::NodeRefPtr indexed(
            MakeGeoCore(soup.tree, soup.geoset, 0, c.triangles, 1, false));
        const auto indices = ::osg::GeoIndicesUI16Ptr::dcast(coreOf(indexed)->getIndices());
        EXPECT_EQ(indices != ::osg::NullFC, c.short_form);
    }
}

TEST(MakeGeoCore, StripsOfManyVerticesKeepIndicesThatFit) {
    // A wide sheet: the strips need fewer than 65535 indices, the vertices are more than 65536.
    std::vector<::osg::Pnt3f> corners;
    for (int x = 0; x < 110; ++x) {
        for (int y = 0; y < 110; ++y) {
            const auto p = [&](int i, int j) {
                return ::osg::Pnt3f(static_cast<float>(x + i), static_cast<float>(y + j), 0.0F);
            };
            corners.insert(corners.end(), {p(0, 0), p(1, 0), p(0, 1), p(1, 0), p(1, 1), p(0, 1)});
        }
    }
    const ::osg::RefPtr<::osg::GeometryPtr> source(
        flat::geometryOf({{4, static_cast<unsigned>(corners.size())}}, corners));
    const sorted_soup soup(source.get(), 100000);
    const ::osg::NodeRefPtr node(
        MakeGeoCore(soup.tree, soup.geoset, 0, static_cast<unsigned>(soup.geoset.size), 3, false));
    EXPECT_EQ(split::trianglesOf(coreOf(node), false), split::trianglesOf(source.get(), false));
}

TEST(MakeGeoCore, AnUnknownLevelIsToldAndGivesLevelZero) {
    std::mt19937 rng(4605);
    const ::osg::RefPtr<::osg::GeometryPtr> source(split::randomSoup(rng, 4));
    const sorted_soup soup(source.get(), 9);
    for (const int opt : {4, -1}) {
        testing::internal::CaptureStdout();
        const ::osg::NodeRefPtr node(MakeGeoCore(soup.tree, soup.geoset, 0, 4, opt, false));
        EXPECT_EQ(testing::internal::GetCapturedStdout(),
                  "Splitmodel: OutputLevel " + std::to_string(opt) + " not supported\n");
        EXPECT_TRUE(coreOf(node)->getIndices() == ::osg::NullFC);
        EXPECT_EQ(coreOf(node)->getPositions()->size(), 12U);
    }
}

TEST(MakeGeoCore, BadObjectNumbersArePassedOver) {
    std::mt19937 rng(4606);
    const ::osg::RefPtr<::osg::GeometryPtr> source(split::randomSoup(rng, 4));
    sorted_soup soup(source.get(), 9);
    soup.tree.indices[2] = 77;
    testing::internal::CaptureStdout();
    const ::osg::NodeRefPtr node(MakeGeoCore(soup.tree, soup.geoset, 1, 900, 1, false));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Index out of bounce.( Splitmodel )\nI: 2 index: 77 num_objects: 4\n");
    EXPECT_EQ(split::trianglesOf(coreOf(node)).size(), 2U);
    EXPECT_EQ(coreOf(node)->getLengths()->getValue(0), 6U);
}

TEST(MakeGeoCore, AnEmptyRunGivesAnEmptyGeometry) {
    osg_geoset geoset;
    kd_tree<float> tree;
    morva::createEmptyTree(geoset, tree);
    for (int opt = 0; opt <= 3; ++opt) {
        const ::osg::NodeRefPtr node(MakeGeoCore(tree, geoset, 0, 0, opt, opt == 2));
        ASSERT_TRUE(coreOf(node) != ::osg::NullFC);
        EXPECT_EQ(coreOf(node)->getPositions()->size(), 0U);
    }
}

TEST(MakeGeoCore, CalculatedNormalsAreSmoothOnlyAcrossGentleEdges) {
    // Two floor triangles and a wall along their outer edge; the given normals are nonsense.
    const std::vector<::osg::Pnt3f> corners = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0},
                                               {1, 0, 0}, {1, 1, 0}, {0, 1, 0},
                                               {0, 0, 0}, {0, 0, 1}, {1, 0, 0}};
    const ::osg::RefPtr<::osg::GeometryPtr> source(flat::geometryOf({{4, 9}}, corners));
    std::mt19937 rng(1);
    flat::addNormals(source.get(), rng, 9);
    const sorted_soup soup(source.get(), 100);
    for (int opt = 0; opt <= 2; ++opt) {
        SCOPED_TRACE(opt);
        const ::osg::NodeRefPtr node(MakeGeoCore(soup.tree, soup.geoset, 0, 3, opt, true));
        EXPECT_EQ(split::trianglesOf(coreOf(node), false), split::trianglesOf(source.get(), false));
        for (::osg::TriangleIterator it = coreOf(node)->beginTriangles(); !it.isAtEnd(); ++it) {
            const bool wall =
                it.getPosition(0)[2] + it.getPosition(1)[2] + it.getPosition(2)[2] > 0.5F;
            for (int k = 0; k < 3; ++k) {
                EXPECT_EQ(it.getNormal(k), wall ? ::osg::Vec3f(0, 1, 0) : ::osg::Vec3f(0, 0, 1));
            }
        }
    }
}

/// Positions, colours and IDs of the elements of a geometry, vertex by vertex.
template <typename Iterator> void appendVertex(const Iterator& it, int k, std::vector<float>& out) {
    split::append(out, it.getPosition(k), 3);
    split::append(out, it.getColor(k), 3);
    split::append(out, it.getTexCoords7(k), 1);
}

TEST(MakeGeoCore, LinesAndPointsSurviveEveryLevel) {
    std::mt19937 rng(4607);
    for (int round = 0; round < 30; ++round) {
        const unsigned vertices = 2 * (1 + static_cast<unsigned>(rng() % 30));
        const ::osg::GeometryPtr source =
            flat::geometryOf({{1, vertices}}, flat::gridPoints(rng, vertices));
        source->setColors(flat::someColors(rng, vertices));
        flat::addNormals(source, rng, vertices);
        const ::osg::NodeRefPtr node(flat::nodeOf(source, "lines"));
        morva::osg::osg_line_geoset lines;
        morva::osg::osg_point_geoset points;
        morva::osg::extract(node.get(), lines, false, false, true, true);
        morva::osg::extract(node.get(), points, false, false, true, true);
        morva::osg::getIDmapHandler().reset();
        kd_tree<float> line_tree, point_tree;
        const kd_build_setup setup{4, 20, 3, 1.0F, 2.0F, 0.95F, false};
        morva::compile(lines, line_tree, setup, morva::kd_strategy_ObjMedian());
        morva::compile(points, point_tree, setup, morva::kd_strategy_ObjMedian());

        std::vector<std::multiset<std::vector<float>>> line_bags(4), point_bags(4);
        for (int opt = 0; opt <= 3; ++opt) {
            const bool normals = round % 2 == 0; // cannot be calculated, and stay
            const ::osg::NodeRefPtr made(
                MakeGeoCore(line_tree, lines, 0, vertices / 2, opt, normals));
            EXPECT_TRUE(coreOf(made)->getNormals() != ::osg::NullFC);
            for (auto it = coreOf(made)->beginLines(); !it.isAtEnd(); ++it) {
                std::vector<float> line;
                appendVertex(it, 0, line);
                appendVertex(it, 1, line);
                line_bags[static_cast<std::size_t>(opt)].insert(line);
            }
            const ::osg::NodeRefPtr dots(MakeGeoCore(point_tree, points, 0, vertices, opt, false));
            for (auto it = coreOf(dots)->beginPrimitives(); !it.isAtEnd(); ++it) {
                EXPECT_EQ(it.getType(), 0U);
                for (::osg::UInt32 k = 0; k < it.getLength(); ++k) {
                    std::vector<float> point;
                    appendVertex(it, static_cast<int>(k), point);
                    point_bags[static_cast<std::size_t>(opt)].insert(point);
                }
            }
            if (opt == 1) {
                EXPECT_EQ(coreOf(made)->getColors()->size(), coreOf(made)->getPositions()->size());
                EXPECT_LE(coreOf(made)->getPositions()->size(), vertices);
            }
        }
        EXPECT_EQ(line_bags[0].size(), vertices / 2);
        EXPECT_EQ(point_bags[0].size(), vertices);
        for (std::size_t opt = 1; opt <= 3; ++opt) {
            EXPECT_EQ(line_bags[opt], line_bags[0]) << "opt " << opt;
            EXPECT_EQ(point_bags[opt], point_bags[0]) << "opt " << opt;
        }
    }
}

TEST(MakeGeoCore, SharedLineVerticesAreNumberedByFirstUse) {
    const float nan = std::nanf("");
    const ::osg::NodeRefPtr node(flat::nodeOf(flat::geometryOf({{1, 8}}, {{0, 0, 0},
                                                                          {1, 0, 0},
                                                                          {1, 0, 0},
                                                                          {-0.0F, 0, -0.0F},
                                                                          {2, 0, 0},
                                                                          {1, 0, 0},
                                                                          {nan, 0, 0},
                                                                          {nan, 0, 0}})));
    morva::osg::osg_line_geoset lines;
    morva::osg::extract(node.get(), lines, false, false, false, true);
    kd_tree<float> tree;
    morva::compile(lines, tree, kd_build_setup{100, 9, 3, 1.0F, 2.0F, 0.95F, false},
                   morva::kd_strategy_median());
    const ::osg::NodeRefPtr made(MakeGeoCore(tree, lines, 0, 4, 1, false));
    std::vector<::osg::UInt32> indices;
    for (::osg::UInt32 i = 0; i < 8; ++i) {
        indices.push_back(coreOf(made)->getIndices()->getValue(i));
    }
    EXPECT_EQ(indices, (std::vector<::osg::UInt32>{0, 1, 1, 0, 2, 1, 3, 4}));
    EXPECT_EQ(coreOf(made)->getPositions()->size(), 5U);
}

} // namespace
