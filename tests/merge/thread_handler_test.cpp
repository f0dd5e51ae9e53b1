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
    std::size_t index = 0;                 ///< in the order of starting
    std::size_t place = 0;                 ///< among the results
    std::size_t waits_for = 0;             ///< task that must have ended before; itself for none
    int company = 0;                       ///< tasks that must have been at work together before
    unsigned yields = 0;                   ///< time that it takes
    bool fails = false;                    ///< throws
    bool takes_id_lock = false;            ///< keeps the ID map's lock until its end
    std::size_t steps = 0;                 ///< to be shared
    std::size_t failing = ~std::size_t(0); ///< step that throws
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

/// Counts whoever is at work.
void enter(shared_state& state) {
    const int now = ++state.at_work;
    for (int most = state.most_at_work; most < now;)
        state.most_at_work.compare_exchange_weak(most, now);
}

/// Takes all steps once, with whoever helps; each yields for a while.
void shareSteps(shared_state& state, std::size_t count, std::size_t failing, int company) {
    std::vector<std::atomic<int>> taken(count);
    const auto own = std::this_thread::get_id();
    morva::shareSteps(count, [&](std::size_t i) {
        const bool is_help = std::this_thread::get_id() != own;
        if (is_help)
            enter(state);
        while (state.most_at_work < company)
            std::this_thread::yield();
        for (int k = 0; k < 20; ++k)
            std::this_thread::yield();
        ++taken[i];
        if (is_help)
            --state.at_work;
        if (i == failing)
            throw std::runtime_error("step");
    });
    for (const auto& times : taken)
        EXPECT_EQ(times, 1);
}

::osg::NodePtr work(const test_arguments& task) {
    shared_state& state = *task.state;
    enter(state);
    while (state.most_at_work < task.company)
        std::this_thread::yield();
    while (task.waits_for != task.index && !state.ended[task.waits_for])
        std::this_thread::yield();
    for (unsigned i = 0; i < task.yields; ++i)
        std::this_thread::yield();
    if (task.takes_id_lock)
        takeIdLock();
    struct work_end {
        shared_state& state;
        ~work_end() { --state.at_work; }
    };
    {
        const work_end end{state};
        shareSteps(state, task.steps, task.failing, 0);
    }
    state.ended[task.index] = true;
    if (task.fails)
        task.place == 0 ? throw 7 : throw std::runtime_error("broken");
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

TEST(WorkerThreads, HandsOverAtItsBarriersWhoeverEndsFirst) {
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

TEST(WorkerThreads, NobodyKeepsTheIdLockAtABarrier) {
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

TEST(WorkerThreads, ATaskThatThrowsCostsItsResultAndOneLine) {
    for (const std::size_t failing : {0U, 2U, 4U}) {
        const morva_test::stream_capture error(std::cerr);
        shared_state state;
        std::vector<std::string> expected = numbersBelow(5);
        expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(failing));
        EXPECT_EQ(runTasks(5, 2, state,
                           [&](test_arguments& task) { task.fails = task.place == failing; }),
                  expected);
        EXPECT_EQ(error.text(), failing == 0 ? "Error occured in geomerge.\n"
                                             : "Standard exception in geomerge: broken\n");
    }
}

TEST(WorkerThreads, HelpersTakeStepsWherePlacesAreFree) {
    for (const std::size_t count : {1U, 3U, 9U}) {
        for (const unsigned limit : {1U, 2U, 3U, 8U}) {
            SCOPED_TRACE(testing::Message() << count << " tasks, limit " << limit);
            shared_state state;
            const auto prepare = [count](test_arguments& task) {
                task.steps = 30;
                task.takes_id_lock = task.place % 2 == 0;
                task.failing = count == 9 && task.place == 5 ? 17 : task.failing;
            };
            std::vector<std::string> expected = numbersBelow(count);
            const morva_test::stream_capture error(std::cerr);
            if (count == 9)
                expected.erase(expected.begin() + 5);
            EXPECT_EQ(runTasks(count, limit, state, prepare), expected);
            EXPECT_LE(state.most_at_work, static_cast<int>(limit));
            EXPECT_EQ(error.text(), count == 9 ? "Standard exception in geomerge: step\n" : "");
        }
    }
    for (const unsigned places : {1U, 7U}) { // beside a thread that is no task
        threadHandler handler("TEST_POOL", places);
        morva::osg::task_helpers helpers(handler);
        const morva::step_help::scope helped(&helpers);
        for (const bool may_help : {false, true}) {
            shared_state state;
            enter(state);
            shareSteps(state, 200, ~std::size_t(0), may_help ? 2 : 1);
            EXPECT_GE(state.most_at_work, may_help ? 2 : 1);
            EXPECT_LE(state.most_at_work, may_help ? static_cast<int>(places) + 1 : 1);
            handler.noMoreTasks();
        }
    }
}

TEST(WorkerThreads, AListThatIsLeftEarlyWaitsAndCleansUp) {
    shared_state state;
    const auto leave = [](test_arguments& task) {
        task.yields = 50;
        if (task.index == 2)
            throw 7;
    };
    EXPECT_THROW(runTasks(3, 3, state, leave), int);
}

TEST(WorkerThreads, ATaskWithoutThreadRunsOnTheMainThread) {
    // A name that stands for a thread without aspect gives no worker.
    ::osg::ThreadManager::the()->getThread("TEST_MIXED_Thread_1", "OSGBaseThread");
    ::osg::ThreadManager::the()->getThread("TEST_MIXED_Helper_0", "OSGBaseThread");
    shared_state state;
    const auto plain = [](test_arguments& task) { task.steps = 9; };
    EXPECT_EQ(runTasks(4, 2, state, plain, "TEST_MIXED"), numbersBelow(4));
}

} // namespace
