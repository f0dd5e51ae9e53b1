// Aspects and change lists.

#include <gtest/gtest.h>

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGSimpleAttachments.h>
#include <OpenSG/OSGSwitch.h>
#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGThreadManager.h>
#include <OpenSG/OSGTransform.h>

namespace {

using namespace osg;

/// Lets the list of this thread record for one test.
class RecordingChangeList : public testing::Test {
  protected:
    void SetUp() override {
        changes->clearAll();
        changes->setReadOnly(false);
    }
    void TearDown() override {
        changes->clearAll();
        changes->setReadOnly(true);
    }
    ChangeList* changes = Thread::getCurrentChangeList();
};

struct seen_in_aspect {
    SwitchPtr chosen;
    Int32 choice = 0;
};

void readChoice(void* argument) {
    auto* seen = static_cast<seen_in_aspect*>(argument);
    seen->choice = seen->chosen->getChoice();
}

Int32 choiceInAspect(UInt32 aspect, const SwitchPtr& chosen) {
    seen_in_aspect seen{chosen};
    auto* thread = dynamic_cast<Thread*>(ThreadManager::the()->getThread("choice reader"));
    EXPECT_TRUE(thread->runFunction(&readChoice, aspect, &seen));
    BaseThread::join(thread);
    return seen.choice;
}

TEST(ChangeListDefault, RecordsNothing) {
    ChangeList* changes = Thread::getCurrentChangeList();
    const RefPtr<SwitchPtr> chosen(Switch::create());
    changes->addChanged(chosen.get(), FieldBits::AllFields);
    endEditCP(chosen.get());
    EXPECT_TRUE(changes->empty());
}

TEST_F(RecordingChangeList, EntersWhatHappens) {
    const RefPtr<SwitchPtr> chosen(Switch::create());
    const UInt32 id = chosen.get().getFieldContainerId();
    ASSERT_EQ(changes->sizeCreated(), 1u);
    EXPECT_EQ(*changes->beginCreated(), id);
    ASSERT_EQ(changes->sizeAddRefd(), 1u);
    EXPECT_EQ(*changes->beginAddRefd(), id);

    endEditCP(chosen.get(), Switch::ChoiceFieldMask);
    ASSERT_EQ(changes->sizeChanged(), 1u);
    EXPECT_EQ(changes->beginChanged()->first, id);
    EXPECT_EQ(changes->beginChanged()->second, Switch::ChoiceFieldMask);

    NodePtr dropped = Node::create();
    const UInt32 dropped_id = dropped.getFieldContainerId();
    subRefCP(dropped);
    ASSERT_EQ(changes->sizeDestroyed(), 1u);
    EXPECT_EQ(*changes->beginDestroyed(), dropped_id);
}

TEST_F(RecordingChangeList, ApplyToCarriesOnlyTheChangedFields) {
    const SwitchPtr chosen = Switch::create();
    addRefCP(chosen);
    changes->clearAll();
    chosen->setChoice(3);
    EXPECT_EQ(choiceInAspect(1, chosen), Switch::NONE) << "aspects are apart";
    endEditCP(chosen, Switch::ParentsFieldMask);
    changes->applyTo(1);
    EXPECT_EQ(choiceInAspect(1, chosen), Switch::NONE) << "another field was marked";
    endEditCP(chosen, Switch::ChoiceFieldMask);
    changes->applyTo(0);
    EXPECT_EQ(changes->sizeChanged(), 1u) << "its own aspect: nothing happens";
    changes->applyTo(1);
    EXPECT_EQ(choiceInAspect(1, chosen), 3);
    EXPECT_TRUE(changes->empty());
    subRefCP(chosen);
}

TEST_F(RecordingChangeList, ApplyToRepeatsReferencesSoThatBothAspectsMustLetGo) {
    const NodePtr parent = Node::create();
    addRefCP(parent);
    NodePtr child = Node::create();
    const UInt32 id = child.getFieldContainerId();
    changes->clearAll();
    parent->addChild(child);
    endEditCP(parent, Node::ChildrenFieldMask);
    changes->applyTo(1);
    EXPECT_EQ(child.getRefCount(), 2u) << "one for the list of each aspect";

    parent->subChild(child);
    EXPECT_EQ(child.getRefCount(), 1u) << "aspect 1 still shows it";
    endEditCP(parent, Node::ChildrenFieldMask);
    changes->applyTo(1);
    EXPECT_EQ(FieldContainerFactory::the()->getContainer(id), NullFC);
    subRefCP(parent);
}

TEST_F(RecordingChangeList, WhatGoesInAllAspectsAtOnceIsNotRepeated) {
    RefPtr<GroupPtr> core(Group::create());
    RefPtr<NodePtr> first(makeNodeFor(core.get()));
    const RefPtr<NodePtr> second(makeNodeFor(core.get()));
    setName(first.get(), "first");
    for (const NodePtr& node : {first.get(), second.get()})
        endEditCP(node, FieldBits::AllFields);
    changes->applyTo(1);
    const UInt32 kept = second.get().getRefCount();
    EXPECT_EQ(core.get().getRefCount(), 6u) << "two handles and two nodes, in two aspects";

    NodePtr copy = NodePtr::dcast(first->shallowCopy()); // in both aspects
    EXPECT_EQ(core.get().getRefCount(), 8u);
    changes->applyTo(1);
    EXPECT_EQ(core.get().getRefCount(), 8u);
    subRefCP(copy);
    changes->applyTo(1);
    EXPECT_EQ(core.get().getRefCount(), 6u);

    NodePtr dying = first.get();
    first = NullFC;
    subRefCP(dying); // the reference that the list repeated
    EXPECT_EQ(core.get().getRefCount(), 4u);
    changes->applyTo(1);
    EXPECT_EQ(core.get().getRefCount(), 4u) << "the other node shows it in both aspects";
    EXPECT_EQ(second.get().getRefCount(), kept);
    core = NullFC;
    changes->applyTo(1);
    EXPECT_EQ(second->getCore().getRefCount(), 2u);
    subRefCP(second.get());
}

} // namespace
