// Scores, search, and what the entry points do around the walk.

#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_cache_scores.h>
#include <morva/draworder/morva_osg_cacheopt.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

namespace {

using namespace morva::osg;

TEST(CacheScores, VerticesScoreByPlaceAndWhatIsLeft) {
    const float cases[][4] = {{0, -1, -1.0F, -1.0F}, // left, place, of a triangle, of a line
                              {0, 0, -1.0F, -1.0F},
                              {1, -1, 2.0F, 2.0F},
                              {4, -1, 1.0F, 1.0F},
                              {16, 1, 1.25F, 1.25F},
                              {16, 2, 1.25F, 1.5F},
                              {16, 3, 1.5F, 0.5F + std::pow(1.0F - 1.0F * 0.033333335F, 1.5F)},
                              {16, 31, 0.5F + std::pow(1.0F - 28.0F * 0.03448276F, 1.5F),
                               0.5F + std::pow(1.0F - 29.0F * 0.033333335F, 1.5F)}};
    for (const auto& [left, place, triangles, lines] : cases) {
        SCOPED_TRACE(testing::Message() << left << " left at " << place);
        vcache_vertex_data vertex;
        vlinecache_vertex_data end;
        vertex.trianglesLeft = end.linesLeft = int(left);
        vertex.cachePosition = end.cachePosition = int(place);
        EXPECT_EQ(FindVertexScore(&vertex), triangles);
        EXPECT_EQ(FindLineVertexScore(&end), lines);
    }
}

TEST(CacheScores, ElementsGetABonusForPositiveVertices) {
    const float rows[][5] = {{1, 2, 0.5F, 6.5F, 6}, {1, 0.5F, 0, 2.5F, 4.5F}, {1, 0, -1, 0, 1}};
    for (const auto& row : rows) { // three scores, of a triangle, of the line of the first two
        const auto scoreOf = [&row](unsigned corner) { return row[corner]; };
        EXPECT_EQ(elementScore<triangle_rules>(scoreOf), row[3]);
        EXPECT_EQ(elementScore<line_rules>(scoreOf), row[4]);
    }
    std::vector<vcache_triangle_data> drawn(1);
    std::vector<vcache_vertex_data> corners(1);
    drawn[0].drawn = true;
    EXPECT_EQ(calcTriangleScore(drawn, corners, 0), -1.0F);
}

TEST(OptimizeCache, RefusesWhatItCannotOrder) {
    const node_ref empty_types(meshNode(quads(1)));
    coreOf(empty_types.get())->getTypes()->clear();
    const std::pair<node_ref, const char*> cases[] = {
        {node_ref(), "Cacheopt Return: geoNode == ::osg::NullFC\n"},
        {node_ref(group()), "Cacheopt Return: geo == ::osg::NullFC\n"},
        {node_ref(meshNode({})), "Cacheopt Return: Empty Type\n"},
        {empty_types, "Cacheopt Return: Empty Type\n"}};
    for (const auto& [node, message] : cases) {
        const stream_capture out(std::cout);
        bool above_limit = true;
        EXPECT_TRUE(optimizeCache(node.get(), above_limit, 0, true) == ::osg::NullFC);
        EXPECT_FALSE(above_limit);
        EXPECT_EQ(out.text(), message);
        EXPECT_TRUE(coreOf(node) != ::osg::NullFC ||
                    optimizeLineCache(node.get(), 1, true) == ::osg::NullFC);
    }
}

TEST(OptimizeCacheForTree, GathersWhatItMakesAndShowsProgress) {
    std::mt19937 rng(seedOf(9));
    const node_ref root(group({meshNode(withNormals(quads(40), rng)), meshNode(row(9, 1)),
                               group({meshNode(row(30, 0)), meshNode({})})}));
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
    EXPECT_TRUE(nothing->getNChildren() == 0 && nothing->getCore() != ::osg::NullFC);
    const node_ref alone(meshNode(quads(40)));
    const node_ref pieces(optimizeCacheForTree(alone.get(), 20, true, true));
    EXPECT_EQ(geometryNodes(pieces.get()).size(), 5U);
}

TEST(OptimizeCache, SurvivesBrokenGeometry) {
    std::mt19937 rng(seedOf(10));
    const mesh_data good = withIndexPerProperty(withAttributes(soup(rng, 20), rng), rng);
    void (*const spoils[])(mesh_data&) = {
        [](mesh_data& mesh) { mesh.positions.clear(); },
        [](mesh_data& mesh) { mesh.normals.resize(5); },
        [](mesh_data& mesh) { mesh.indices[7] = mesh.indices[33] = 0xFFFFFFF0U; },
        [](mesh_data& mesh) { mesh.indices.resize(31); },
        [](mesh_data& mesh) {
            mesh.primitives.resize(2, {mesh.primitives[0].first, ~0U});
        },
        [](mesh_data& mesh) {
            mesh.primitives.insert(mesh.primitives.begin(), {{4, 0}, {77, 5}});
        },
        [](mesh_data& mesh) { mesh.mapping.pop_back(); }, // more vertices than told
        [](mesh_data& mesh) {
            for (std::size_t i = 0; i < mesh.positions.size(); i += 4)
                mesh.positions[i][i % 3] = i % 8 == 0 ? HUGE_VALF : std::nanf("");
        },
        [](mesh_data& mesh) { mesh.mapping[0] = ::osg::Geometry::MapEmpty; }};
    for (std::size_t i = 0; i < 6 * std::size(spoils); ++i) {
        SCOPED_TRACE(testing::Message() << "kind " << i / 6 << ", variant " << i % 6);
        mesh_data mesh = good;
        mesh.primitives = {{(i % 3 == 0 ? 4U : i % 3 == 1 ? 1U : 5U), 60}};
        spoils[i / 6](mesh);
        const node_ref node(meshNode(mesh));
        bool above_limit = false;
        const node_ref made(optimizeCache(node.get(), above_limit, 4, i % 2 == 0));
        EXPECT_TRUE(above_limit);
        EXPECT_GE(made->getNChildren(), 1U);
        worldMesh(made.get());
    }
}

TEST(OptimizeCache, ManyTrianglesAroundOneVertexTakeNoLonger) {
    bool above_limit = false;
    const unsigned rim = 400000; // on lists hours
    const node_ref node(meshNode(fan(rim)));
    const node_ref made(optimizeCache(node.get(), above_limit, 65533, false));
    unsigned corners = 0;
    for (const ::osg::NodePtr& piece : geometryNodes(made.get())) {
        EXPECT_LE(coreOf(piece)->getPositions()->getSize(), 65535U);
        corners += coreOf(piece)->getLengths()->getValue(0);
    }
    EXPECT_EQ(corners, 3 * (rim - 2));
}

} // namespace
