// Hulls: which elements stay, and where they are then.

#include "tests/collision/solids.h"
#include "tests/support/test.h"

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_scene_rules.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_geomerge.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>

namespace {

/// Vertex numbers of an element, and the type that it is copied with.
using element = std::pair<unsigned, std::vector<std::size_t>>;

/// The elements of a geometry without indices, primitive by primitive.
std::vector<element> elementsOf(const mesh_data& mesh) {
    std::vector<element> all;
    std::size_t first = 0;
    for (const auto& [type, n] : mesh.primitives) {
        const auto put = [&, f = first](unsigned as, std::initializer_list<std::size_t> vertices) {
            all.push_back({as, {}});
            for (const std::size_t v : vertices)
                all.back().second.push_back(f + v);
        };
        for (std::size_t v = 0; v < n; ++v) {
            if (type == 0)
                put(0, {v});
            if (type == 1 && v % 2 == 1)
                put(1, {v - 1, v});
            if ((type == 2 || type == 3) && v > 0)
                put(1, {v - 1, v});
            if (type == 2 && v + 1 == n && n > 1)
                put(1, {v, 0});
            if (type == 4 && v % 3 == 2)
                put(4, {v - 2, v - 1, v});
            if ((type == 5 || type == 8) && v > 1)
                v % 2 == 0 ? put(4, {v - 2, v - 1, v}) : put(4, {v - 1, v - 2, v});
            if ((type == 6 || type == 9) && v > 1)
                put(4, {0, v - 1, v});
            if (type == 7 && v % 4 == 3) {
                put(4, {v - 3, v - 2, v - 1});
                put(4, {v - 3, v - 1, v});
            }
        }
        first += n;
    }
    return all;
}

TEST(CopyPrimitives, KeepsWhatIsAboveTheThresholdAndTheFirstOfEqualOnes) {
    std::mt19937 rng(11);
    for (unsigned round = 0; round < 400; ++round) {
        mesh_data mesh = mixture(rng, rng() % 9);
        mesh.primitives.emplace_back(4, 5); // the rest of a length is dropped
        mesh.positions.resize(mesh.positions.size() + 5);
        mesh = withAttributes(mesh, rng);
        mesh.colors.pop_back();
        mesh.normals.resize(mesh.normals.size() - 3);
        const bool by_colors = round % 2 == 0, bare = round % 5 == 0;
        mesh.normals.resize(bare ? 0 : mesh.normals.size());
        const ::osg::MaterialPtr material = simple({1, 0, 0});
        const node_ref node(meshNode(mesh, material));
        std::vector<float> slot6;
        for (std::size_t i = 0; i < mesh.positions.size(); ++i)
            slot6.push_back(rng() % 40 == 0 ? NAN : float(rng() % 3) * 0.5F);
        slot6.resize(slot6.size() - 2); // rows that are not there count 0
        coreOf(node.get())->setTexCoords6(propertyOf<::osg::GeoTexCoords1f>(slot6));
        const double threshold =
            round % 7 == 0 ? double(NAN) : double(rng() % 4) * (by_colors ? 1 : 0.5) / 3;
        const unsigned given = unsigned(rng() % 4);

        unsigned left = given;
        std::vector<element> expected;
        for (const element& e : elementsOf(mesh)) {
            double sum = 0;
            for (const std::size_t v : e.second) {
                const auto color = v < mesh.colors.size() ? mesh.colors[v] : ::osg::Color3f();
                if (by_colors)
                    sum = sum + double(color[0]) + double(color[1]) + double(color[2]);
                else
                    sum += v < slot6.size() ? double(slot6[v]) : 0;
            }
            const double m = by_colors ? sum / 9 : sum / double(e.second.size());
            if (by_colors && e.first != 4)
                continue;
            if (left != 0 && m == threshold) {
                --left;
                expected.push_back(e);
            } else if (m > threshold) {
                expected.push_back(e);
            }
        }
        unsigned equals = given;
        const geometry_ref copy(
            by_colors
                ? morva::osg::copyPrimitivesWithAOThresholdInColors(node.get(), threshold, equals)
                : morva::osg::copyPrimitivesWithAOThreshold(node.get(), threshold, equals));
        ASSERT_NE(copy.get(), ::osg::NullFC);
        EXPECT_EQ(equals, left);
        EXPECT_EQ(copy->getMaterial(), material);
        EXPECT_EQ(copy->getColors() == ::osg::NullFC, by_colors);
        ASSERT_EQ(copy->getTypes()->size(), expected.size()) << round;
        ASSERT_EQ(copy->getLengths()->size(), expected.size());
        ::osg::UInt32 at = 0;
        for (::osg::UInt32 i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(copy->getTypes()->getValue(i), expected[i].first);
            EXPECT_EQ(copy->getLengths()->getValue(i), expected[i].second.size());
            for (const std::size_t v : expected[i].second) {
                EXPECT_EQ(copy->getPositions()->getValue(at), mesh.positions[v]);
                EXPECT_EQ(copy->getNormals()->getValue(at),
                          v < mesh.normals.size() ? mesh.normals[v] : ::osg::Vec3f(0, 0, 0));
                EXPECT_TRUE(by_colors ||
                            copy->getColors()->getValue(at) ==
                                (v < mesh.colors.size() ? mesh.colors[v] : ::osg::Color3f()));
                EXPECT_TRUE(v >= mesh.ids.size() ||
                            copy->getTexCoords7()->getValue(at)[0] == mesh.ids[v]);
                ++at;
            }
        }
        EXPECT_EQ(copy->getPositions()->size(), at);
        EXPECT_EQ(morva::osg::broken_rule_of(node_ref(nodeOf(copy)).get()), "");
    }
    unsigned none = 0;
    mesh_data crossed = quads(1); // slot 6 is asked by the positions, whatever index it has
    crossed.mapping = {::osg::Geometry::MapPosition, ::osg::Geometry::MapTexCoords6};
    crossed.indices = {0, 3, 1, 2, 2, 1, 3, 0};
    const node_ref by_positions(meshNode(crossed));
    coreOf(by_positions.get())
        ->setTexCoords6(propertyOf<::osg::GeoTexCoords1f>(std::vector<float>{1, 0, 0, 0}));
    const geometry_ref both(
        morva::osg::copyPrimitivesWithAOThreshold(by_positions.get(), 0.2, none));
    EXPECT_EQ(both->getTypes()->size(), 2U);
    const node_ref plain(meshNode(quads(1))), empty(group());
    for (const ::osg::NodePtr& node : {plain.get(), empty.get(), ::osg::NodePtr()}) {
        EXPECT_EQ(morva::osg::copyPrimitivesWithAOThreshold(node, 0, none), ::osg::NullFC);
        EXPECT_EQ(morva::osg::copyPrimitivesWithAOThresholdInColors(node, 0, none), ::osg::NullFC);
    }
}

/// A ball, a block beside it that is turned, hidden geometry, transparent geometry below a
/// transform.
::osg::NodePtr model() {
    std::mt19937 rng(5);
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

/// The triangles of a scene that traversals do not skip, and of a tree that traversals do.
std::size_t shown(const ::osg::NodePtr& root) {
    node_list all, covert;
    morva::osg::getTravMaskZeroNodes(root, covert, false);
    std::size_t count = places(root).size();
    for (const ::osg::NodePtr& node : covert)
        count -= places(node).size();
    return count;
}

bool isWithin(const world_mesh& part, const world_mesh& whole) {
    return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

/// The triangles of a merged model that stay, by a count of its own.
world_mesh naiveHull(const ::osg::NodePtr& root, morva::osg::mergeGeo_setup setup,
                     std::size_t most) {
    morva::kd_build_setup kd;
    kd.max_elements = 500;
    kd.max_depth = 100;
    const node_ref merged(morva::osg::mergeGeo(root, kd, setup));
    morva::osg::bih_scene_geoset scene(merged.get(), {5, 100}, true);
    morva::bih_tree<float> tree;
    compile(scene, tree, {1, 100});
    ::osg::Pnt3f min, max;
    merged->updateVolume();
    merged->getVolume().getBounds(min, max);
    const double distance = double((max - min).length()) * 0.75;
    std::vector<std::pair<double, std::array<::osg::Pnt3f, 3>>> all;
    for (const ::osg::NodePtr& node : scene.nodes) {
        EXPECT_TRUE(morva::osg::saveAOinTC6(node, scene, tree, 3, distance, true));
        const ::osg::GeometryPtr core = coreOf(node);
        for (auto it = core->beginTriangles(); it != core->endTriangles(); ++it) {
            double sum = 0;
            all.emplace_back();
            for (int k = 0; k < 3; ++k) {
                sum += double(core->getTexCoords6()->getValue(
                    static_cast<::osg::UInt32>(it.getPositionIndex(k)))[0]);
                node->getToWorld().multMatrixPnt(it.getPosition(k), all.back().second[unsigned(k)]);
            }
            all.back().first = sum / 3;
        }
    }
    double threshold = 0;
    std::ptrdiff_t equal = 0;
    if (most != 0 && most < all.size()) {
        std::vector<double> values;
        for (const auto& one : all)
            values.push_back(one.first);
        std::sort(values.begin(), values.end());
        const auto place = values.end() - std::ptrdiff_t(most);
        threshold = double(float(*place));
        equal = std::count(place + 1, values.end(), threshold);
    }
    corner_list kept;
    for (const auto& [value, corners] : all)
        if (most >= all.size() || value > threshold || (value == threshold && equal-- > 0))
            kept.insert(kept.end(), corners.begin(), corners.end());
    return places(node_ref(meshNode(triangles(kept))).get());
}

TEST(BuildModelHull, KeepsAsManyAsToldOfWhatThereWas) {
    morva::osg::mergeGeo_setup setup;
    setup.silent = setup.keeprenderfalse = true;
    const unsigned total = 48 + 108 + 36;
    for (const unsigned most : {0U, 1U, total / 3, total / 2, total - 1, total, ~0U}) {
        SCOPED_TRACE(most);
        const node_ref root(model()), twin(model()), untouched(model());
        const stream_capture out(std::cout);
        const world_mesh expected = naiveHull(twin.get(), setup, most);
        const std::size_t said = out.text().size();
        const node_ref hull(morva::osg::buildModelHull(root.get(), setup, most, 3, true));
        const world_mesh found = places(hull.get());
        EXPECT_TRUE(std::includes(found.begin(), found.end(), expected.begin(), expected.end()));
        EXPECT_TRUE(isWithin(found, places(untouched.get())));
        EXPECT_EQ(found.size() - expected.size(), 4U) << "the hidden move over";
        EXPECT_EQ(shown(hull.get()), expected.size());
        const std::string text = out.text().substr(said);
        EXPECT_EQ(text.find("\nPrepare Geoset: \n") == std::string::npos, most >= total);
        EXPECT_EQ(text.find("\nCalc Ambient Occlusion: \n\r0%\r") == std::string::npos,
                  most >= total);
        EXPECT_EQ(morva::osg::broken_rule_of(hull.get()), "");
    }
}

TEST(BuildModelHullWithVertexColors, CountsAllElementsAndKeepsTriangles) {
    mesh_data strips = strip(6), points = row(4, 0);
    for (int i = 0; i < 6; ++i)
        strips.colors.emplace_back(float(i), float(i), float(i));
    points.colors.assign(4, {9, 9, 9});
    const struct {
        unsigned most;
        std::size_t kept;
    } rows[] = {{0, 4}, {1, 0}, {5, 0}, {6, 1}, {8, 3}, {9, 4}, {10, 4}};
    for (const auto& row : rows) {
        const node_ref root(
            group({moved({1, 0, 0}, {meshNode(strips)}), meshNode(points), meshNode(quads(1))}));
        const world_mesh before = places(root.get());
        const stream_capture out(std::cout);
        const node_ref hull(morva::osg::buildModelHullWithVertexColors(root.get(), row.most));
        EXPECT_EQ(out.text(), "GeoNodes: 3\n");
        EXPECT_TRUE(isWithin(places(hull.get()), before));
        EXPECT_EQ(places(hull.get()).size(), row.kept) << row.most;
        ASSERT_EQ(hull->getNChildren(), 3U);
        EXPECT_EQ(hull->getChild(2)->getCore(), ::osg::NullFC) << "no colours, no core";
    }
    EXPECT_EQ(
        node_ref(morva::osg::buildModelHullWithVertexColors(::osg::NullFC, 1))->getNChildren(), 0U);
}

TEST(OptTreeHulls, TakeThePlaceOfTheRootAndCarryIds) {
    for (const char* keys :
         {"buildhull(1),", "buildhullwithcolors(1),", "buildhull(1),buildhullwithcolors(1),"}) {
        for (const bool with_parent : {true, false}) {
            const node_ref parent(with_parent ? group() : ::osg::NodePtr());
            const node_ref root(model());
            if (with_parent)
                parent->addChild(root);
            const stream_capture out(std::cout);
            const node_ref result(morva::osg::optTree(
                root.get(), std::string(keys) + "maxtris(100),idmapinroot(true)"));
            EXPECT_NE(out.text().find("Merge Geometry. Cacheopt: 1\n"), std::string::npos);
            EXPECT_NE(out.text().find("Cacheopt:       0\n"), std::string::npos);
            if (with_parent) {
                ASSERT_EQ(parent->getNChildren(), 1U);
                EXPECT_NE(parent->getChild(0), root.get());
                EXPECT_NE(parent->getChild(0), result.get());
            }
            if (keys == std::string("buildhull(1),")) {
                EXPECT_LT(shown(result.get()), 120U);
                EXPECT_GT(shown(result.get()), 60U);
                const auto& usage = morva::osg::getIDmapHandler().usage;
                const auto& names = morva::osg::getIDmapHandler().names;
                std::set<std::string> used;
                for (const auto& [id, cores] : usage)
                    used.insert(names[std::size_t(id)]);
                EXPECT_EQ(used.count("block"), 1U) << "its triangles are among those that stay";
            }
        }
    }
}

} // namespace
