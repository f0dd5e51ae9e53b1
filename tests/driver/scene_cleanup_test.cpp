// Passes that cut parts out of a tree, on trees written as text.

#include "tests/support/test.h"

#include <morva/driver/morva_osg_scene_cleanup.h>

namespace {

using pass = void (*)(const ::osg::NodePtr& root);

void switches(const ::osg::NodePtr& root) { morva::osg::removeSwitchParts(root); }
void switchesOfA(const ::osg::NodePtr& root) {
    morva::osg::removeSwitchParts(nodeNamed(root, "a"));
}
void lods(const ::osg::NodePtr& root) { morva::osg::removeLODParts(root); }
void empties(const ::osg::NodePtr& root) { morva::osg::removeEmptyParts(root); }
void emptiesOfA(const ::osg::NodePtr& root) { morva::osg::removeEmptyParts(nodeNamed(root, "a")); }
void nonGeo(const ::osg::NodePtr& root) { morva::osg::removeNonGeoParts(root); }
void groups(const ::osg::NodePtr& root) { morva::osg::RemoveGroupNodes(root); }
void groupsOfA(const ::osg::NodePtr& root) { morva::osg::RemoveGroupNodes(nodeNamed(root, "a")); }
void deleteM(const ::osg::NodePtr& root) { morva::osg::deleteNode(nodeNamed(root, "m")); }
void maskZero(const ::osg::NodePtr& root) { morva::osg::deleteTravMaskZeroNodes(root); }
void renameAll(const ::osg::NodePtr& root) { morva::osg::RenameMultipleNodeNames(root, false); }
void renameMeshes(const ::osg::NodePtr& root) { morva::osg::RenameMultipleNodeNames(root, true); }
void nameNothing(const ::osg::NodePtr& root) { morva::osg::nameGeoNodes(root, {}); }
void nameMeshes(const ::osg::NodePtr& root) { morva::osg::nameGeoNodes(root, {"x", "last"}); }
void transforms(const ::osg::NodePtr& root) {
    morva::osg::RemoveTransforms(root);
    EXPECT_EQ(root->getCore()->getType(), ::osg::Group::getClassType());
    EXPECT_EQ(nodeNamed(root, "u")->getCore()->getType(), ::osg::Group::getClassType());
}

TEST(SceneCleanup, LeavesThisTree) {
    const struct {
        const char* rule;
        pass apply;
        const char *scene, *expected;
    } rows[] = {
        {"deleting climbs to the root", deleteM, "r(a(b(m)))", "r"},
        {"deleting stops at a sibling", deleteM, "r(a(m) n)", "r(n)"},
        {"chosen child goes to the end", switches, "r(?1s(a b c) n)", "r(n b)"},
        {"switch of nothing goes whole", switches, "r(?-1s(a) n)", "r(n)"},
        {"switch of all goes whole", switches, "r(?-2s(a) n)", "r(n)"},
        {"choice beyond the children shows nothing", switches, "r(?7s(a) n)", "r(n)"},
        {"nested switches", switches, "r(?0s(?1t(a b)))", "r(b)"},
        {"nested switches, from the outer one", switchesOfA, "r(?0a(?1t(b c)))", "r(c)"},
        {"switch at the root stays", switches, "?0s(a b)", "s(a b)"},
        {"neighbouring switches", switches, "r(?0s(a) ?0t(b))", "r(a b)"},
        {"neighbouring lods", lods, "r(%l(a b) %k(c))", "r(a c)"},
        {"lod inside a lod", lods, "r(%l(%k(a)))", "r(a)"},
        {"lod without children", lods, "r(%l() n)", "r(n)"},
        {"lod at the root stays", lods, "%l(a %k(b))", "l(a k(b))"},
        {"empty groups go bottom up", empties, "r(a(b() c(d())) ~t())", "r"},
        {"geometry and bare nodes stay", empties, "r(a() m .b c(n))", "r(m b c(n))"},
        {"emptiness climbs above the start", emptiesOfA, "r(a(b()) c() m)", "r(m)"},
        {"what draws nothing goes", nonGeo, "r(a(b()) m c(n d()) .e)", "r(m c(n))"},
        {"switches and lods are kept whole", nonGeo, "r(?0s(a()) %l(b()) %k() c())",
         "r(s(a) l(b))"},
        {"all removable is left to the parent", nonGeo, "r(a() b())", "r(a b)"},
        {"only group gives its children", groups, "r(a(m n))", "r(m n)"},
        {"groups of one give way", groups, "r(a(m) n b(o))", "r(n m o)"},
        {"chains collapse", groups, "r(a(b(c(m))) n)", "r(n m)"},
        {"transforms stay", groups, "r(~t(m) a(~u(n)) ~v())", "r(t(m) v u(n))"},
        {"no descent below two that stay", groups, "~t(~u(a(b(m))))", "t(u(a(b(m))))"},
        {"collapse climbs above the start", groupsOfA, "r(a(m))", "r"},
        {"root becomes its geometry", groups, "r(#m(below))", "r"},
        {"hidden nodes and emptied parents", maskZero, "r(a(!m) n !b(o) !p)", "r(n)"},
        {"bearers of one name", renameAll, "r(x y(x) z)", "r(x_0 y(x_1) z)"},
        {"geometry alone", renameMeshes, "r(x(x) x y() y)", "r(x(x_0) x_1 y y_0)"},
        {"no names", nameNothing, "r(a b(c))", "r(a b(c))"},
        {"the last name", nameMeshes, "r(#a(below) b(c))", "r(last(below) b(last))"},
        {"transforms become groups", transforms, "~t(a(~u(m)))", "t(a(u(m)))"},
    };
    for (const auto& row : rows) {
        const node_ref root(sceneOf(row.scene));
        row.apply(root.get());
        EXPECT_EQ(textOf(root.get()), row.expected) << row.rule;
    }
}

TEST(SceneCleanup, TellsWhetherSomethingWasReplaced) {
    const struct {
        const char* scene;
        bool switches, lods, non_geo;
    } rows[] = {{"r(m)", false, false, false},     {"r(?0s(a))", true, false, false},
                {"?-1s(m)", true, false, false},   {"r(%l(a) m)", false, true, false},
                {"%l(m)", false, true, false},     {"r(a(b()) ~t())", false, false, true},
                {"r(.e(m))", false, false, false}, {".e(?0s(m))", false, false, false}};
    for (const auto& row : rows) {
        const node_ref a(sceneOf(row.scene)), b(sceneOf(row.scene)), c(sceneOf(row.scene));
        EXPECT_EQ(morva::osg::removeSwitchParts(a.get()), row.switches) << row.scene;
        EXPECT_EQ(morva::osg::removeLODParts(b.get()), row.lods) << row.scene;
        EXPECT_EQ(morva::osg::removeNonGeoParts(c.get()), row.non_geo) << row.scene;
    }
    EXPECT_FALSE(morva::osg::removeSwitchParts(::osg::NullFC));
    EXPECT_FALSE(morva::osg::removeLODParts(::osg::NullFC));
    EXPECT_FALSE(morva::osg::removeNonGeoParts(::osg::NullFC));
    EXPECT_FALSE(morva::osg::removeInvisibleParts(::osg::NullFC));
    morva::osg::deleteNode(::osg::NullFC);
    for (const pass apply : {empties, groups, renameAll, nameMeshes})
        apply(::osg::NullFC);
    morva::osg::RemoveTransforms(::osg::NullFC);
}

TEST(SceneCleanup, AsksTheFirstLengthOfAGeometry) {
    const ::osg::NodePtr root = group({meshNode(quads(1))});
    const node_ref held(root);
    const ::osg::GeometryPtr geometry = coreOf(root->getChild(0));
    geometry->getLengths()->addValue(0);
    EXPECT_FALSE(morva::osg::removeNonGeoParts(root));
    geometry->getLengths()->setValue(0, 0);
    EXPECT_TRUE(morva::osg::removeNonGeoParts(root));
    geometry->getLengths()->clear();
    EXPECT_TRUE(morva::osg::removeNonGeoParts(root));
    geometry->setLengths(::osg::NullFC);
    EXPECT_TRUE(morva::osg::removeNonGeoParts(root));
}

TEST(SceneCleanup, RootWithoutAnyReferenceSurvives) {
    // Holding such a root for a moment would destroy it.
    ::osg::NodePtr root = sceneOf("r(a() m)");
    for (const pass apply : {empties, groups, maskZero})
        apply(root);
    EXPECT_EQ(textOf(root), "r");
    ::osg::subRefCP(root);
}

TEST(SceneCleanup, InvisiblePartsGoByTheMaterialsAlpha) {
    const ::osg::RefPtr<::osg::MaterialPtr> clear(chunked({1, 1, 1, 0.0099F}));
    const ::osg::RefPtr<::osg::MaterialPtr> faint(chunked({1, 1, 1, 0.01F}));
    const struct {
        const char *scene, *expected;
        bool all;
        std::size_t lines;
    } rows[] = {{"r(faint clear plain)", "r(faint plain)", false, 1},
                {"r(a(clear b(clear)) faint)", "r(faint)", false, 2},
                {"r(#faint(clear plain) .e(clear))", "r(faint(plain) e(clear))", false, 1},
                {"r(clear a(clear))", "r(clear a(clear))", true, 2},
                {"r(a(plain))", "r(a(plain))", false, 0}};
    const std::string line = "Remove Geometry because of transparency.\n";
    for (const auto& row : rows) {
        const stream_capture out(std::cout);
        const node_ref root(sceneOf(row.scene, {{"clear", clear.get()}, {"faint", faint.get()}}));
        EXPECT_EQ(morva::osg::removeInvisibleParts(root.get()), row.all) << row.scene;
        EXPECT_EQ(textOf(root.get()), row.expected);
        EXPECT_EQ(out.text().size(), row.lines * line.size()) << row.scene;
        EXPECT_EQ(out.text().substr(0, line.size()), row.lines > 0 ? line : "");
    }
}

// The recursions as they read: a changed parent is walked anew.

void naiveRemoveEmpty(::osg::NodePtr node) {
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
    parent->subChild(node);
    naiveRemoveEmpty(parent);
}

bool isGroup(const ::osg::NodePtr& node) {
    return node->getCore()->getType() == ::osg::Group::getClassType();
}

void naiveRemoveGroups(::osg::NodePtr node) {
    const ::osg::NodePtr parent = node->getParent();
    if (node->getNChildren() > 1) {
        for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
            naiveRemoveGroups(node->getChild(i));
    } else if (node->getNChildren() == 1 && isGroup(node->getChild(0))) {
        ::osg::NodePtr child = node->getChild(0);
        while (child->getNChildren() > 0)
            node->addChild(child->getChild(0));
        node->subChild(child);
        naiveRemoveGroups(node);
    } else if (node->getNChildren() == 1 && isGroup(node) && parent != ::osg::NullFC) {
        parent->addChild(node->getChild(0));
        parent->subChild(node);
        naiveRemoveGroups(parent);
    } else if (node->getNChildren() == 1 && isGroup(node)) {
        node->setCore(node->getChild(0)->getCore());
        node->subChild(::osg::UInt32(0));
    }
}

std::string randomTree(std::mt19937& rng, int depth) {
    if (depth == 0 || rng() % 5 == 0)
        return rng() % 3 == 0 ? "m" : "e()";
    std::string text = rng() % 4 == 0 ? "~t(" : "g(";
    for (unsigned count = rng() % 4; count > 0; --count)
        text += randomTree(rng, depth - 1) + (count > 1 ? " " : "");
    return text + ")";
}

TEST(SceneCleanup, EndsLikeTheRecursionsOnRandomTrees) {
    std::mt19937 rng(300);
    for (int round = 0; round < 300; ++round) {
        const std::string scene = "r(" + randomTree(rng, 5) + " " + randomTree(rng, 4) + ")";
        const node_ref a(sceneOf(scene)), b(sceneOf(scene)), c(sceneOf(scene)), d(sceneOf(scene));
        morva::osg::removeEmptyParts(a.get());
        naiveRemoveEmpty(b.get());
        EXPECT_EQ(textOf(a.get()), textOf(b.get())) << scene;
        morva::osg::RemoveGroupNodes(c.get());
        naiveRemoveGroups(d.get());
        EXPECT_EQ(textOf(c.get()), textOf(d.get())) << scene;
    }
}

TEST(SceneCleanup, WideTreesNeedNoDeepStack) {
    const node_ref root(group());
    for (int i = 0; i < 50000; ++i)
        root->addChild(group());
    morva::osg::removeEmptyParts(root.get());
    EXPECT_EQ(root->getNChildren(), 0U);
}

} // namespace
