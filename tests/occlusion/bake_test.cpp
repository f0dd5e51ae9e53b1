// Occlusion in vertex colours and in coordinate set 6, beside a twin that takes every step.

#include <atomic>

#include "naive_occlusion.h"
#include "tests/collision/solids.h"

#include <OpenSG/OSGGeoFunctions.h>

#include <morva/core/morva_osg_scene_rules.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/occlusion/morva_osg_ambient_occlusion.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_work.h>

namespace {

/// Shots of this process: its first caller's, whatever a test asks for.
int shotsHere() {
    const char* wish = std::getenv("MORVA_TEST_SHOTS");
    const int wanted = wish != nullptr ? std::atoi(wish) : 3;
    return int(std::lround(std::cbrt(double(morva::osg::getRayVecs(unsigned(wanted)).size())))) - 1;
}

/// Geometry with more or less of what it can have; some of it too short or no number.
::osg::GeometryPtr anyCore(std::mt19937& rng) {
    const mesh_data shapes[] = {soup(rng, 20), mixture(rng, 8), turnedOver(blockMesh(2)),
                                quads(2),      pileMesh(9),     turnedOver(ballMesh(4)),
                                blockMesh(2),  mesh_data(),     waveMesh(4),
                                row(6, 1)};
    mesh_data mesh = shapes[rng() % std::size(shapes)];
    if (rng() % 2 == 0)
        mesh = withNormals(mesh, rng);
    if (rng() % 2 == 0)
        mesh = withColors(mesh, rng);
    if (rng() % 4 == 0)
        mesh = rng() % 2 == 0 ? withIndexPerProperty(mesh, rng) : withIndex(mesh, rng);
    if (mesh.colors.empty() && mesh.mapping.empty() && !mesh.indices.empty())
        mesh.mapping = {::osg::Geometry::MapPosition}; // it serves the positions alone
    if (rng() % 4 == 0)
        mesh.colors.resize(mesh.colors.size() / 2);
    if (rng() % 4 == 0)
        mesh.normals.resize(mesh.normals.size() / 2);
    for (::osg::Vec3f& normal : mesh.normals)
        normal *= rng() % 9 == 0 ? std::pow(0.1F, float(rng() % 8)) : float(rng() % 4 != 0);
    if (rng() % 4 == 0 && mesh.normals.size() > 3)
        mesh.normals[rng() % 3][0] = NAN;
    if (rng() % 4 == 0 && mesh.positions.size() > 3)
        mesh.positions[rng() % 3][1] = rng() % 2 == 0 ? NAN : INFINITY;
    const ::osg::GeometryPtr core = geometryOf(mesh);
    if (rng() % 3 == 0)
        core->setMaterial(simple({1, 0.5F, 0}));
    if (rng() % 3 == 0)
        core->setColors(inOtherForm<::osg::GeoColors4f>(core->getColors()));
    else if (rng() % 2 == 0)
        core->setColors(inOtherForm<::osg::GeoColors4ub>(core->getColors()));
    return core;
}

::osg::Matrix aside(std::mt19937& rng) { return placed(rng, anyVector(rng, 2), {1.5F, 0.5F, -1}); }

/// A scene of such geometry, some of it at several places; or one geometry.
::osg::NodePtr anyModel(std::uint32_t seed) {
    std::mt19937 rng(seedOf(seed));
    geometry_ref core(::osg::Geometry::create());
    if (rng() % 12 == 0)
        return nodeOf(anyCore(rng), {nodeOf(core)});
    const ::osg::NodePtr root = rng() % 4 == 0 ? moved({1e6F, -2e6F, 3e5F}, {}) : group();
    for (unsigned i = rng() % 8; i > 0; --i) {
        if (rng() % 4 != 0)
            core = anyCore(rng);
        const ::osg::NodePtr part = nodeOf(core);
        const unsigned kind = rng() % 8;
        root->addChild(
            kind == 0   ? hidden(part)
            : kind == 1 ? materialGroup(simple({0, 1, 0.5F}), {part, switched(0, {nodeOf(core)})})
            : kind < 4  ? transformed(aside(rng), {part})
                        : part);
    }
    return root;
}

/// Bakes a scene, and gives what is printed.
std::string bake(const ::osg::NodePtr& root, bool replace, int shots, unsigned threads = 1) {
    const stream_capture out(std::cout);
    const bool ids_are_kept = morva::osg::getIDmapHandler().merged;
    std::cout << std::scientific << std::setprecision(7); // must not reach the numbers
    morva::osg::bakeOcclusion(root, replace, shots, threads);
    EXPECT_EQ(morva::osg::getIDmapHandler().merged, ids_are_kept);
    return out.text();
}

TEST(AddAmbientOcclusion, AgreesWithTheNaiveTwin) {
    const std::vector<float3> rays = raysOf(shotsHere()); // before any other asks
    for (unsigned round = 0; round < roundsOf(60U); ++round) {
        SCOPED_TRACE(round);
        const bool replace = round % 2 == 0;
        const node_ref root(anyModel(round));
        const bool whole = morva::osg::isWhole(root.get());
        const node_list nodes = listed(root.get());
        std::vector<::osg::RefPtr<::osg::GeoColorsPtr>> before;
        for (const ::osg::NodePtr& node : nodes) {
            const ::osg::GeometryPtr core = coreOf(node);
            if (!replace) // then the bake finds its rows as they are here
                morva::osg::PrepareGeometryForAO(node, true);
            // Twice: rows that were missing are equal only then.
            for (int k = 0; k < 2 && !replace && core->getPositions() != ::osg::NullFC; ++k) {
                morva::osg::joinEqualVertices(core);
                ::osg::createSingleIndex(core);
            }
            const ::osg::GeoColorsPtr colors = core->getColors();
            before.emplace_back(replace || colors == ::osg::NullFC ? colors : colors->clone());
        }
        bake(root.get(), replace, 3, 1 + round % 3);
        const naive_scene scene(root.get());
        for (std::size_t n = 0; n < nodes.size(); ++n) {
            const ::osg::GeometryPtr core = coreOf(nodes[n]);
            EXPECT_TRUE(!replace || morva::osg::getMaterial(nodes[n]) == ::osg::NullFC);
            if (core->getPositions() == ::osg::NullFC)
                continue;
            const bool grey = replace || before[n].get() == ::osg::NullFC;
            if (grey)
                before[n] = ::osg::GeoColors3f::create();
            const ::osg::GeoColorsPtr colors = before[n].get();
            const std::vector<float> values =
                naiveValues(scene, nodes[n], rays, morva::osg::diagonalOf(root.get()));
            ASSERT_EQ(core->getColors()->size(), values.size());
            for (::osg::UInt32 i = 0; i < values.size(); ++i) {
                if (i == colors->size())
                    colors->addValue(grey ? ::osg::Color3f(1, 1, 1)
                                          : ::osg::Color3f(.5F, .5F, .5F));
                const ::osg::Color3f c = colors->getValue(i);
                colors->setValue({c[0] * values[i], c[1] * values[i], c[2] * values[i]}, i);
                const ::osg::Color3f expected = colors->getValue(i);
                const ::osg::Color3f found = core->getColors()->getValue(i);
                EXPECT_EQ(std::memcmp(&found, &expected, sizeof found), 0) << i;
            }
            EXPECT_EQ(core->calcMappingIndex(::osg::Geometry::MapColor),
                      core->calcMappingIndex(::osg::Geometry::MapPosition));
        }
        EXPECT_TRUE(!whole || morva::osg::broken_rule_of(root.get()).empty());
    }
}

TEST(VertexWork, ThreadsDoEachPieceOnceAndTheCallerEndsThemInOrder) {
    for (unsigned round = 0; round < roundsOf(300U); ++round) {
        morva::osg::vertex_work work;
        work.counts = {0, 33, 700, 0, 32, 65, round};
        std::atomic<std::size_t> asked[7] = {};
        const bool fails = round % 5 == 0;
        work.piece = [&](std::size_t geometry, std::size_t first, std::size_t last) {
            if (fails && geometry == 5 && first >= 64)
                throw std::bad_alloc();
            asked[geometry] += last - first;
        };
        std::size_t next = 0;
        work.end = [&](std::size_t geometry) {
            EXPECT_EQ(geometry, next++);
            EXPECT_EQ(asked[geometry], work.counts[geometry]);
        };
        morva::osg::work_progress progress;
        try {
            doInOrder(work, round % 6, progress);
            EXPECT_TRUE(!fails && next == 7 && progress.done == 830 + round);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fails && next <= 5);
        }
    }
}

// What is known of rays without a descent is none of the twin's.
TEST(OpennessOf, IsThatOfTheNaiveTwinForAnyDistance) {
    std::mt19937 rng(seedOf(9));
    const std::vector<float3> rays = raysOf(shotsHere());
    for (unsigned round = 0; round < roundsOf(40U); ++round) {
        const node_ref root(group({anyModel(round)}));
        const naive_scene twin(root.get());
        const stream_capture silence(std::cout);
        const morva::osg::traced_scene scene(root.get());
        morva::osg::occlusion_rays trace = scene.rays();
        for (std::uint32_t i = 0; i < 20 * scene.parts.built_count; ++i) {
            const auto& part = scene.parts.geosets[i / 20];
            const float3 at = part.simple_tris[rng() % part.size].a;
            const ::osg::Vec3f way = anyVector(rng, float(rng() % 2));
            const float3 normal{way[0], way[1], way[2]};
            const double distance =
                std::pow(2.0, -double(rng() % 7)) * morva::osg::diagonalOf(root.get());
            EXPECT_EQ(bits_of(morva::osg::opennessOf(rays, at, normal, distance, trace)),
                      bits_of(twin.value(at, normal, rays, distance)))
                << round << ' ' << distance;
        }
    }
}

TEST(AddAmbientOcclusion, LeavesTheRestOfAModelAsItWas) {
    const ::osg::GeometryPtr shared = geometryOf(quads(2)), alone = geometryOf(quads(2));
    const node_ref outside(group({nodeOf(shared), nodeOf(alone)}));
    const node_ref root(
        group({materialGroup(simple({1, 0, 0}), {nodeOf(shared), hidden(nodeOf(shared)),
                                                 switched(0, {meshNode(quads(1))})}),
               hidden(nodeOf(shared))}));
    bake(root.get(), true, 3);
    bake(node_ref(nodeOf(alone)).get(), true, 3);
    const ::osg::NodePtr parts = root->getChild(0);
    for (const ::osg::NodePtr& node : {parts->getChild(1), parts->getChild(2)->getChild(0)}) {
        const auto material = ::osg::SimpleMaterialPtr::dcast(morva::osg::getMaterial(node));
        ASSERT_NE(material, ::osg::NullFC) << "the group's, not drawn";
        EXPECT_EQ(material->getDiffuse(), ::osg::Color3f(1, 0, 0));
        EXPECT_EQ(coreOf(node)->getColors(), ::osg::NullFC);
    }
    for (const ::osg::GeometryPtr& core : {coreOf(root->getChild(1)), shared, alone})
        EXPECT_TRUE(core->getMaterial() == ::osg::NullFC && core->getColors() == ::osg::NullFC &&
                    core->getIndices() == ::osg::NullFC);
}

TEST(Occlusion, ThreadsGetTheOneSetOfTheFirstCallerInOrder) {
    std::vector<std::vector<float3>> sets(4); // in a process of its own these are the first calls
    inThreads(4, [&](unsigned t) { sets[t] = morva::osg::getRayVecs(3 + t % 2); });
    const std::vector<float3> expected = raysOf(shotsHere());
    EXPECT_EQ(morva::osg::raysInForce(255), expected.size());
    for (const std::vector<float3>& rays : sets) {
        ASSERT_EQ(rays.size(), expected.size());
        EXPECT_EQ(std::memcmp(rays.data(), expected.data(), rays.size() * sizeof(float3)), 0);
    }
}

TEST(Occlusion, TellsHowFarItIsAndOfNumbersOfShotsOutOfRange) {
    for (const int shots : {-1, 0, 256}) {
        const node_ref root(anyModel(4));
        EXPECT_TRUE(morva::osg::getRayVecs(unsigned(shots)).empty());
        EXPECT_EQ(morva::osg::raysInForce(shots), 0U);
        const stream_capture out(std::cout);
        morva::osg::AddAmbientOcclusion(root.get(), true, shots, 1);
        morva::osg::gutOutModelPerAmbientOcclusion(root.get(), shots, 0, 1);
        EXPECT_EQ(morva::osg::buildModelHull(root.get(), {}, 3, unsigned(shots), true), root.get());
        std::ostringstream lines;
        for (int passes = 0; passes < 3; ++passes)
            lines << "No rays for " << shots << " shots: from 1 to 255 are possible.\n";
        EXPECT_EQ(out.text(), lines.str());
        EXPECT_TRUE(std::isnan(morva::osg::calcAmbientOcclusion(morva::bih_tree<float>(),
                                                                morva::osg::occlusion_geoset(), {},
                                                                {}, shots, 1, false, false)));
    }
    const node_ref root(
        group({meshNode(quads(1)), nodeOf(::osg::Geometry::create()), meshNode(quads(1))}));
    for (const unsigned threads : {1, 3})
        EXPECT_EQ(bake(root.get(), true, 3, threads),
                  "Prepare Geoset: \n\rDone 1 of 3\rDone 3 of 3\nCalc Ambient Occlusion: \n\r0%"
                  "Positions are NullFC. Skipping this Geometry.\n\r67%\rdone.\n");
}

TEST(SaveAOinTC6, StoresTheValuesOfRaysToAllSides) {
    const std::vector<float3> rays = raysOf(shotsHere());
    std::mt19937 rng(seedOf(7));
    const ::osg::GeometryPtr core =
        geometryOf(withIndexPerProperty(withAttributes(soup(rng, 40), rng), rng));
    const node_ref root(group({transformed(aside(rng), {nodeOf(core), hidden(nodeOf(core))})}));
    const ::osg::NodePtr node = root->getChild(0)->getChild(0);
    const stream_capture silence(std::cout);
    naive_scene scene(root.get());
    ASSERT_TRUE(morva::osg::saveAOinTC6(node, scene.parts, scene.tree, 3, 0.7, true));
    EXPECT_EQ(core->getTexCoords6(), ::osg::NullFC) << "another node shows this core";
    const auto values = coreOf(node)->getTexCoords6();
    ASSERT_EQ(values->size(), core->getPositions()->size());
    EXPECT_EQ(coreOf(node)->calcMappingIndex(::osg::Geometry::MapTexCoords6),
              coreOf(node)->calcMappingIndex(::osg::Geometry::MapPosition));
    for (::osg::UInt32 i = 0; i < values->size(); ++i) {
        ::osg::Pnt3f at;
        node->getToWorld().multMatrixPnt(core->getPositions()->getValue(i), at);
        EXPECT_EQ(bits_of(values->getValue(i)[0]), bits_of(scene.value(plain(at), {}, rays, 0.7)));
    }
    const node_ref empty(nodeOf(::osg::Geometry::create()));
    EXPECT_FALSE(morva::osg::saveAOinTC6(empty.get(), scene.parts, scene.tree, 3, 0.7, true));
}

} // namespace
