// Containers and nodes: counting, lifetime, types, children, cores, names and attachments.

#include "tests/support/test.h"

namespace {

using namespace osg;

TEST(ReferenceCount, FollowsEveryHolder) {
    {
        RefPtr<NodePtr> held(Node::create()), copy(held);
        copy = held.get(); // its own target
        EXPECT_EQ(held.get().getRefCount(), 2u);
    }
    // The last reference gone, the variable that was passed is null.
    NodePtr fresh = Node::create(), child = Node::create();
    subRefCP(fresh); // count 0: the way to destroy what nobody took
    EXPECT_EQ(fresh, NullFC);
    const RefPtr<NodePtr> kept(Node::create());
    {
        const RefPtr<NodePtr> parent(makeCoredNode<Group>());
        parent->addChild(child);
        parent->subChild(child);
        EXPECT_EQ(child, NullFC);
        parent->addChild(kept);
    }
    EXPECT_EQ(kept->getParent(), NullFC) << "a dying parent leaves held children without one";
    EXPECT_EQ(kept.get().getRefCount(), 1u);
}

TEST(ReferenceCount, NullIsAcceptedEverywhere) {
    NodePtr null;
    addRefCP(null);
    subRefCP(null);
    beginEditCP(null);
    endEditCP(null);
    changedCP(null);
    endEditNotChangedCP(null);
    clearRefCP(null);
    EXPECT_EQ(null.getRefCount(), 0u);
    EXPECT_EQ(null.getContainerSize(), 0u);
    EXPECT_EQ(null.getCPtr(), nullptr);
    EXPECT_EQ(null.getAspectCPtr(1), nullptr);
    EXPECT_EQ(NodePtr::dcast(null), NullFC);
    NodePtr first = Node::create(), second = Node::create();
    const RefPtr<NodePtr> held(second);
    const UInt32 first_id = first.getFieldContainerId();
    setRefdCP(null, first);
    EXPECT_EQ(first.getRefCount(), 1u);
    setRefdCP(null, second);
    EXPECT_FALSE(isAlive(first_id));
    EXPECT_EQ(second.getRefCount(), 2u);
    clearRefCP(null);
    EXPECT_EQ(null, NullFC);
}

TEST(ContainerPtr, CastsFollowTheClassOfTheObjectAndTheOrderItsMaking) {
    const RefPtr<TransformPtr> transform(Transform::create());
    const NodeCorePtr core = transform.get();
    EXPECT_EQ(TransformPtr::dcast(core), transform.get());
    EXPECT_EQ(GroupPtr::dcast(core), transform.get()) << "a transform is a group";
    EXPECT_EQ(SwitchPtr::dcast(core), NullFC);
    EXPECT_EQ(TransformPtr(*transform.getCPtr()), transform.get());
    EXPECT_EQ(FieldContainerFactory::the()->createNodeCore("Node"), NullFC) << "a node is no core";
    NodePtr dropped = Node::create();
    const NodePtr dangling = dropped;
    subRefCP(dropped);
    EXPECT_LT(core, dangling) << "keys of maps may outlive their containers";
    EXPECT_LT(NodePtr(), dangling);
    EXPECT_EQ(sizeof(NodePtr), 16u);
#ifdef MORVA_VALIDATE
    const std::string gone = "container " + std::to_string(dangling.getFieldContainerId());
    EXPECT_DEATH(dangling->getCore(), gone + " is used after it was destroyed|use-after-free");
#endif
}

std::vector<NodePtr> childrenOf(const NodePtr& parent) {
    return {parent->getMFChildren()->begin(), parent->getMFChildren()->end()};
}

TEST(NodeChildren, MoveBetweenParentsAndPlaces) {
    const RefPtr<NodePtr> left(Node::create()), right(Node::create());
    std::vector<NodePtr> n(5);
    std::vector<RefPtr<NodePtr>> held;
    for (NodePtr& node : n)
        held.emplace_back(node = Node::create());
    const auto expectChildren = [&](const std::vector<NodePtr>& of_left,
                                    const std::vector<NodePtr>& of_right) {
        EXPECT_TRUE(childrenOf(left) == of_left && childrenOf(right) == of_right);
        for (const NodePtr& node : n)
            EXPECT_EQ(node.getRefCount(), node->getParent() == NullFC ? 1u : 2u);
    };
    for (const NodePtr& node : {n[0], n[1], n[2], n[0]}) // the first goes to the end
        left->addChild(node);
    expectChildren({n[1], n[2], n[0]}, {});
    left->insertChild(1, n[0]);
    left->insertChild(2, n[1]); // counted once the child is off its old place
    right->insertChild(7, n[3]);
    right->insertChild(0, n[2]);
    expectChildren({n[0], n[1]}, {n[2], n[3]});
    EXPECT_TRUE(right->replaceChildBy(n[2], n[0]) && right->replaceChildBy(n[3], n[3]));
    EXPECT_FALSE(left->replaceChildBy(n[4], n[3]) || left->replaceChildBy(n[1], NullFC));
    expectChildren({n[1]}, {n[0], n[3]});
    right->subChild(n[0]);
    left->addChild(NullFC);
    expectChildren({n[1]}, {n[3]});
    EXPECT_EQ(left->findChild(right), -1);
}

TEST(NodeChildren, NoNodeComesBelowItself) {
    const RefPtr<NodePtr> root(Node::create());
    const NodePtr child = Node::create(), grandchild = Node::create();
    root->addChild(child);
    child->addChild(grandchild);
    child->addChild(root.get());
    root->addChild(root.get());
    EXPECT_FALSE(child->replaceChildBy(grandchild, root.get()));
    EXPECT_EQ(childrenOf(root), std::vector<NodePtr>{child});
    EXPECT_EQ(childrenOf(child), std::vector<NodePtr>{grandchild});
    EXPECT_EQ(child->getChild(1), NullFC) << "there is none";
}

TEST(NodeCoreSharing, ParentsAreTheNodes) {
    const RefPtr<GroupPtr> core(Group::create());
    using counts = std::pair<std::size_t, std::size_t>; // references, parents
    const auto countsNow = [&] {
        return counts(core.get().getRefCount(), core->getParents().size());
    };
    const RefPtr<NodePtr> first(makeNodeFor(core.get())), second(makeNodeFor(core.get()));
    first->setCore(first->getCore()); // its own again
    EXPECT_EQ(countsNow(), counts(3, 2));
    first->setCore(NullFC);
    second->setTravMask(5);
    {
        const RefPtr<NodePtr> copy(NodePtr::dcast(second->shallowCopy()));
        EXPECT_EQ(copy->getCore(), core.get()) << "a copy shares";
        EXPECT_EQ(copy->getTravMask(), 5u);
        EXPECT_EQ(countsNow(), counts(3, 2));
    }
    EXPECT_EQ(countsNow(), counts(2, 1));
}

TEST(NodeVolume, FreshIsEmptyAndInvalidAndStopsInvalidation) {
    const RefPtr<NodePtr> node(Node::create());
    EXPECT_TRUE(node->getVolume().isEmpty() && !node->getVolume().isValid());
    node->setTravMask(0);
    node->updateVolume();
    EXPECT_FALSE(node->getVolume().isValid()) << "a mask of 0 is not updated";
    node->setTravMask(1);
    const NodePtr child = Node::create();
    node->addChild(child);
    DynamicVolume& still = child->editVolume(true);
    still.extendBy(Pnt3f(1, 2, 3));
    still.getInstance().setStatic();
    still.instanceChanged();
    node->updateVolume();
    EXPECT_TRUE(node->getVolume().isValid() && !node->getVolume().isStatic());
    EXPECT_EQ(node->getVolume().getMax(), Pnt3f(1, 2, 3));
    node->addChild(Node::create());
    EXPECT_FALSE(node->getVolume().isValid());
}

TEST(Attachments, StandUnderGroupAndBinding) {
    const RefPtr<NodePtr> node(Node::create());
    const RefPtr<StringAttributeMapPtr> first(StringAttributeMap::create()),
        second(StringAttributeMap::create());
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
    {
        const RefPtr<NodePtr> copy(NodePtr::dcast(node->shallowCopy())); // all under binding 0
        EXPECT_EQ(copy->findAttachment(group), second.get());
        EXPECT_EQ(copy->findAttachment(group, 2), NullFC);
        EXPECT_EQ(first.get().getRefCount() + second->getParents().size(), 2u + 2u);
        EXPECT_EQ(second.get().getRefCount(), 4u) << "in each of two aspects";
    }
    node->subAttachment(second.get(), 1);
    EXPECT_EQ(node->findAttachment(group, 1), first.get()) << "another one stands there";
    node->subAttachment(first.get(), 1);
    EXPECT_EQ(first->findParent(node.get()), -1);
    EXPECT_EQ(GeoColors3ub::getClassGroupId(), GeoColors::getClassType().getGroupId());
    EXPECT_NE(GeoColors::getClassType().getGroupId(), GeoNormals::getClassType().getGroupId());
    setName(node.get(), "");
    EXPECT_STREQ(getName(node.get()), "") << "an empty text is a name";
    EXPECT_EQ(getName(NullFC), nullptr);
}

TEST(StringAttributes, KeepTheOrderOfKeysAndFollowThem) {
    const RefPtr<StringAttributeMapPtr> map(StringAttributeMap::create());
    map->setAttribute("b", "1");
    map->setAttribute("a", "2");
    map->setAttribute("b", "3");
    EXPECT_EQ(map->getKeys().getValues(), (std::vector<std::string>{"b", "a"}));
    std::string value = "untouched";
    EXPECT_FALSE(map->getAttribute("c", value));
    EXPECT_EQ(value, "untouched");
    EXPECT_EQ(map->getAttribute("b") + map->getAttribute("c"), "3");
    for (char c = 'd'; c < 'z'; ++c) {
        map->setAttribute("b", std::string(100, c));
        map->setAttribute(std::string(1, c), (*map.getCPtr())["b"]); // a value that moves
        EXPECT_EQ(map->getAttribute(std::string(1, c)), std::string(100, c));
    }
    EXPECT_TRUE(map->hasAttribute("d") && !map->hasAttribute("c"));
}

} // namespace
