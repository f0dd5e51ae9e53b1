// What is done to a finished scene: moving it into a box, to a centre, near the origin; one
// material.

#include "tests/support/test.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_placement.h>

namespace {

using ::osg::Pnt3f;
using points = std::vector<Pnt3f>;

const float nan = std::numeric_limits<float>::quiet_NaN();

mesh_data cloud(const points& at) {
    mesh_data mesh;
    mesh.primitives = {{0, static_cast<unsigned>(at.size())}};
    mesh.positions = at;
    return mesh;
}

points positionsOf(const ::osg::NodePtr& node) {
    points found;
    for (const ::osg::NodePtr& each : geometryNodes(node)) {
        const ::osg::GeoPositionsPtr positions = coreOf(each)->getPositions();
        for (::osg::UInt32 i = 0; positions != ::osg::NullFC && i < positions->getSize(); ++i)
            found.push_back(positions->getValue(i));
    }
    return found;
}

/// Extents 4, 2 and 1; the lowest corner is (1, 2, 3). The third point is used by nothing.
::osg::NodePtr oblong() {
    mesh_data low = cloud({{1, 2, 3}, {2, 2, 3}, {100, 100, 100}});
    low.primitives = {{0, 2}};
    return group({group({meshNode(low)}), meshNode(cloud({{5, 4, 4}}))});
}

const char* const bad_box = "morva::osg::transformSceneBB: No valid Bounding Box given.\n";
const char* const bad_scene = "morva::osg::transformSceneBB: No valid Scene Bounding Box.\n";
const char* const bad_list = "morva::osg::transformSceneBB: String of Min/Max values not valid. "
                             "Example \"1:2:3:4:5:6\"\n";
const points as_it_was = {{1, 2, 3}, {2, 2, 3}, {100, 100, 100}, {5, 4, 4}};

TEST(SceneBox, MovesWhatIsThereIntoIt) {
    const points smaller = {{-1, -1, -1}, {-0.5F, -1, -1}, {48.5F, 48, 47.5F}, {1, 0, -0.5F}};
    const struct {
        const char* rule;
        ::osg::NodePtr scene;
        const char* box; ///< six numbers, or the size of a cube around the origin
        points expected;
        const char* printed = "";
    } rows[] = {
        {"half size and lower corners meet", oblong(), "2", smaller},
        {"no size, no word", oblong(), "0", as_it_was},
        {"negative size", oblong(), "-2", as_it_was},
        {"size that is no number", oblong(), "nan", as_it_was},
        {"flat box", oblong(), "0:0:0:1:0:1", as_it_was, bad_box},
        {"box inside out", oblong(), "0:0:0:1:1:-1", as_it_was, bad_box},
        {"tightest axis decides",
         oblong(),
         "10:20:30:110:22:130",
         {{10, 20, 30}, {11, 20, 30}, {109, 118, 127}, {14, 22, 31}}},
        {"flat scene", meshNode(cloud({{0, 0, 0}, {1, 1, 0}})), "2", {{}, {1, 1, 0}}, bad_scene},
        {"nothing to draw", group(), "2", {}, bad_scene},
        {"node without a core", ::osg::Node::create(), "2", {}, bad_scene},
        {"no node", ::osg::NullFC, "2", {}, bad_scene},
        {"hidden scene", hidden(oblong()), "2", as_it_was, bad_scene},
        {"five numbers", oblong(), "0:0:0:1:1", as_it_was, bad_list},
        {"no numbers", oblong(), ":", as_it_was, bad_list},
        {"words are zeros", oblong(), "a:b:c:d:e:f", as_it_was, bad_box},
        {"the seventh is ignored", oblong(), "::1:2:3::9:4:4:77:", as_it_was},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref root(row.scene);
        const stream_capture out(std::cout);
        if (std::strchr(row.box, ':') != nullptr)
            morva::osg::transformSceneBB(root.get(), std::string(row.box));
        else
            morva::osg::transformSceneBB(root.get(), std::stof(row.box));
        EXPECT_EQ(positionsOf(root.get()), row.expected);
        EXPECT_EQ(out.text(), row.printed);
    }
}

TEST(SceneBox, TheWorldsBoxIsMeasuredAndTheOwnSpaceMoved) {
    // The world sees 2..4 on each axis; the geometry itself lies at 0..2.
    const node_ref world(moved({2, 2, 2}, {group({meshNode(cloud({{0, 0, 0}, {2, 2, 2}}))})}));
    morva::osg::transformSceneBB(world->getChild(0), 1.0F);
    EXPECT_EQ(positionsOf(world.get()), (points{{-1.5F, -1.5F, -1.5F}, {-0.5F, -0.5F, -0.5F}}));
    ::osg::DynamicVolume volume;
    world->getWorldVolume(volume);
    Pnt3f low, high;
    volume.getBounds(low, high);
    EXPECT_EQ(low, Pnt3f(0.5F, 0.5F, 0.5F)) << "volumes follow the positions";
}

TEST(ApplyTransform, IsDoublePrecisionWithoutDivision) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> any(-1e6, 1e6);
    ::osg::TransformationMatrix<double> matrix;
    for (unsigned column = 0; column < 4; ++column)
        for (unsigned row = 0; row < 4; ++row)
            matrix[column][row] = any(rng);
    points before;
    for (int i = 0; i < 200; ++i)
        before.emplace_back(static_cast<float>(any(rng)), static_cast<float>(any(rng)),
                            static_cast<float>(any(rng)));
    const node_ref narrow(meshNode(cloud(before))), wide(meshNode(cloud({})));
    const ::osg::GeoPositions3dPtr doubles = ::osg::GeoPositions3d::create();
    for (const Pnt3f& p : before)
        doubles->push_back(p);
    coreOf(wide.get())->setPositions(doubles);
    morva::osg::applyTransform(narrow.get(), matrix);
    morva::osg::applyTransform(coreOf(wide.get()), matrix);
    const points after = positionsOf(narrow.get()), of_doubles = positionsOf(wide.get());
    ASSERT_EQ(after.size(), before.size());
    ASSERT_EQ(of_doubles.size(), before.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        for (unsigned row = 0; row < 3; ++row) {
            const double x = before[i][0], y = before[i][1], z = before[i][2];
            const auto expected = static_cast<float>(matrix[0][row] * x + matrix[1][row] * y +
                                                     matrix[2][row] * z + matrix[3][row]);
            EXPECT_EQ(after[i][row], expected);
            EXPECT_EQ(of_doubles[i][row], expected);
        }
    }
}

TEST(ApplyTransform, WalksToTheTopmostGeometriesOncePerNode) {
    const ::osg::NodePtr part = meshNode(cloud({{1, 1, 1}}));
    part->addChild(meshNode(cloud({{9, 9, 9}})));
    const node_ref root(group(
        {part, group({nodeOf(part->getCore()), ::osg::Node::create()}), meshNode(mesh_data{})}));
    ::osg::TransformationMatrix<double> twice;
    twice.setScale(2.0);
    morva::osg::applyTransform(root.get(), twice);
    EXPECT_EQ(positionsOf(root.get()), (points{{4, 4, 4}, {9, 9, 9}, {4, 4, 4}}));
    morva::osg::applyTransform(::osg::NodePtr(), twice);
    morva::osg::applyTransform(::osg::GeometryPtr(), twice);
}

/// How many nodes below have a transform core.
unsigned transformsBelow(const ::osg::NodePtr& node) {
    unsigned count = ::osg::TransformPtr::dcast(node->getCore()) != ::osg::NullFC ? 1 : 0;
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        count += transformsBelow(node->getChild(i));
    return count;
}

TEST(CenterGeoPositions, BakesAPlaceOfItsOwnIntoEachNode) {
    const ::osg::NodePtr part = meshNode(cloud({{0, 0, 0}, {2, 2, 2}}));
    ::osg::Matrix turn; // a quarter around z
    turn.setRotate(::osg::Quaternion(::osg::Vec3f(0, 0, 1), static_cast<float>(M_PI) / 2.0F));
    const node_ref root(
        group({moved({10, 0, 0}, {part}), moved({0, 4, 0}, {nodeOf(part->getCore())}),
               switched(-2, {transformed(turn, {meshNode(cloud({{4, 0, 0}}))})}),
               moved({50, 0, 0}, {hidden(meshNode(cloud({{7, 7, 7}})))})}));
    const stream_capture out(std::cout);
    std::cout.precision(1);
    // Seen: x 0..12, y 0..6, z 0..2.
    morva::osg::centerGeoPositions(root.get(), "1:2.25:-3e6:rest");
    EXPECT_EQ(out.text(), "New Model Center: [1/2.25/-3e+06]\n"
                          "Model will be moved by: [-5/-0.75/-3e+06]\n");
    const float deep = -3000000.0F - 1.0F;
    const points expected = {{5, -0.75F, deep},     {7, 1.25F, deep + 2}, {-5, 3.25F, deep},
                             {-3, 5.25F, deep + 2}, {-5, 3.25F, deep},    {7, 7, 7}};
    EXPECT_EQ(positionsOf(root.get()), expected);
    EXPECT_EQ(transformsBelow(root.get()), 0U);
    EXPECT_NE(root->getChild(0)->getChild(0)->getCore(), root->getChild(1)->getChild(0)->getCore());
    const node_ref alone(meshNode(cloud({{4, 0, 0}})));
    morva::osg::centerGeoPositions(alone.get(), "1:2:3");
    EXPECT_EQ(positionsOf(alone.get()), (points{{4, 0, 0}})) << "a copy was moved";
}

TEST(CenterGeoPositions, SaysWhatItCannotRead) {
    const char* told = "morva::osg::CenterGeoPositions: String of Center values not valid. "
                       "Example \"1:2:3\"\n";
    const node_ref root(moved({1, 1, 1}, {meshNode(cloud({{1, 2, 3}}))}));
    const node_ref empty(group());
    const stream_capture out(std::cout);
    morva::osg::centerGeoPositions(empty.get(), "1:2");
    morva::osg::centerGeoPositions(::osg::NullFC, "1:2");
    EXPECT_EQ(out.text(), "") << "nothing to move comes first";
    morva::osg::centerGeoPositions(root.get(), "1:2");
    EXPECT_EQ(out.text(), told);
    EXPECT_EQ(transformsBelow(root.get()), 1U);
    EXPECT_EQ(positionsOf(root.get()), (points{{1, 2, 3}}));
}

TEST(BaseGeoPositions, SubtractsTheFloor) {
    const auto at = [](float all) { return meshNode(cloud({{all, all, all}})); };
    const ::osg::NodePtr part = meshNode(cloud({{2, 3, 4}}));
    const ::osg::Vec3f aside(1, 0, 0);
    const struct {
        const char* rule;
        ::osg::NodePtr scene;
        points expected;
    } rows[] = {
        {"rounds down",
         group({meshNode(cloud({{10.5F, 7, 4}, {12, -0.5F, 9}})), meshNode(cloud({{11, 3, 3}}))}),
         {{0.5F, 8, 1}, {2, 0.5F, 6}, {1, 4, 0}}},
        {"shared cores move once per node",
         group({part, nodeOf(part->getCore())}),
         {{-2, -3, -4}, {-2, -3, -4}}},
        {"a transform above stops it",
         group({at(5), moved(aside, {group({at(6)})})}),
         {{5, 5, 5}, {6, 6, 6}}},
        {"a component transform too",
         nodeOf(::osg::ComponentTransform::create(), {at(5)}),
         {{5, 5, 5}}},
        {"a transform above nothing does not", group({at(5), moved(aside, {group()})}), {{}}},
        {"switched geometry stays and has no say",
         group({switched(0, {at(1)}), at(5), meshNode(mesh_data{})}),
         {{1, 1, 1}, {}}},
        {"no number has no say",
         group({meshNode(cloud({{nan, 2, 2}, {3, nan, 7}}))}),
         {{nan, 0, 0}, {0, nan, 5}}},
        {"a geometry alone", meshNode(cloud({{2, 3, 4}})), {{}}},
        {"no positions", group({meshNode(mesh_data{})}), {}},
        {"no node", ::osg::NullFC, {}},
    };
    for (const auto& row : rows) {
        const node_ref root(row.scene);
        const stream_capture out(std::cout);
        morva::osg::baseGeoPositions(root.get());
        // As text, in which a NaN equals a NaN.
        EXPECT_EQ(testing::PrintToString(positionsOf(root.get())),
                  testing::PrintToString(row.expected))
            << row.rule;
        EXPECT_EQ(out.text(), "") << row.rule;
    }
}

// ---- one material for a whole scene

::osg::MaterialPtr ownMaterial(const ::osg::NodePtr& node) { return coreOf(node)->getMaterial(); }

TEST(MostUsedMaterial, CountsPrimitivesNotNodesAndOfEqualsTheFirstButNoneBeforeAll) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(group({meshNode(quads(1), red.get()), meshNode(quads(1), red.get()),
                               meshNode(quads(5), blue.get()),
                               hidden(meshNode(quads(9), red.get())), meshNode(quads(2))}));
    const auto mostUsed = [&] { return morva::osg::getMostUsedMaterialInScene(root.get()); };
    EXPECT_EQ(mostUsed(), blue.get());
    root->addChild(meshNode(quads(3), red.get()));
    EXPECT_EQ(mostUsed(), red.get());
    root->addChild(meshNode(quads(3)));
    EXPECT_EQ(mostUsed(), ::osg::NullFC);
    root->addChild(meshNode(quads(1), blue.get()));
    morva::osg::reduceSceneMaterialsToOne(root.get());
    EXPECT_EQ(ownMaterial(root->getChild(0)), blue.get());
    EXPECT_EQ(ownMaterial(root->getChild(4)), blue.get()) << "also where there was none";
    EXPECT_EQ(ownMaterial(root->getChild(3)), red.get()) << "hidden nodes are left alone";
    for (const node_ref& nothing : {node_ref(), node_ref(group({group()}))}) {
        EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(nothing.get()), ::osg::NullFC);
        morva::osg::reduceSceneMaterialsToOne(nothing.get());
    }
}

TEST(ChangeMaterial, GoesThroughTheOutermostMaterialGroup) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(sceneOf("$red($red(m))", {{"red", red.get()}}));
    const ::osg::NodePtr inner = root->getChild(0), geometry = inner->getChild(0);
    morva::osg::changeMaterialForNode(geometry, blue.get());
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(root->getCore())->getMaterial(), blue.get());
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(inner->getCore())->getMaterial(), red.get());
    EXPECT_EQ(ownMaterial(geometry), ::osg::NullFC);
    EXPECT_EQ(morva::osg::getMaterial(geometry), blue.get());
    EXPECT_EQ(blue.get().getRefCount(), 2U);
    morva::osg::changeMaterialForNode(geometry, blue.get());
    EXPECT_EQ(blue.get().getRefCount(), 2U) << "the same again changes nothing";
}

} // namespace
