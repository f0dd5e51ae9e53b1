// Passes that cut parts out of a tree, on trees written as text.

#include "tests/support/test.h"

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

TEST(SceneCleanup, LeavesThisTreeAndTellsWhetherSomethingWasReplaced) {
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
        {"geometry and bare nodes stay", empties, "r(a() m .b c(n))", "r(m b c(n))"},
        {"emptiness climbs above the start", empties, "r(a(b()) c() m)", "r(m)", "a"},
        {"emptied groups all go", empties, "r(a(b(c()) m) d(e(f()) g()))", "r(a(m))"},
        {"a geometry is asked its first length", nonGeo, "r(zero none m)", "r(m)"},
        {"what draws nothing goes", nonGeo, "r(a(b()) m c(n d()) .e)", "r(m c(n))"},
        {"what a bare node holds stays", nonGeo, "r(.e(m))", "r(e(m))"},
        {"switches and lods are kept whole", nonGeo, "r(?0s(a()) %l(b()) %k() c())",
         "r(s(a) l(b))"},
        {"all removable is left to the parent", nonGeo, "r(a(b()) ~t())", "r(a(b) t)+"},
        {"collapse climbs above the start", groups, "r(a(m))", "r", "a"},
        {"single children go to the end, chains are pulled up", groups,
         "r(a(m) b(c(d(n o))) ~t(e(x)) f(g(p)))", "r(b(n o) t(x) m p)"},
        {"a root takes the place of its only child", groups, "r(a(#b(m n)))", "b(m n)"},
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
        {"transforms become groups", silent<transforms>, "~t(a(~u(m)))", "t(a(u(m)))"}};
    const ::osg::RefPtr<::osg::MaterialPtr> clear(chunked({1, 1, 1, 0.0099F}));
    const ::osg::RefPtr<::osg::MaterialPtr> faint(chunked({1, 1, 1, 0.01F}));
    const std::string line = "Remove Geometry because of transparency.\n";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.rule);
        // Without any reference: holding such a root for a moment would destroy it.
        const NodePtr root = sceneOf(row.scene, {{"clear", clear.get()}, {"faint", faint.get()}});
        if (const NodePtr zero = nodeNamed(root, "zero"); zero != ::osg::NullFC)
            coreOf(zero)->setLengths(
                propertyOf<::osg::GeoPLengthsUI32>(std::vector<::osg::UInt32>{0, 4}));
        if (const NodePtr none = nodeNamed(root, "none"); none != ::osg::NullFC)
            coreOf(none)->setLengths(::osg::NullFC);
        const stream_capture out(std::cout);
        const bool told = row.apply(row.start == nullptr ? root : nodeNamed(root, row.start));
        std::string found = textOf(root) + (told ? "+" : "");
        for (std::string text = out.text(); !text.empty(); text.erase(0, line.size())) {
            EXPECT_EQ(text.substr(0, line.size()), line);
            found += "*";
        }
        EXPECT_EQ(found, row.expected);
        EXPECT_FALSE(row.apply != maskZero && row.apply(::osg::NullFC));
        ::osg::subRefCP(root);
    }
}

} // namespace
