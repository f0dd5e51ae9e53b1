// Scores, search, and what the entry points do around the walk.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <string>

#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGThread.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "tests/support/live_containers.h"
#include "tests/support/mesh_multiset.h"
#include "tests/support/scene_builders.h"
#include "tests/support/stream_capture.h"

namespace {

using namespace morva::osg;
using namespace morva_test;

constexpr float infinity = std::numeric_limits<float>::infinity();

TEST(CacheScores, VerticesScoreByPlaceAndWhatIsLeft) {
    struct score_case {
        int left, place;
        float triangles, lines;
    };
    const score_case cases[] = {
        {0, -1, -1.0F, -1.0F},
        {0, 0, -1.0F, -1.0F},
        {1, -1, 2.0F, 2.0F},
        {4, -1, 1.0F, 1.0F},
        {16, 0, 0.5F + 0.75F, 0.5F + 0.75F},
        {16, 1, 0.5F + 0.75F, 0.5F + 0.75F},
        {16, 2, 0.5F + 0.75F, 0.5F + 1.0F},
        {16, 3, 0.5F + 1.0F, 0.5F + std::pow(1.0F - 1.0F * 0.033333335F, 1.5F)},
        {16, 31, 0.5F + std::pow(1.0F - 28.0F * 0.03448276F, 1.5F),
         0.5F + std::pow(1.0F - 29.0F * 0.033333335F, 1.5F)},
        {3, -1, 2.0F * std::pow(3.0F, -0.5F), 2.0F * std::pow(3.0F, -0.5F)},
    };
    for (const score_case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.left << " left at " << c.place);
        vcache_vertex_data vertex;
        vertex.trianglesLeft = c.left;
        vertex.cachePosition = c.place;
        EXPECT_EQ(FindVertexScore(&vertex), c.triangles);
        EXPECT_EQ(vertex.score, c.triangles);
        vlinecache_vertex_data end;
        end.linesLeft = c.left;
        end.cachePosition = c.place;
        EXPECT_EQ(FindLineVertexScore(&end), c.lines);
        EXPECT_EQ(end.score, c.lines);
    }
}

/// A fan of four triangles around vertex 0, of five vertices with these scores.
struct scored_fan {
    explicit scored_fan(const std::vector<float>& scores) : triangles(3), vertices(5) {
        for (std::size_t i = 0; i < 5; ++i)
            vertices[i].score = scores[i];
        for (unsigned i = 0; i < 3; ++i) {
            triangles[i].index = 100 + i;
            const int corners[3] = {0, int(i) + 1, int(i) + 2};
            for (int k = 0; k < 3; ++k) {
                triangles[i].positions[k] = corners[k];
                vertices[std::size_t(corners[k])].triangles.push_back(i);
                ++vertices[std::size_t(corners[k])].trianglesLeft;
            }
        }
        for (unsigned i = 0; i < 3; ++i)
            calcTriangleScore(triangles, vertices, i);
    }
    std::vector<vcache_triangle_data> triangles;
    std::vector<vcache_vertex_data> vertices;
};

TEST(CacheScores, ElementsGetABonusForPositiveVertices) {
    scored_fan fan({1.0F, 2.0F, 0.5F, 0.0F, -1.0F});
    EXPECT_EQ(fan.triangles[0].score, 3.5F + 3.0F);
    EXPECT_EQ(fan.triangles[1].score, 1.5F + 1.0F);
    EXPECT_EQ(fan.triangles[2].score, 0.0F);
    fan.triangles[1].drawn = true;
    fan.vertices[0].score = 5.0F;
    EXPECT_EQ(calcTriangleScore(fan.triangles, fan.vertices, 1), -1.0F);
    calcTriangleScoreForVertices(fan.triangles, fan.vertices, 2);
    EXPECT_EQ(fan.triangles[0].score, 7.5F + 3.0F);
    EXPECT_EQ(fan.triangles[1].score, 2.5F) << "a drawn one stays as it is";
    EXPECT_EQ(fan.triangles[2].score, 0.0F) << "does not wait for the vertex";

    std::vector<vcache_line_data> lines(1);
    std::vector<vlinecache_vertex_data> ends(2);
    lines[0].positions[0] = 0;
    lines[0].positions[1] = 1;
    ends[0].score = 1.5F;
    ends[1].score = 0.0F;
    EXPECT_EQ(calcLineScore(lines, ends, 0), 1.5F);
    ends[1].score = 0.25F;
    ends[1].lines = {0};
    calcLineScoreForVertices(lines, ends, 1);
    EXPECT_EQ(lines[0].score, 4.75F);
    lines[0].drawn = true;
    EXPECT_EQ(calcLineScore(lines, ends, 0), -1.0F);
}

TEST(CacheSearch, LooksInTheCacheThenAtTheMarkedVertexThenInOrder) {
    scored_fan fan({1.0F, 1.0F, 1.0F, 1.0F, 1.0F});
    std::list<unsigned int> cache = {4, 1};
    unsigned long marker = 0, vertexMarker = ~0UL;
    bool flush = true;
    const auto search = [&] {
        return searchHighestScoreTriangle(fan.triangles, fan.vertices, cache, flush, marker,
                                          vertexMarker);
    };
    EXPECT_EQ(search(), 2U) << "of equal ones the first found";
    EXPECT_FALSE(flush);
    fan.triangles[0].score += 1.0F;
    EXPECT_EQ(search(), 0U);
    cache.clear();
    vertexMarker = 2;
    fan.triangles[1].score += 2.0F;
    EXPECT_EQ(search(), 101U) << "the number in the source";
    EXPECT_FALSE(flush);
    fan.vertices[2].trianglesLeft = 0;
    fan.triangles[0].drawn = true;
    EXPECT_EQ(search(), 1U);
    EXPECT_TRUE(flush);
    EXPECT_EQ(marker, 1U);
    vertexMarker = 5;
    fan.triangles[1].drawn = fan.triangles[2].drawn = true;
    EXPECT_EQ(search(), 0U);
    EXPECT_EQ(marker, 1U);

    std::vector<vcache_line_data> lines(2);
    std::vector<vlinecache_vertex_data> ends(1);
    unsigned long lineMarker = 0;
    const auto searchLine = [&] {
        return searchHighestScoreLine(lines, ends, cache, flush, lineMarker);
    };
    lines[0].drawn = true;
    EXPECT_EQ(searchLine(), 1U);
    EXPECT_TRUE(flush);
    EXPECT_EQ(lineMarker, 1U);
    cache = {0};
    ends[0].lines = {1};
    EXPECT_EQ(searchLine(), 1U);
    EXPECT_FALSE(flush);
    ends[0].lines.clear();
    lines[1].drawn = flush = true;
    EXPECT_EQ(searchLine(), 0U);
    EXPECT_FALSE(flush);
}

TEST(OptimizeCache, RefusesWhatItCannotOrder) {
    const node_ref no_types(meshNode({}));
    const node_ref empty_types(meshNode(quads(1)));
    coreOf(empty_types.get())->getTypes()->clear();
    const node_ref plain(group());
    const struct {
        ::osg::NodePtr node;
        const char* message;
    } cases[] = {{::osg::NullFC, "Cacheopt Return: geoNode == ::osg::NullFC\n"},
                 {plain.get(), "Cacheopt Return: geo == ::osg::NullFC\n"},
                 {no_types.get(), "Cacheopt Return: Empty Type\n"},
                 {empty_types.get(), "Cacheopt Return: Empty Type\n"}};
    for (const auto& c : cases) {
        const stream_capture out(std::cout);
        bool aboveLimit = true;
        EXPECT_TRUE(optimizeCache(c.node, aboveLimit, 0, true) == ::osg::NullFC);
        EXPECT_FALSE(aboveLimit);
        EXPECT_EQ(out.text(), c.message);
    }
    EXPECT_TRUE(optimizeLineCache(::osg::NullFC, 1, true) == ::osg::NullFC);
    EXPECT_TRUE(optimizeLineCache(plain.get(), 1, true) == ::osg::NullFC);
}

TEST(OptimizeCache, BelowTheLimitOnlyIndexesAndNames) {
    getIDmapHandler().reset();
    for (const bool perProperty : {false, true}) {
        const node_ref node(meshNode(cube()));
        const world_mesh before = worldMesh(node.get());
        bool aboveLimit = true;
        EXPECT_TRUE(optimizeCache(node.get(), aboveLimit, 72, perProperty) == node.get());
        EXPECT_FALSE(aboveLimit);
        const ::osg::GeometryPtr core = coreOf(node.get());
        EXPECT_EQ(core->getMFIndexMapping()->size(), perProperty ? 2U : 1U);
        EXPECT_EQ(core->getPositions()->getSize(), perProperty ? 8U : 24U);
        EXPECT_EQ(worldMesh(node.get()), before);
        EXPECT_EQ(std::string(::osg::getName(node.get())).substr(0, 3), "_G_");
        EXPECT_STREQ(::osg::getName(core), ::osg::getName(node.get()));
        const node_ref one_more(meshNode(cube()));
        const node_ref made(optimizeCache(one_more.get(), aboveLimit, 71, perProperty));
        EXPECT_TRUE(aboveLimit);
        EXPECT_TRUE(made.get() != one_more.get());
    }
}

TEST(OptimizeCache, LinesGoTheirOwnWayAndPointsStay) {
    std::mt19937 rng(7);
    bool aboveLimit = false;
    const node_ref points(meshNode(row(9, 0)));
    EXPECT_TRUE(optimizeCache(points.get(), aboveLimit, 3, true) == points.get());
    EXPECT_TRUE(aboveLimit);
    EXPECT_TRUE(::osg::getName(points.get()) == nullptr);

    const node_ref line(meshNode(withAttributes(row(4, 3), rng)));
    const node_ref made(optimizeCache(line.get(), aboveLimit, 3, false));
    EXPECT_TRUE(aboveLimit);
    ASSERT_EQ(made->getNChildren(), 2U);
    const node_ref whole(optimizeLineCache(line.get(), 100, false));
    ASSERT_EQ(whole->getNChildren(), 1U);
    const ::osg::GeometryPtr core = coreOf(whole->getChild(0));
    EXPECT_EQ(core->getTypes()->getValue(0), 1U);
    EXPECT_EQ(core->getLengths()->getValue(0), 6U);
    EXPECT_EQ(core->getPositions()->getSize(), 4U);
    EXPECT_TRUE(core->getTexCoords() == ::osg::NullFC);
    EXPECT_TRUE(core->getTexCoords7() != ::osg::NullFC);
}

TEST(OptimizeCache, KeepsTheTrianglesThatMayBeKeptWithTheMaterial) {
    std::mt19937 rng(8);
    const ::osg::MaterialRefPtr material(simple({1, 0, 0}));
    mesh_choice choice;
    choice.ids = true;
    choice.dropped = [](const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
        return is_rogue(a, b, c);
    };
    for (const bool perProperty : {false, true}) {
        // Triangles without a common vertex: nothing falls out of the cache that is waited for.
        mesh_data mesh = withAttributes(quads(200), rng);
        mesh.positions[41] = mesh.positions[40];
        const node_ref top(materialGroup(material.get(), {meshNode(mesh)}));
        const world_mesh before = worldMesh(top.get(), choice);
        bool aboveLimit = false;
        const node_ref made(optimizeCache(top->getChild(0), aboveLimit, 100, perProperty));
        EXPECT_TRUE(aboveLimit);
        EXPECT_EQ(firstDifference(before, worldMesh(made.get(), choice)), "");
        for (const ::osg::NodePtr& piece : geometryNodes(made.get()))
            EXPECT_TRUE(coreOf(piece)->getMaterial() == material.get());
    }
    mesh_data flat = quads(5);
    for (::osg::Pnt3f& position : flat.positions)
        position[0] = 0.0F;
    const node_ref rogues(meshNode(flat));
    bool aboveLimit = false;
    const node_ref made(optimizeCache(rogues.get(), aboveLimit, 2, true));
    ASSERT_EQ(made->getNChildren(), 1U);
    EXPECT_EQ(coreOf(made->getChild(0))->getLengths()->getSize(), 1U);
    EXPECT_EQ(coreOf(made->getChild(0))->getLengths()->getValue(0), 0U);
}

TEST(OptimizeCacheForTree, GathersWhatItMakesAndShowsProgress) {
    std::mt19937 rng(9);
    const unsigned int before = liveContainers();
    {
        const node_ref root(group({meshNode(withNormals(quads(40), rng)), meshNode(row(9, 1)),
                                   group({meshNode(quads(1)), meshNode({})})}));
        const stream_capture out(std::cout);
        std::cout.precision(9);
        const node_ref result(optimizeCacheForTree(root.get(), 20, true, true));
        EXPECT_EQ(std::cout.precision(), 9);
        EXPECT_EQ(out.text(), "\r0% \r25% \r50% Cacheopt Return: Empty Type\n\r75% ");
        ASSERT_EQ(result->getNChildren(), 3U);
        EXPECT_EQ(result->getChild(0)->getNChildren(), 5U);
        EXPECT_EQ(result->getChild(2)->getNChildren(), 0U);
        // New normals, all of them: the squares lie in the plane z = 0.
        for (const ::osg::NodePtr& piece : geometryNodes(result->getChild(0))) {
            ASSERT_GT(coreOf(piece)->getNormals()->getSize(), 0U);
            for (::osg::UInt32 i = 0; i < coreOf(piece)->getNormals()->getSize(); ++i)
                EXPECT_EQ(coreOf(piece)->getNormals()->getValue(i), ::osg::Vec3f(0, 0, 1));
        }
        const node_ref nothing(optimizeCacheForTree(::osg::NullFC, 20, true, true));
        EXPECT_EQ(nothing->getNChildren(), 0U);
        EXPECT_TRUE(nothing->getCore() != ::osg::NullFC);
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(OptimizeCache, SurvivesBrokenGeometry) {
    std::mt19937 rng(10);
    const mesh_data good = withIndexPerProperty(withAttributes(soup(rng, 20), rng), rng);
    const unsigned int before = liveContainers();
    for (int kind = 0; kind < 10; ++kind) {
        SCOPED_TRACE(testing::Message() << "kind " << kind);
        for (const unsigned mode : {4U, 1U, 5U}) {
            mesh_data mesh = good;
            mesh.primitives = {{mode, 60}};
            const auto is = [&](int number, auto break_it) {
                if (kind == number)
                    break_it();
            };
            is(0, [&] { mesh.positions.clear(); });
            is(1, [&] { mesh.normals.resize(5); });
            is(2, [&] { mesh.indices[7] = mesh.indices[33] = 0xFFFFFFF0U; });
            is(3, [&] { mesh.indices.resize(31); });
            is(4, [&] { mesh.primitives = {{mode, 0xFFFFFFFFU}, {mode, 0xFFFFFFFFU}}; });
            is(5, [&] { mesh.primitives = {{mode, 0}, {77, 5}, {mode, 7}}; });
            is(6, [&] { mesh.mapping.pop_back(); }); // then there are more vertices than told
            is(7, [&] {
                for (std::size_t i = 0; i < mesh.positions.size(); i += 4)
                    mesh.positions[i][i % 3] = i % 8 == 0 ? infinity : std::nanf("");
            });
            is(8, [&] { mesh.mapping[0] = ::osg::Geometry::MapEmpty; });
            const node_ref node(meshNode(mesh));
            if (kind == 9)
                coreOf(node.get())->setLengths(::osg::NullFC);
            for (const bool perProperty : {false, true}) {
                bool aboveLimit = false;
                const node_ref made(optimizeCache(node.get(), aboveLimit, 4, perProperty));
                EXPECT_TRUE(aboveLimit);
                EXPECT_GE(made->getNChildren(), 1U);
                worldMesh(made.get());
            }
        }
    }
    EXPECT_EQ(liveContainers(), before);
}

TEST(OptimizeCache, ManyTrianglesAroundOneVertexTakeNoLonger) {
    bool aboveLimit = false;
    const unsigned rim = 400000; // on lists hours
    mesh_data mesh = fan(rim);
    for (unsigned i = 1; i < rim; ++i)
        mesh.positions[i] = ::osg::Pnt3f(static_cast<float>(i), static_cast<float>(i % 7), 1.0F);
    const node_ref node(meshNode(mesh));
    const node_ref made(optimizeCache(node.get(), aboveLimit, 65533, false));
    unsigned corners = 0;
    for (const ::osg::NodePtr& piece : geometryNodes(made.get())) {
        EXPECT_LE(coreOf(piece)->getPositions()->getSize(), 65535U);
        corners += coreOf(piece)->getLengths()->getValue(0);
    }
    EXPECT_EQ(corners, 3 * (rim - 2));
}

TEST(OptimizeCache, RunsInParallelOnDifferentNodes) {
    std::mt19937 rng(11);
    std::vector<node_ref> nodes;
    struct job {
        ::osg::NodePtr node, made;
        bool perProperty;
    };
    std::vector<job> jobs(4);
    for (int i = 0; i < 4; ++i)
        nodes.emplace_back(meshNode(i % 2 == 0 ? withAttributes(soup(rng, 300), rng)
                                               : withAttributes(row(600, 1), rng)));
    const auto thread = [](std::size_t i) {
        return ::osg::Thread::get(("OPTIMIZE_CACHE_" + std::to_string(i)).c_str());
    };
    for (std::size_t i = 0; i < 4; ++i) {
        jobs[i] = {nodes[i].get(), ::osg::NullFC, i < 2};
        const auto run = [](void* argument) {
            auto& of = *static_cast<job*>(argument);
            bool aboveLimit = false;
            of.made = optimizeCache(of.node, aboveLimit, 90, of.perProperty);
        };
        ASSERT_TRUE(thread(i)->runFunction(run, 0, &jobs[i]));
    }
    for (std::size_t i = 0; i < 4; ++i) {
        ::osg::BaseThread::join(thread(i));
        const node_ref held(jobs[i].made);
        EXPECT_GT(held->getNChildren(), 1U);
    }
}

} // namespace
