// Lists of nodes: which passes see what, in which order.

#include <morva/core/morva_osg_tools.h>

#include "tests/support/live_containers.h"
#include "tests/support/scene_builders.h"

using namespace morva_test;
using names = std::vector<std::string>;

namespace {

/// A scene with one of everything that the collectors treat differently.
::osg::NodePtr everything() {
    const auto image = imageOf(::osg::Image::OSG_RGBA_PF, 2, 2, 254);
    return sceneOf(
        "root(plain glass ?-1switch(a g(b)) %detail(c !d) !hidden(e g(f)) #cube(unseen !mask) "
        "choice decal #last(below))",
        {{"glass", chunked({1, 1, 1, 0.5F})},
         {"cube", cubeTextured()},
         {"choice", choiceOf(0, {simple({1, 0, 0})})},
         {"decal", chunked({1, 1, 1, 1}, image)},
         {"last", simple({0, 1, 0})}});
}

/// The names that a collector lists.
template <typename Collector> names listed(const Collector& collector) {
    node_list nodes;
    collector(nodes);
    return namesOf(nodes);
}

class NodeLists : public no_strays {};

} // namespace

TEST_F(NodeLists, GetGeometryNodesSortsPlainThenSwitchesThenTransparent) {
    const names all = {"plain", "last", "below", "a", "b", "c", "d", "glass", "decal"};
    const names without = {"plain", "last", "below", "glass", "decal"};
    const node_ref root(everything());
    for (const bool with_switches : {true, false}) {
        const std::ptrdiff_t ahead = with_switches ? 7 : 3;
        const names& expected = with_switches ? all : without;
        node_list nodes, plain, transparent;
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, with_switches), ahead);
        EXPECT_EQ(namesOf(nodes), expected);
        // Appends; what is in the list already counts as ahead.
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), nodes, with_switches),
                  expected.size() + static_cast<std::size_t>(ahead));
        // The number under switches is told also when they are not wanted.
        EXPECT_EQ(morva::osg::getGeometryNodes(root.get(), plain, transparent, with_switches), 4U);
        EXPECT_EQ(namesOf(plain), names(expected.begin(), expected.begin() + ahead));
        EXPECT_EQ(namesOf(transparent), names(expected.begin() + ahead, expected.end()));
    }
    node_list plain, switches, transparent;
    morva::osg::getGeometryNodesForTree(root.get(), plain, switches, transparent);
    EXPECT_EQ(namesOf(switches), (names{"a", "b", "c", "d"}));
    EXPECT_EQ(plain.size() + transparent.size(), 5U);

    const node_ref bare(::osg::Node::create()), mask(sceneOf("!g(x)"));
    for (const ::osg::NodePtr& node : {::osg::NodePtr(::osg::NullFC), bare.get(), mask.get()}) {
        EXPECT_EQ(morva::osg::getGeometryNodes(node, switches, true), 4U) << "nothing is added";
        EXPECT_EQ(morva::osg::getGeometryNodes(node, switches, transparent, true), 0U);
        EXPECT_EQ(switches.size() + transparent.size(), 6U);
    }
}

TEST(GetGeometryNodes, ListsAStandInForAGeometryRoot) {
    const node_ref roots[] = {node_ref(sceneOf("#a(b)", {{"a", simple({1, 0, 0})}})),
                              node_ref(sceneOf("c")), node_ref(sceneOf("d"))};
    node_list nodes, transparent;
    EXPECT_EQ(morva::osg::getGeometryNodes(roots[0].get(), nodes, true), 1U);
    EXPECT_EQ(morva::osg::getGeometryNodes(roots[1].get(), nodes, true), 2U);
    EXPECT_EQ(morva::osg::getGeometryNodes(roots[2].get(), nodes, transparent, true), 0U);
    ASSERT_EQ(nodes.size(), 3U);
    for (std::size_t i = 0; i < 3; ++i) { // earlier ones stay usable
        EXPECT_NE(nodes[i], roots[i].get());
        EXPECT_EQ(nodes[i]->getCore(), roots[i]->getCore());
        EXPECT_EQ(nodes[i]->getNChildren(), 0U);
        EXPECT_NE(nodes[i]->getParent(), ::osg::NullFC);
        EXPECT_EQ(roots[i]->getParent(), ::osg::NullFC);
    }
}

TEST(GetGeometryNodes, LetsStandInsGoWithTheirGeometry) {
    const auto ask = [](const ::osg::NodePtr& node) {
        node_list nodes;
        morva::osg::getGeometryNodes(node, nodes, true);
        return nodes[0];
    };
    const node_ref other(sceneOf("other"));
    ask(other.get());
    const unsigned int before = liveContainers();
    for (int i = 0; i < 50; ++i) {
        const node_ref passing(sceneOf("passing"));
        ask(passing.get());
        ask(passing.get());
    }
    ask(other.get()); // the time at which the rest is seen to
    EXPECT_EQ(liveContainers(), before);
    // A stand-in that was taken over by another parent lives on.
    const node_ref owner(group()), taken(sceneOf("taken"));
    owner->addChild(ask(taken.get()));
    ask(other.get());
    EXPECT_EQ(owner->getChild(0)->getCore(), taken->getCore());
    EXPECT_NE(ask(taken.get()), owner->getChild(0));
}

TEST_F(NodeLists, EachCollectorHasItsOwnRules) {
    using namespace morva::osg;
    const node_ref root(everything());
    const ::osg::NodePtr null, top = root.get();
    const names hidden_ones = {"d", "e", "f", "mask"};
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(top, l, false); }), hidden_ones);
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(nodeNamed(top, "cube"), l, true); }),
              (names{"cube", "unseen", "mask"}));
    EXPECT_EQ(listed([&](auto& l) { getSkippedNodes(top, l); }), (names{"d", "cube", "choice"}));
    EXPECT_EQ(cntShouldSkipNodes(top), 4U); // goes on below
    // The topmost geometries, whatever their mask.
    EXPECT_EQ(
        listed([&](auto& l) { collectsubTree(top, l); }),
        (names{"plain", "glass", "a", "b", "c", "d", "e", "f", "cube", "choice", "decal", "last"}));
    EXPECT_EQ(listed([&](auto& l) { getTravMaskZeroNodes(null, l, true); }), names());
    EXPECT_EQ(listed([&](auto& l) { getSkippedNodes(null, l); }), names());
    EXPECT_EQ(cntShouldSkipNodes(null), 0U);
    EXPECT_EQ(getNodeCount(top), 21U);
    EXPECT_EQ(getNodeCount(null), 1U);

    const node_ref odd(sceneOf("#root(g(a .none(b)) c)"));
    std::list<::osg::NodePtr> nodes;
    collect_geo_nodes(odd.get(), nodes);
    EXPECT_EQ(namesOf({nodes.begin(), nodes.end()}), (names{"root", "a", "b", "c"}));
}

TEST_F(NodeLists, CollectNodeNamesKeepsWalkOrderWithinAName) {
    const node_ref root(sceneOf("door(door g(b door))"));
    std::map<std::string, node_list> found;
    morva::osg::CollectNodeNames(root.get(), found);
    morva::osg::CollectNodeNames(::osg::NullFC, found);
    const ::osg::NodePtr g = root->getChild(1);
    EXPECT_EQ(found, (std::map<std::string, node_list>{
                         {"door", {root.get(), root->getChild(0), g->getChild(1)}},
                         {"b", {g->getChild(0)}},
                         {"g", {g}}}));
}

TEST_F(NodeLists, MaterialIsTheOwnOneOrThatOfTheOutermostGroup) {
    using namespace morva::osg;
    const material_map materials = {
        {"own", simple({1, 0, 0})}, {"outer", simple({0, 1, 0})}, {"inner", simple({0, 0, 1})}};
    const node_ref root(
        sceneOf("root($outer(g($inner(own bare))) $none($inner(under)))", materials));
    const auto at = [&](const char* name) { return nodeNamed(root.get(), name); };
    for (const char* below : {"own", "bare", "inner"})
        EXPECT_EQ(searchMaterialGroup(at(below)), at("outer")) << below;
    EXPECT_EQ(searchMaterialGroup(at("outer")), ::osg::NullFC); // itself does not count
    EXPECT_EQ(searchMaterialGroup(::osg::NullFC), ::osg::NullFC);
    EXPECT_EQ(getMaterial(at("own")), materials.at("own"));
    EXPECT_EQ(getMaterial(at("bare")), materials.at("outer"));
    EXPECT_EQ(getMaterial(at("inner")), ::osg::NullFC); // no geometry
    // An outermost group without a material hides the inner one as well.
    EXPECT_EQ(getMaterial(at("under")), ::osg::NullFC);
    EXPECT_EQ(getMaterial(::osg::NullFC), ::osg::NullFC);
}
