// Named threads, locks and barriers.

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <OpenSG/OSGBarrier.h>
#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGGroup.h>
#include <OpenSG/OSGLock.h>
#include <OpenSG/OSGThreadManager.h>

namespace {

using namespace osg;

Thread* named(const char* name) {
    return dynamic_cast<Thread*>(ThreadManager::the()->getThread(name, "OSGThread"));
}

TEST(ThreadNames, TheSameNameGivesTheSameObject) {
    const std::string text = "one name";
    EXPECT_EQ(ThreadManager::the()->getThread(text.c_str()),
              ThreadManager::the()->getThread("one name", "OSGBaseThread"));
    EXPECT_EQ(Lock::get(text.c_str()), Lock::get("one name"));
    EXPECT_EQ(Barrier::get(text.c_str()), Barrier::get("one name"));
    EXPECT_NE(Lock::get("one name"), Lock::get("another name"));
    EXPECT_EQ(Lock::find("no such name"), nullptr);
    EXPECT_EQ(ThreadManager::the()->getThread("typeless", "no such type"), nullptr);
    EXPECT_EQ(Thread::find("typeless"), nullptr);
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

TEST(ThreadEnd, TerminateWaitsAndTheNameCanRunAgain) {
    Thread* thread = named("terminated");
    for (unsigned round = 0; round < 300; ++round) {
        ending one;
        one.yields = round % 3 * 30; // has returned, is about to, or takes a while
        ASSERT_TRUE(thread->runFunction(&ending::run, 0, &one));
        while (round % 2 == 0 && !one.almost)
            std::this_thread::yield();
        thread->terminate();
        ASSERT_TRUE(one.ended) << "nothing is cut short";
        EXPECT_FALSE(thread->exists());
        thread->terminate(); // of an idle thread
    }
}

TEST(ThreadEnd, AFunctionStartsAfterTheOneBeforeHasEnded) {
    Thread* thread = named("busy");
    ending first, second;
    first.yields = 200;
    ASSERT_TRUE(thread->runFunction(&ending::run, 0, &first));
    ASSERT_TRUE(thread->runFunction(&ending::run, 0, &second));
    EXPECT_TRUE(first.ended);
    BaseThread::join(thread);
    EXPECT_TRUE(second.ended);
    EXPECT_FALSE(thread->runFunction(&ending::run, ThreadManager::getNumAspects(), &second))
        << "no such aspect";
}

struct maker {
    UInt32 made = 0;
    UInt32 aspect = 99;
    static void run(void* argument) {
        auto& self = *static_cast<maker*>(argument);
        const NodeRefPtr node(Node::create());
        self.made = node.get().getFieldContainerId();
        self.aspect = Thread::getCurrentChangeList()->getAspect();
        EXPECT_EQ(Thread::getAspect(), self.aspect);
    }
};

TEST(ThreadChangeList, BelongsToTheNamedThreadAndStartsEmpty) {
    ChangeList::setReadWriteDefault(true);
    Thread* thread = named("recorder");
    for (const UInt32 aspect : {0U, 1U, 0U}) {
        maker one;
        ASSERT_TRUE(thread->runFunction(&maker::run, aspect, &one));
        BaseThread::join(thread);
        ChangeList* changes = thread->getChangeList();
        EXPECT_NE(changes, Thread::getCurrentChangeList());
        ASSERT_EQ(changes->sizeCreated(), 1U) << "of this function alone";
        EXPECT_EQ(*changes->beginCreated(), one.made);
        EXPECT_EQ(one.aspect, aspect);
    }
    ChangeList::setReadWriteDefault(false);
    maker silent;
    ASSERT_TRUE(thread->runFunction(&maker::run, 0, &silent));
    BaseThread::join(thread);
    EXPECT_TRUE(thread->getChangeList()->empty());
    Thread::getCurrentChangeList()->clearAll();
}

TEST(BarrierRounds, LetNobodyThroughBeforeAllAreThere) {
    constexpr unsigned rounds = 500;
    for (const unsigned count : {1U, 2U, 5U}) {
        Barrier* barrier = Barrier::get("rounds");
        std::vector<std::atomic<unsigned>> reached(count);
        std::atomic<bool> early{false};
        std::vector<std::thread> threads;
        for (unsigned t = 0; t < count; ++t) {
            threads.emplace_back([&, t] {
                for (unsigned round = 1; round <= rounds; ++round) {
                    reached[t] = round;
                    barrier->enter(count);
                    for (const std::atomic<unsigned>& other : reached)
                        early = early || other < round;
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_FALSE(early);
    }
    Barrier* open = Barrier::get("never set");
    open->enter(); // a count of 1 at the start
}

TEST(LockOwner, MayTakeItAgainAndReleasesAsOften) {
    Lock* lock = Lock::get("taken twice");
    const auto free_for_others = [lock] {
        bool taken = false;
        std::thread([&] {
            taken = lock->request();
            if (taken)
                lock->release();
        }).join();
        return taken;
    };
    lock->aquire();
    EXPECT_TRUE(lock->request());
    lock->release();
    EXPECT_FALSE(free_for_others());
    lock->release();
    EXPECT_TRUE(free_for_others());
}

} // namespace
