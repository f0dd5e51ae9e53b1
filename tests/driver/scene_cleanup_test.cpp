// Passes that cut parts out of a tree. Trees are written as text: name(children).

#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGTransform.h>

#include <morva/driver/morva_osg_scene_cleanup.h>

#include "../support/live_containers.h"
#include "../support/scene_builders.h"
#include "../support/stream_capture.h"

namespace {

using namespace morva_test;

/// The tree as names in brackets; "-" for a nameless node.
std::string textOf(const ::osg::NodePtr& node) {
    const char* name = ::osg::getName(node);
    std::string text = name != nullptr ? name : "-";
    if (node->getNChildren() == 0)
        return text;
    text += "(";
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        text += (i == 0 ? "" : " ") + textOf(node->getChild(i));
    return text + ")";
}

::osg::NodePtr g(const char* name, const node_list& children = {}) {
    return named(name, group(children));
}
::osg::NodePtr mesh(const char* name) { return named(name, meshNode(quads(1))); }
::osg::NodePtr bare(const char* name) { return named(name, ::osg::Node::create()); }
::osg::NodePtr move(const char* name, const node_list& children = {}) {
    return named(name, moved(::osg::Vec3f(1, 0, 0), children));
}
::osg::NodePtr sw(const char* name, int choice, const node_list& children) {
    return named(name, switched(choice, children));
}
::osg::NodePtr lod(const char* name, const node_list& children) {
    return named(name, detailed(children));
}

struct pass_case {
    const char* name;
    std::function<::osg::NodePtr()> scene;
    std::function<void(const ::osg::NodePtr&)> pass;
    const char* expected;
};

void PrintTo(const pass_case& row, std::ostream* out) { *out << row.name; }

class CleanupPass : public testing::TestWithParam<pass_case> {};

TEST_P(CleanupPass, LeavesThisTreeAndNoStrays) {
    const unsigned int before = liveContainers();
    {
        const node_ref root(GetParam().scene());
        GetParam().pass(root.get());
        EXPECT_EQ(textOf(root.get()), GetParam().expected);
    }
    EXPECT_EQ(liveContainers(), before);
}

void switches(const ::osg::NodePtr& root) { morva::osg::removeSwitchParts(root); }
void lods(const ::osg::NodePtr& root) { morva::osg::removeLODParts(root); }
void empties(const ::osg::NodePtr& root) { morva::osg::removeEmptyParts(root); }
void nonGeo(const ::osg::NodePtr& root) { morva::osg::removeNonGeoParts(root); }
void groups(const ::osg::NodePtr& root) { morva::osg::RemoveGroupNodes(root); }
void maskZero(const ::osg::NodePtr& root) { morva::osg::deleteTravMaskZeroNodes(root); }
void renamed(const ::osg::NodePtr& root) { morva::osg::RenameMultipleNodeNames(root, false); }

INSTANTIATE_TEST_SUITE_P(
    , CleanupPass,
    testing::Values(
        pass_case{"deleting_climbs_to_the_root",
                  [] { return g("r", {g("a", {g("b", {mesh("m")})})}); },
                  [](const ::osg::NodePtr& r) {
                      morva::osg::deleteNode(r->getChild(0)->getChild(0)->getChild(0));
                  },
                  "r"},
        pass_case{
            "deleting_stops_at_a_sibling",
            [] {
                return g("r", {g("a", {mesh("m")}), mesh("n")});
            },
            [](const ::osg::NodePtr& r) { morva::osg::deleteNode(r->getChild(0)->getChild(0)); },
            "r(n)"},
        pass_case{"chosen_child_goes_to_the_end",
                  [] {
                      return g("r", {sw("s", 1, {mesh("a"), mesh("b"), mesh("c")}), mesh("n")});
                  },
                  switches, "r(n b)"},
        pass_case{"switch_of_nothing_goes_whole",
                  [] {
                      return g("r", {sw("s", -1, {mesh("a")}), mesh("n")});
                  },
                  switches, "r(n)"},
        pass_case{"switch_of_all_goes_whole",
                  [] {
                      return g("r", {sw("s", -2, {mesh("a")}), mesh("n")});
                  },
                  switches, "r(n)"},
        pass_case{"choice_beyond_the_children_shows_nothing",
                  [] {
                      return g("r", {sw("s", 7, {mesh("a")}), mesh("n")});
                  },
                  switches, "r(n)"},
        pass_case{"nested_switches",
                  [] {
                      return g("r", {sw("s", 0, {sw("t", 1, {mesh("a"), mesh("b")})})});
                  },
                  switches, "r(b)"},
        pass_case{"switch_at_the_root_stays",
                  [] {
                      return sw("s", 0, {mesh("a"), mesh("b")});
                  },
                  switches, "s(a b)"},
        pass_case{"neighbouring_switches_are_both_replaced",
                  [] {
                      return g("r", {sw("s", 0, {mesh("a")}), sw("t", 0, {mesh("b")})});
                  },
                  switches, "r(a b)"},
        pass_case{"neighbouring_lods_are_both_replaced",
                  [] {
                      return g("r", {lod("l", {mesh("a"), mesh("b")}), lod("k", {mesh("c")})});
                  },
                  lods, "r(a c)"},
        pass_case{"lod_inside_a_lod", [] { return g("r", {lod("l", {lod("k", {mesh("a")})})}); },
                  lods, "r(a)"},
        pass_case{"lod_without_children",
                  [] {
                      return g("r", {lod("l", {}), mesh("n")});
                  },
                  lods, "r(n)"},
        pass_case{"empty_groups_go_bottom_up",
                  [] {
                      return g("r", {g("a", {g("b"), g("c", {g("d")})}), move("t")});
                  },
                  empties, "r"},
        pass_case{"geometry_and_bare_nodes_stay",
                  [] {
                      return g("r", {g("a"), mesh("m"), bare("b"), g("c", {mesh("n")})});
                  },
                  empties, "r(m b c(n))"},
        pass_case{"emptiness_climbs_above_the_start",
                  [] {
                      return g("r", {g("a", {g("b")}), g("c"), mesh("m")});
                  },
                  [](const ::osg::NodePtr& r) { morva::osg::removeEmptyParts(r->getChild(0)); },
                  "r(m)"},
        pass_case{"what_draws_nothing_goes",
                  [] {
                      return g("r", {g("a", {g("b")}), mesh("m"), g("c", {mesh("n"), g("d")}),
                                     named("z", meshNode(mesh_data{}))});
                  },
                  nonGeo, "r(m c(n))"},
        pass_case{"switches_are_kept_whole",
                  [] {
                      return g("r", {sw("s", 0, {g("a")}), mesh("m"), g("b")});
                  },
                  nonGeo, "r(s(a) m)"},
        pass_case{"all_removable_is_left_to_the_parent",
                  [] {
                      return g("r", {g("a"), g("b")});
                  },
                  nonGeo, "r(a b)"},
        pass_case{"only_group_gives_its_children",
                  [] {
                      return g("r", {g("a", {mesh("m"), mesh("n")})});
                  },
                  groups, "r(m n)"},
        pass_case{"groups_of_one_give_way",
                  [] {
                      return g("r", {g("a", {mesh("m")}), mesh("n"), g("b", {mesh("o")})});
                  },
                  groups, "r(n m o)"},
        pass_case{"chains_collapse",
                  [] {
                      return g("r", {g("a", {g("b", {g("c", {mesh("m")})})}), mesh("n")});
                  },
                  groups, "r(n m)"},
        pass_case{"transforms_stay",
                  [] {
                      return g("r", {move("t", {mesh("m")}), g("a", {move("u", {mesh("n")})})});
                  },
                  groups, "r(t(m) u(n))"},
        pass_case{"group_root_of_one_geometry_becomes_it", [] { return g("r", {mesh("m")}); },
                  [](const ::osg::NodePtr& r) {
                      groups(r);
                      EXPECT_NE(coreOf(r), ::osg::NullFC);
                  },
                  "r"},
        pass_case{"hidden_nodes_go_with_emptied_parents",
                  [] {
                      return g("r", {g("a", {hidden(mesh("m"))}), mesh("n"),
                                     hidden(g("b", {mesh("o")})), hidden(mesh("p"))});
                  },
                  maskZero, "r(n)"},
        pass_case{"bearers_of_one_name_are_numbered",
                  [] {
                      return g("r", {mesh("x"), g("y", {mesh("x")}), mesh("z")});
                  },
                  renamed, "r(x_0 y(x_1) z)"}),
    [](const auto& instance) { return std::string(instance.param.name); });

TEST(RemoveParts, TellWhetherSomethingWasReplaced) {
    const node_ref plain(g("r", {mesh("m")}));
    EXPECT_FALSE(morva::osg::removeSwitchParts(plain.get()));
    EXPECT_FALSE(morva::osg::removeLODParts(plain.get()));
    const node_ref root_switch(sw("s", -1, {mesh("m")}));
    EXPECT_TRUE(morva::osg::removeSwitchParts(root_switch.get()));
    EXPECT_EQ(root_switch->getNChildren(), 1U);
    EXPECT_FALSE(morva::osg::removeSwitchParts(::osg::NullFC));
    EXPECT_FALSE(morva::osg::removeNonGeoParts(::osg::NullFC));
    EXPECT_FALSE(morva::osg::removeInvisibleParts(::osg::NullFC));
    morva::osg::deleteNode(::osg::NullFC);
    morva::osg::removeEmptyParts(::osg::NullFC);
    morva::osg::RemoveGroupNodes(::osg::NullFC);
    morva::osg::RemoveTransforms(::osg::NullFC);
}

TEST(RemoveParts, RootWithoutAnyReferenceSurvives) {
    // Holding such a root for a moment would destroy it.
    ::osg::NodePtr root = g("r", {g("a"), mesh("m")});
    morva::osg::removeEmptyParts(root);
    morva::osg::RemoveGroupNodes(root);
    morva::osg::deleteTravMaskZeroNodes(root);
    EXPECT_EQ(textOf(root), "r");
    ::osg::subRefCP(root);
}

TEST(RemoveInvisibleParts, GoByTheMaterialsAlpha) {
    const auto scene = [](float first, float second) {
        return node_ref(
            g("r", {named("a", meshNode(quads(1), chunked({1, 1, 1, first}))),
                    named("b", meshNode(quads(1), chunked({1, 1, 1, second}))), mesh("m")}));
    };
    const stream_capture out(std::cout);
    const node_ref some = scene(0.009F, 0.01F);
    EXPECT_FALSE(morva::osg::removeInvisibleParts(some.get()));
    EXPECT_EQ(textOf(some.get()), "r(b m)");
    EXPECT_EQ(out.text(), "Remove Geometry because of transparency.\n");

    const node_ref all(g("r", {named("a", meshNode(quads(1), chunked({1, 1, 1, 0})))}));
    EXPECT_TRUE(morva::osg::removeInvisibleParts(all.get()));
    EXPECT_EQ(textOf(all.get()), "r(a)");
}

TEST(RemoveTransforms, PutsPlainGroupsInTheirPlace) {
    const node_ref root(move("t", {g("a", {move("u", {mesh("m")})})}));
    morva::osg::RemoveTransforms(root.get());
    EXPECT_EQ(textOf(root.get()), "t(a(u(m)))");
    EXPECT_EQ(root->getCore()->getType(), ::osg::Group::getClassType());
    EXPECT_EQ(root->getChild(0)->getChild(0)->getCore()->getType(), ::osg::Group::getClassType());
}

TEST(RenameMultipleNodeNames, MayCountGeometryAlone) {
    const node_ref root(g("r", {g("x", {mesh("x")}), mesh("x")}));
    morva::osg::RenameMultipleNodeNames(root.get(), true);
    EXPECT_EQ(textOf(root.get()), "r(x(x_0) x_1)");
}

TEST(NameGeoNodes, GivesTheLastName) {
    const node_ref root(g("r", {mesh("a"), g("b", {mesh("c")})}));
    morva::osg::nameGeoNodes(root.get(), {});
    EXPECT_EQ(textOf(root.get()), "r(a b(c))");
    morva::osg::nameGeoNodes(root.get(), {"first", "last"});
    EXPECT_EQ(textOf(root.get()), "r(last b(last))");
}

// The recursion as it reads: an emptied parent is walked anew. The pass must end in the same tree.
void naiveRemoveEmpty(const ::osg::NodePtr& node) {
    if (node->getNChildren() != 0) {
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
            const node_ref child(node->getChild(i));
            naiveRemoveEmpty(child.get());
        }
        return;
    }
    const ::osg::NodePtr parent = node->getParent();
    if (::osg::GroupPtr::dcast(node->getCore()) == ::osg::NullFC || parent == ::osg::NullFC)
        return;
    parent->subChild(static_cast<::osg::UInt32>(parent->findChild(node)));
    naiveRemoveEmpty(parent);
}

::osg::NodePtr randomTree(std::mt19937& rng, int depth) {
    const unsigned kind = rng() % 5;
    if (depth == 0 || kind == 0)
        return rng() % 3 == 0 ? mesh("m") : g("e");
    const ::osg::NodePtr node = kind == 1 ? move("t") : g("g");
    const unsigned count = rng() % 4;
    for (unsigned i = 0; i < count; ++i)
        node->addChild(randomTree(rng, depth - 1));
    return node;
}

TEST(RemoveEmptyPartsOracle, EndsLikeTheRecursionOnRandomTrees) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 first(seed), second(seed);
        const node_ref a(g("r", {randomTree(first, 5), randomTree(first, 4)}));
        const node_ref b(g("r", {randomTree(second, 5), randomTree(second, 4)}));
        morva::osg::removeEmptyParts(a.get());
        naiveRemoveEmpty(b.get());
        EXPECT_EQ(textOf(a.get()), textOf(b.get()));
    }
}

TEST(RemoveEmptyParts, WideTreesNeedNoDeepStack) {
    const node_ref root(group());
    for (int i = 0; i < 50000; ++i)
        root->addChild(group());
    morva::osg::removeEmptyParts(root.get());
    EXPECT_EQ(root->getNChildren(), 0U);
}

} // namespace
