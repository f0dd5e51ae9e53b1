// What broken_rule_of() says of scenes that were spoiled behind the scene graph's back.

#include "tests/support/test.h"

#include <morva/core/morva_osg_scene_rules.h>

namespace {

using morva::osg::broken_rule_of;
using ::osg::GeometryPtr;
using ::osg::NodePtr;

/// Lists a node among another one's children, with the reference that goes with it.
void listBelow(const NodePtr& parent, const NodePtr& child) {
    ::osg::addRefCP(child);
    parent->editMFChildren()->push_back(child);
}

TEST(SceneRules, NameWhatIsBroken) {
    strays_expected = true; // spoiled counts
    using change = void (*)(const NodePtr& root, const GeometryPtr& core);
    const std::pair<const char*, change> rows[] = {
        {"", [](auto&, auto&) {}},
        {"", [](auto& root, auto&) { root->addChild(::osg::Node::create()); }},
        {"a parent has its children",
         [](auto& root, auto&) { root->getParent()->editMFChildren()->clear(); }},
        {"a node stands in one place",
         [](auto& root, auto&) { listBelow(root, root->getChild(0)); }},
        {"a child is a node", [](auto& root, auto&) { listBelow(root, ::osg::NullFC); }},
        {"a child knows its parent",
         [](auto& root, auto&) { listBelow(root, root->getChild(1)->getChild(0)); }},
        {"every node references its core",
         [](auto&, auto& core) { ::osg::subRefCP(GeometryPtr(core)); }},
        {"a core knows each of its nodes once",
         [](auto&, auto& core) { const_cast<::osg::MFNodePtr&>(core->getParents()).clear(); }},
        {"every primitive has a type and a length",
         [](auto&, auto& core) { core->getLengths()->addValue(0); }},
        {"primitives use no more vertices than there are indices for",
         [](auto&, auto& core) { core->getLengths()->setValue(37, 0); }},
        {"every vertex has an index for each entry of the mapping",
         [](auto&, auto& core) { core->getIndices()->addValue(0); }},
        {"indices lead to elements that there are",
         [](auto&, auto& core) { core->getIndices()->setValue(6, 71); }},
        {"a property stands in one entry of the mapping",
         [](auto&, auto& core) { core->getIndexMapping(1) = 3; }},
        {"every property has an element for each vertex",
         [](auto&, auto& core) { core->setIndices(::osg::NullFC); }}};
    for (const auto& [rule, spoil] : rows) {
        SCOPED_TRACE(rule);
        const geometry_ref core(geometryOf(cube()));
        const NodePtr root = group({nodeOf(core), group({nodeOf(core)})});
        const node_ref above(group({root})), held(root);
        ::osg::subRefCP(GeometryPtr(core)); // the nodes hold it
        spoil(root, core);
        EXPECT_EQ(broken_rule_of(root), rule);
        ::osg::addRefCP(core);
        ::osg::addRefCP(root); // ends later than what was spoiled
    }
    EXPECT_EQ(broken_rule_of(::osg::NullFC), "");
}

#ifdef MORVA_VALIDATE
TEST(SceneRules, TheGuardWantsWholeWhatCameWhole) {
    const geometry_ref core(geometryOf(quads(2)));
    const node_ref root(nodeOf(core));
    const morva::osg::scene_guard guard(root);
    guard.after("first", root);
    core->getPositions()->resize(3);
    EXPECT_DEATH(guard.after("second", root), "second: broken rule: every property has");
    morva::osg::scene_guard(root).after("of what came broken", root);
}
#endif

} // namespace
