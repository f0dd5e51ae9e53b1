// The pool of the merge pass: hand-over at its barriers, failing tasks.

#include "merge_scenes.h"

#include <atomic>
#include <numeric>
#include <stdexcept>

#include <OpenSG/OSGThreadManager.h>

#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/merge/morva_osg_task_list.h>

namespace {

using morva::osg::task_list;
using morva::osg::threadHandler;

/// What the tasks of one test have in common.
struct shared_state {
    std::vector<std::atomic<bool>> ended;
    std::atomic<int> at_work{0}, most_at_work{0};
};

struct test_arguments {
    std::size_t index = 0;      ///< in the order of starting
    std::size_t place = 0;      ///< among the results
    std::size_t waits_for = 0;  ///< task that must have ended before; itself for none
    int company = 0;            ///< tasks that must have been at work together before
    unsigned yields = 0;        ///< time that it takes
    void (*fail)() = nullptr;   ///< throws
    bool takes_id_lock = false; ///< keeps the ID map's lock until its end
    shared_state* state = nullptr;
    ::osg::NodePtr result;
    std::string barrier;
    threadHandler* handler = nullptr;
    bool finished = false;
    morva::osg::late_names* names = nullptr;
};

void takeIdLock() {
    std::string name = "known";
    ::osg::Pnt3f corner;
    for (int i = 0; i < 2; ++i)
        morva::osg::getIDmapHandler().insertNodeName(name, corner, corner, ::osg::NullFC, "");
}

::osg::NodePtr work(const test_arguments& task) {
    shared_state& state = *task.state;
    const int now = ++state.at_work;
    for (int most = state.most_at_work; most < now;)
        state.most_at_work.compare_exchange_weak(most, now);
    while (state.most_at_work < task.company)
        std::this_thread::yield();
    while (task.waits_for != task.index && !state.ended[task.waits_for])
        std::this_thread::yield();
    for (unsigned i = 0; i < task.yields; ++i)
        std::this_thread::yield();
    if (task.takes_id_lock)
        takeIdLock();
    --state.at_work;
    state.ended[task.index] = true;
    if (task.fail != nullptr)
        task.fail();
    const ::osg::NodePtr made = morva_test::group();
    ::osg::setName(made, std::to_string(task.place));
    return made;
}

void workMultithread(void* argument) {
    auto& task = *static_cast<test_arguments*>(argument);
    morva::osg::runWorker(task, [&task] { return work(task); });
}

/// Runs tasks that `prepare` has filled in, started out of the order of their places, and returns
/// the names of the joined results: their places.
template <typename Prepare>
std::vector<std::string> runTasks(std::size_t count, unsigned limit, shared_state& state,
                                  const Prepare& prepare, const char* pool = "TEST_POOL") {
    const ::osg::NodeRefPtr parent(morva_test::group());
    threadHandler handler(pool, limit);
    state.ended = std::vector<std::atomic<bool>>(count);
    {
        task_list<test_arguments> tasks(handler, workMultithread);
        for (std::size_t i = 0; i < count; ++i) {
            test_arguments task;
            task.index = task.waits_for = i;
            task.place = (i + count / 2) % count;
            task.state = &state;
            prepare(task);
            tasks.start(task, task.place);
        }
        tasks.joinInto(parent.get());
    }
    EXPECT_EQ(handler.running, 0U);
    EXPECT_FALSE(handler.waiting);
    EXPECT_EQ(handler.threadNames.size(), count);
    return morva_test::childNames(parent.get());
}

std::vector<std::string> numbersBelow(std::size_t count) {
    std::vector<std::string> numbers;
    for (std::size_t i = 0; i < count; ++i)
        numbers.push_back(std::to_string(i));
    return numbers;
}

TEST(ThreadHandler, HandsOverAtItsBarriersWhoeverEndsFirst) {
    std::mt19937 rng(5201);
    for (const std::size_t count : {1U, 2U, 5U, 40U}) {
        for (const unsigned limit : {1U, 2U, 8U}) {
            SCOPED_TRACE(testing::Message() << count << " tasks, limit " << limit);
            // As many as may be at work end in reverse order: each waits for the one behind it.
            shared_state reversed;
            EXPECT_EQ(runTasks(count, limit, reversed,
                               [&](test_arguments& task) {
                                   const std::size_t next = task.index + 1;
                                   if (next < count && next % limit != 0)
                                       task.waits_for = next;
                                   else
                                       task.company = static_cast<int>(task.index % limit) + 1;
                               }),
                      numbersBelow(count));
            EXPECT_EQ(reversed.most_at_work, static_cast<int>(std::min<std::size_t>(count, limit)));

            for (int round = 0; round < 10; ++round) {
                shared_state random;
                EXPECT_EQ(runTasks(count, limit, random,
                                   [&](test_arguments& task) { task.yields = rng() % 3 * 20; }),
                          numbersBelow(count));
                EXPECT_LE(random.most_at_work, static_cast<int>(limit));
            }
        }
    }
}

TEST(ThreadHandler, NobodyKeepsTheIdLockAtABarrier) {
    morva::osg::getIDmapHandler().reset();
    for (const unsigned limit : {1U, 2U, 8U}) {
        takeIdLock(); // held by the main thread when it starts the first task
        shared_state state;
        EXPECT_EQ(
            runTasks(10, limit, state, [](test_arguments& task) { task.takes_id_lock = true; }),
            numbersBelow(10));
    }
    EXPECT_EQ(morva::osg::getIDmapHandler().releaseHeldLock(), 0U);
    morva::osg::getIDmapHandler().reset();
}

TEST(ThreadHandler, ATaskThatThrowsCostsItsResultAndOneLine) {
    struct failure_case {
        void (*fail)();
        const char* line;
    };
    for (const failure_case& c :
         {failure_case{[] { throw std::bad_alloc(); },
                       "bad_alloc caught in geomerge: std::bad_alloc\n"},
          {[] { throw std::runtime_error("broken"); }, "Standard exception in geomerge: broken\n"},
          {[] { throw 7; }, "Error occured in geomerge.\n"}}) {
        for (const std::size_t failing : {0U, 2U, 4U}) {
            const morva_test::stream_capture error(std::cerr);
            shared_state state;
            const std::vector<std::string> names = runTasks(5, 2, state, [&](test_arguments& task) {
                task.fail = task.place == failing ? c.fail : nullptr;
            });
            std::vector<std::string> expected = numbersBelow(5);
            expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(failing));
            EXPECT_EQ(names, expected);
            EXPECT_EQ(error.text(), c.line);
        }
    }
}

TEST(ThreadHandler, AListThatIsLeftEarlyWaitsAndCleansUp) {
    shared_state state;
    const auto leave = [](test_arguments& task) {
        task.yields = 50;
        if (task.index == 2)
            throw 7;
    };
    EXPECT_THROW(runTasks(3, 3, state, leave), int);
}

TEST(ThreadHandler, ATaskWithoutThreadRunsOnTheMainThread) {
    // A name that stands for a thread without aspect gives no worker.
    ::osg::ThreadManager::the()->getThread("TEST_MIXED_Thread_1", "OSGBaseThread");
    shared_state state;
    const auto plain = [](test_arguments&) {};
    EXPECT_EQ(runTasks(4, 2, state, plain, "TEST_MIXED"), numbersBelow(4));
}

} // namespace
