// Scores, search, and what the entry points do around the walk.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using namespace morva::osg;

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

TEST(CacheScores, ElementsGetABonusForPositiveVertices) {
    const struct {
        float scores[3], triangle, line; ///< the line ends at the first two
    } rows[] = {{{1, 2, 0.5F}, 6.5F, 6}, {{1, 0.5F, 0}, 2.5F, 4.5F}, {{1, 0, -1}, 0, 1}};
    for (const auto& row : rows) {
        std::vector<vcache_triangle_data> triangles(1);
        std::vector<vcache_vertex_data> corners(3);
        std::vector<vcache_line_data> lines(1);
        std::vector<vlinecache_vertex_data> ends(3);
        for (int k = 0; k < 3; ++k) {
            corners[std::size_t(k)].score = ends[std::size_t(k)].score = row.scores[k];
            triangles[0].positions[k] = k;
        }
        lines[0].positions[0] = 0;
        lines[0].positions[1] = 1;
        EXPECT_EQ(calcTriangleScore(triangles, corners, 0), row.triangle);
        EXPECT_EQ(calcLineScore(lines, ends, 0), row.line);
        triangles[0].drawn = lines[0].drawn = true;
        EXPECT_EQ(calcTriangleScore(triangles, corners, 0), -1.0F);
        EXPECT_EQ(calcLineScore(lines, ends, 0), -1.0F);
    }
}

// Two elements, each waiting at a vertex of its own; the second is number 101 in the source.
TEST(CacheSearch, LooksInTheCacheThenAtTheMarkedVertexThenInOrder) {
    const struct {
        const char* rule;
        std::list<unsigned int> cache;
        int left_at_marked; ///< which is the second; lines have no marked vertex
        bool drawn[2];
        unsigned int triangle, line;
        bool flush, line_flush;
        unsigned long marker;
    } rows[] = {{"of equal ones the first found", {1, 0}, 1, {}, 1, 1, false, false, 0},
                {"the number of what waits there", {}, 1, {}, 101, 0, false, true, 0},
                {"in order", {}, 0, {true, false}, 1, 1, true, true, 1},
                {"nothing is left", {}, 0, {true, true}, 0, 0, true, false, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        std::vector<vcache_triangle_data> triangles(2);
        std::vector<vcache_vertex_data> vertices(2);
        std::vector<vcache_line_data> lines(2);
        std::vector<vlinecache_vertex_data> ends(2);
        for (unsigned int i = 0; i < 2; ++i) {
            vertices[i].triangles = ends[i].lines = {i};
            triangles[i].drawn = lines[i].drawn = row.drawn[i];
            triangles[i].index = 100 + i;
        }
        vertices[1].trianglesLeft = row.left_at_marked;
        std::list<unsigned int> cache = row.cache;
        unsigned long marker = 0, lineMarker = 0, marked = 1;
        bool flush = !row.flush, lineFlush = !row.line_flush;
        EXPECT_EQ(searchHighestScoreTriangle(triangles, vertices, cache, flush, marker, marked),
                  row.triangle);
        EXPECT_EQ(searchHighestScoreLine(lines, ends, cache, lineFlush, lineMarker), row.line);
        EXPECT_EQ(flush, row.flush);
        EXPECT_EQ(lineFlush, row.line_flush);
        EXPECT_EQ(marker, row.flush ? row.marker : 0);
        EXPECT_EQ(lineMarker, row.marker);
    }
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
        bool above_limit = true;
        EXPECT_TRUE(optimizeCache(c.node, above_limit, 0, true) == ::osg::NullFC);
        EXPECT_FALSE(above_limit);
        EXPECT_EQ(out.text(), c.message);
    }
    EXPECT_TRUE(optimizeLineCache(::osg::NullFC, 1, true) == ::osg::NullFC);
    EXPECT_TRUE(optimizeLineCache(plain.get(), 1, true) == ::osg::NullFC);
}

TEST(OptimizeCache, BelowTheLimitOnlyIndexesAndNames) {
    getIDmapHandler().reset();
    for (const bool per_property : {false, true}) {
        const node_ref node(meshNode(cube()));
        const world_mesh before = worldMesh(node.get());
        bool above_limit = true;
        EXPECT_TRUE(optimizeCache(node.get(), above_limit, 72, per_property) == node.get());
        EXPECT_FALSE(above_limit);
        const ::osg::GeometryPtr core = coreOf(node.get());
        EXPECT_EQ(core->getMFIndexMapping()->size(), per_property ? 2U : 1U);
        EXPECT_EQ(core->getPositions()->getSize(), per_property ? 8U : 24U);
        EXPECT_EQ(worldMesh(node.get()), before);
        EXPECT_EQ(std::string(::osg::getName(node.get())).substr(0, 3), "_G_");
        EXPECT_STREQ(::osg::getName(core), ::osg::getName(node.get()));
        const node_ref one_more(meshNode(cube()));
        const node_ref made(optimizeCache(one_more.get(), above_limit, 71, per_property));
        EXPECT_TRUE(above_limit);
        EXPECT_TRUE(made.get() != one_more.get());
    }
}

TEST(OptimizeCache, LinesGoTheirOwnWayAndPointsStay) {
    bool above_limit = false;
    const node_ref points(meshNode(row(9, 0)));
    EXPECT_TRUE(optimizeCache(points.get(), above_limit, 3, true) == points.get());
    EXPECT_TRUE(above_limit);
    EXPECT_TRUE(::osg::getName(points.get()) == nullptr);

    const node_ref line(meshNode(row(4, 3)));
    const node_ref made(optimizeCache(line.get(), above_limit, 3, false));
    EXPECT_TRUE(above_limit);
    ASSERT_EQ(made->getNChildren(), 2U);
    EXPECT_EQ(coreOf(made->getChild(0))->getTypes()->getValue(0), 1U);
}

TEST(OptimizeCache, OfTrianglesThatMayNotBeKeptAnEmptyPieceIsMade) {
    mesh_data flat = quads(5);
    for (::osg::Pnt3f& position : flat.positions)
        position[0] = 0.0F;
    const node_ref rogues(meshNode(flat));
    bool above_limit = false;
    const node_ref made(optimizeCache(rogues.get(), above_limit, 2, true));
    ASSERT_EQ(made->getNChildren(), 1U);
    EXPECT_EQ(coreOf(made->getChild(0))->getLengths()->getSize(), 1U);
    EXPECT_EQ(coreOf(made->getChild(0))->getLengths()->getValue(0), 0U);
}

TEST(OptimizeCacheForTree, GathersWhatItMakesAndShowsProgress) {
    std::mt19937 rng(9);
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
    const node_ref alone(meshNode(quads(40)));
    const node_ref pieces(optimizeCacheForTree(alone.get(), 20, true, true));
    EXPECT_EQ(geometryNodes(pieces.get()).size(), 5U);
}

TEST(OptimizeCache, SurvivesBrokenGeometry) {
    std::mt19937 rng(10);
    const mesh_data good = withIndexPerProperty(withAttributes(soup(rng, 20), rng), rng);
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
            for (const bool per_property : {false, true}) {
                bool above_limit = false;
                const node_ref made(optimizeCache(node.get(), above_limit, 4, per_property));
                EXPECT_TRUE(above_limit);
                EXPECT_GE(made->getNChildren(), 1U);
                worldMesh(made.get());
            }
        }
    }
}

TEST(OptimizeCache, ManyTrianglesAroundOneVertexTakeNoLonger) {
    bool above_limit = false;
    const unsigned rim = 400000; // on lists hours
    mesh_data mesh = fan(rim);
    for (unsigned i = 1; i < rim; ++i)
        mesh.positions[i] = ::osg::Pnt3f(static_cast<float>(i), static_cast<float>(i % 7), 1.0F);
    const node_ref node(meshNode(mesh));
    const node_ref made(optimizeCache(node.get(), above_limit, 65533, false));
    unsigned corners = 0;
    for (const ::osg::NodePtr& piece : geometryNodes(made.get())) {
        EXPECT_LE(coreOf(piece)->getPositions()->getSize(), 65535U);
        corners += coreOf(piece)->getLengths()->getValue(0);
    }
    EXPECT_EQ(corners, 3 * (rim - 2));
}

} // namespace
