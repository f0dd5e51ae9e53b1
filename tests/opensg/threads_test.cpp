// Threads: names, ends, locks, barriers; aspects and change lists; lines of the log.

#include "tests/support/test.h"

#include <atomic>

#include <OpenSG/OSGBarrier.h>
#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGLock.h>
#include <OpenSG/OSGLog.h>
#include <OpenSG/OSGThreadManager.h>

namespace {

using namespace osg;

Thread* named(const char* name) {
    return dynamic_cast<Thread*>(ThreadManager::the()->getThread(name, "OSGThread"));
}

TEST(NamedThreads, TheSameNameGivesTheSameObject) {
    const std::string text = "one name";
    EXPECT_EQ(ThreadManager::the()->getThread(text.c_str()),
              ThreadManager::the()->getThread("one name", "OSGBaseThread"));
    EXPECT_EQ(Lock::get(text.c_str()), Lock::get("one name"));
    EXPECT_NE(Lock::get("one name"), Lock::get("another name"));
    EXPECT_EQ(Lock::find("no such name"), nullptr);
    EXPECT_EQ(ThreadManager::the()->getThread("typeless", "no such type"), nullptr);
    Barrier::get("never set")->enter(); // a count of 1 at the start
}

/// A function that ends sooner or later after it has let the main thread go on.
struct ending {
    unsigned yields = 0;
    std::atomic<bool> almost{false};
    std::atomic<bool> ended{false};
    static void run(void* argument) {
        auto& self = *static_cast<ending*>(argument);
        self.almost = true;
        for (unsigned i = 0; i < self.yields; ++i)
            std::this_thread::yield();
        self.ended = true;
    }
};

TEST(EndOfThreads, TerminateWaitsAndTheNameCanRunAgain) {
    Thread* thread = named("terminated");
    for (unsigned round = 0; round < roundsOf(300U); ++round) {
        ending one{round % 3 * 30}; // has returned, is about to, or takes a while
        ASSERT_TRUE(thread->runFunction(&ending::run, 0, &one));
        while (round % 2 == 0 && !one.almost)
            std::this_thread::yield();
        thread->terminate();
        ASSERT_TRUE(one.ended) << "nothing is cut short";
        EXPECT_FALSE(thread->exists());
        thread->terminate(); // of an idle thread
    }
    ending first{200}, second;
    ASSERT_TRUE(thread->runFunction(&ending::run, 0, &first));
    ASSERT_TRUE(thread->runFunction(&ending::run, 0, &second));
    EXPECT_TRUE(first.ended) << "a function starts after the one before has ended";
    BaseThread::join(thread);
    EXPECT_TRUE(second.ended);
    EXPECT_FALSE(thread->runFunction(&ending::run, ThreadManager::getNumAspects(), &second));
}

TEST(BarrierThreads, LetNobodyThroughBeforeAllAreThere) {
    std::vector<std::atomic<unsigned>> reached(5);
    inThreads(5, [&](unsigned t) {
        for (unsigned round = 1; round <= 500; ++round) {
            reached[t] = round;
            Barrier::get("rounds")->enter(5);
            for (const std::atomic<unsigned>& other : reached)
                EXPECT_GE(other, round);
        }
    });
}

TEST(LockThreads, MayTakeItAgain) {
    Lock* lock = Lock::get("taken twice");
    lock->aquire();
    EXPECT_TRUE(lock->request());
    lock->release();
    lock->release();
}

TEST(ReferenceCount, IsSafeAcrossThreads) {
    NodePtr node = Node::create();
    addRefCP(node);
    inThreads(4, [node](unsigned) {
        for (int i = 0; i < 20000; ++i) {
            addRefCP(node);
            const NodePtr copy = node;
            subRefCP(copy);
        }
    });
    EXPECT_EQ(node.getRefCount(), 1u);
    subRefCP(node);
}

/// Lets the list of this thread record for one test.
class RecordingChangeList : public testing::Test {
  protected:
    void SetUp() override { record(true); }
    void TearDown() override { record(false); }
    void record(bool wanted) {
        changes->clearAll();
        changes->setReadOnly(!wanted);
    }
    ChangeList* changes = Thread::getCurrentChangeList();
};

/// Runs a function in another thread, in this aspect.
void inAspect(UInt32 aspect, std::function<void()> function) {
    Thread* thread = named("visitor");
    EXPECT_TRUE(thread->runFunction(
        [](void* argument) { (*static_cast<std::function<void()>*>(argument))(); }, aspect,
        &function));
    BaseThread::join(thread);
}

TEST(ChangeListOfThreads, RecordsIfWantedBelongsToTheNameAndStartsEmpty) {
    ChangeList* own = Thread::getCurrentChangeList();
    for (const bool wanted : {true, false}) {
        ChangeList::setReadWriteDefault(wanted);
        endEditCP(NodeRefPtr(Node::create()).get());
        EXPECT_TRUE(own->empty()) << "a list that was there keeps its way";
        for (const UInt32 aspect : {0U, 1U, 0U}) {
            UInt32 made = 0;
            inAspect(aspect, [&] {
                made = NodeRefPtr(Node::create()).get().getFieldContainerId();
                EXPECT_EQ(Thread::getAspect(), aspect);
                EXPECT_EQ(Thread::getCurrentChangeList()->getAspect(), aspect);
            });
            ChangeList* changes = named("visitor")->getChangeList();
            EXPECT_NE(changes, own);
            ASSERT_EQ(changes->sizeCreated(), wanted ? 1U : 0U) << "of this function alone";
            EXPECT_TRUE(!wanted || *changes->beginCreated() == made);
        }
    }
}

TEST_F(RecordingChangeList, EntersWhatHappens) {
    using ids = std::vector<UInt32>;
    using entries = std::vector<std::pair<UInt32, BitVector>>;
    const auto entered = [this] {
        const entries all(changes->beginChanged(), changes->endChanged());
        changes->clearAll();
        return all;
    };
    NodePtr node = Node::create();
    addRefCP(node);
    const UInt32 id = node.getFieldContainerId();
    EXPECT_EQ(ids(changes->beginCreated(), changes->endCreated()), ids{id});
    EXPECT_EQ(ids(changes->beginAddRefd(), changes->endAddRefd()), ids{id});
    EXPECT_EQ(entered(), (entries{{id, Node::VolumeFieldMask}}));
    setName(node, "first");
    const UInt32 name = node->findAttachment(Name::getClassType()).getFieldContainerId();
    EXPECT_EQ(entered(), (entries{{name, Name::ParentsFieldMask},
                                  {id, Node::AttachmentsFieldMask},
                                  {name, FieldBits::AllFields}}));
    setName(node, "second");
    EXPECT_EQ(entered(), (entries{{name, FieldBits::AllFields}}));
    node->subAttachment(node->findAttachment(Name::getClassType()));
    EXPECT_EQ(entered(), (entries{{name, Name::ParentsFieldMask}}));
    node->updateVolume();
    changedCP(node, Node::CoreFieldMask);
    EXPECT_FALSE(node->getVolume().isValid()) << "told";
    EXPECT_EQ(entered(), (entries{{id, Node::VolumeFieldMask}})) << "what came of it";
    endEditNotChangedCP(node, Node::CoreFieldMask);
    EXPECT_EQ(entered(), (entries{{id, Node::CoreFieldMask}}));
    subRefCP(node);
    EXPECT_EQ(ids(changes->beginDestroyed(), changes->endDestroyed()), ids{id});
}

TEST_F(RecordingChangeList, ApplyToCarriesTheChangedFieldsAndTellsTheContainers) {
    const RefPtr<SwitchPtr> chosen(Switch::create());
    const RefPtr<ComponentTransformPtr> parts(ComponentTransform::create());
    const NodeRefPtr node(makeNodeFor(parts.get()));
    changes->clearAll();
    const auto choiceThere = [&chosen] {
        Int32 seen = 0;
        inAspect(1, [&] { seen = chosen->getChoice(); });
        return seen;
    };
    chosen->setChoice(3);
    EXPECT_EQ(choiceThere(), Switch::NONE) << "aspects are apart";
    endEditCP(chosen.get(), Switch::ParentsFieldMask);
    changes->applyTo(1);
    EXPECT_EQ(choiceThere(), Switch::NONE) << "another field was marked";
    endEditCP(chosen.get(), Switch::ChoiceFieldMask);
    changes->applyTo(0);
    EXPECT_EQ(changes->sizeChanged(), 1u) << "its own aspect: nothing happens";
    setName(node.get(), "named");
    parts->setTranslation(Vec3f(1, 2, 3));
    endEditCP(parts.get(), ComponentTransform::TranslationFieldMask);
    EXPECT_EQ(node->getToWorld()[3][1], 2.f) << "its own core counts";
    changes->applyTo(1);
    EXPECT_TRUE(changes->empty());
    EXPECT_EQ(choiceThere(), 3);
    inAspect(1, [&] {
        EXPECT_STREQ(getName(node.get()), "named");
        EXPECT_EQ(parts->getMatrix()[3][1], 2.f) << "put together there";
    });
    setName(node.get(), static_cast<const char*>(nullptr));
    changes->applyTo(1);
    inAspect(1, [&] { EXPECT_EQ(getName(node.get()), nullptr); });
}

TEST_F(RecordingChangeList, WhatGoesInAllAspectsAtOnceIsNotRepeated) {
    RefPtr<GroupPtr> core(Group::create());
    RefPtr<NodePtr> first(makeNodeFor(core.get()));
    const RefPtr<NodePtr> second(makeNodeFor(core.get()));
    setName(first.get(), "first");
    for (const NodePtr& node : {first.get(), second.get()})
        endEditCP(node, FieldBits::AllFields);
    const auto countOfCore = [&] {
        changes->applyTo(1);
        return core.get().getRefCount();
    };
    EXPECT_EQ(countOfCore(), 6u) << "two handles and two nodes, in two aspects";
    const UInt32 kept = second.get().getRefCount();
    NodePtr copy = NodePtr::dcast(first->shallowCopy()); // in both aspects
    EXPECT_EQ(core.get().getRefCount(), 8u);
    EXPECT_EQ(countOfCore(), 8u);
    subRefCP(copy);
    EXPECT_EQ(countOfCore(), 6u);
    NodePtr dying = first.get();
    first = NullFC;
    subRefCP(dying); // the reference that the list repeated
    EXPECT_EQ(core.get().getRefCount(), 4u);
    EXPECT_EQ(countOfCore(), 4u) << "the other node shows it in both aspects";
    EXPECT_EQ(second.get().getRefCount(), kept);
    core = NullFC;
    changes->applyTo(1);
    EXPECT_EQ(second->getCore().getRefCount(), 2u);
    subRefCP(second.get());
}

TEST(Log, ShowsWarningsAndWhatIsGraverByDefault) {
    const morva_test::stream_capture out(std::cerr);
    SWARNING << "w " << 1 << endLog;
    PFATAL << "f" << endLog;
    SNOTICE << "n" << endLog;
    FWARNING(("%s %d\n", "w", 2));
    FNOTICE(("n\n"));
    EXPECT_EQ(out.text(), "WARNING:  w 1\nf\nWARNING:  w 2\n");
    EXPECT_TRUE(osgLog().checkModule("any"));
}

TEST(Log, LinesOfSeveralThreadsStayWhole) {
    const morva_test::stream_capture out(std::cerr);
    inThreads(4, [](unsigned t) {
        for (int i = 0; i < 200; ++i) {
            FWARNING(("thread %u\n", t));
            SWARNING << "thread " << t << endLog;
        }
    });
    std::istringstream lines(out.text());
    std::map<std::string, int> seen;
    for (std::string line; std::getline(lines, line);)
        ++seen[line];
    EXPECT_EQ(seen.size(), 4U) << testing::PrintToString(seen);
    for (const char t : {'0', '1', '2', '3'})
        EXPECT_EQ(seen[std::string("WARNING:  thread ") + t], 400);
}

} // namespace
