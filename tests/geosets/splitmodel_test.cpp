// From a sorted geoset back to cores: what one core holds at each level, and how a tree is cut.

#include "triangle_scenes.h"

#include <OpenSG/OSGPrimitiveIterator.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>

namespace {

using namespace tri;
using morva::kd_build_setup;
using morva::kd_tree;
using morva::osg::calcleftpart;
using morva::osg::Make_N_GeometryCores;
using morva::osg::MakeGeoCore;

/// A copy with the values in reverse order.
template <typename Role> Role reversed(const Role& property) {
    const Role copy = property->clone();
    for (::osg::UInt32 i = 0; i < copy->size(); ++i)
        copy->setValue(property->getValue(copy->size() - 1 - i), i);
    return copy;
}

/// A geoset over a mesh, and its tree of cells of at most `cell` elements.
template <typename G> struct sorted {
    /// further  secondary colours and coordinates in the sets 1, 3 and 6, with other rows' values
    sorted(const mesh_data& mesh, unsigned cell, bool further = false) : source(meshNode(mesh)) {
        const ::osg::GeometryPtr core = coreOf(source.get());
        if (further) {
            core->setSecondaryColors(reversed(core->getColors()));
            core->setTexCoords1(reversed(core->getTexCoords7()));
            core->setTexCoords3(reversed(core->getTexCoords()));
        }
        const registration_off ids_are_kept;
        extract(source.get(), geoset, set_up);
        if (further) { // by hand: extraction does not bring it
            core->setTexCoords6(reversed(core->getTexCoords()));
            geoset.geometry->setTexCoords6(core->getTexCoords6());
        }
        morva::compile(geoset, tree, kd_build_setup{cell, 40, 3, 1.0F, 2.0F, 0.95F, false},
                       morva::kd_strategy_ObjMedian());
    }
    node_ref core(unsigned first, unsigned count, int opt, bool normals = false) const {
        return node_ref(MakeGeoCore(tree, geoset, first, count, opt, normals));
    }
    node_ref whole(int opt, bool normals = false) const {
        return core(0, static_cast<unsigned>(geoset.size), opt, normals);
    }
    node_ref source;
    G geoset;
    kd_tree<float> tree;
};
using sorted_soup = sorted<osg_geoset>;

/// `count` triangles that can be kept, with every attribute; corners are often equal.
mesh_data randomSoup(std::mt19937& rng, std::size_t count) {
    mesh_data mesh = meshOf({{4, static_cast<unsigned>(3 * count)}}, {});
    while (mesh.positions.size() < 3 * count) {
        const piece t = soup(rng, 1).positions;
        if (!morva::osg::is_rogue(t[0], t[1], t[2]))
            mesh.positions.insert(mesh.positions.end(), t.begin(), t.end());
    }
    return withAttributes(mesh, rng);
}

/// Empty if two scenes draw the same, IDs included.
std::string difference(const node_ref& a, const node_ref& b, bool with_normals = true) {
    mesh_choice choice;
    choice.normals = with_normals;
    choice.ids = true;
    return firstDifference(worldMesh(a.get(), choice), worldMesh(b.get(), choice));
}

TEST(MakeGeoCore, EveryLevelKeepsTheTrianglesWithAllTheirValues) {
    std::mt19937 rng(seedOf(4601));
    for (int round = 0; round < roundsOf(60); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const sorted_soup soup(randomSoup(rng, 1 + rng() % 60), 8, round % 2 == 0);
        soup.geoset.geometry->setMaterial(bareMaterial());
        for (int opt = 0; opt <= 3; ++opt)
            EXPECT_EQ(difference(soup.whole(opt), soup.source), "") << "opt " << opt;
        // One index tells all values apart, an index per property has as many.
        const rows from = rowsOf(soup.geoset.geometry.get(), 3 * soup.geoset.size);
        const auto all = numbersOf(from);
        const std::set<std::vector<float>> distinct(all.begin(), all.end());
        const node_ref single = soup.whole(1), shared = soup.whole(2);
        EXPECT_EQ(coreOf(single)->getPositions()->size(), distinct.size());
        EXPECT_EQ(coreOf(single)->getMFIndexMapping()->size(), 0U);
        EXPECT_EQ(coreOf(shared)->getMFIndexMapping()->size(), round % 2 == 0 ? 9U : 5U);
        EXPECT_EQ(coreOf(shared)->getMFIndexMapping()->front(), ::osg::Geometry::MapPosition);

        // Level 0 is the run in its order, without index, named anew.
        const auto first = unsigned(rng() % soup.geoset.size),
                   count = 1 + unsigned(rng() % (soup.geoset.size - first));
        const std::string name = "MG_" + std::to_string(morva::osg::getIDmapHandler().mergedCount);
        const node_ref node = soup.core(first, count, 0);
        const ::osg::GeometryPtr core = coreOf(node.get());
        EXPECT_TRUE(core->getIndices() == ::osg::NullFC);
        EXPECT_EQ(core->getLengths()->getValue(0), 3 * count);
        EXPECT_TRUE(::osg::GeoTexCoords1fPtr::dcast(core->getTexCoords7()) != ::osg::NullFC);
        rows expected;
        for (std::size_t v = 0; v < 3 * count; ++v)
            expected.push_back(from[3 * soup.tree.indices[first + v / 3] + v % 3]);
        EXPECT_EQ(numbersOf(rowsOf(core, 3 * count)), numbersOf(expected));
        EXPECT_EQ(::osg::getName(node.get()), name);
        EXPECT_EQ(::osg::getName(core), name);
        EXPECT_EQ(core->getMaterial(), soup.geoset.geometry->getMaterial());
    }
}

TEST(MakeGeoCore, StoresIn16BitsUpTo65534Entries) {
    for (const unsigned triangles : {21844U, 21845U}) {
        std::mt19937 rng(seedOf(4604));
        const sorted_soup soup(randomSoup(rng, triangles), 100000);
        const bool is_short = triangles == 21844;
        for (const int opt : {0, 3}) {
            const node_ref node = soup.whole(opt);
            const auto lengths = coreOf(node)->getLengths();
            EXPECT_EQ(::osg::GeoPLengthsUI16Ptr::dcast(lengths) != ::osg::NullFC, is_short);
        }
        const node_ref indexed = soup.whole(1);
        const auto indices = coreOf(indexed)->getIndices();
        EXPECT_EQ(::osg::GeoIndicesUI16Ptr::dcast(indices) != ::osg::NullFC, is_short);
    }
    // A wide sheet: the strips need fewer than 65535 indices, the vertices are more than 65536.
    const sorted_soup wide(quads(33000), 1000000);
    EXPECT_EQ(difference(wide.whole(3), wide.source, false), "");
}

TEST(MakeGeoCore, TellsWhatItCannotDoAndGoesOn) {
    std::mt19937 rng(seedOf(4605));
    sorted_soup soup(randomSoup(rng, 4), 9);
    node_ref node;
    for (const int opt : {4, -1}) {
        EXPECT_EQ(toldBy([&] { node = soup.whole(opt); }),
                  "Splitmodel: OutputLevel " + std::to_string(opt) + " not supported\n");
        EXPECT_TRUE(coreOf(node.get())->getIndices() == ::osg::NullFC);
        EXPECT_EQ(difference(node, soup.source), "");
    }
    soup.tree.indices[2] = 77; // passed over, and so is what lies past the end of the run
    EXPECT_EQ(toldBy([&] { node = soup.core(1, 900, 1); }),
              "Index out of bounce.( Splitmodel )\nI: 2 index: 77 num_objects: 4\n");
    EXPECT_EQ(coreOf(node.get())->getLengths()->getValue(0), 6U);

    sorted_soup nothing({}, 1); // an empty run, with and without a core
    for (int opt = 0; opt <= 4; ++opt) {
        node = nothing.core(0, 0, opt % 4, opt == 2);
        EXPECT_EQ(lengthOf(coreOf(node.get())->getPositions()), 0);
        if (opt == 3)
            nothing.geoset.geometry = ::osg::NullFC;
    }
}

TEST(MakeGeoCore, CalculatedNormalsAreSmoothOnlyAcrossGentleEdges) {
    // Two floor triangles with a gentle edge, and a wall; the given normals are nonsense.
    const ::osg::Pnt3f gentle(0, 1, 0);
    mesh_data mesh = meshOf({{4, 9}}, {{0, 0, 0},
                                       {1, 0, 0},
                                       gentle,
                                       {1, 0, 0},
                                       {1, 1, 0.1F},
                                       gentle,
                                       {0, 0, 0},
                                       {0, 0, 1},
                                       {1, 0, 0}});
    for (std::size_t i = 0; i < 9; ++i)
        mesh.normals.push_back(i % 2 == 0 ? ::osg::Vec3f(1, 0, 0) : ::osg::Vec3f(0, 1, 0));
    mesh.secondary.assign(9, {0, 0, 1});
    const sorted_soup soup(mesh, 100);
    for (int opt = 0; opt <= 2; ++opt) {
        SCOPED_TRACE(opt);
        const node_ref node = soup.whole(opt, true);
        EXPECT_EQ(difference(node, soup.source, false), "");
        std::vector<::osg::Vec3f> smooth;
        for (auto it = coreOf(node.get())->beginTriangles(); !it.isAtEnd(); ++it) {
            const ::osg::Pnt3f a = it.getPosition(0), b = it.getPosition(1), c = it.getPosition(2);
            ::osg::Vec3f own = (b - a).cross(c - a);
            own.normalize();
            for (int k = 0; k < 3; ++k) {
                const ::osg::Pnt3f p = it.getPosition(k);
                if (p == gentle)
                    smooth.push_back(it.getNormal(k));
                const bool is_sharp = own[1] == 1.0F || p[0] == p[1]; // of the wall, or alone
                EXPECT_TRUE(!is_sharp || (it.getNormal(k) - own).length() < 1e-6F) << p;
            }
        }
        ASSERT_EQ(smooth.size(), 2U);
        EXPECT_EQ(smooth[0], smooth[1]);
        EXPECT_TRUE(smooth[0][2] < 0.9999F && smooth[0][2] > 0.99F) << smooth[0];
    }
}

/// The elements of a core, each with all its values.
std::multiset<std::vector<float>> bagOf(const node_ref& node, unsigned corners) {
    std::multiset<std::vector<float>> bag;
    for (auto it = coreOf(node.get())->beginPrimitives(); !it.isAtEnd(); ++it) {
        EXPECT_EQ(it.getType(), corners == 2 ? 1U : 0U);
        for (::osg::UInt32 i = 0; i < it.getLength(); i += corners) {
            std::vector<float> values;
            for (::osg::UInt32 k = i; k < i + corners && k < it.getLength(); ++k) {
                const auto more = numbersOf(cornerAt(it, static_cast<::osg::Int32>(k)));
                values.insert(values.end(), more.begin(), more.end());
            }
            bag.insert(values);
        }
    }
    return bag;
}

template <typename G> void expectKeptAtEveryLevel(const mesh_data& mesh) {
    const sorted<G> run(mesh, 4);
    const auto all = bagOf(run.whole(0), G::corners);
    EXPECT_EQ(all.size(), run.geoset.size);
    for (int opt = 1; opt <= 3; ++opt) // normals cannot be calculated, and stay
        EXPECT_EQ(bagOf(run.whole(opt, opt == 2), G::corners), all) << "opt " << opt;
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
    // Vertices are numbered by first use; a NaN is like none.
    mesh_data mesh = meshOf({{1, 8}}, {{0, 0, 0},
                                       {1, 0, 0},
                                       {1, 0, 0},
                                       {-0.0F, 0, -0.0F},
                                       {2, 0, 0},
                                       {1, 0, 0},
                                       {nan_value, 0, 0},
                                       {nan_value, 0, 0}});
    mesh.colors.assign(8, {1, 1, 1});
    mesh.colors[3] = {0, 0, 0};
    const sorted<osg_line_geoset> lines(mesh, 100);
    const node_ref made = lines.whole(1);
    std::vector<::osg::UInt32> indices;
    for (::osg::UInt32 i = 0; i < 8; ++i)
        indices.push_back(coreOf(made.get())->getIndices()->getValue(i));
    EXPECT_EQ(indices, (std::vector<::osg::UInt32>{0, 1, 1, 2, 3, 1, 4, 5}));
    EXPECT_FALSE(std::signbit(coreOf(made.get())->getPositions()->getValue(2)[0]))
        << "of 0 and -0 the positions keep the one that they met first";
}

// ---- cutting the tree

TEST(CalcLeftPart, SharesInProportionButNeverAllOrNothing) {
    const std::int64_t cases[][4] = {{0, 5, 4, 0},
                                     {5, 0, 4, 4},
                                     {0, 0, 3, 0},
                                     {2, 1, 3, 2},
                                     {1, 2, 3, 1},
                                     {5, 5, 1, 1},
                                     {1, 1000, 8, 1},
                                     {1000, 1, 8, 7},
                                     {1, 1, 5, 3},
                                     {3, 5, -1, 1},
                                     {4294967295, 1, 2147483647, 2147483646}};
    for (const auto& [l, r, n, expected] : cases)
        EXPECT_EQ(calcleftpart(unsigned(l), unsigned(r), int(n)), expected)
            << l << " " << r << " " << n;
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
    const auto count = [&](unsigned n) {
        return static_cast<unsigned>(morva::triangle_count(tree, n));
    };
    const unsigned all = count(node);
    if (parts == 1 || tree.nodes[node].is_leaf())
        return std::to_string(all);
    if (all <= limit)
        return "[" + std::to_string(all) + "]";
    const unsigned right = static_cast<unsigned>(tree.nodes[node].right);
    const unsigned l = count(node + 1), r = count(right);
    if (parts == 2)
        return "[" + std::to_string(l) + " " + std::to_string(r) + "]";
    const int on_left = parts == 0 ? 0 : calcleftpart(l, r, parts), on_right = parts - on_left;
    const bool go_left = parts == 0 ? l > 0 : on_left > 0;
    const bool go_right = parts == 0 ? r > 0 : on_right >= 1;
    return "[" + (go_left ? expectedShape(tree, node + 1, on_left, limit) : "") +
           (go_left && go_right ? " " : "") +
           (go_right ? expectedShape(tree, right, on_right, limit) : "") + "]";
}

TEST(Split, CutsTheTreeAsItsRecordsTellAndLosesNothing) {
    std::mt19937 rng(seedOf(4611));
    const node_ref models[] = {node_ref(), node_ref(group()),
                               node_ref(materialGroup(::osg::NullFC, {}))};
    for (int round = 0; round < roundsOf(80); ++round) {
        SCOPED_TRACE(testing::Message() << "round " << round);
        const sorted_soup soup(randomSoup(rng, 1 + rng() % 80), 1 + unsigned(rng() % 9));
        const int parts = int(rng() % 7), leaves = int(soup.tree.leaf_count);
        const unsigned limit = 1 + unsigned(rng() % 30);
        const bool whole = round % 3 != 0 || soup.tree.nodes[0].is_leaf();
        const auto start = whole ? 0U : unsigned(soup.tree.nodes[0].right);
        const node_ref made(
            Make_N_GeometryCores(soup.tree, soup.geoset, int(start), parts, limit, 0, false));
        EXPECT_EQ(shapeOf(made.get()), expectedShape(soup.tree, start, parts, limit));
        if (whole) {
            EXPECT_EQ(difference(made, soup.source), "");
        }
        // By the limit alone where leaves are few; and with the core of a material group.
        for (const int wanted : {parts, leaves, leaves + 1}) {
            const node_ref& model = models[rng() % 3];
            const node_ref split(
                morva::osg::Split(soup.tree, soup.geoset, 0, wanted, limit, model.get(), 0, false));
            const std::string shape =
                expectedShape(soup.tree, 0, wanted > leaves ? 0 : wanted, limit);
            EXPECT_TRUE(shapeOf(split.get()) == shape || shape[0] != '[') << shape;
            EXPECT_EQ(model != ::osg::NullFC && split->getCore() == model->getCore(),
                      model == models[2]);
        }
    }
    const osg_geoset geoset; // a tree that was never built gives an empty geometry
    const node_ref all(Make_N_GeometryCores(kd_tree<float>(), geoset, 0, 0, 5, 1, false));
    const node_ref two(morva::osg::Node_to_2GeoCores(kd_tree<float>(), geoset, 3, 1, false));
    EXPECT_EQ(shapeOf(all.get()) + shapeOf(two.get()), "0[0 0]");
}

} // namespace
