#include <algorithm>
#include <array>
#include <deque>

#include <gtest/gtest.h>

#include <OpenSG/OSGLineIterator.h>
#include <OpenSG/OSGTriangleIterator.h>

#include "flat_mesh.h"
#include "geometry_view.h"
#include "statistics.h"
#include "tests/support/scene_builders.h"

namespace morva_test {
namespace {

using morva::host::flat_mesh;
using morva::host::geometry_view;
using triangle = std::array<::osg::Pnt3f, 3>;

/// Meshes of every primitive type and index layout.
std::vector<mesh_data> manyMeshes() {
    std::mt19937 rng(7);
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

TEST(GeometryView, GivesTheTrianglesAndLinesOfTheIterators) {
    for (const mesh_data& mesh : manyMeshes()) {
        const geometry_ref core(geometryOf(mesh));
        std::vector<triangle> expected;
        for (::osg::TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it)
            expected.push_back({it.getPosition(0), it.getPosition(1), it.getPosition(2)});
        const auto pointAt = [](const float* p) { return ::osg::Pnt3f(p[0], p[1], p[2]); };

        const geometry_view view(core.get());
        ASSERT_FALSE(view.faulty);
        std::vector<triangle> seen;
        const auto point = [&](std::uint32_t corner) {
            return pointAt(view.positions.at(view.index(view.positions, corner)));
        };
        morva::host::forEachTriangle(view, [&](auto a, auto b, auto c) {
            seen.push_back({point(a), point(b), point(c)});
        });
        EXPECT_EQ(seen, expected);

        std::vector<std::array<::osg::Pnt3f, 2>> lines, expected_lines;
        morva::host::forEachLine(view, [&](auto a, auto b) {
            lines.push_back({point(a), point(b)});
        });
        for (::osg::LineIterator it = core->beginLines(); !it.isAtEnd(); ++it)
            expected_lines.push_back({it.getPosition(0), it.getPosition(1)});
        // An odd number of line vertices: the view leaves the last one out.
        expected_lines.resize(std::min(expected_lines.size(), lines.size()));
        EXPECT_EQ(lines, expected_lines);

        flat_mesh flat(view);
        for (std::uint32_t i = 0; flat.running && i < flat.vertex_count; ++i)
            flat.triangles.push_back(i);
        seen.clear();
        const auto vertex = [&](std::uint32_t index) {
            return pointAt(flat.positions.values + 3 * index);
        };
        for (std::size_t i = 0; i < flat.triangles.size(); i += 3) {
            seen.push_back({vertex(flat.triangles[i]), vertex(flat.triangles[i + 1]),
                            vertex(flat.triangles[i + 2])});
        }
        EXPECT_EQ(seen, expected);
    }
}

TEST(GeometryView, NumbersVerticesByTheirWholeSetOfIndices) {
    for (const mesh_data& mesh : manyMeshes()) {
        const geometry_ref core(geometryOf(mesh));
        const geometry_view view(core.get());
        const morva::host::vertex_numbering numbering = morva::host::numberVertices(view);
        const auto key = [&](std::uint32_t corner) {
            std::vector<std::uint32_t> numbers = {view.index(view.positions, corner)};
            for (const auto* attribute : {&view.normals, &view.colors, &view.secondary_colors,
                                          &view.coordinates[0], &view.coordinates[7]})
                numbers.push_back(attribute->present() ? view.index(*attribute, corner) : 0);
            return numbers;
        };
        std::map<std::vector<std::uint32_t>, std::uint32_t> oracle;
        for (std::uint32_t corner = 0; corner < numbering.of_corner.size(); ++corner) {
            const auto number = static_cast<std::uint32_t>(oracle.size());
            const std::uint32_t expected = oracle.emplace(key(corner), number).first->second;
            ASSERT_EQ(numbering.of_corner[corner], expected);
        }
        EXPECT_EQ(numbering.first_corner.size(), oracle.size());
    }
}

TEST(GeometryView, IndicesBehindTheLastPositionAreAFault) {
    mesh_data mesh = quads(2);
    mesh.indices = {0, 1, 2, 3, 4, 5, 6, 99};
    const geometry_ref core(geometryOf(mesh));
    const geometry_view view(core.get());
    EXPECT_TRUE(view.faulty);
    EXPECT_TRUE(view.runs.empty());

    // A short attribute goes alone.
    mesh_data colored = quads(2);
    colored.colors.assign(3, ::osg::Color3f(1, 0, 0));
    const geometry_ref second(geometryOf(colored));
    const geometry_view kept(second.get());
    EXPECT_FALSE(kept.faulty);
    EXPECT_FALSE(kept.colors.present());
    EXPECT_EQ(kept.runs.size(), 1u);
}

TEST(GeometryView, LengthsThatClaimTooMuchEndWhereTheDataEnds) {
    mesh_data mesh = quads(2);
    mesh.primitives = {{7u, 4u}, {4u, 4000000000u}, {4u, 3u}};
    const geometry_ref core(geometryOf(mesh));
    const geometry_view view(core.get());
    ASSERT_EQ(view.runs.size(), 2u);
    EXPECT_EQ(view.runs[1].length, 4u);
}

TEST(Statistics, CacheMissesAreThoseOfASearchedList) {
    std::mt19937 rng(31);
    for (int round = 0; round < 60; ++round) {
        mesh_data mesh = soup(rng, 150);
        std::uniform_int_distribution<::osg::UInt32> pick(0, 20 + 4 * static_cast<unsigned>(round));
        mesh.indices.resize(450);
        for (::osg::UInt32& index : mesh.indices)
            index = pick(rng);
        const geometry_ref core(geometryOf(mesh));
        const geometry_view view(core.get());
        const auto numbering = morva::host::numberVertices(view);
        std::deque<std::uint32_t> cache;
        std::uint64_t misses = 0;
        for (const std::uint32_t vertex : numbering.of_corner) {
            const auto found = std::find(cache.begin(), cache.end(), vertex);
            if (found != cache.end())
                cache.erase(found);
            else
                ++misses;
            cache.push_front(vertex);
            if (cache.size() > 32)
                cache.pop_back();
        }
        EXPECT_EQ(morva::host::countCacheMisses(
                      view, numbering.of_corner,
                      static_cast<std::uint32_t>(numbering.first_corner.size())),
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
    EXPECT_EQ(figures.nodes, 11u);
    EXPECT_EQ(figures.draw_calls, 4u);
    EXPECT_EQ(figures.geometry_cores, 3u);
    EXPECT_EQ(figures.materials, 1u);
    EXPECT_EQ(figures.triangles, 12u);
    EXPECT_EQ(figures.lines, 3u);
    EXPECT_EQ(figures.points, 4u);
    EXPECT_EQ(figures.acmr, 12.0 / 6.0); // four vertices per quad, nothing shared between quads
}

} // namespace
} // namespace morva_test
