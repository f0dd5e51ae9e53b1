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

using morva::osg::AddAmbientOcclusion;

/// Shots of this process: its first caller's, whatever a test asks for.
int shotsHere() {
    const char* wish = std::getenv("MORVA_TEST_SHOTS");
    const int wanted = wish != nullptr ? std::atoi(wish) : 3;
    return int(std::lround(std::cbrt(double(morva::osg::getRayVecs(unsigned(wanted)).size())))) - 1;
}

/// Meshes seen from inside.
mesh_data insideOut(mesh_data mesh) {
    for (std::size_t i = 0; i + 2 < mesh.positions.size(); i += 3)
        std::swap(mesh.positions[i + 1], mesh.positions[i + 2]);
    return mesh;
}

/// Sets a colour of a form with alpha, which stays; false for another form.
template <typename Form>
bool setBesideAlpha(const ::osg::GeoColorsPtr& colors, const ::osg::Color3f& color,
                    ::osg::UInt32 i) {
    const auto form = Form::PtrType::dcast(colors);
    if (form == ::osg::NullFC)
        return false;
    const auto alpha = form->getField()[i][3];
    form->setValue(color, i);
    form->editField()[i][3] = alpha;
    return true;
}

/// A node with colours of another form, each with another alpha.
template <typename Form>::osg::NodePtr recolored(const ::osg::NodePtr& node) {
    const auto colors = Form::PtrType::dcast(inOtherForm<Form>(coreOf(node)->getColors()));
    for (auto& color : colors->editField())
        color[3] =
            static_cast<std::decay_t<decltype(color[3])>>(color[3] * color[0] / 2 + color[1] / 3);
    coreOf(node)->setColors(colors);
    return node;
}

/// A mesh with rows of its own for each property, whose index serves the positions alone.
mesh_data mappedMesh() {
    mesh_data mesh = quads(1);
    mesh.indices = {3, 2, 1, 0};
    mesh.mapping = {::osg::Geometry::MapPosition};
    return mesh;
}

::osg::Matrix aside(std::mt19937& rng) { return placed(rng, anyVector(rng, 2), {1.5F, 0.5F, -1}); }

/// Scenes with trouble, one for each number below `scene_count`.
::osg::NodePtr sceneNumber(unsigned number) {
    std::mt19937 rng(number + 1);
    const auto plainSoup = [&rng] { return soup(rng, 20); };
    switch (number) {
    case 0: // a box in a room, on the floor
        return group({meshNode(insideOut(blockMesh(2))), meshNode(baked(blockMesh(2), [] {
                          ::osg::Matrix m;
                          m.setScale(0.25F);
                          m[3] = {0, 0, -0.75F, 1};
                          return m;
                      }()))});
    case 1: // ball in ball, moved
        return group(
            {meshNode(ballMesh(4)), transformed(aside(rng), {meshNode(insideOut(ballMesh(5)))})});
    case 2: // all kinds of primitives and indices
        return group({meshNode(withIndexPerProperty(withAttributes(mixture(rng, 8), rng), rng)),
                      meshNode(withIndex(withAttributes(plainSoup(), rng), rng)),
                      transformed(aside(rng), {meshNode(withColors(mixture(rng, 6), rng))}),
                      meshNode(cube())});
    case 3: { // one core at several places, one of them out of sight
        const ::osg::GeometryPtr core = geometryOf(withNormals(plainSoup(), rng));
        return group({nodeOf(core), moved({0.5F, 0, 0}, {nodeOf(core)}), hidden(nodeOf(core)),
                      transformed(aside(rng), {nodeOf(core, {meshNode(plainSoup())})})});
    }
    case 4: // colours of other forms, too few of them, materials
        return group({recolored<::osg::GeoColors4f>(
                          meshNode(withColors(plainSoup(), rng), simple({1, 0.5F, 0}))),
                      recolored<::osg::GeoColors4f>(meshNode(withColors(plainSoup(), rng))),
                      meshNode(mappedMesh()),
                      recolored<::osg::GeoColors4ub>(meshNode(withColors(plainSoup(), rng))),
                      materialGroup(simple({0, 1, 0.5F}), {meshNode(plainSoup()), meshNode(cube()),
                                                           switched(0, {meshNode(quads(1))})}),
                      [&] {
                          mesh_data few = withColors(plainSoup(), rng);
                          few.colors.resize(7);
                          return meshNode(few, chunked({1, 1, 0, 1}, imageOf(6407, 2, 2)));
                      }()});
    case 5: { // places and normals that are no numbers, and many equal ones
        mesh_data mesh = withNormals(plainSoup(), rng);
        mesh.positions[4][1] = mesh.normals[9][0] = std::numeric_limits<float>::quiet_NaN();
        mesh.positions[11][2] = std::numeric_limits<float>::infinity();
        mesh.normals[14] = {0, 0, 0};
        mesh.normals[15] = {1e-4F, 0, 0};
        mesh.normals[16] = {0, 9e-7F, 0};
        mesh.normals.resize(40);
        return group({meshNode(mesh), meshNode(pileMesh(9))});
    }
    case 6: // flat, far
        return moved({1e6F, -2e6F, 3e5F}, {meshNode(quads(3)), meshNode(withNormals(quads(2), rng)),
                                           meshNode(plainSoup())});
    case 7: // nothing to trace, nothing at all
        return group({meshNode(row(6, 1)), nodeOf(::osg::Geometry::create()), meshNode(mesh_data()),
                      nodeOf(geometryOf(mesh_data()))});
    case 8: // a geometry alone, with a child
        return nodeOf(geometryOf(withNormals(plainSoup(), rng)), {meshNode(plainSoup())});
    case 9:
        return group({meshNode(withNormals(soup(rng, 150), rng)), meshNode(waveMesh(6)),
                      transformed(aside(rng), {meshNode(withNormals(plainSoup(), rng))})});
    default:
        return group();
    }
}
constexpr unsigned scene_count = 11;

/// Bakes a scene by single steps.
void naiveBake(const ::osg::NodePtr& root, bool replace, int shots) {
    const node_list nodes = listed(root);
    const auto rebuild = [](const ::osg::NodePtr& node, bool normals) {
        const ::osg::GeometryPtr core = coreOf(node);
        if (core->getPositions() == ::osg::NullFC)
            return;
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
        rebuild(node, false);
    const naive_scene scene(root);
    const double distance = morva_test::diagonalOf(root);
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr core = coreOf(node);
        if (core->getPositions() == ::osg::NullFC)
            continue;
        if (core->getNormals() == ::osg::NullFC)
            rebuild(node, true);
        const std::vector<float> values = naiveValues(scene, node, shots, distance);
        std::vector<::osg::Color3f> greys;
        for (const float v : values)
            greys.emplace_back(v, v, v);
        if (replace || core->getColors() == ::osg::NullFC) {
            core->setColors(propertyOf<::osg::GeoColors3f>(greys));
            continue;
        }
        for (::osg::UInt32 i = 0; i < values.size(); ++i) {
            if (i == core->getColors()->size())
                core->getColors()->addValue({0.5F, 0.5F, 0.5F});
            ::osg::Color3f color = core->getColors()->getValue(i);
            for (unsigned k = 0; k < 3; ++k)
                color[k] *= values[i];
            if (!setBesideAlpha<::osg::GeoColors4f>(core->getColors(), color, i) &&
                !setBesideAlpha<::osg::GeoColors4ub>(core->getColors(), color, i))
                core->getColors()->setValue(color, i);
        }
    }
}

std::string expectedOutput(const node_list& nodes) {
    std::string text = "Prepare Geoset: \n";
    const std::size_t n = nodes.size();
    for (std::size_t i = 1; i <= n; ++i)
        if (morva::osg::counttriangles(coreOf(nodes[i - 1])) != 0)
            text += "\rDone " + std::to_string(i) + " of " + std::to_string(n);
    text += "\nCalc Ambient Occlusion: \n";
    for (std::size_t i = 0; i < n; ++i) {
        char share[16];
        std::snprintf(share, sizeof share, "\r%.0f%%", double(float(i) / float(n) * 100));
        text += coreOf(nodes[i])->getPositions() == ::osg::NullFC
                    ? "Positions are NullFC. Skipping this Geometry.\n"
                    : share;
    }
    return text + "\rdone.\n";
}

/// All colours of the scene's geometry by their bits, with the alpha that they have.
std::vector<std::string> colorBits(const ::osg::NodePtr& root) {
    std::vector<std::string> all;
    for (const ::osg::NodePtr& node : listed(root)) {
        const ::osg::GeometryPtr core = coreOf(node);
        const ::osg::GeoColorsPtr colors = core->getColors();
        std::ostringstream text;
        text << std::hex;
        for (::osg::UInt32 i = 0; colors != ::osg::NullFC && i < colors->size(); ++i) {
            const ::osg::Color3f c = colors->getValue(i);
            text << ' ' << bits_of(c[0]) << ' ' << bits_of(c[1]) << ' ' << bits_of(c[2]);
            if (const auto four = ::osg::GeoColors4fPtr::dcast(colors); four != ::osg::NullFC)
                text << ' ' << bits_of(four->getField()[i][3]);
            if (const auto bytes = ::osg::GeoColors4ubPtr::dcast(colors); bytes != ::osg::NullFC)
                text << ' ' << bytes->getField()[i][3];
        }
        all.push_back(text.str());
    }
    return all;
}

/// Bakes a scene, and gives what is printed.
std::string bake(const ::osg::NodePtr& root, bool replace, int shots, unsigned threads = 1) {
    const stream_capture out(std::cout);
    const bool ids_are_kept = morva::osg::getIDmapHandler().merged;
    std::cout << std::scientific << std::setprecision(7); // must not reach the numbers
    if (threads == 1)
        AddAmbientOcclusion(root, replace, shots, 1);
    else
        morva::osg::bakeOcclusion(root, replace, shots, threads);
    EXPECT_EQ(morva::osg::getIDmapHandler().merged, ids_are_kept);
    return out.text();
}

TEST(AddAmbientOcclusion, AgreesWithTheNaiveTwin) {
    const int shots = shotsHere();
    for (unsigned run = 0; run < 2 * scene_count; ++run) {
        SCOPED_TRACE("scene " + std::to_string(run / 2));
        const bool replace = run % 2 == 0;
        const node_ref root(sceneNumber(run / 2)), twin(sceneNumber(run / 2));
        const bool whole = morva::osg::isWhole(root.get());
        naiveBake(twin.get(), replace, shots);
        EXPECT_EQ(bake(root.get(), replace, shots), expectedOutput(listed(root.get())));
        EXPECT_EQ(colorBits(root.get()), colorBits(twin.get()));
        EXPECT_TRUE(!whole || morva::osg::broken_rule_of(root.get()).empty());
        for (const ::osg::NodePtr& node : listed(root.get())) {
            EXPECT_EQ(coreOf(node)->calcMappingIndex(::osg::Geometry::MapColor),
                      coreOf(node)->calcMappingIndex(::osg::Geometry::MapPosition));
            EXPECT_TRUE(!replace || morva::osg::getMaterial(node) == ::osg::NullFC);
        }
    }
}

TEST(AddAmbientOcclusion, ThreadsGiveTheSameBitsAndTheSameOutput) {
    for (unsigned number = 0; number < scene_count; ++number) {
        const node_ref one(sceneNumber(number)), three(sceneNumber(number));
        EXPECT_EQ(bake(one.get(), true, 3), bake(three.get(), true, 3, 3));
        EXPECT_EQ(colorBits(one.get()), colorBits(three.get())) << number;
    }
}

TEST(VertexWork, ThreadsDoEachPieceOnceAndTheCallerEndsThemInOrder) {
    std::mt19937 rng(21);
    for (int round = 0; round < 300; ++round) {
        morva::osg::vertex_work work;
        std::vector<std::vector<int>> asked;
        for (unsigned i = rng() % 12; i > 0; --i) {
            work.counts.push_back(rng() % 3 == 0 ? 0 : rng() % 700);
            asked.emplace_back(work.counts.back(), 0);
        }
        const bool fails = round % 5 == 0;
        const std::size_t bad = asked.empty() ? 0 : rng() % asked.size();
        work.piece = [&](std::size_t geometry, std::size_t first, std::size_t last) {
            if (fails && geometry == bad && first >= 64)
                throw std::bad_alloc();
            for (std::size_t i = first; i < last; ++i)
                ++asked[geometry][i];
        };
        std::size_t ended = 0, total = 0, next = 0;
        morva::osg::work_progress progress;
        work.end = [&](std::size_t geometry) {
            EXPECT_EQ(geometry, next++);
            for (const int times : asked[geometry])
                EXPECT_EQ(times, 1);
            ended += asked[geometry].size();
            EXPECT_GE(progress.done, ended);
        };
        for (const auto& one : asked)
            total += one.size();
        try {
            doInOrder(work, unsigned(round % 6), progress);
            EXPECT_TRUE(next == asked.size() && ended == total && progress.done <= total);
            EXPECT_FALSE(fails && !asked.empty() && asked[bad].size() > 64);
        } catch (const std::bad_alloc&) {
            EXPECT_TRUE(fails && asked[bad].size() > 64 && next <= bad);
        }
    }
}

TEST(AddAmbientOcclusion, LeavesTheRestOfAModelAsItWas) {
    const ::osg::GeometryPtr shared = geometryOf(quads(2));
    const node_ref outside(group({nodeOf(shared), nodeOf(geometryOf(quads(2)))}));
    const node_ref root(group(
        {materialGroup(simple({1, 0, 0}),
                       {named("baked", nodeOf(shared)), hidden(named("hidden", nodeOf(shared))),
                        switched(0, {named("switched", meshNode(quads(1)))})}),
         hidden(named("elsewhere", nodeOf(shared)))}));
    const node_ref alone(nodeOf(outside->getChild(1)->getCore()));
    bake(root.get(), true, 3);
    bake(alone.get(), true, 3);
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
    const auto shots = unsigned(shotsHere());
    for (const std::vector<float3>& rays : sets) {
        ASSERT_EQ(rays.size(), morva::osg::raysInForce(9));
        const std::size_t edge = shots + 1;
        for (std::size_t i = 0; i < rays.size(); ++i) {
            const std::size_t steps[] = {i / edge / edge, i / edge % edge, i % edge};
            for (std::size_t k = 0; k < 3; ++k)
                EXPECT_EQ(rays[i][k], float(2.0 * double(steps[k]) / shots - 1));
        }
    }
}

TEST(Occlusion, NumbersOfShotsOutOfRangeEndAtOnce) {
    for (const int shots : {-1, 0, 256, 1000, int(4294967295U)}) {
        const node_ref root(sceneNumber(4)), same(sceneNumber(4));
        EXPECT_TRUE(morva::osg::getRayVecs(unsigned(shots)).empty());
        EXPECT_EQ(morva::osg::raysInForce(shots), 0U);
        const std::string line =
            "No rays for " + std::to_string(shots) + " shots: from 1 to 255 are possible.\n";
        EXPECT_EQ(bake(root.get(), true, shots), line);
        {
            const stream_capture out(std::cout);
            morva::osg::gutOutModelPerAmbientOcclusion(root.get(), shots, 0, 1);
            EXPECT_EQ(morva::osg::buildModelHull(root.get(), {}, 3, unsigned(shots), true),
                      root.get());
            EXPECT_EQ(out.text(), line + line);
        }
        EXPECT_EQ(colorBits(root.get()), colorBits(same.get()));
        const morva::osg::osg_scene_geoset<morva::bih_tree<float>, morva::build_setup,
                                           morva::osg::osg_geoset>
            nothing;
        EXPECT_TRUE(std::isnan(morva::osg::calcAmbientOcclusion(morva::bih_tree<float>(), nothing,
                                                                {}, {}, shots, 1, false, false)));
    }
}

TEST(SaveAOinTC6, StoresTheValuesOfRaysToAllSides) {
    const int shots = shotsHere();
    std::mt19937 rng(7);
    const ::osg::GeometryPtr core =
        geometryOf(withIndexPerProperty(withAttributes(soup(rng, 40), rng), rng));
    const node_ref root(group({transformed(aside(rng), {nodeOf(core), hidden(nodeOf(core))})}));
    const ::osg::NodePtr node = root->getChild(0)->getChild(0);
    const stream_capture out(std::cout);
    morva::osg::osg_scene_geoset<morva::bih_tree<float>, morva::build_setup, morva::osg::osg_geoset>
        scene(root.get(), {5, 100}, true);
    morva::bih_tree<float> tree;
    compile(scene, tree, {1, 100});
    ASSERT_TRUE(morva::osg::saveAOinTC6(node, scene, tree, unsigned(shots), 0.7, true));
    EXPECT_EQ(core->getTexCoords6(), ::osg::NullFC) << "another node shows this core";
    const auto values = ::osg::GeoTexCoords1fPtr::dcast(coreOf(node)->getTexCoords6());
    ASSERT_NE(values, ::osg::NullFC);
    ASSERT_EQ(values->size(), core->getPositions()->size());
    EXPECT_EQ(coreOf(node)->calcMappingIndex(::osg::Geometry::MapTexCoords6),
              coreOf(node)->calcMappingIndex(::osg::Geometry::MapPosition));
    const naive_scene twin(root.get());
    for (::osg::UInt32 i = 0; i < values->size(); ++i) {
        ::osg::Pnt3f at;
        node->getToWorld().multMatrixPnt(core->getPositions()->getValue(i), at);
        EXPECT_EQ(bits_of(values->getField()[i]), bits_of(twin.value(plain(at), {}, shots, 0.7)));
    }
    const node_ref empty(nodeOf(::osg::Geometry::create()));
    EXPECT_FALSE(morva::osg::saveAOinTC6(empty.get(), scene, tree, 3, 0.7, true));
    const std::string line = "Positions are NullFC. Skipping this Geometry.\n";
    EXPECT_EQ(out.text().substr(out.text().size() - line.size()), line);
}

} // namespace
