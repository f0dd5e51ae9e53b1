// Containers and nodes: counting, lifetime, types, children, cores, names and attachments.

#include <vector>

#include <OpenSG/OSGComponentTransform.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGStringAttributeMap.h>
#include <OpenSG/OSGSwitch.h>
#include <gtest/gtest.h>

namespace {

using namespace osg;

bool isAlive(UInt32 id) { return FieldContainerFactory::the()->getContainer(id) != NullFC; }

TEST(ReferenceCount, StartsAtZeroAndFollowsEveryHolder) {
    NodePtr node = Node::create();
    EXPECT_EQ(node.getRefCount(), 0u);
    const UInt32 id = node.getFieldContainerId();
    {
        RefPtr<NodePtr> held(node);
        EXPECT_EQ(node.getRefCount(), 1u);
        const RefPtr<NodePtr> parent(Node::create());
        parent->addChild(node);
        EXPECT_EQ(node.getRefCount(), 2u);
        RefPtr<NodePtr> copy(held);
        copy = node; // its own target
        EXPECT_EQ(node.getRefCount(), 3u);
    }
    EXPECT_FALSE(isAlive(id));
    // The last reference gone, the variable that was passed is null.
    NodePtr fresh = Node::create(), child = Node::create();
    subRefCP(fresh); // count 0: the way to destroy what nobody took
    EXPECT_EQ(fresh, NullFC);
    const RefPtr<NodePtr> parent(makeCoredNode<Group>());
    parent->addChild(child);
    parent->subChild(child);
    EXPECT_EQ(child, NullFC);
}

TEST(ReferenceCount, NullIsAcceptedEverywhere) {
    NodePtr null;
    addRefCP(null);
    subRefCP(null);
    beginEditCP(null);
    endEditCP(null);
    clearRefCP(null);
    EXPECT_EQ(null.getRefCount(), 0u);
    EXPECT_EQ(null.getFieldContainerId(), 0u);
    EXPECT_TRUE(!null);
    EXPECT_EQ(NodePtr::dcast(null), NullFC);
    EXPECT_EQ(NodePtr::dcast(NullFC), NullFC);
}

TEST(ReferenceCount, SetRefdSwapsTargets) {
    NodePtr first = Node::create(), second = Node::create();
    addRefCP(second);
    const UInt32 first_id = first.getFieldContainerId();
    NodePtr field;
    setRefdCP(field, first);
    EXPECT_EQ(first.getRefCount(), 1u);
    setRefdCP(field, second);
    EXPECT_FALSE(isAlive(first_id));
    EXPECT_EQ(second.getRefCount(), 2u);
    clearRefCP(field);
    EXPECT_EQ(field, NullFC);
    subRefCP(second);
}

TEST(ReferenceCount, AChainOfAnyLengthDiesWithoutADeepStack) {
    const NodePtr root = Node::create();
    addRefCP(root);
    NodePtr last = root;
    for (int i = 0; i < 20000; ++i) {
        const NodePtr child = Node::create();
        child->addChild(last); // upward, so that no walk to a root is long
        last = child;
    }
    const UInt32 id = root.getFieldContainerId();
    subRefCP(root); // the chain holds it now
    subRefCP(last);
    EXPECT_FALSE(isAlive(id));
}

TEST(ContainerPtr, CastsFollowTheClassOfTheObject) {
    const RefPtr<TransformPtr> transform(Transform::create());
    const NodeCorePtr core = transform.get();
    EXPECT_EQ(TransformPtr::dcast(core), transform.get());
    EXPECT_EQ(GroupPtr::dcast(core), transform.get()) << "a transform is a group";
    EXPECT_EQ(SwitchPtr::dcast(core), NullFC);
    EXPECT_EQ(NodePtr::dcast(core), NullFC);
    EXPECT_EQ(core->getType(), Transform::getClassType());
    EXPECT_TRUE(core->getType() != Group::getClassType());
    EXPECT_TRUE(core->getType().isDerivedFrom(Group::getClassType()));
    EXPECT_FALSE(core->getType().isDerivedFrom(Switch::getClassType()));
    EXPECT_TRUE(core->getType().isNodeCore());
    EXPECT_STREQ(core->getType().getCName(), "Transform");
    EXPECT_EQ(TransformPtr(*transform.getCPtr()), transform.get());
}

TEST(ContainerPtr, OrderIsThatOfCreation) {
    const RefPtr<NodePtr> first(Node::create()), second(Node::create());
    EXPECT_LT(first.get(), second.get());
    EXPECT_LT(NodePtr(), first.get());
    NodePtr dropped = Node::create();
    const NodePtr dangling = dropped;
    subRefCP(dropped);
    EXPECT_LT(second.get(), dangling) << "keys of maps may outlive their containers";
    EXPECT_EQ(sizeof(NodePtr), 16u);
    EXPECT_EQ(first->getUntypedPtr(), first.get());
}

TEST(Factory, KnowsTypesByNameAndMakesContainers) {
    FieldContainerFactory* factory = FieldContainerFactory::the();
    for (const char* name : {"Node", "Group", "Transform", "ComponentTransform", "Switch",
                             "DistanceLOD", "MaterialGroup", "StringAttributeMap", "Name"}) {
        const FieldContainerRefPtr made(factory->createFieldContainer(name));
        ASSERT_NE(made, NullFC) << name;
        EXPECT_STREQ(made->getTypeName(), name);
        EXPECT_EQ(&made->getType(), factory->findType(name));
    }
    for (const char* name : {"NodeCore", "Attachment", "AttachmentContainer"}) {
        ASSERT_NE(factory->findType(name), nullptr) << name;
        EXPECT_TRUE(factory->findType(name)->isAbstract());
        EXPECT_EQ(factory->createFieldContainer(name), NullFC);
    }
    EXPECT_EQ(factory->findType("no such type"), nullptr);
    EXPECT_EQ(factory->createNodeCore("Node"), NullFC) << "a node is no core";
}

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
    const NodePtr added = makeCoredNode<Group>(), other = makeCoredNode<Group>();
    f.root->insertChild(1, added);
    EXPECT_EQ(f.order(), (order{f.child[0], added, f.child[1], f.child[2]}));
    f.root->insertChild(3, f.child[0]);
    EXPECT_EQ(f.order(), (order{added, f.child[1], f.child[0], f.child[2]}));
    EXPECT_TRUE(f.root->replaceChildBy(added, other));
    EXPECT_EQ(f.order(), (order{other, f.child[1], f.child[0], f.child[2]}));
    EXPECT_TRUE(f.root->replaceChildBy(other, f.child[2])) << "by a sibling";
    ASSERT_EQ(f.order(), (order{f.child[2], f.child[1], f.child[0]}));
    EXPECT_FALSE(f.root->replaceChildBy(f.child[1], NullFC));
    f.root->subChild((*f.root->getMFChildren())[1]);
    EXPECT_EQ(f.order(), (order{f.child[2], f.child[0]})) << "told by an entry of the list itself";
    EXPECT_EQ(f.child[0].getRefCount(), 1u);
    EXPECT_EQ(f.root->findChild(f.child[0]), 1);
    EXPECT_EQ(f.root->findChild(f.root.get()), -1);
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
    const RefPtr<NodePtr> kept(family(2).child[1]);
    EXPECT_EQ(kept->getParent(), NullFC);
    EXPECT_EQ(kept.get().getRefCount(), 1u);
}

TEST(NodeCoreSharing, ParentsAreTheNodesAndTheLastOneDropsTheCore) {
    const GroupPtr core = Group::create();
    const UInt32 id = core.getFieldContainerId();
    {
        const RefPtr<NodePtr> first(makeNodeFor(core)), second(makeNodeFor(core));
        EXPECT_EQ(core.getRefCount(), 2u);
        ASSERT_EQ(core->getParents().size(), 2u);
        EXPECT_EQ(core->getParents()[1], second.get());
        first->setCore(first->getCore());
        EXPECT_EQ(core.getRefCount(), 2u) << "its own core again";
        first->setCore(NullFC);
        EXPECT_EQ(core->getParents().size(), 1u);
        second->setTravMask(5);
        {
            const RefPtr<NodePtr> copy(NodePtr::dcast(second->shallowCopy()));
            EXPECT_EQ(copy->getCore(), core) << "a copy shares";
            EXPECT_EQ(copy->getTravMask(), 5u);
            EXPECT_EQ(core.getRefCount(), 2u);
            EXPECT_EQ(core->getParents().size(), 2u);
        }
        EXPECT_EQ(core.getRefCount(), 1u);
        EXPECT_EQ(core->getParents().size(), 1u);
    }
    EXPECT_FALSE(isAlive(id));
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

TEST(NodeToWorld, IncludesTheOwnCoreOnceItsPartsAreTold) {
    TransformPtr moved;
    const RefPtr<NodePtr> outer(makeCoredNode<Transform>(&moved));
    moved->getMatrix().setTranslate(1, 0, 0);
    ComponentTransformPtr parts;
    const NodePtr inner = makeCoredNode<ComponentTransform>(&parts);
    outer->addChild(inner);
    parts->setTranslation(Vec3f(0, 2, 3));
    parts->setScale(Vec3f(2, 2, 2));
    EXPECT_EQ(inner->getToWorld()[3][2], 0.f);
    endEditCP(parts, ComponentTransform::TranslationFieldMask);
    EXPECT_EQ(inner->getToWorld(), Matrix(2, 0, 0, 1, 0, 2, 0, 2, 0, 0, 2, 3, 0, 0, 0, 1));
    EXPECT_EQ(outer->getToWorld()[3][1], 0.f);
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
    node->subAttachment(second.get(), 1);
    EXPECT_EQ(node->findAttachment(group, 1), first.get()) << "another one stands there";
    node->subAttachment(first.get(), 1);
    EXPECT_EQ(first->findParent(node.get()), -1);
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
    const RefPtr<StringAttributeMapPtr> from(StringAttributeMap::create());
    from->setAttribute("new", "5");
    map->executeSync(*from, FieldBits::AllFields);
    EXPECT_EQ(map->getAttribute("new"), "5");
    EXPECT_FALSE(map->hasAttribute("b"));
}

} // namespace
