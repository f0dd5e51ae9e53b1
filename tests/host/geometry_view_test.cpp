#include "tests/support/test.h"

#include "flat_mesh.h"
#include "geometry_view.h"
#include "statistics.h"
#include "tests/support/whole_elements.h"

namespace morva_test {
namespace {

using morva::host::flat_mesh;
using morva::host::geometry_view;

/// Meshes of every primitive type and index layout.
std::vector<mesh_data> manyMeshes() {
    std::mt19937 rng(seedOf(7));
    std::vector<mesh_data> meshes = {soup(rng, 30), quads(5),  strip(9),  strip(8, 8),
                                     fan(7),        fan(6, 9), row(7, 1), row(5, 2),
                                     row(6, 3),     row(4, 0), cube()};
    for (int i = 0; i < 40; ++i) {
        const mesh_data mesh = withAttributes(mixture(rng, 6), rng);
        meshes.push_back(mesh);
        meshes.push_back(withIndex(mesh, rng));
        meshes.push_back(withIndexPerProperty(mesh, rng));
    }
    return meshes;
}

::osg::Pnt3f pointAt(const float* p) { return ::osg::Pnt3f(p[0], p[1], p[2]); }

TEST(GeometryView, GivesWhatTheIteratorsGiveAndNumbersVerticesByAllIndices) {
    for (const mesh_data& mesh : manyMeshes()) {
        const geometry_ref core(geometryOf(mesh));
        const geometry_view view(core.get());
        ASSERT_FALSE(view.faulty);
        flat_mesh flat(view);
        for (std::uint32_t i = 0; flat.running && i < flat.vertex_count; ++i)
            flat.triangles.push_back(i);
        const auto pointsOf = [&](const std::vector<std::uint32_t>& vertices) {
            std::vector<::osg::Pnt3f> points;
            for (const std::uint32_t vertex : vertices)
                points.push_back(pointAt(flat.positions.values + 3 * vertex));
            return points;
        };
        std::vector<::osg::Pnt3f> triangles, lines;
        for (::osg::TriangleIterator it = core->beginTriangles(); !it.isAtEnd() && isWhole(it, 3);
             ++it)
            triangles.insert(triangles.end(),
                             {it.getPosition(0), it.getPosition(1), it.getPosition(2)});
        for (::osg::LineIterator it = core->beginLines(); !it.isAtEnd() && isWhole(it, 2); ++it)
            lines.insert(lines.end(), {it.getPosition(0), it.getPosition(1)});
        // An odd number of line vertices: the view leaves the last one out.
        lines.resize(std::min(lines.size(), flat.lines.size()));
        EXPECT_EQ(pointsOf(flat.triangles), triangles);
        EXPECT_EQ(pointsOf(flat.lines), lines);

        const morva::host::vertex_numbering numbering = morva::host::numberVertices(view);
        const auto key = [&](std::uint32_t corner) {
            std::vector<std::uint32_t> numbers = {view.positions.row(corner)};
            for (const auto* attribute : {&view.normals, &view.colors, &view.secondary_colors,
                                          &view.coordinates[0], &view.coordinates[7]})
                numbers.push_back(attribute->present ? attribute->row(corner) : 0);
            return numbers;
        };
        std::map<std::vector<std::uint32_t>, std::uint32_t> oracle;
        for (std::uint32_t corner = 0; corner < numbering.of_corner.size(); ++corner) {
            const auto number = std::uint32_t(oracle.size());
            ASSERT_EQ(numbering.of_corner[corner],
                      oracle.emplace(key(corner), number).first->second);
        }
        EXPECT_EQ(numbering.first_corner.size(), oracle.size());
    }
}

TEST(GeometryView, TakesWhatTheDataHoldsAndIndicesBehindItForAFault) {
    mesh_data outside = quads(2), colored = quads(2), endless = quads(2);
    outside.indices = {0, 1, 2, 3, 4, 5, 6, 99};
    const geometry_ref faulty_core(geometryOf(outside));
    const geometry_view faulty(faulty_core.get());
    EXPECT_TRUE(faulty.faulty && faulty.runs.empty());

    colored.colors.assign(3, ::osg::Color3f(1, 0, 0)); // a short attribute goes alone
    const geometry_ref kept_core(geometryOf(colored));
    const geometry_view kept(kept_core.get());
    EXPECT_FALSE(kept.faulty || kept.colors.present);
    EXPECT_EQ(kept.runs.size(), 1u);

    endless.primitives = {{7u, 4u}, {4u, 4000000000u}, {4u, 3u}};
    const geometry_ref cut_core(geometryOf(endless));
    const geometry_view cut(cut_core.get());
    ASSERT_EQ(cut.runs.size(), 2u);
    EXPECT_EQ(cut.runs[1].length, 4u);
}

TEST(Statistics, CacheMissesAreThoseOfASearchedList) {
    std::mt19937 rng(seedOf(31));
    for (int round = 0; round < roundsOf(60); ++round) {
        mesh_data mesh = soup(rng, 150);
        std::uniform_int_distribution<::osg::UInt32> pick(0, 20 + 4 * unsigned(round));
        mesh.indices.resize(450);
        for (::osg::UInt32& index : mesh.indices)
            index = pick(rng);
        const geometry_ref core(geometryOf(mesh));
        const geometry_view view(core.get());
        const auto numbering = morva::host::numberVertices(view);
        std::vector<std::uint32_t> cache; // the latest at the end
        std::uint64_t misses = 0;
        for (const std::uint32_t vertex : numbering.of_corner) {
            const auto found = std::find(cache.begin(), cache.end(), vertex);
            misses += found == cache.end() ? 1 : 0;
            if (found != cache.end() || cache.size() == 32)
                cache.erase(found != cache.end() ? found : cache.begin());
            cache.push_back(vertex);
        }
        EXPECT_EQ(morva::host::countCacheMisses(view, numbering.of_corner,
                                                std::uint32_t(numbering.first_corner.size())),
                  misses);
    }
}

TEST(Statistics, CountDrawnThingsPerUseAndStoredThingsOnce) {
    const ::osg::MaterialPtr red = simple({1, 0, 0});
    const ::osg::NodePtr first = meshNode(quads(3), red);
    const ::osg::NodePtr twin = nodeOf(first->getCore());
    const node_ref root(group({first, moved({1, 0, 0}, {twin}), hidden(meshNode(quads(9))),
                               switched(1, {meshNode(quads(5)), meshNode(row(7, 1))}),
                               detailed({meshNode(row(4, 0)), meshNode(quads(1))})}));
    const morva::host::scene_statistics figures = morva::host::measureScene(root.get());
    const std::vector<std::uint64_t> counts = {
        figures.nodes,     figures.draw_calls, figures.geometry_cores, figures.materials,
        figures.triangles, figures.lines,      figures.points};
    EXPECT_EQ(counts, (std::vector<std::uint64_t>{11, 4, 3, 1, 12, 3, 4}));
    EXPECT_EQ(figures.acmr, 12.0 / 6.0); // four vertices per quad, nothing shared between quads
}

} // namespace
} // namespace morva_test
