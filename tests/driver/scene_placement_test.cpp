// What is done to a finished scene: moving it into a box, to a centre, near the origin; one
// material.

#include "tests/support/test.h"

#include <morva/core/morva_osg_tools.h>
#include <morva/driver/morva_osg_scene_placement.h>

namespace {

using ::osg::NodePtr;
using ::osg::Pnt3f;
using points = std::vector<Pnt3f>;

const float nan = std::numeric_limits<float>::quiet_NaN();

mesh_data cloud(const points& at) {
    mesh_data mesh;
    mesh.primitives = {{0, static_cast<unsigned>(at.size())}};
    mesh.positions = at;
    return mesh;
}
NodePtr cloudNode(const points& at) { return meshNode(cloud(at)); }

/// All positions, "x y z, x y z", and behind "+" the number of transforms.
std::string positionsOf(const NodePtr& root) {
    std::ostringstream text;
    for (const NodePtr& each : geometryNodes(root)) {
        const ::osg::GeoPositionsPtr positions = coreOf(each)->getPositions();
        for (::osg::UInt32 i = 0; positions != ::osg::NullFC && i < positions->getSize(); ++i) {
            const Pnt3f p = positions->getValue(i);
            text << (text.tellp() > 0 ? ", " : "") << p[0] << ' ' << p[1] << ' ' << p[2];
        }
    }
    const std::function<int(const NodePtr&)> transformsBelow = [&](const NodePtr& node) {
        int count = ::osg::TransformPtr::dcast(node->getCore()) != ::osg::NullFC ? 1 : 0;
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            count += transformsBelow(node->getChild(i));
        return count;
    };
    const int count = root != ::osg::NullFC ? transformsBelow(root) : 0;
    return text.str() + (count > 0 ? " +" + std::to_string(count) : "");
}

/// Extents 4, 2 and 1; the lowest corner is (1, 2, 3). The third point is used by nothing.
NodePtr oblong() {
    mesh_data low = cloud({{1, 2, 3}, {2, 2, 3}, {100, 100, 100}});
    low.primitives = {{0, 2}};
    return group({group({meshNode(low)}), cloudNode({{5, 4, 4}})});
}

/// Two nodes of one core, one turned a quarter around z, and a hidden one.
NodePtr placedParts() {
    const NodePtr part = cloudNode({{0, 0, 0}, {2, 2, 2}});
    ::osg::Matrix turn;
    turn.setRotate(::osg::Quaternion(::osg::Vec3f(0, 0, 1), static_cast<float>(M_PI) / 2.0F));
    return group({moved({10, 0, 0}, {part}), moved({0, 4, 0}, {nodeOf(part->getCore())}),
                  switched(-2, {transformed(turn, {cloudNode({{4, 0, 0}})})}),
                  moved({50, 0, 0}, {hidden(cloudNode({{7, 7, 7}}))})});
}

using act = void (*)(const NodePtr& root, const char* text);

void intoBox(const NodePtr& root, const char* text) { // six numbers, or the size of a cube
    if (std::strchr(text, ':') != nullptr)
        morva::osg::transformSceneBB(root, std::string(text));
    else
        morva::osg::transformSceneBB(root, std::stof(text));
}
void childIntoBox(const NodePtr& root, const char* text) {
    intoBox(root != ::osg::NullFC ? root->getChild(0) : root, text);
}
void toCenter(const NodePtr& root, const char* text) { morva::osg::centerGeoPositions(root, text); }
void toBase(const NodePtr& root, const char*) { morva::osg::baseGeoPositions(root); }
void doubled(const NodePtr& root, const char*) {
    ::osg::TransformationMatrix<double> twice;
    twice.setScale(2.0);
    morva::osg::applyTransform(root, twice);
}

TEST(ScenePlacement, MovesPositionsAndSaysWhatItCannotRead) {
    const std::string head = "morva::osg::";
    const std::string bad_box = head + "transformSceneBB: No valid Bounding Box given.\n",
                      bad_scene = head + "transformSceneBB: No valid Scene Bounding Box.\n",
                      bad_list = head + "transformSceneBB: String of Min/Max values not valid. "
                                        "Example \"1:2:3:4:5:6\"\n",
                      bad_center = head + "CenterGeoPositions: String of Center values not valid. "
                                          "Example \"1:2:3\"\n";
    const char* const same = "1 2 3, 2 2 3, 100 100 100, 5 4 4";
    const auto at = [](float all) { return cloudNode({{all, all, all}}); };
    const NodePtr part = cloudNode({{2, 3, 4}}), nested = cloudNode({{1, 1, 1}});
    nested->addChild(at(9));
    const struct {
        const char* rule;
        act apply;
        NodePtr scene;
        const char *text, *expected;
        std::string printed;
    } rows[] = {
        {"half size and lower corners meet", intoBox, oblong(), "2",
         "-1 -1 -1, -0.5 -1 -1, 48.5 48 47.5, 1 0 -0.5", ""},
        {"the world's box is measured, the own space moved", childIntoBox,
         moved({2, 2, 2}, {group({cloudNode({{0, 0, 0}, {2, 2, 2}})})}), "1",
         "-1.5 -1.5 -1.5, -0.5 -0.5 -0.5 +1", ""},
        {"no size, no word", intoBox, oblong(), "0", same, ""},
        {"negative size", intoBox, oblong(), "-2", same, ""},
        {"size that is no number", intoBox, oblong(), "nan", same, ""},
        {"flat box", intoBox, oblong(), "0:0:0:1:1:0", same, bad_box},
        {"box inside out", intoBox, oblong(), "0:0:0:1:-1:1", same, bad_box},
        {"tightest axis decides", intoBox, oblong(), "10:20:30:110:22:130",
         "10 20 30, 11 20 30, 109 118 127, 14 22 31", ""},
        {"flat scene", intoBox, cloudNode({{0, 0, 0}, {1, 1, 0}}), "2", "0 0 0, 1 1 0", bad_scene},
        {"nothing to draw", intoBox, group(), "2", "", bad_scene},
        {"node without a core", intoBox, ::osg::Node::create(), "2", "", bad_scene},
        {"hidden scene", intoBox, hidden(oblong()), "2", same, bad_scene},
        {"five numbers", intoBox, oblong(), "0:0:0:1:1", same, bad_list},
        {"no numbers", intoBox, oblong(), ":", same, bad_list},
        {"words are zeros", intoBox, oblong(), "a:b:c:d:e:f", same, bad_box},
        {"six numbers, no more", intoBox, oblong(), "1:2:3:9:4:4", same, ""},
        {"the seventh is ignored", intoBox, oblong(), "::1:2:3::9:4:4:77:", same, ""},
        {"a place of its own for each node, baked", toCenter, placedParts(), "1:2.25:-3e6:rest",
         "5 -0.75 -3e+06, 7 1.25 -3e+06, -5 3.25 -3e+06, -3 5.25 -3e+06, -5 3.25 -3e+06, 7 7 7",
         "New Model Center: [1/2.25/-3e+06]\nModel will be moved by: [-5/-0.75/-3e+06]\n"},
        {"a copy was moved", toCenter, cloudNode({{4, 0, 0}}), "1:2:3", "4 0 0",
         "New Model Center: [1/2/3]\nModel will be moved by: [-3/2/3]\n"},
        {"too few", toCenter, moved({1, 1, 1}, {at(3)}), "1:2", "3 3 3 +1", bad_center},
        {"nothing to move comes first", toCenter, group(), "1:2", "", ""},
        {"rounds down", toBase,
         group({cloudNode({{10.5F, 7, 4}, {12, -0.5F, 9}}), cloudNode({{11, 3, 3}})}), "",
         "0.5 8 1, 2 0.5 6, 1 4 0", ""},
        {"shared cores move once per node", toBase, group({part, nodeOf(part->getCore())}), "",
         "-2 -3 -4, -2 -3 -4", ""},
        {"a transform above stops it", toBase, group({at(5), moved({1, 0, 0}, {group({at(6)})})}),
         "", "5 5 5, 6 6 6 +1", ""},
        {"a component transform too", toBase, nodeOf(::osg::ComponentTransform::create(), {at(5)}),
         "", "5 5 5 +1", ""},
        {"a transform above nothing does not", toBase, group({at(5), moved({1, 0, 0}, {group()})}),
         "", "0 0 0 +1", ""},
        {"switched geometry stays and has no say", toBase,
         group({switched(0, {at(1)}), at(5), meshNode(mesh_data{})}), "", "1 1 1, 0 0 0", ""},
        {"no number has no say", toBase, cloudNode({{nan, 2, 2}, {3, nan, 7}}), "",
         "nan 0 0, 0 nan 5", ""},
        {"no positions", toBase, group({meshNode(mesh_data{})}), "", "", ""},
        {"topmost geometries, once per node", doubled,
         group({nested, group({nodeOf(nested->getCore()), ::osg::Node::create()}),
                meshNode(mesh_data{})}),
         "", "4 4 4, 9 9 9, 4 4 4", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref root(row.scene);
        const stream_capture out(std::cout);
        std::cout.precision(1); // as a caller may have left it
        row.apply(root.get(), row.text);
        EXPECT_EQ(positionsOf(root.get()), row.expected);
        EXPECT_EQ(out.text(), row.printed);
        row.apply(::osg::NullFC, row.text);
    }
}

TEST(ApplyTransform, IsDoublePrecisionWithoutDivision) {
    std::mt19937 rng(seedOf(7));
    std::uniform_real_distribution<double> any(-1e6, 1e6);
    ::osg::TransformationMatrix<double> matrix;
    for (unsigned i = 0; i < 16; ++i)
        matrix[i / 4][i % 4] = any(rng);
    for (int round = 0; round < roundsOf(200); ++round) {
        const Pnt3f p(static_cast<float>(any(rng)), static_cast<float>(any(rng)), 1);
        const node_ref node(cloudNode({p}));
        const ::osg::GeometryPtr core = coreOf(node.get());
        if (round % 2 == 0)
            core->setPositions(
                inOtherForm<::osg::GeoPositions3d>(::osg::GeoPositionsPtr(core->getPositions())));
        morva::osg::applyTransform(core, matrix);
        for (unsigned row = 0; row < 3; ++row)
            EXPECT_EQ(core->getPositions()->getValue(0)[row],
                      static_cast<float>(matrix[0][row] * double{p[0]} +
                                         matrix[1][row] * double{p[1]} +
                                         matrix[2][row] * double{p[2]} + matrix[3][row]));
    }
    morva::osg::applyTransform(::osg::GeometryPtr(), matrix);
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
