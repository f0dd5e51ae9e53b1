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

/// Clouds by the names of their meshes. The third point of one is used by nothing.
const std::map<std::string, points> clouds = {{"low", {{1, 2, 3}, {2, 2, 3}, {100, 100, 100}}},
                                              {"high", {{5, 4, 4}}},
                                              {"unit", {{0, 0, 0}, {2, 2, 2}}},
                                              {"flat", {{0, 0, 0}, {1, 1, 0}}},
                                              {"one", {{1, 1, 1}}},
                                              {"east", {{4, 0, 0}}},
                                              {"broken", {{10.5F, 7, 4}, {12, -0.5F, 9}}},
                                              {"third", {{11, 3, 3}}},
                                              {"nans", {{nan, 2, 2}, {3, nan, 7}}},
                                              {"empty", {}}};

NodePtr cloudNode(const points& at) {
    mesh_data mesh;
    mesh.primitives = {{0, unsigned(std::min<std::size_t>(at.size(), 2))}};
    mesh.positions = at;
    const NodePtr node = meshNode(mesh);
    if (at.size() == 1) // stored otherwise
        coreOf(node)->setPositions(
            inOtherForm<::osg::GeoPositions3d>(coreOf(node)->getPositions()));
    return node;
}

/// A scene of clouds, where those of one name have one core; what is named "turn" is a component
/// transform by a quarter around z.
NodePtr cloudsOf(const char* text) {
    const NodePtr root = sceneOf(text), turn = nodeNamed(root, "turn");
    std::map<std::string, node_ref> made;
    for (const NodePtr& node : geometryNodes(root)) {
        node_ref& first = made[::osg::getName(node)];
        first = first == ::osg::NullFC ? cloudNode(clouds.at(::osg::getName(node))) : first.get();
        node->setCore(first->getCore());
    }
    if (turn != ::osg::NullFC) {
        ::osg::Matrix quarter;
        quarter.setRotate(::osg::Quaternion(::osg::Vec3f(0, 0, 1), float(M_PI) / 2.0F));
        turn->setCore(::osg::ComponentTransform::create());
        ::osg::TransformPtr::dcast(turn->getCore())->setMatrix(quarter);
    }
    return root;
}

/// All positions, "x y z, x y z"; a "'" behind those that a transform moves further.
std::string positionsOf(const NodePtr& root) {
    std::ostringstream text;
    for (const NodePtr& each : geometryNodes(root)) {
        const ::osg::GeoPositionsPtr positions = coreOf(each)->getPositions();
        const bool is_moved = !each->getToWorld().equals(::osg::Matrix::identity(), 1e-6F);
        for (::osg::UInt32 i = 0; positions != ::osg::NullFC && i < positions->getSize(); ++i) {
            const Pnt3f p = positions->getValue(i);
            text << (text.tellp() > 0 ? ", " : "") << p[0] << ' ' << p[1] << ' ' << p[2]
                 << (is_moved ? "'" : "");
        }
    }
    return text.str();
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
    twice[0][3] = 7.0; // nothing is divided
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
    const char *const oblong = "r(g(low) high)", // extents 4, 2 and 1
        *const same = "1 2 3, 2 2 3, 100 100 100, 5 4 4";
    const struct {
        act apply;
        const char *scene, *text, *expected;
        std::string printed = "";
    } rows[] = {
        // Lower corners meet, and the tightest axis decides.
        {intoBox, oblong, "2", "-1 -1 -1, -0.5 -1 -1, 48.5 48 47.5, 1 0 -0.5"},
        {intoBox, oblong, "10:20:30:110:22:130", "10 20 30, 11 20 30, 109 118 127, 14 22 31"},
        // The world's box is measured, the own space moved.
        {childIntoBox, "~r(g(unit))", "1", "-1 -0.5 -0.5', 0 0.5 0.5'"},
        {intoBox, oblong, "0", same},
        {intoBox, oblong, "nan", same},
        {intoBox, oblong, "0:0:0:1:1:0", same, bad_box},
        {intoBox, oblong, "0:0:0:1:-1:1", same, bad_box},
        {intoBox, oblong, "a:b:c:d:e:f", same, bad_box},
        {intoBox, oblong, "0:0:0:1:1", same, bad_list},
        {intoBox, oblong, ":", same, bad_list},
        {intoBox, oblong, "1:2:3:9:4:4", same},
        {intoBox, oblong, "::1:2:3::9:4:4:77:", same}, // the seventh is ignored
        {intoBox, "flat", "2", "0 0 0, 1 1 0", bad_scene},
        {intoBox, ".e", "2", "", bad_scene},
        {intoBox, "!g(unit)", "2", "0 0 0, 2 2 2", bad_scene},
        // A place of its own for each node, baked; hidden ones lose their transforms alone.
        {toCenter, "r(unit ~t(unit) ?-2s(turn(east)) ~t(!one))", "1:2.25:-3e6:rest",
         "-0.5 0.25 -3e+06, 1.5 2.25 -3e+06, 0.5 0.25 -3e+06, 2.5 2.25 -3e+06, "
         "-0.5 4.25 -3e+06, 1 1 1",
         "New Model Center: [1/2.25/-3e+06]\nModel will be moved by: [-0.5/0.25/-3e+06]\n"},
        {toCenter, "east", "1:2:3", "4 0 0", // a copy was moved
         "New Model Center: [1/2/3]\nModel will be moved by: [-3/2/3]\n"},
        {toCenter, "~t(one)", "1:2", "1 1 1'", bad_center},
        {toCenter, "g()", "1:2", ""}, // nothing to move comes first
        // Rounds down; shared cores move once per node.
        {toBase, "r(broken third)", "", "0.5 8 1, 2 0.5 6, 1 4 0"},
        {toBase, "r(high high)", "", "-5 -4 -4, -5 -4 -4"},
        {toBase, "r(high ~t(g(one)))", "", "5 4 4, 1 1 1'"},
        {toBase, "turn(one)", "", "1 1 1'"},
        {toBase, "r(high ~t(g()))", "", "0 0 0"},
        // What is switched, empty or no number has no say.
        {toBase, "r(?0s(one) high empty)", "", "1 1 1, 0 0 0"},
        {toBase, "nans", "", "nan 0 0, 0 nan 5"},
        {toBase, "r(empty)", "", ""},
        // Topmost geometries, once per node.
        {doubled, "r(#one(high) g(one .e) empty)", "", "4 4 4, 5 4 4, 4 4 4"}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.scene << " " << row.text);
        const node_ref root(cloudsOf(row.scene));
        const stream_capture out(std::cout);
        std::cout.precision(1); // as a caller may have left it
        row.apply(root.get(), row.text);
        EXPECT_EQ(positionsOf(root.get()), row.expected);
        EXPECT_EQ(out.text(), row.printed);
        row.apply(::osg::NullFC, row.text);
    }
}

TEST(OneMaterial, IsThatOfMostPrimitivesOfEqualsTheFirstButNoneBeforeAll) {
    const ::osg::RefPtr<::osg::SimpleMaterialPtr> red(simple({1, 0, 0})), blue(simple({0, 0, 1}));
    const node_ref root(group({meshNode(quads(2), red.get()), meshNode(quads(5), blue.get()),
                               hidden(meshNode(quads(9), red.get())), meshNode(quads(2)),
                               sceneOf("$red($red(m))", {{"red", red.get()}})}));
    morva::osg::reduceSceneMaterialsToOne(root.get());
    EXPECT_EQ(coreOf(root->getChild(0))->getMaterial(), blue.get());
    EXPECT_EQ(coreOf(root->getChild(3))->getMaterial(), blue.get()) << "also where there was none";
    EXPECT_EQ(coreOf(root->getChild(2))->getMaterial(), red.get()) << "hidden nodes are left alone";
    const NodePtr outer = root->getChild(4), inner = outer->getChild(0);
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(outer->getCore())->getMaterial(), blue.get());
    EXPECT_EQ(::osg::MaterialGroupPtr::dcast(inner->getCore())->getMaterial(), red.get());
    EXPECT_EQ(coreOf(inner->getChild(0))->getMaterial(), ::osg::NullFC)
        << "the outermost group gives it";
    for (const auto& [material, most] : {std::pair(red.get(), blue.get()), {{}, {}}}) {
        root->addChild(meshNode(quads(10), material));
        EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(root.get()), most);
    }
    morva::osg::reduceSceneMaterialsToOne(::osg::NullFC);
    EXPECT_EQ(morva::osg::getMostUsedMaterialInScene(::osg::NullFC), ::osg::NullFC);
}

} // namespace
