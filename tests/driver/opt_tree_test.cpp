// The front door: order of stages, what is printed, what becomes of the root and its parent.

#include <string>

#include <gtest/gtest.h>

#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>

#include <morva/driver/morva_osg_params.h>
#include <morva/driver/morva_osg_scenerebuild.h>
#include <morva/idmap/morva_osg_idmaphandler.h>

#include "../support/live_containers.h"
#include "../support/mesh_multiset.h"
#include "../support/scene_builders.h"
#include "../support/stream_capture.h"

namespace {

using namespace morva_test;

struct run {
    node_ref result;
    std::string printed;
};

run optimise(const ::osg::NodePtr& root, const std::string& parameters) {
    const stream_capture out(std::cout);
    run made;
    made.result = morva::osg::optTree(root, parameters);
    made.printed = out.text();
    return made;
}

std::string settings(const std::string& cacheopt, const std::string& idmap,
                     const std::string& alpha) {
    return "Cacheopt:       " + cacheopt + "\nCalcNormals:    0\nFlat:           1\n" +
           "IDMAP:          \"" + idmap + "\"\nOPT:            1\nOptimizeTC:     2\n" +
           "TexCoords:      2\nToWorld:        1\nVertexColor:    -1\nAddColorsTex:   0\n" +
           "deleteUnusedTC: 1\nmergeSameName:  0\nalphaGeometry:  " + alpha +
           "\nignoreMaterial: 0\nkeepRenderFalse:0\n";
}

::osg::NodePtr twoParts() {
    return group({named("a", meshNode(quads(2), simple({1, 0, 0}))),
                  moved({5, 0, 0}, {named("b", meshNode(quads(3), simple({1, 0, 0})))})});
}

TEST(OptTree, WithoutAStageTheGivenRootComesBackUnderItsParent) {
    const node_ref parent(group({named("first", group()), twoParts(), named("last", group())}));
    const node_ref root(parent->getChild(1));
    const run made = optimise(root.get(), "flat(true)");
    EXPECT_EQ(made.result, root);
    EXPECT_EQ(root->getParent(), parent.get());
    EXPECT_EQ(parent->findChild(root.get()), 2) << "at the end of the list";
    EXPECT_EQ(made.printed, "Optimizing Tree...\n" + settings("0", "", "0"));
}

TEST(OptTree, TheEmptyStringLeavesTheRootOffItsParent) {
    const node_ref parent(group({twoParts()}));
    const node_ref root(parent->getChild(0));
    const run made = optimise(root.get(), "");
    EXPECT_EQ(made.result, root);
    EXPECT_EQ(root->getParent(), ::osg::NullFC);
    EXPECT_EQ(made.printed, "Optimizing Tree...\n");
}

TEST(OptTree, MergesAndHandsOutANewRootWithoutReferences) {
    const node_ref parent(group({twoParts()}));
    const node_ref root(parent->getChild(0));
    const world_mesh before = worldMesh(root.get());
    const run made = optimise(root.get(), "maxtris(5000)");
    EXPECT_NE(made.result, root);
    EXPECT_EQ(made.result.get().getRefCount(), 1U);
    EXPECT_EQ(root->getParent(), parent.get()) << "the input tree goes back, not the result";
    EXPECT_EQ(made.result->getParent(), ::osg::NullFC);
    EXPECT_EQ(geometryNodes(made.result.get()).size(), 1U) << "equal materials became one";
    mesh_choice positions;
    positions.normals = false;
    EXPECT_EQ(
        firstDifference(worldMesh(root.get(), positions), worldMesh(made.result.get(), positions)),
        "");
    EXPECT_NE(made.printed.find("Merge Geometry. Cacheopt: 0\n"), std::string::npos);
    EXPECT_EQ(before.size(), 10U);
}

struct print_case {
    const char* name;
    const char* parameters;
    std::string expected; ///< somewhere in what is printed
};

void PrintTo(const print_case& row, std::ostream* out) { *out << row.name; }

class OptTreePrints : public testing::TestWithParam<print_case> {};

TEST_P(OptTreePrints, This) {
    const node_ref root(twoParts());
    const run made = optimise(root.get(), GetParam().parameters);
    EXPECT_NE(made.printed.find(GetParam().expected), std::string::npos) << made.printed;
}

INSTANTIATE_TEST_SUITE_P(
    , OptTreePrints,
    testing::Values(
        print_case{"ten_triangles_keep_the_cache_stage", "cacheopt(true),maxtris(10)",
                   settings("1", "", "0")},
        print_case{"eleven_clear_it", "cacheopt(true),maxtris(11)", settings("0", "", "0")},
        print_case{"one_geometry_keeps_it", "onegeometry(true),cacheopt(true)",
                   settings("1", "", "1") + "Merge Geometry. Cacheopt: 1\n"},
        print_case{"map_in_the_root_alone", "idmapinroot(true)", settings("0", "metaOnly", "0")},
        print_case{"map_name_of_the_example", "idmap(false)", settings("0", "false", "0")},
        print_case{"help_comes_first_and_the_run_goes_on", "help()",
                   "Optimizing Tree...\nAvailable parameters are: \n" + morva::osg::optTreeDoc() +
                       settings("0", "", "0")},
        print_case{"levels_of_detail", "removelod(true)", "Removing LOD parts.\n"},
        print_case{"switches", "removeswitch(1)", "Removing Switch parts.\n"},
        print_case{"misspelt_keys_do_nothing", "removeLODParts(true),centerBB(10)",
                   "Optimizing Tree...\n" + settings("0", "", "0")},
        print_case{"rubbish_is_no_error", ")(,,((x,opt,maxtris,1(2)3)", settings("0", "", "0")}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(OptTree, FormatOfTheStreamDoesNotReachTheSettings) {
    const node_ref root(twoParts());
    const stream_capture out(std::cout);
    std::cout << std::boolalpha << std::hex << std::showbase;
    morva::osg::optTree(root.get(), "maxtris(0)");
    EXPECT_EQ(out.text(), "Optimizing Tree...\n" + settings("0", "", "0"));
}

TEST(OptTree, OneGeometryReducesMaterials) {
    const node_ref root(
        group({meshNode(quads(2), simple({1, 0, 0})), meshNode(quads(9), chunked({0, 1, 0, 0.5F})),
               meshNode(quads(3), simple({0, 0, 1}))}));
    const run made = optimise(root.get(), "onegeometry(true)");
    EXPECT_EQ(geometryNodes(made.result.get()).size(), 1U);
}

TEST(OptTree, SwitchesAndLevelsGiveWayBeforeTheMerge) {
    const node_ref root(group({switched(1, {meshNode(quads(1)), meshNode(quads(4))}),
                               detailed({meshNode(quads(2)), meshNode(quads(7))})}));
    EXPECT_EQ(worldMesh(optimise(root.get(), "maxtris(100)").result.get()).size(), 0U);
    const run made = optimise(root.get(), "maxtris(100),removelod(1),removeswitch(1)");
    EXPECT_EQ(worldMesh(made.result.get()).size(), 12U);
}

TEST(OptTreeIdmap, TheRootCarriesTheMap) {
    const node_ref root(twoParts());
    const run made = optimise(root.get(), "maxtris(5000),idmapinroot(true),prefix(p)");
    const auto attributesOf = [&made](::osg::UInt16 binding) {
        return ::osg::StringAttributeMapPtr::dcast(made.result->findAttachment(
            ::osg::StringAttributeMap::getClassType().getGroupId(), binding));
    };
    ASSERT_NE(attributesOf(2), ::osg::NullFC);
    EXPECT_EQ(attributesOf(2)->getAttribute("0"), "a");
    EXPECT_EQ(attributesOf(2)->getAttribute("1"), "b");
    EXPECT_EQ(attributesOf(3)->getAttribute("1"), "5 0 0") << "boxes are in world space";
    const std::string core = ::osg::getName(geometryNodes(made.result.get()).at(0));
    EXPECT_EQ(attributesOf(6)->getAttribute("a"), core);
    EXPECT_EQ(attributesOf(6)->getAttribute("b"), core);
    EXPECT_EQ(attributesOf(1)->getAttribute(core), "TC0");
    EXPECT_EQ(morva::osg::getIDmapHandler().prefix, "p");
    EXPECT_EQ(morva::osg::getIDmapHandler().releaseHeldLock(), 0U) << "the run gave it back";
}

TEST(OptTreeIdmap, ASecondRunStartsAfresh) {
    for (int i = 0; i < 2; ++i) {
        const node_ref root(group({named("only", meshNode(quads(1)))}));
        optimise(root.get(), "maxtris(50),idmapinroot(true)");
        EXPECT_EQ(morva::osg::getIDmapHandler().names, std::vector<std::string>{"only"});
    }
}

TEST(OptTree, LeavesNoContainersBehind) {
    const unsigned int before = liveContainers();
    for (const char* parameters :
         {"flat(true)", "maxtris(1)", "maxtris(3),opt(0)", "maxtris(2),opt(2)", "maxtris(2),opt(3)",
          "maxtris(2),calcnormals(true)", "maxtris(2),toworld(false)", "onegeometry(true)",
          "maxtris(2),vertexcolor(100)", "maxtris(2),mergesamename(1)",
          "maxtris(9),idmap(/dev/null/x)", "maxtris(2),ignorematerial(true)",
          "maxtris(2),keeprenderfalse(true)"}) {
        SCOPED_TRACE(parameters);
        {
            const node_ref root(group({twoParts(), meshNode(quads(2), chunked({1, 1, 1, 0.5F})),
                                       hidden(meshNode(quads(1))), meshNode(row(4, 1)),
                                       meshNode(mesh_data{}), ::osg::Node::create(), group()}));
            optimise(root.get(), parameters);
        }
        morva::osg::getIDmapHandler().reset();
        EXPECT_EQ(liveContainers(), before);
    }
}

} // namespace
