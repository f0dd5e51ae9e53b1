// Lists of nodes: which passes see what, in which order.

#include <morva/core/morva_osg_tools.h>

#include <gtest/gtest.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"

using namespace morva_test;
using names = std::vector<std::string>;

namespace {

::osg::NodePtr leaf(const std::string& name, const ::osg::MaterialPtr& material = ::osg::NullFC) {
    return named(name, meshNode(quads(1), material));
}

/// A scene with one of everything that the collectors treat differently.
::osg::NodePtr everything() {
    const auto image = imageOf(::osg::Image::OSG_RGBA_PF, 2, 2, 254);
    return named(
        "root",
        group({leaf("plain"), leaf("glass", chunked({1, 1, 1, 0.5F})),
               named("switch", switched(-1, {leaf("a"), group({leaf("b")})})),
               named("detail", detailed({leaf("c"), hidden(leaf("d"))})),
               named("hidden", hidden(group({leaf("e"), group({leaf("f")})}))),
               leaf("cube", cubeTextured()), leaf("choice", choiceOf(0, {simple({1, 0, 0})})),
               leaf("decal", chunked({1, 1, 1, 1}, image)), leaf("last", simple({0, 1, 0}))}));
}

} // namespace

TEST(GetGeometryNodes, SortsPlainThenSwitchesThenTransparent) {
    const node_ref root(everything());
    node_list nodes;
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, true), 6U);
    EXPECT_EQ(namesOf(nodes), (names{"plain", "last", "a", "b", "c", "d", "glass", "decal"}));
    nodes.clear();
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, false), 2U);
    EXPECT_EQ(namesOf(nodes), (names{"plain", "last", "glass", "decal"}));
    // Appends; what is in the list already counts as ahead.
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, false), 6U);
    EXPECT_EQ(nodes.size(), 8U);
}

TEST(GetGeometryNodes, KeepsTransparentNodesApartInThreeLists) {
    const node_ref root(everything());
    node_list plain, transparent;
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), plain, transparent, true), 4U);
    EXPECT_EQ(namesOf(plain), (names{"plain", "last", "a", "b", "c", "d"}));
    EXPECT_EQ(namesOf(transparent), (names{"glass", "decal"}));
    plain.clear();
    transparent.clear();
    // The count is told also when the nodes are not wanted.
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), plain, transparent, false), 4U);
    EXPECT_EQ(namesOf(plain), (names{"plain", "last"}));

    node_list switches;
    plain.clear();
    transparent.clear();
    morva::osg::getGeometryNodesForTree(root.get(), plain, switches, transparent);
    EXPECT_EQ(namesOf(switches), (names{"a", "b", "c", "d"}));
    EXPECT_EQ(plain.size() + transparent.size(), 4U);
}

TEST(GetGeometryNodes, GivesNothingForWhatHasNothing) {
    const node_ref bare(::osg::Node::create()), mask(hidden(group({leaf("x")})));
    for (const ::osg::NodePtr& node : {::osg::NodePtr(::osg::NullFC), bare.get(), mask.get()}) {
        node_list nodes, transparent;
        EXPECT_EQ(morva::osg::getGeometryNodes(node, nodes, true), 0U);
        EXPECT_EQ(morva::osg::getGeometryNodes(node, nodes, transparent, true), 0U);
        EXPECT_TRUE(nodes.empty() && transparent.empty());
    }
}

TEST(GetGeometryNodes, DescendsBelowGeometryButNotBelowSkippedGeometry) {
    const node_ref root(group({leaf("top"), leaf("stop", cubeTextured())}));
    root->getChild(0)->addChild(leaf("below"));
    root->getChild(1)->addChild(leaf("unseen"));
    node_list nodes;
    morva::osg::getGeometryNodes(root.get(), nodes, true);
    EXPECT_EQ(namesOf(nodes), (names{"top", "below"}));
}

TEST(GetGeometryNodes, ListsAStandInForAGeometryRoot) {
    const node_ref root(leaf("self", simple({1, 0, 0})));
    node_list nodes;
    EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, true), 1U);
    ASSERT_EQ(nodes.size(), 1U);
    EXPECT_NE(nodes[0], root.get());
    EXPECT_EQ(nodes[0]->getCore(), root->getCore());
    EXPECT_NE(nodes[0]->getParent(), ::osg::NullFC);
    EXPECT_EQ(root->getParent(), ::osg::NullFC);
    EXPECT_EQ(nodes[0]->getNChildren(), 0U);
}

TEST(GetGeometryNodes, KeepsEarlierStandInsUsable) {
    const node_ref first(leaf("first")), second(leaf("second")), third(leaf("third"));
    node_list nodes, transparent;
    morva::osg::getGeometryNodes(first.get(), nodes, true);
    morva::osg::getGeometryNodes(second.get(), nodes, true);
    morva::osg::getGeometryNodes(third.get(), nodes, transparent, true);
    ASSERT_EQ(nodes.size(), 3U);
    EXPECT_EQ(nodes[0]->getCore(), first->getCore());
    EXPECT_EQ(nodes[1]->getCore(), second->getCore());
    EXPECT_EQ(nodes[2]->getCore(), third->getCore());
}

TEST(GetGeometryNodes, LetsStandInsGoWithTheirGeometry) {
    const auto ask = [](const ::osg::NodePtr& node) {
        node_list nodes;
        morva::osg::getGeometryNodes(node, nodes, true);
        return nodes[0];
    };
    const node_ref other(leaf("other"));
    ask(other.get());
    const unsigned int before = liveContainers();
    for (int i = 0; i < 50; ++i) {
        const node_ref passing(leaf("passing"));
        ask(passing.get());
        ask(passing.get());
    }
    ask(other.get()); // the time at which the rest is seen to
    EXPECT_EQ(liveContainers(), before);
    // A stand-in that was taken over by another parent lives on.
    const node_ref owner(group()), taken(leaf("taken"));
    owner->addChild(ask(taken.get()));
    ask(other.get());
    EXPECT_EQ(owner->getChild(0)->getCore(), taken->getCore());
    EXPECT_NE(ask(taken.get()), owner->getChild(0));
}

TEST(GetTravMaskZeroNodes, FindsWhatIsHiddenByItselfOrFromAbove) {
    const node_ref root(group(
        {leaf("seen"), hidden(group({leaf("e"), switched(0, {leaf("f")})})), hidden(leaf("g"))}));
    root->getChild(0)->addChild(hidden(leaf("h")));
    node_list nodes;
    morva::osg::getTravMaskZeroNodes(root.get(), nodes, false);
    EXPECT_EQ(namesOf(nodes), (names{"h", "e", "f", "g"}));
    nodes.clear();
    morva::osg::getTravMaskZeroNodes(root.get(), nodes, true);
    EXPECT_EQ(namesOf(nodes), (names{"seen", "h", "e", "f", "g"}));
    morva::osg::getTravMaskZeroNodes(::osg::NullFC, nodes, true);
    EXPECT_EQ(nodes.size(), 5U);
}

TEST(GetSkippedNodes, StopsAtASkippedNode) {
    const node_ref root(group({leaf("plain"), leaf("cube", cubeTextured()),
                               switched(0, {leaf("choice", choiceOf(0, {}))}),
                               hidden(group({leaf("under a mask")})), hidden(leaf("mask"))}));
    root->getChild(1)->addChild(leaf("below", cubeTextured()));
    node_list nodes;
    morva::osg::getSkippedNodes(root.get(), nodes);
    EXPECT_EQ(namesOf(nodes), (names{"cube", "choice", "mask"}));
    EXPECT_EQ(morva::osg::cntShouldSkipNodes(root.get()), 4U); // that one goes on below
    morva::osg::getSkippedNodes(::osg::NullFC, nodes);
    EXPECT_EQ(nodes.size(), 3U);
    EXPECT_EQ(morva::osg::cntShouldSkipNodes(::osg::NullFC), 0U);
}

TEST(CollectsubTree, TakesTheTopmostGeometriesWhateverTheirMask) {
    const node_ref root(group({leaf("a"), hidden(group({hidden(leaf("b"))})), group()}));
    root->getChild(0)->addChild(leaf("below a"));
    node_list nodes;
    morva::osg::collectsubTree(root.get(), nodes);
    EXPECT_EQ(namesOf(nodes), (names{"a", "b"}));
}

TEST(CollectGeoNodes, WalksParentsFirstAndPassesCorelessNodes) {
    const ::osg::NodePtr coreless = ::osg::Node::create();
    coreless->addChild(leaf("under none"));
    const node_ref root(named("root", meshNode(quads(1))));
    root->addChild(group({leaf("a"), coreless}));
    root->addChild(leaf("b"));
    std::list<::osg::NodePtr> nodes;
    morva::osg::collect_geo_nodes(root.get(), nodes);
    EXPECT_EQ(namesOf({nodes.begin(), nodes.end()}), (names{"root", "a", "under none", "b"}));
}

TEST(GetNodeCount, CountsANullNodeAsOne) {
    const node_ref root(group({group({leaf("a")}), ::osg::Node::create()}));
    EXPECT_EQ(morva::osg::getNodeCount(root.get()), 4U);
    EXPECT_EQ(morva::osg::getNodeCount(::osg::NullFC), 1U);
}

TEST(CollectNodeNames, KeepsWalkOrderWithinAName) {
    const node_ref root(named("door", group({leaf("door"), group({leaf("b"), leaf("door")})})));
    std::map<std::string, node_list> found;
    morva::osg::CollectNodeNames(root.get(), found);
    ASSERT_EQ(found.size(), 2U);
    EXPECT_EQ(found["door"],
              (node_list{root.get(), root->getChild(0), root->getChild(1)->getChild(1)}));
    morva::osg::CollectNodeNames(::osg::NullFC, found);
    EXPECT_EQ(found["b"].size(), 1U);
}

TEST(SearchMaterialGroup, FindsTheOutermostOne) {
    const node_ref root(group({materialGroup(
        simple({1, 0, 0}), {group({materialGroup(simple({0, 1, 0}), {leaf("x")})})})}));
    const ::osg::NodePtr outer = root->getChild(0);
    const ::osg::NodePtr inner = outer->getChild(0)->getChild(0);
    EXPECT_EQ(morva::osg::searchMaterialGroup(inner->getChild(0)), outer);
    EXPECT_EQ(morva::osg::searchMaterialGroup(inner), outer);
    EXPECT_EQ(morva::osg::searchMaterialGroup(outer), ::osg::NullFC); // itself does not count
    EXPECT_EQ(morva::osg::searchMaterialGroup(root.get()), ::osg::NullFC);
    EXPECT_EQ(morva::osg::searchMaterialGroup(::osg::NullFC), ::osg::NullFC);
}
