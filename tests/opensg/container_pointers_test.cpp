// Counting, lifetime and typing of containers.

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGTransform.h>

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
        const NodePtr parent = Node::create();
        const RefPtr<NodePtr> held_parent(parent);
        parent->addChild(node);
        EXPECT_EQ(node.getRefCount(), 2u);
        RefPtr<NodePtr> copy(held);
        copy = node; // its own target
        EXPECT_EQ(node.getRefCount(), 3u);
    }
    EXPECT_FALSE(isAlive(id));
}

TEST(ReferenceCount, DroppingTheLastNullsThePassedVariable) {
    NodePtr node = Node::create();
    subRefCP(node); // count 0: the way to destroy what nobody took
    EXPECT_EQ(node, NullFC);

    const NodePtr parent = Node::create();
    const RefPtr<NodePtr> held(parent);
    NodePtr child = Node::create();
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
    NodePtr first = Node::create();
    NodePtr second = Node::create();
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

TEST(ReferenceCount, IsSafeAcrossThreads) {
    NodePtr node = Node::create();
    addRefCP(node);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([node] {
            for (int i = 0; i < 20000; ++i) {
                addRefCP(node);
                const NodePtr copy = node;
                subRefCP(copy);
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(node.getRefCount(), 1u);
    subRefCP(node);
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
    const RefPtr<NodePtr> first(Node::create());
    const RefPtr<NodePtr> second(Node::create());
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
        SCOPED_TRACE(name);
        const FieldContainerType* type = factory->findType(name);
        ASSERT_NE(type, nullptr);
        EXPECT_STREQ(type->getCName(), name);
        FieldContainerPtr made = factory->createFieldContainer(name);
        ASSERT_NE(made, NullFC);
        EXPECT_EQ(made->getTypeId(), type->getId());
        subRefCP(made);
    }
    for (const char* name : {"NodeCore", "Attachment", "AttachmentContainer"}) {
        SCOPED_TRACE(name);
        ASSERT_NE(factory->findType(name), nullptr);
        EXPECT_TRUE(factory->findType(name)->isAbstract());
        EXPECT_EQ(factory->createFieldContainer(name), NullFC);
    }
    EXPECT_EQ(factory->findType("no such type"), nullptr);
    EXPECT_EQ(factory->createNodeCore("Node"), NullFC) << "a node is no core";
}

TEST(ContainerType, FieldNumbersAndMasksAreTheKnownOnes) {
    EXPECT_EQ(AttachmentContainer::AttachmentsFieldMask, BitVector(2));
    EXPECT_EQ(Node::VolumeFieldMask, BitVector(4));
    EXPECT_EQ(Node::TravMaskFieldMask, BitVector(8));
    EXPECT_EQ(Node::ParentFieldMask, BitVector(16));
    EXPECT_EQ(Node::ChildrenFieldMask, BitVector(32));
    EXPECT_EQ(Node::CoreFieldMask, BitVector(64));
    EXPECT_EQ(Switch::ChoiceFieldMask, BitVector(8));
    const RefPtr<SwitchPtr> chosen(Switch::create());
    auto* field = dynamic_cast<SFInt32*>(chosen->getField("choice"));
    ASSERT_NE(field, nullptr);
    field->setValue(7);
    EXPECT_EQ(chosen->getChoice(), 7);
    EXPECT_EQ(chosen->getField(Switch::ChoiceFieldId), field);
    EXPECT_EQ(chosen->getField("no such field"), nullptr);
}

TEST(ShallowCopy, CopiesFieldsAndCountsWhatItShares) {
    const RefPtr<NodePtr> node(Node::create());
    const RefPtr<GroupPtr> core(Group::create());
    node->setCore(core.get());
    node->setTravMask(5);
    {
        const RefPtr<NodePtr> copy(NodePtr::dcast(node->shallowCopy()));
        EXPECT_EQ(copy->getCore(), core.get());
        EXPECT_EQ(copy->getTravMask(), 5u);
        EXPECT_EQ(core.get().getRefCount(), 3u);
        EXPECT_EQ(core->getParents().size(), 2u);
    }
    EXPECT_EQ(core.get().getRefCount(), 2u);
    EXPECT_EQ(core->getParents().size(), 1u);
}

} // namespace
