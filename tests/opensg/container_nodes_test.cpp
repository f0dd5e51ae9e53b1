// Nodes, cores, volumes, names and attachments.

#include <gtest/gtest.h>

#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGDistanceLOD.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGTransform.h>

namespace {

using namespace osg;

/// A root with n children, all with group cores.
struct family {
    explicit family(int children) : root(makeCoredNode<Group>()) {
        for (int i = 0; i < children; ++i) {
            child.push_back(makeCoredNode<Group>());
            root->addChild(child.back());
        }
    }
    std::vector<NodePtr> order() const {
        return {root->getMFChildren()->begin(), root->getMFChildren()->end()};
    }
    RefPtr<NodePtr> root;
    std::vector<NodePtr> child;
};

using order = std::vector<NodePtr>;

TEST(NodeChildren, AddingMovesAndAppends) {
    family f(3);
    f.root->addChild(f.child[0]); // within one parent: to the end, alive throughout
    EXPECT_EQ(f.order(), (order{f.child[1], f.child[2], f.child[0]}));
    EXPECT_EQ(f.child[0].getRefCount(), 1u);

    family g(1);
    g.child[0]->addChild(f.child[1]);
    EXPECT_EQ(f.order(), (order{f.child[2], f.child[0]}));
    EXPECT_EQ(f.child[1]->getParent(), g.child[0]);
    f.root->addChild(NullFC);
    EXPECT_EQ(f.root->getNChildren(), 2u);
}

TEST(NodeChildren, InsertAndReplaceKeepTheOrderTold) {
    family f(3);
    const NodePtr added = makeCoredNode<Group>();
    f.root->insertChild(1, added);
    EXPECT_EQ(f.order(), (order{f.child[0], added, f.child[1], f.child[2]}));
    f.root->insertChild(3, f.child[0]);
    EXPECT_EQ(f.order(), (order{added, f.child[1], f.child[0], f.child[2]}));
    const NodePtr other = makeCoredNode<Group>();
    EXPECT_TRUE(f.root->replaceChildBy(added, other));
    EXPECT_EQ(f.order(), (order{other, f.child[1], f.child[0], f.child[2]}));
    EXPECT_TRUE(f.root->replaceChildBy(other, f.child[2])) << "by a sibling";
    EXPECT_EQ(f.order(), (order{f.child[2], f.child[1], f.child[0]}));
    EXPECT_FALSE(f.root->replaceChildBy(f.child[1], NullFC));
    EXPECT_EQ(f.root->findChild(f.child[0]), 2);
    EXPECT_EQ(f.root->findChild(f.root.get()), -1);
}

TEST(NodeChildren, AnEntryOfTheListItselfCanBeTakenOff) {
    family f(3);
    f.root->subChild((*f.root->getMFChildren())[1]);
    EXPECT_EQ(f.order(), (order{f.child[0], f.child[2]}));
    EXPECT_EQ(f.child[2].getRefCount(), 1u);
}

TEST(NodeChildren, NoNodeComesBelowItself) {
    family f(1);
    f.child[0]->addChild(f.root.get());
    EXPECT_EQ(f.child[0]->getNChildren(), 0u);
    f.root->addChild(f.root.get());
    EXPECT_EQ(f.root->getNChildren(), 1u);
    const NodePtr grandchild = makeCoredNode<Group>();
    f.child[0]->addChild(grandchild);
    EXPECT_FALSE(f.child[0]->replaceChildBy(grandchild, f.root.get()));
    EXPECT_EQ(f.child[0]->getChild(0), grandchild);
    EXPECT_EQ(f.child[0]->getChild(1), NullFC) << "there is none";
}

TEST(NodeChildren, ADyingParentLeavesHeldChildrenWithoutOne) {
    RefPtr<NodePtr> kept;
    {
        family f(2);
        kept = f.child[1];
    }
    EXPECT_EQ(kept->getParent(), NullFC);
    EXPECT_EQ(kept.get().getRefCount(), 1u);
}

TEST(NodeCoreSharing, ParentsAreTheNodesAndTheLastOneDropsTheCore) {
    const GroupPtr core = Group::create();
    const UInt32 id = core.getFieldContainerId();
    {
        const RefPtr<NodePtr> first(makeNodeFor(core));
        const RefPtr<NodePtr> second(makeNodeFor(core));
        EXPECT_EQ(core.getRefCount(), 2u);
        ASSERT_EQ(core->getParents().size(), 2u);
        EXPECT_EQ(core->getParents()[1], second.get());
        first->setCore(first->getCore());
        EXPECT_EQ(core.getRefCount(), 2u) << "its own core again";
        first->setCore(NullFC);
        EXPECT_EQ(core->getParents().size(), 1u);
    }
    EXPECT_EQ(FieldContainerFactory::the()->getContainer(id), NullFC);
}

NodePtr movedBy(Real32 x, Real32 y, Real32 z) {
    TransformPtr transform;
    const NodePtr node = makeCoredNode<Transform>(&transform);
    Matrix matrix;
    matrix.setTranslate(x, y, z);
    transform->setMatrix(matrix);
    return node;
}

TEST(NodeToWorld, IncludesTheOwnCore) {
    const RefPtr<NodePtr> outer(movedBy(1, 0, 0));
    const NodePtr inner = movedBy(0, 2, 0);
    outer->addChild(inner);
    EXPECT_EQ(inner->getToWorld()[3][0], 1.f);
    EXPECT_EQ(inner->getToWorld()[3][1], 2.f);
    EXPECT_EQ(outer->getToWorld()[3][1], 0.f);
}

TEST(NodeVolume, FreshIsEmptyAndInvalidAndStopsInvalidation) {
    const RefPtr<NodePtr> node(Node::create());
    EXPECT_FALSE(node->getVolume().isValid());
    EXPECT_TRUE(node->getVolume().isEmpty());
    node->setTravMask(0);
    node->updateVolume();
    EXPECT_FALSE(node->getVolume().isValid()) << "a mask of 0 is not updated";
    node->setTravMask(1);
    node->updateVolume();
    EXPECT_TRUE(node->getVolume().isValid());
    node->addChild(Node::create());
    EXPECT_FALSE(node->getVolume().isValid());
}

TEST(ComponentTransformMatrix, IsPutTogetherByTheEdit) {
    ComponentTransformPtr parts;
    const RefPtr<NodePtr> node(makeCoredNode<ComponentTransform>(&parts));
    parts->setTranslation(Vec3f(1, 2, 3));
    parts->setScale(Vec3f(2, 2, 2));
    EXPECT_EQ(node->getToWorld()[3][2], 0.f);
    endEditCP(parts, ComponentTransform::TranslationFieldMask);
    EXPECT_EQ(node->getToWorld()[3][2], 3.f);
    EXPECT_EQ(node->getToWorld()[1][1], 2.f);
}

TEST(CoreDefaults, AreTheKnownOnes) {
    const RefPtr<SwitchPtr> chosen(Switch::create());
    EXPECT_EQ(chosen->getChoice(), -1);
    EXPECT_EQ(Switch::ALL, -2);
    const RefPtr<NodePtr> node(Node::create());
    EXPECT_EQ(node->getTravMask(), 0xFFFFFFFFu);
    EXPECT_EQ(node->getCore(), NullFC);
    EXPECT_EQ(node->getParent(), NullFC);
}

TEST(Names, AreAttachmentsThatComeAndGo) {
    const RefPtr<NodePtr> node(Node::create());
    EXPECT_EQ(getName(node.get()), nullptr);
    EXPECT_EQ(getName(NullFC), nullptr);
    setName(node.get(), "first");
    const AttachmentPtr attachment = node->findAttachment(Name::getClassType());
    setName(node.get(), std::string("second"));
    EXPECT_STREQ(getName(node.get()), "second");
    EXPECT_EQ(node->findAttachment(Name::getClassType()), attachment) << "edited in place";
    setName(node.get(), "");
    EXPECT_STREQ(getName(node.get()), "") << "an empty text is a name";
    setName(node.get(), static_cast<const char*>(nullptr));
    EXPECT_EQ(getName(node.get()), nullptr);
    EXPECT_STREQ(FieldContainerFactory::the()->findGroupName(Name::getClassGroupId()), "name");
}

TEST(Attachments, StandUnderGroupAndBinding) {
    const RefPtr<NodePtr> node(Node::create());
    const RefPtr<StringAttributeMapPtr> first(StringAttributeMap::create());
    const RefPtr<StringAttributeMapPtr> second(StringAttributeMap::create());
    const UInt32 group = StringAttributeMap::getClassType().getGroupId();
    node->addAttachment(first.get(), 1);
    node->addAttachment(first.get(), 1);
    EXPECT_EQ(first.get().getRefCount(), 2u) << "the same again counts once";
    node->addAttachment(first.get(), 2);
    EXPECT_EQ(first.get().getRefCount(), 3u);
    EXPECT_EQ(first->getParents().size(), 2u);
    EXPECT_EQ(node->findAttachment(group), NullFC);
    EXPECT_EQ(node->findAttachment(group, 2), first.get());
    node->addAttachment(second.get(), 2);
    EXPECT_EQ(node->findAttachment(group, 2), second.get());
    EXPECT_EQ(first.get().getRefCount(), 2u);
    EXPECT_EQ(first->findParent(node.get()), 0);
    node->subAttachment(second.get(), 1);
    EXPECT_EQ(node->findAttachment(group, 1), first.get()) << "another one stands there";
    node->subAttachment(first.get(), 1);
    EXPECT_EQ(first->findParent(node.get()), -1);
}

TEST(StringAttributes, KeepTheOrderOfKeys) {
    const RefPtr<StringAttributeMapPtr> map(StringAttributeMap::create());
    map->setAttribute("b", "1");
    map->setAttribute("a", "2");
    map->setAttribute("b", "3");
    ASSERT_EQ(map->getKeys().size(), 2u);
    EXPECT_EQ(map->getKeys()[0], "b");
    std::string value = "untouched";
    EXPECT_FALSE(map->getAttribute("c", value));
    EXPECT_EQ(value, "untouched");
    EXPECT_TRUE(map->getAttribute("b", value));
    EXPECT_EQ(value, "3");
    EXPECT_EQ(map->getAttribute("c"), "");
    for (char c = 'd'; c < 'z'; ++c) {
        map->setAttribute("b", std::string(100, c));
        map->setAttribute(std::string(1, c), (*map.getCPtr())["b"]); // a value that moves
        EXPECT_EQ(map->getAttribute(std::string(1, c)), std::string(100, c));
    }
    (*map.getCPtr())["c"] = "4";
    EXPECT_TRUE(map->hasAttribute("c"));
}

} // namespace
