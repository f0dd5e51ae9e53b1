// Hulls: which elements stay, and where they are then.

#include "naive_occlusion.h"
#include "tests/collision/solids.h"
#include "tests/support/described_tree.h"

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>

namespace {

/// Points, lines and triangles in turn, with rests that are dropped, and not all attributes.
mesh_data separate(std::mt19937& rng) {
    mesh_data mesh = soup(rng, 40);
    mesh.primitives = {{GL_TRIANGLES, 5}};
    for (unsigned i = rng() % 9; i > 0; --i)
        mesh.primitives.emplace_back(std::array{0U, 1U, 4U}[rng() % 3], unsigned(rng() % 12));
    mesh.positions.resize(vertexCount(mesh));
    mesh = withAttributes(mesh, rng);
    mesh.colors.resize(mesh.colors.size() * 9 / 10);
    mesh.normals.resize(mesh.normals.size() * (rng() % 10) / 10);
    return mesh;
}

/// A row, or zeros where there is none.
template <typename Rows> auto rowOf(const Rows& rows, std::size_t v) {
    return v < rows.size() ? rows[v] : std::decay_t<decltype(rows[0])>();
}

TEST(CopyPrimitives, KeepsWhatIsAboveTheThresholdAndTheFirstOfEqualOnes) {
    std::mt19937 rng(seedOf(11));
    for (unsigned round = 0; round < roundsOf(400U); ++round) {
        SCOPED_TRACE(round);
        const mesh_data mesh = separate(rng);
        const bool by_colors = round % 2 == 0;
        const node_ref node(meshNode(mesh, simple({1, 0, 0})));
        std::vector<float> slot6;
        for (std::size_t i = 0; i < mesh.positions.size() * 9 / 10; ++i) // those not there count 0
            slot6.push_back(rng() % 40 == 0 ? NAN : float(rng() % 3) * 0.5F);
        coreOf(node.get())->setTexCoords6(propertyOf<::osg::GeoTexCoords1f>(slot6));
        const double mean = by_colors ? double(rng() % 36) / 4 / 9 : double(rng() % 7) / 2 / 3;
        const double threshold = round % 7 == 0 ? double(NAN) : mean;
        unsigned left = unsigned(rng() % 4), equals = left;

        mesh_data kept;
        std::size_t first = 0;
        for (const auto& [type, length] : mesh.primitives) {
            const std::size_t size = type == 0 ? 1 : type == 1 ? 2 : 3;
            for (std::size_t e = first; e + size <= first + length; e += size) {
                double sum = 0;
                for (std::size_t v = e; v < e + size; ++v)
                    for (unsigned k = 0; k < (by_colors ? 3U : 1U); ++k)
                        sum += double(by_colors ? rowOf(mesh.colors, v)[k] : rowOf(slot6, v));
                const double m = by_colors ? sum / 9 : sum / double(size);
                const bool equal = left != 0 && m == threshold;
                if ((by_colors && type != 4) || !(equal || m > threshold))
                    continue;
                left -= equal ? 1 : 0;
                kept.primitives.emplace_back(type, unsigned(size));
                for (std::size_t v = e; v < e + size; ++v) {
                    kept.positions.push_back(mesh.positions[v]);
                    kept.normals.push_back(rowOf(mesh.normals, v));
                    kept.colors.push_back(rowOf(mesh.colors, v));
                    kept.coordinates.push_back(rowOf(mesh.coordinates, v));
                    kept.ids.push_back(rowOf(mesh.ids, v));
                }
            }
            first += length;
        }
        const auto copied = by_colors ? morva::osg::copyPrimitivesWithAOThresholdInColors
                                      : morva::osg::copyPrimitivesWithAOThreshold;
        const node_ref copy(nodeOf(copied(node.get(), threshold, equals)));
        if (by_colors)
            kept.colors.clear();
        const node_ref twin(meshNode(kept, simple({1, 0, 0})));
        ::osg::createSingleIndex(coreOf(twin.get()));
        std::ostringstream expected, found;
        describe(twin.get(), expected);
        describe(copy.get(), found);
        EXPECT_EQ(found.str(), expected.str());
        EXPECT_EQ(equals, left);
    }
    unsigned none = 0;
    mesh_data crossed = quads(1); // slot 6 is asked by the positions, whatever index it has
    crossed.mapping = {::osg::Geometry::MapPosition, ::osg::Geometry::MapTexCoords6};
    crossed.indices = {0, 3, 1, 2, 2, 1, 3, 0};
    const node_ref by_positions(meshNode(crossed)), plain(meshNode(quads(1))), empty(group());
    coreOf(by_positions.get())
        ->setTexCoords6(propertyOf<::osg::GeoTexCoords1f>(std::vector<float>{1, 0, 0, 0}));
    const geometry_ref both(
        morva::osg::copyPrimitivesWithAOThreshold(by_positions.get(), 0.2, none));
    EXPECT_EQ(both->getTypes()->size(), 2U);
    for (const ::osg::NodePtr& node : {plain.get(), empty.get(), ::osg::NodePtr()}) {
        EXPECT_EQ(morva::osg::copyPrimitivesWithAOThreshold(node, 0, none), ::osg::NullFC);
        EXPECT_EQ(morva::osg::copyPrimitivesWithAOThresholdInColors(node, 0, none), ::osg::NullFC);
    }
}

/// A ball, a block beside it that is turned, hidden geometry, transparent geometry below a
/// transform.
::osg::NodePtr model() {
    std::mt19937 rng(seedOf(5));
    return group(
        {named("ball", meshNode(ballMesh(4), simple({1, 0, 0}))),
         transformed(placed(rng, {1.2F, 0, 0}, {1, 0.5F, 2}),
                     {named("block", meshNode(blockMesh(3), simple({1, 0, 0})))}),
         moved({0, 3, 0}, {named("glass", meshNode(ballMesh(3), chunked({1, 1, 1, 0.5F})))}),
         moved({0, 0, 3}, {named("hidden", hidden(meshNode(quads(2), simple({0, 1, 0}))))})});
}

/// Sorted triangles without attributes.
world_mesh places(const ::osg::NodePtr& root) {
    return worldMesh(root, {false, false, false, false, nullptr});
}

/// The merged model with those elements that stay, by a count of its own.
::osg::NodePtr naiveHull(const ::osg::NodePtr& root, const morva::osg::mergeGeo_setup& setup,
                         std::size_t most) {
    morva::kd_build_setup kd;
    kd.max_elements = 500;
    kd.max_depth = 100;
    const ::osg::NodePtr merged = morva::osg::mergeGeo(root, kd, setup);
    naive_scene scene(merged);
    std::vector<double> values;
    for (const ::osg::NodePtr& node : scene.parts.nodes) {
        const double distance = morva::osg::diagonalOf(merged) * 0.75;
        EXPECT_TRUE(morva::osg::saveAOinTC6(node, scene.parts, scene.tree, 3, distance, true));
        const ::osg::GeometryPtr core = coreOf(node);
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            const auto at = [&](int k) {
                const auto v = ::osg::UInt32(it.getPositionIndex(k));
                return double(core->getTexCoords6()->getValue(v)[0]);
            };
            values.push_back((at(0) + at(1) + at(2)) / 3);
        }
    }
    if (most >= values.size())
        return merged;
    double threshold = 0;
    unsigned equal = 0;
    if (most != 0) {
        std::sort(values.begin(), values.end());
        const auto place = values.end() - std::ptrdiff_t(most);
        threshold = double(float(*place));
        equal = unsigned(std::count(place + 1, values.end(), threshold));
    }
    for (const ::osg::NodePtr& node : scene.parts.nodes)
        node->setCore(morva::osg::copyPrimitivesWithAOThreshold(node, threshold, equal));
    return merged;
}

TEST(BuildModelHull, KeepsAsManyAsToldOfWhatThereWas) {
    morva::osg::mergeGeo_setup setup;
    setup.silent = setup.keeprenderfalse = true;
    const unsigned total = 48 + 108 + 36;
    for (const unsigned most : {0U, 1U, total / 3, total / 2, total - 1, total, ~0U}) {
        SCOPED_TRACE(most);
        const node_ref root(model()), twin(model());
        const stream_capture twin_out(std::cout);
        const node_ref expected(naiveHull(twin.get(), setup, most));
        const stream_capture out(std::cout);
        const node_ref hull(morva::osg::buildModelHull(root.get(), setup, most, 3, true));
        EXPECT_EQ(firstDifference(places(expected.get()), places(hull.get())), "");
        for (const char* line : {"\nPrepare Geoset: \n", "\nCalc Ambient Occlusion: \n\r0%\r"})
            EXPECT_EQ(out.text().find(line) == std::string::npos, most >= total);
        EXPECT_EQ(morva::osg::broken_rule_of(hull.get()), "");
    }
}

TEST(BuildModelHullWithVertexColors, CountsAllElementsAndKeepsTriangles) {
    mesh_data strips = strip(6), points = row(4, 0);
    for (int i = 0; i < 6; ++i)
        strips.colors.emplace_back(float(i), float(i), float(i));
    points.colors.assign(4, {9, 9, 9});
    const std::pair<unsigned, std::size_t> rows[] = {{0, 4}, {1, 0}, {5, 0}, {6, 1},
                                                     {8, 3}, {9, 4}, {10, 4}};
    const stream_capture silence(std::cout);
    for (const auto& [most, kept] : rows) {
        SCOPED_TRACE(most);
        const node_ref root(group({moved({1, 0, 0}, {meshNode(strips)}), meshNode(points),
                                   meshNode(quads(1)), hidden(meshNode(quads(1)))}));
        const world_mesh before = places(root.get());
        const node_ref hull(morva::osg::buildModelHullWithVertexColors(root.get(), most));
        const world_mesh found = places(hull.get());
        EXPECT_TRUE(std::includes(before.begin(), before.end(), found.begin(), found.end()));
        EXPECT_EQ(found.size(), kept + 2) << "the hidden move over";
        ASSERT_EQ(hull->getNChildren(), 4U);
        EXPECT_EQ(hull->getChild(2)->getCore(), ::osg::NullFC) << "no colours, no core";
    }
    const node_ref alone(meshNode(strips));
    const node_ref all(morva::osg::buildModelHullWithVertexColors(alone.get(), 4));
    EXPECT_EQ(places(all.get()).size(), 4U) << "as many as there are";
    EXPECT_EQ(
        node_ref(morva::osg::buildModelHullWithVertexColors(::osg::NullFC, 1))->getNChildren(), 0U);
}

} // namespace
