// The order of triangles and lines and the pieces that they come in, against the walk on lists.

#include "naive_draw_order.h"

namespace {

using ::osg::Geometry;

/// A sheet of 2 * columns * rows triangles, some of them in disorder, some degenerate.
mesh_data sheet(std::mt19937& rng, unsigned columns, unsigned rows, unsigned swaps,
                unsigned degenerate) {
    mesh_data mesh;
    for (unsigned i = 0; i < (columns + 1) * (rows + 1); ++i)
        mesh.positions.emplace_back(float(i % (columns + 1)), float(i / (columns + 1)), 0.0F);
    std::vector<std::array<unsigned, 3>> triangles;
    for (unsigned i = 0; i < columns * rows; ++i) {
        const unsigned a = i / columns * (columns + 1) + i % columns, b = a + columns + 1;
        triangles.push_back({a, a + 1, b});
        triangles.push_back({a + 1, b + 1, b});
    }
    for (unsigned i = 0; i < swaps; ++i)
        std::swap(triangles[rng() % triangles.size()], triangles[rng() % triangles.size()]);
    for (unsigned i = 0; i < degenerate; ++i) {
        auto& t = triangles[rng() % triangles.size()];
        t[rng() % 3] = t[rng() % 3];
    }
    for (const auto& t : triangles)
        mesh.indices.insert(mesh.indices.end(), t.begin(), t.end());
    mesh.primitives = {{4, unsigned(mesh.indices.size())}};
    return mesh;
}

/// Random segments between a few points, zero-length ones among them.
mesh_data segments(std::mt19937& rng, unsigned count, unsigned points) {
    mesh_data mesh = row(points, 1);
    mesh.primitives = {{1, 2 * count}};
    for (unsigned i = 0; i < 2 * count; ++i)
        mesh.indices.push_back(unsigned(rng() % points));
    return mesh;
}

/// Random attributes, and an index of its own for each of them beside that of the positions.
mesh_data withOwnIndices(mesh_data mesh, std::mt19937& rng) {
    const std::vector<::osg::UInt32> positions = mesh.indices;
    mesh = withAttributes(std::move(mesh), rng);
    if (rng() % 3 == 0) { // two indices in all
        mesh.colors.clear();
        mesh.coordinates.clear();
        mesh.ids.clear();
    }
    if (!positions.empty()) {
        mesh = withIndexPerProperty(std::move(mesh), rng);
        const std::size_t width = mesh.mapping.size();
        for (std::size_t i = 0; i < positions.size(); ++i) // all alike as in most real meshes
            std::fill_n(&mesh.indices[i * width], i % 2 == 0 ? 1 : width, positions[i]);
    }
    return mesh;
}

/// A sheet, and beside it some vertices with an element for every two of a rim each.
mesh_data hubs(std::mt19937& rng, unsigned rim, unsigned count) {
    mesh_data mesh = sheet(rng, 6, 6, 20, rim == 300 ? 3 : 0);
    const auto first = unsigned(mesh.positions.size());
    for (unsigned i = 0; i < rim + count; ++i)
        mesh.positions.emplace_back(float(i % 31), float(i), 2.0F);
    for (unsigned i = 0; i < rim * count; ++i) {
        const unsigned at = count + i / count;
        const unsigned other = rng() % 4 == 0 ? rng() % first : first + at;
        mesh.indices.insert(mesh.indices.end(),
                            {first + i % count, other, first + count + (at + 1) % rim});
    }
    mesh.primitives = {{4, unsigned(mesh.indices.size())}};
    return mesh;
}

/// Compares a piece's core, but for the normals that it gets of its own.
void expectPiece(const ::osg::GeometryPtr& made, const ::osg::GeometryPtr& source,
                 const naive_piece& expected, bool slot_0) {
    EXPECT_EQ(made->getTypes()->getValue(0), slot_0 ? 4U : 1U);
    ASSERT_EQ(made->getLengths()->getSize(), 1U);
    EXPECT_EQ(made->getLengths()->getValue(0), expected.corners);
    std::vector<::osg::UInt32> index;
    for (::osg::UInt32 i = 0; i < made->getIndices()->getSize(); ++i)
        index.push_back(made->getIndices()->getValue(i));
    EXPECT_EQ(index, expected.index);
    std::vector<::osg::UInt16> mapped;
    const auto expectLike = [&](const auto& own, const auto& others, std::size_t i,
                                ::osg::UInt16 bit) {
        if (others == ::osg::NullFC)
            return;
        ASSERT_EQ(own->getSize(), expected.values[i].size());
        for (::osg::UInt32 k = 0; k < own->getSize(); ++k)
            ASSERT_TRUE(own->getValue(k) == others->getValue(unsigned(expected.values[i][k])));
        mapped.push_back(bit);
    };
    expectLike(made->getPositions(), source->getPositions(), 0, Geometry::MapPosition);
    expectLike(made->getNormals(), source->getNormals(), 1, Geometry::MapNormal);
    expectLike(made->getColors(), source->getColors(), 2, Geometry::MapColor);
    if (slot_0)
        expectLike(made->getTexCoords(), source->getTexCoords(), 3, Geometry::MapTexCoords);
    expectLike(made->getTexCoords7(), source->getTexCoords7(), 4, Geometry::MapTexCoords7);
    if (source->getNormals() == ::osg::NullFC) {
        mapped[0] |= Geometry::MapNormal;
        EXPECT_EQ(made->getNormals()->getSize(), made->getPositions()->getSize());
    }
    EXPECT_EQ(made->getMFIndexMapping()->getValues(), mapped);
    EXPECT_STREQ(::osg::getName(made), ::osg::getName(made->getParents()[0]));
}

struct coverage { ///< what happened on the way, so that a test can tell that it happened at all
    unsigned cases = 0, pieces = 0, drawn_twice = 0;
};

template <typename Kind>
void expectAsOnLists(const mesh_data& mesh, unsigned limit, bool per_property, coverage& seen) {
    const ::osg::MaterialPtr material = simple({1, 0, 0});
    const node_ref top(materialGroup(material, {meshNode(mesh)}));
    const ::osg::GeometryPtr source = coreOf(top->getChild(0));
    bool above_limit = false;
    const node_ref result(
        morva::osg::optimizeCache(top->getChild(0), above_limit, limit, per_property));
    if (!above_limit)
        return;
    const naive_order<Kind> expected(source, limit, per_property);
    ASSERT_EQ(result->getNChildren(), expected.pieces.size());
    for (::osg::UInt32 i = 0; i < result->getNChildren(); ++i) {
        SCOPED_TRACE(testing::Message() << "piece " << i);
        const ::osg::GeometryPtr made = coreOf(result->getChild(i));
        EXPECT_TRUE(made->getMaterial() == material);
        expectPiece(made, source, expected.pieces[i], Kind::corners == 3);
    }
    ++seen.cases;
    seen.pieces += result->getNChildren();
    seen.drawn_twice += expected.drawn_twice != 0 ? 1 : 0;
}

/// A mesh in one of several forms, each for both modes and a few limits.
template <typename Kind, typename Make> coverage compareMany(unsigned seed, const Make& make) {
    std::mt19937 rng(seedOf(seed));
    coverage seen;
    for (unsigned round = 0; round < roundsOf(42U) && !testing::Test::HasFailure(); ++round) {
        const mesh_data mesh = make(rng, round);
        const unsigned low = round % 10 == 0 ? rng() % 3 : 3; // a piece for every triangle
        for (const unsigned limit : {low, 3U + unsigned(rng() % 40), 300U, 2000U, 60000U}) {
            SCOPED_TRACE(testing::Message() << "round " << round << ", limit " << limit);
            expectAsOnLists<Kind>(mesh, limit, false, seen);
            expectAsOnLists<Kind>(mesh, limit, true, seen);
        }
    }
    return seen;
}

TEST(DrawOrder, TrianglesAreDrawnAsOnLists) {
    const coverage seen = compareMany<naive_triangles>(61, [](std::mt19937& rng, unsigned round) {
        const unsigned columns = 2 + unsigned(rng() % 30), rows = 2 + unsigned(rng() % 30);
        switch (round % 6) {
        case 5:
            return hubs(rng, round % 4 == 1 ? 900 : 300, 1 + round % 5);
        case 0:
            return sheet(rng, columns, rows, 0, 0);
        case 1:
            return withOwnIndices(sheet(rng, columns, rows, columns * rows, 0), rng);
        case 2: // degenerate ones dropped, so that numbers are not places
            return sheet(rng, 30, 30, 300 * (round / 6 % 3), 20 + unsigned(rng() % 1400));
        case 3:
            return withAttributes(soup(rng, rows * 8), rng);
        default: {
            mesh_data mesh = withIndexPerProperty(withAttributes(soup(rng, 40), rng), rng);
            mesh.primitives = {{5, 30}, {4, 30}, {7, 20}, {9, 10}, {8, 20}, {6, 10}};
            return mesh;
        }
        }
    });
    EXPECT_GT(seen.cases, 150U);
    EXPECT_GT(seen.pieces, 3 * seen.cases);
    EXPECT_GT(seen.drawn_twice, 0U);
}

TEST(DrawOrder, LinesAreDrawnAsOnLists) {
    const coverage seen = compareMany<naive_lines>(62, [](std::mt19937& rng, unsigned round) {
        const auto size = 20 + unsigned(rng() % 600);
        switch (round % 3) {
        case 0:
            return segments(rng, size, size / 2 + 1);
        case 1:
            return withOwnIndices(segments(rng, size, size / 8 + 1), rng);
        default:
            return withAttributes(mixture(rng, size / 4), rng);
        }
    });
    EXPECT_GT(seen.cases, 100U);
    EXPECT_GT(seen.pieces, 3 * seen.cases);
}

} // namespace
