// From a sorted geoset back to cores: what one core holds at each level, and how a tree is cut.

#include "tests/support/triangle_scenes.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>

namespace {

using namespace tri;
using namespace morva::osg;
using morva::kd_tree;

/// A geoset over a mesh, and its tree of cells of at most `cell` elements.
template <typename G> struct sorted {
    sorted(const mesh_data& mesh, unsigned cell) : source(meshNode(mesh)) {
        const registration_off ids_are_kept;
        extract(source.get(), geoset, set_up);
        morva::compile(geoset, tree, morva::kd_build_setup{cell, 40, 3, 1.0F, 2.0F, 0.95F, false},
                       morva::kd_strategy_ObjMedian());
    }
    node_ref whole(int opt, bool normals = false) const {
        return node_ref(MakeGeoCore(tree, geoset, 0, unsigned(geoset.size), opt, normals));
    }
    node_ref source;
    G geoset;
    kd_tree<float> tree;
};
using sorted_soup = sorted<osg_geoset>;

mesh_data randomSoup(std::mt19937& rng) { return withAttributes(soup(rng, 8 + rng() % 70), rng); }

/// Empty if two scenes draw the same, IDs included, but for degenerate triangles.
std::string difference(const node_ref& a, const node_ref& b) {
    mesh_choice choice;
    choice.dropped = is_rogue;
    choice.ids = true;
    return firstDifference(worldMesh(a.get(), choice), worldMesh(b.get(), choice));
}

TEST(MakeGeoCore, EveryLevelKeepsTheTrianglesWithAllTheirValues) {
    std::mt19937 rng(seedOf(4601));
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const bool further = round % 2 == 0; // what not all functions of the scene graph handle
        mesh_data mesh = randomSoup(rng);
        for (::osg::Pnt3f& p : mesh.positions)
            p[2] *= 0.1F; // gentle edges
        if (further)
            mesh.secondary.assign(mesh.colors.rbegin(), mesh.colors.rend());
        const sorted_soup soup(mesh, 8);
        soup.geoset.geometry->setMaterial(bareMaterial());
        mesh_data plain = meshOf(mesh.primitives, mesh.positions);
        const sorted_soup bare(plain, 8);
        plain.normals = mesh.normals;
        const sorted_soup uneven(plain, 8);
        for (int opt = 0; opt <= 3; ++opt) {
            SCOPED_TRACE(opt);
            const std::string name = "MG_" + std::to_string(getIDmapHandler().mergedCount);
            const node_ref node = soup.whole(opt);
            const ::osg::GeometryPtr core = coreOf(node.get());
            EXPECT_EQ(difference(node, soup.source), "");
            EXPECT_TRUE(::osg::getName(node.get()) == name && ::osg::getName(core) == name);
            EXPECT_EQ(core->getMaterial(), soup.geoset.geometry->getMaterial());
            const auto ids = ::osg::GeoTexCoords1fPtr::dcast(core->getTexCoords7());
            EXPECT_TRUE(opt != 0 || ids != ::osg::NullFC);
            // Calculated normals are those of a core without any.
            EXPECT_EQ(difference(uneven.whole(opt, true), bare.whole(opt, true)), "");
        }
        // One index tells all values apart, an index per property has as many.
        const auto all = numbersOf(rowsOf(soup.geoset.geometry.get(), 3 * soup.geoset.size));
        const std::set<std::vector<float>> distinct(all.begin(), all.end());
        const node_ref single = soup.whole(1), shared = soup.whole(2);
        EXPECT_EQ(coreOf(single)->getPositions()->size(), distinct.size());
        EXPECT_EQ(coreOf(single)->getMFIndexMapping()->size(), 0U);
        EXPECT_EQ(coreOf(shared)->getMFIndexMapping()->size(), further ? 6U : 5U);
    }
}

TEST(MakeGeoCore, StoresIn16BitsUpTo65534Entries) {
    for (const unsigned count : {65534U, 65535U}) {
        const sorted<osg_point_geoset> points(elements(1, count), 100000);
        const node_ref indexed = points.whole(1);
        const auto lengths = coreOf(indexed)->getLengths();
        const auto indices = coreOf(indexed)->getIndices();
        EXPECT_EQ(::osg::GeoPLengthsUI16Ptr::dcast(lengths) != ::osg::NullFC, count == 65534);
        EXPECT_EQ(::osg::GeoIndicesUI16Ptr::dcast(indices) != ::osg::NullFC, count == 65534);
    }
    const sorted_soup wide(quads(33000), 1000000); // more vertices than 16 bits number
    EXPECT_EQ(difference(wide.whole(3), wide.whole(0)), "");
}

TEST(MakeGeoCore, TellsWhatItCannotDoAndGoesOn) {
    sorted_soup soup(quads(2), 9), nothing({}, 1);
    node_ref node;
    EXPECT_EQ(toldBy([&] { node = soup.whole(4); }), "Splitmodel: OutputLevel 4 not supported\n");
    EXPECT_EQ(coreOf(node.get())->getLengths()->getValue(0), 12U);
    soup.tree.indices[2] = 77; // passed over, and so is what lies past the end of the run
    EXPECT_EQ(toldBy([&] { node = MakeGeoCore(soup.tree, soup.geoset, 1, 900, 1, false); }),
              "Index out of bounce.( Splitmodel )\nI: 2 index: 77 num_objects: 4\n");
    EXPECT_EQ(coreOf(node.get())->getLengths()->getValue(0), 6U);
    nothing.geoset.geometry = ::osg::NullFC;
    EXPECT_EQ(lengthOf(coreOf(nothing.whole(3, true).get())->getPositions()), 0);
}

/// Looks for the elements of a run, in its order and with all their values, at every level.
template <typename G> void expectKeptAtEveryLevel(const mesh_data& mesh) {
    const sorted<G> run(mesh, 4);
    const rows from = rowsOf(run.geoset.geometry.get(), G::corners * run.geoset.size);
    for (int opt = 0; opt <= 3; ++opt) { // normals cannot be calculated, and stay
        const node_ref node = run.whole(opt, opt == 2);
        const ::osg::GeometryPtr core = coreOf(node.get());
        EXPECT_EQ(core->getTypes()->getValue(0), G::corners - 1);
        EXPECT_EQ(core->getLengths()->getValue(0), from.size());
        for (std::size_t v = 0; v < from.size(); ++v) {
            const std::size_t row = G::corners * run.tree.indices[v / G::corners] + v % G::corners;
            EXPECT_EQ(numbersOf(vertexAt(core, v)), numbersOf(from[row])) << opt;
        }
    }
}

TEST(MakeGeoCore, LinesAndPointsSurviveEveryLevel) {
    std::mt19937 rng(seedOf(4607));
    for (int round = 0; round < roundsOf(30); ++round) {
        mesh_data mesh = soup(rng, 2 * (1 + rng() % 10));
        mesh.primitives[0].first = 1;
        mesh = withAttributes(mesh, rng);
        expectKeptAtEveryLevel<osg_line_geoset>(mesh);
        expectKeptAtEveryLevel<osg_point_geoset>(mesh);
    }
    // Vertices are numbered by first use; -0 is like 0, also in a vertex of its own, a NaN like
    // none.
    mesh_data mesh = meshOf({{1, 6}}, {});
    for (const float x : {0.0F, -0.0F, -0.0F, nan_value, nan_value, 0.0F})
        mesh.positions.emplace_back(x, 0.0F, 0.0F);
    mesh.colors.assign(6, {1, 1, 1});
    mesh.colors[2] = {0, 0, 0};
    const node_ref made = sorted<osg_line_geoset>(mesh, 9).whole(1);
    const auto indices = coreOf(made.get())->getIndices();
    std::vector<::osg::UInt32> numbers;
    for (::osg::UInt32 i = 0; i < 6; ++i)
        numbers.push_back(indices->getValue(i));
    EXPECT_EQ(numbers, (std::vector<::osg::UInt32>{0, 0, 1, 2, 3, 0}));
    EXPECT_FALSE(std::signbit(coreOf(made.get())->getPositions()->getValue(1)[0]));
}

TEST(CalcLeftPart, SharesInProportionButNeverAllOrNothing) {
    const std::int64_t cases[][4] = {{0, 5, 4, 0},    {5, 0, 4, 4},
                                     {1, 1000, 8, 1}, {1000, 1, 8, 7},
                                     {1, 1, 5, 3},    {4294967295, 1, 2147483647, 2147483646}};
    for (const auto& [l, r, n, expected] : cases)
        EXPECT_EQ(calcleftpart(unsigned(l), unsigned(r), int(n)), expected) << l << " " << r;
}

/// Shape of a scene: a number per geometry node (its triangles), brackets per group.
std::string shapeOf(const ::osg::NodePtr& node) {
    const ::osg::GeometryPtr geometry = coreOf(node);
    if (geometry != ::osg::NullFC)
        return std::to_string(geometry->getLengths()->getValue(0) / 3);
    std::string text = "[";
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        text += (i == 0 ? "" : " ") + shapeOf(node->getChild(i));
    return text + "]";
}

/// The shape that a cut must have, from the tree's records alone.
std::string expectedShape(const kd_tree<float>& tree, unsigned node, int parts, unsigned limit) {
    const unsigned all = triangle_count(tree, node);
    if (parts == 1 || tree.nodes[node].is_leaf())
        return std::to_string(all);
    if (all <= limit)
        return "[" + std::to_string(all) + "]";
    const auto right = unsigned(tree.nodes[node].right);
    const unsigned l = triangle_count(tree, node + 1), r = triangle_count(tree, right);
    if (parts == 2)
        return "[" + std::to_string(l) + " " + std::to_string(r) + "]";
    const int on_left = parts == 0 ? 0 : calcleftpart(l, r, parts);
    std::string text;
    if (parts == 0 ? l > 0 : on_left > 0)
        text = expectedShape(tree, node + 1, on_left, limit);
    if (parts == 0 ? r > 0 : on_left < parts)
        text += (text.empty() ? "" : " ") + expectedShape(tree, right, parts - on_left, limit);
    return "[" + text + "]";
}

TEST(Split, CutsTheTreeAsItsRecordsTellAndLosesNothing) {
    std::mt19937 rng(seedOf(4611));
    const node_ref plain(group()), painted(materialGroup(::osg::NullFC, {}));
    for (int round = 0; round < roundsOf(80); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const sorted_soup soup(randomSoup(rng), 1 + unsigned(rng() % 9));
        const int leaves = int(soup.tree.leaf_count), parts = int(rng() % 7),
                  right = soup.tree.nodes[0].is_leaf() ? 0 : int(soup.tree.nodes[0].right);
        const unsigned limit = 1 + unsigned(rng() % 30);
        const node_ref made(
            Make_N_GeometryCores(soup.tree, soup.geoset, right, parts, limit, 0, false));
        EXPECT_EQ(shapeOf(made.get()), expectedShape(soup.tree, unsigned(right), parts, limit));
        // By the limit alone where leaves are few; and with the core of a material group.
        for (const int wanted : {parts, leaves + 1}) {
            const node_ref& model = round % 2 == 0 ? plain : painted;
            const node_ref split(
                Split(soup.tree, soup.geoset, 0, wanted, limit, model.get(), 0, false));
            const std::string shape =
                expectedShape(soup.tree, 0, wanted > leaves ? 0 : wanted, limit);
            EXPECT_EQ(split->getCore() == model->getCore(), model == painted);
            if (shape[0] == '[') {
                EXPECT_EQ(shapeOf(split.get()), shape);
                EXPECT_EQ(difference(split, soup.source), "");
            }
        }
    }
    const osg_geoset geoset; // a tree that was never built gives an empty geometry
    const node_ref all(Make_N_GeometryCores(kd_tree<float>(), geoset, 0, 0, 5, 1, false));
    const node_ref two(Node_to_2GeoCores(kd_tree<float>(), geoset, 3, 1, false));
    EXPECT_EQ(shapeOf(all.get()) + shapeOf(two.get()), "0[0 0]");
}

} // namespace
