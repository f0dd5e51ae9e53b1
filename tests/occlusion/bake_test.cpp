// Occlusion in vertex colours and in coordinate set 6, beside a twin that takes every step.

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

/// The bytes of a colour's alpha, if it has one.
std::pair<::osg::UInt8*, std::size_t> alphaOf(const ::osg::GeoColorsPtr& colors, std::size_t i) {
    const std::size_t width = colors->getFormatSize(), count = colors->getDimension();
    return {colors->editData() + (i * count + 3) * width, count > 3 ? width : 0};
}

/// The same colours in another form, each with another alpha.
template <typename Form>::osg::GeoColorsPtr withAlpha(const ::osg::GeoColorsPtr& plain) {
    const ::osg::GeoColorsPtr colors = inOtherForm<Form>(plain);
    for (::osg::UInt32 i = 0; colors != ::osg::NullFC && i < colors->size(); ++i) {
        const auto [alpha, width] = alphaOf(colors, i);
        std::copy(alpha - width, alpha, alpha); // that of the blue
    }
    return colors;
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
        normal *= rng() % 9 == 0 ? std::pow(0.1F, float(rng() % 8)) : 1.F;
    if (rng() % 4 == 0 && mesh.normals.size() > 3)
        mesh.normals[rng() % 3][0] = NAN;
    if (rng() % 4 == 0 && mesh.positions.size() > 3)
        mesh.positions[rng() % 3][1] = rng() % 2 == 0 ? NAN : INFINITY;
    const ::osg::GeometryPtr core = geometryOf(mesh);
    if (rng() % 3 == 0)
        core->setMaterial(simple({1, 0.5F, 0}));
    else if (rng() % 2 == 0)
        core->setMaterial(chunked({1, 1, 0, 1}, imageOf(6407, 2, 2)));
    if (rng() % 3 == 0)
        core->setColors(withAlpha<::osg::GeoColors4f>(core->getColors()));
    else if (rng() % 2 == 0)
        core->setColors(withAlpha<::osg::GeoColors4ub>(core->getColors()));
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

/// Bakes a scene by single steps.
void naiveBake(const ::osg::NodePtr& root, bool replace) {
    const node_list nodes = listed(root);
    const auto rebuild = [](const ::osg::GeometryPtr& core, bool normals) {
        morva::osg::joinEqualVertices(core);
        if (normals)
            ::osg::calcVertexNormals(core);
        ::osg::createSingleIndex(core);
    };
    for (const ::osg::NodePtr& node : nodes)
        node->setCore(coreOf(node)->clone());
    for (const ::osg::NodePtr& node : nodes)
        morva::osg::PrepareGeometryForAO(node, replace);
    for (const ::osg::NodePtr& node : nodes)
        if (coreOf(node)->getPositions() != ::osg::NullFC)
            rebuild(coreOf(node), false);
    const naive_scene scene(root);
    const double distance = morva::osg::diagonalOf(root);
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr core = coreOf(node);
        if (core->getPositions() == ::osg::NullFC)
            continue;
        if (core->getNormals() == ::osg::NullFC)
            rebuild(core, true);
        const std::vector<float> values = naiveValues(scene, node, raysOf(shotsHere()), distance);
        if (replace || core->getColors() == ::osg::NullFC) {
            core->setColors(::osg::GeoColors3f::create());
            for (const float v : values)
                core->getColors()->addValue({v, v, v});
            continue;
        }
        for (::osg::UInt32 i = 0; i < values.size(); ++i) {
            if (i == core->getColors()->size())
                core->getColors()->addValue({0.5F, 0.5F, 0.5F});
            ::osg::Color3f color = core->getColors()->getValue(i);
            for (unsigned k = 0; k < 3; ++k)
                color[k] *= values[i];
            const auto [alpha, width] = alphaOf(core->getColors(), i);
            const std::string kept(alpha, alpha + width);
            core->getColors()->setValue(color, i);
            std::copy(kept.begin(), kept.end(), alpha);
        }
    }
}

/// The colours of each geometry of a scene, byte by byte, with the alpha that they have.
std::vector<std::string> colorBytes(const ::osg::NodePtr& root) {
    std::vector<std::string> all;
    for (const ::osg::NodePtr& node : listed(root)) {
        const ::osg::GeoColorsPtr colors = coreOf(node)->getColors();
        all.emplace_back();
        if (colors != ::osg::NullFC)
            all.back().assign(reinterpret_cast<const char*>(colors->getData()),
                              colors->size() * colors->getDimension() * colors->getFormatSize());
    }
    return all;
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
    for (unsigned round = 0; round < roundsOf(60U); ++round) {
        SCOPED_TRACE(round);
        const bool replace = round % 2 == 0;
        const node_ref root(anyModel(round)), twin(anyModel(round));
        const bool whole = morva::osg::isWhole(root.get());
        naiveBake(twin.get(), replace);
        bake(root.get(), replace, 3);
        EXPECT_EQ(colorBytes(root.get()), colorBytes(twin.get()));
        EXPECT_TRUE(!whole || morva::osg::broken_rule_of(root.get()).empty());
        for (const ::osg::NodePtr& node : listed(root.get())) {
            EXPECT_EQ(coreOf(node)->calcMappingIndex(::osg::Geometry::MapColor),
                      coreOf(node)->calcMappingIndex(::osg::Geometry::MapPosition));
            EXPECT_TRUE(!replace || morva::osg::getMaterial(node) == ::osg::NullFC);
        }
    }
}

TEST(AddAmbientOcclusion, ThreadsGiveTheSameBytesAndTheSameOutput) {
    for (unsigned round = 0; round < roundsOf(20U); ++round) {
        const node_ref one(anyModel(round)), three(anyModel(round));
        EXPECT_EQ(bake(one.get(), true, 3), bake(three.get(), true, 3, 3));
        EXPECT_EQ(colorBytes(one.get()), colorBytes(three.get())) << round;
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

TEST(VertexWork, ThreadsDoEachPieceOnceAndTheCallerEndsThemInOrder) {
    std::mt19937 rng(seedOf(21));
    for (int round = 0; round < roundsOf(300); ++round) {
        morva::osg::vertex_work work;
        std::vector<std::vector<int>> asked;
        for (unsigned i = rng() % 12; i > 0; --i) {
            work.counts.push_back(rng() % 3 == 0 ? 0 : rng() % 700);
            asked.emplace_back(work.counts.back(), 0);
        }
        const bool fails = round % 5 == 0 && asked.size() > 3 && asked[3].size() > 64;
        work.piece = [&](std::size_t geometry, std::size_t first, std::size_t last) {
            if (fails && geometry == 3 && first >= 64)
                throw std::bad_alloc();
            for (std::size_t i = first; i < last; ++i)
                ++asked[geometry][i];
        };
        std::size_t ended = 0, next = 0;
        morva::osg::work_progress progress;
        work.end = [&](std::size_t geometry) {
            EXPECT_EQ(geometry, next++);
            EXPECT_EQ(asked[geometry], std::vector(work.counts[geometry], 1));
            ended += work.counts[geometry];
            EXPECT_GE(progress.done, ended);
        };
        try {
            doInOrder(work, unsigned(round % 6), progress);
            EXPECT_TRUE(!fails && next == asked.size() && progress.done == ended);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fails && next <= 3);
        }
    }
}

TEST(AddAmbientOcclusion, LeavesTheRestOfAModelAsItWas) {
    const ::osg::GeometryPtr shared = geometryOf(quads(2)), alone = geometryOf(quads(2));
    const node_ref outside(group({nodeOf(shared), nodeOf(alone)}));
    const node_ref root(group(
        {materialGroup(simple({1, 0, 0}),
                       {named("baked", nodeOf(shared)), hidden(named("hidden", nodeOf(shared))),
                        switched(0, {named("switched", meshNode(quads(1)))})}),
         hidden(named("elsewhere", nodeOf(shared)))}));
    bake(root.get(), true, 3);
    bake(node_ref(nodeOf(alone)).get(), true, 3);
    EXPECT_EQ(morva::osg::getMaterial(nodeNamed(root.get(), "baked")), ::osg::NullFC);
    const ::osg::NodePtr kept[] = {
        nodeNamed(root.get(), "hidden"), nodeNamed(root.get(), "switched"),
        nodeNamed(root.get(), "elsewhere"), outside->getChild(0), outside->getChild(1)};
    for (const ::osg::NodePtr& node : kept) {
        const auto material = ::osg::SimpleMaterialPtr::dcast(morva::osg::getMaterial(node));
        ASSERT_EQ(material != ::osg::NullFC, node == kept[0] || node == kept[1]);
        EXPECT_TRUE(material == ::osg::NullFC || material->getDiffuse() == ::osg::Color3f(1, 0, 0));
        EXPECT_EQ(coreOf(node)->getColors(), ::osg::NullFC);
        EXPECT_EQ(coreOf(node)->getIndices(), ::osg::NullFC);
    }
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
    for (const int shots : {-1, 0, 256, 1000, int(4294967295U)}) {
        const node_ref root(anyModel(4)), same(anyModel(4));
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
        EXPECT_EQ(colorBytes(root.get()), colorBytes(same.get()));
        EXPECT_TRUE(std::isnan(morva::osg::calcAmbientOcclusion(morva::bih_tree<float>(),
                                                                morva::osg::occlusion_geoset(), {},
                                                                {}, shots, 1, false, false)));
    }
    const node_ref root(
        group({meshNode(quads(1)), nodeOf(::osg::Geometry::create()), meshNode(quads(1))}));
    EXPECT_EQ(bake(root.get(), true, 3),
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
    const stream_capture out(std::cout);
    naive_scene scene(root.get());
    ASSERT_TRUE(morva::osg::saveAOinTC6(node, scene.parts, scene.tree, 3, 0.7, true));
    EXPECT_EQ(core->getTexCoords6(), ::osg::NullFC) << "another node shows this core";
    const auto values = coreOf(node)->getTexCoords6();
    ASSERT_NE(::osg::GeoTexCoords1fPtr::dcast(values), ::osg::NullFC);
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
    EXPECT_EQ(out.text(), "Positions are NullFC. Skipping this Geometry.\n");
}

} // namespace
