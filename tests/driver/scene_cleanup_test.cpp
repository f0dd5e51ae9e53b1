// Passes that cut parts out of a tree, on trees written as text.

#include "tests/support/random_scenes.h"

#include <morva/driver/morva_osg_scene_cleanup.h>

namespace {

using ::osg::NodePtr;
using pass = bool (*)(const NodePtr& start); ///< whether something was replaced, where it tells

template <void (*Act)(NodePtr)> bool silent(const NodePtr& start) {
    Act(start);
    return false;
}

bool switches(const NodePtr& start) { return morva::osg::removeSwitchParts(start); }
bool lods(const NodePtr& start) { return morva::osg::removeLODParts(start); }
bool nonGeo(const NodePtr& start) { return morva::osg::removeNonGeoParts(start); }
bool invisible(const NodePtr& start) { return morva::osg::removeInvisibleParts(start); }
constexpr pass empties = silent<morva::osg::removeEmptyParts>;
constexpr pass groups = silent<morva::osg::RemoveGroupNodes>;
constexpr pass deletion = silent<morva::osg::deleteNode>;
constexpr pass maskZero = silent<morva::osg::deleteTravMaskZeroNodes>;
void renameAll(NodePtr start) { morva::osg::RenameMultipleNodeNames(start, false); }
void renameMeshes(NodePtr start) { morva::osg::RenameMultipleNodeNames(start, true); }
void nameNothing(NodePtr start) { morva::osg::nameGeoNodes(start, {}); }
void nameMeshes(NodePtr start) { morva::osg::nameGeoNodes(start, {"x", "last"}); }
void transforms(NodePtr start) {
    morva::osg::RemoveTransforms(start);
    for (const char* name : {"t", "u"})
        EXPECT_TRUE(start == ::osg::NullFC ||
                    nodeNamed(start, name)->getCore()->getType() == ::osg::Group::getClassType());
}

// Groups and empty parts, beside these: EndsLikeTheRecursionsOnRandomTrees.
TEST(SceneCleanup, LeavesThisTreeAndTellsWhetherSomethingWasReplaced) {
    std::string wide = "r(e()";
    for (int i = 0; i < 50000; ++i)
        wide += " e()";
    wide += ")";
    const struct {
        const char* rule;
        pass apply;
        const char *scene, *expected; ///< with "+" behind it if the pass says so, "*" for a line
        const char* start = nullptr;  ///< a node below the root
    } rows[] = {
        {"deleting climbs to the root", deletion, "r(a(b(m)))", "r", "m"},
        {"deleting stops at a sibling", deletion, "r(x(a(m) n))", "r(x(n))", "m"},
        {"chosen child goes to the end", switches, "r(?1s(a b c) n)", "r(n b)+"},
        {"switches of nothing, of all, beyond the children go whole", switches,
         "r(?-1s(a) ?-2s(b) ?1s(c) n)", "r(n)+"},
        {"nested switches", switches, "r(?0s(?1t(a b)))", "r(b)+"},
        {"nested switches, from the outer one", switches, "r(?0a(?1t(b c)))", "r(c)+", "a"},
        {"switch at the root stays", switches, "?0s(a b)", "s(a b)+"},
        {"no switch; a bare node ends the way down", switches, "r(%l(a) .e(?0s(m)))",
         "r(l(a) e(s(m)))"},
        {"lods beside and inside each other, and without children", lods,
         "r(%l(a b) %k(c) %l() %l(%k(d)))", "r(a c d)+"},
        {"lod at the root stays", lods, "%l(a %k(b))", "l(a k(b))+"},
        {"no lod", lods, "r(?0s(a) .e(%l(m)))", "r(s(a) e(l(m)))"},
        {"wide trees need no deep stack", empties, wide.c_str(), "r"},
        {"geometry and bare nodes stay", empties, "r(a() m .b c(n))", "r(m b c(n))"},
        {"emptiness climbs above the start", empties, "r(a(b()) c() m)", "r(m)", "a"},
        {"what draws nothing goes", nonGeo, "r(a(b()) m c(n d()) .e)", "r(m c(n))"},
        {"what a bare node holds stays", nonGeo, "r(.e(m))", "r(e(m))"},
        {"switches and lods are kept whole", nonGeo, "r(?0s(a()) %l(b()) %k() c())",
         "r(s(a) l(b))"},
        {"all removable is left to the parent", nonGeo, "r(a(b()) ~t())", "r(a(b) t)+"},
        {"collapse climbs above the start", groups, "r(a(m))", "r", "a"},
        {"hidden nodes and emptied parents", maskZero, "r(a(!m) n !b(o) !p)", "r(n)"},
        {"bearers of one name", silent<renameAll>, "r(x y(x) z)", "r(x_0 y(x_1) z)"},
        {"geometry alone", silent<renameMeshes>, "r(x(x) x y() y)", "r(x(x_0) x_1 y y_0)"},
        {"no names", silent<nameNothing>, "r(a b(c))", "r(a b(c))"},
        {"the last name", silent<nameMeshes>, "r(#a(below) b(c))", "r(last(below) b(last))"},
        {"clear, not faint", invisible, "r(faint clear plain)", "r(faint plain)*"},
        {"groups of clear ones", invisible, "r(a(clear b(clear)) faint)", "r(faint)**"},
        {"below what stays", invisible, "r(#faint(clear plain) .e(clear))",
         "r(faint(plain) e(clear))*"},
        {"all clear is left to the parent", invisible, "r(clear a(clear))", "r(clear a(clear))+**"},
        {"nothing clear", invisible, "r(a(plain))", "r(a(plain))"},
        {"transforms become groups", silent<transforms>, "~t(a(~u(m)))", "t(a(u(m)))"},
    };
    const ::osg::RefPtr<::osg::MaterialPtr> clear(chunked({1, 1, 1, 0.0099F}));
    const ::osg::RefPtr<::osg::MaterialPtr> faint(chunked({1, 1, 1, 0.01F}));
    const std::string line = "Remove Geometry because of transparency.\n";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        const node_ref root(sceneOf(row.scene, {{"clear", clear.get()}, {"faint", faint.get()}}));
        const stream_capture out(std::cout);
        const bool told = row.apply(row.start == nullptr ? root.get() : nodeNamed(root, row.start));
        std::string found = textOf(root.get()) + (told ? "+" : "");
        for (std::string text = out.text(); !text.empty(); text.erase(0, line.size())) {
            EXPECT_EQ(text.substr(0, line.size()), line);
            found += "*";
        }
        EXPECT_EQ(found, row.expected);
        EXPECT_FALSE(row.apply != maskZero && row.apply(::osg::NullFC));
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
        const node_ref child(node->getChild(0));
        node->setCore(child->getCore());
        node->subChild(::osg::UInt32(0));
        if (child->getNChildren() == 0)
            return;
        node->setTravMask(child->getTravMask());
        ::osg::setName(node, ::osg::getName(child.get()));
        while (child->getNChildren() > 0)
            node->addChild(child->getChild(0));
    }
}

TEST(SceneCleanup, EndsLikeTheRecursionsOnRandomTrees) {
    std::mt19937 rng(seedOf(300));
    for (int round = 0; round < roundsOf(600); ++round) {
        const std::string text = "r(" + randomScene(rng, 5) + (round % 3 == 0 ? "" : " red") + ")";
        SCOPED_TRACE(text);
        const auto scene = [&text] { // some meshes are groups instead
            NodePtr root = sceneOf(text);
            for (const NodePtr& node : geometryNodes(root))
                if (std::strchr("nlp", ::osg::getName(node)[0]) != nullptr)
                    node->setCore(::osg::Group::create());
            return root;
        };
        // Without any reference: holding such a root for a moment would destroy it.
        NodePtr bare[] = {scene(), scene()};
        const node_ref held[] = {node_ref(scene()), node_ref(scene())};
        morva::osg::removeEmptyParts(bare[0]);
        naiveRemoveEmpty(held[0].get());
        morva::osg::RemoveGroupNodes(bare[1]);
        naiveRemoveGroups(held[1].get());
        for (const int i : {0, 1}) {
            EXPECT_EQ(textOf(bare[i]), textOf(held[i].get()));
            EXPECT_EQ(bare[i]->getTravMask(), held[i]->getTravMask());
            morva::osg::deleteTravMaskZeroNodes(bare[i]);
            ::osg::subRefCP(bare[i]);
        }
    }
}

} // namespace
