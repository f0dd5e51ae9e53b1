// The pool of the merge pass: hand-over at its barriers, failing tasks.

#include "merge_scenes.h"

#include <atomic>
#include <optional>
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

/// Counts who is at work while this lives.
struct presence {
    explicit presence(shared_state& counted) : state(counted) {
        const int now = ++state.at_work;
        for (int most = state.most_at_work; most < now;)
            state.most_at_work.compare_exchange_weak(most, now);
    }
    ~presence() { --state.at_work; }
    void awaitCompany(int company) const {
        while (state.most_at_work < company)
            std::this_thread::yield();
    }
    shared_state& state;
};

void yieldTimes(unsigned times) {
    for (unsigned i = 0; i < times; ++i)
        std::this_thread::yield();
}

/// Takes all steps once, with whoever helps; each takes a while.
void shareSteps(shared_state& state, std::size_t count, std::size_t failing, int company) {
    std::vector<std::atomic<int>> taken(count);
    const auto own = std::this_thread::get_id();
    morva::shareSteps(count, [&](std::size_t i) {
        std::optional<presence> help;
        if (std::this_thread::get_id() != own)
            help.emplace(state);
        while (state.most_at_work < company)
            std::this_thread::yield();
        yieldTimes(20);
        ++taken[i];
        if (i == failing)
            throw std::runtime_error("step");
    });
    for (const auto& times : taken)
        EXPECT_EQ(times, 1);
}

::osg::NodePtr work(const test_arguments& task) {
    shared_state& state = *task.state;
    const presence here(state);
    here.awaitCompany(task.company);
    while (task.waits_for != task.index && !state.ended[task.waits_for])
        std::this_thread::yield();
    yieldTimes(task.yields);
    if (task.takes_id_lock)
        takeIdLock();
    shareSteps(state, task.steps, task.failing, 0);
    state.ended[task.index] = true;
    if (task.fails)
        task.place == 0 ? throw 7 : throw std::runtime_error("broken");
    return morva_test::named(std::to_string(task.place), morva_test::group());
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
        }
    }
}

TEST(WorkerThreads, GiveResultsByPlaceWhateverTheTasksDo) {
    std::mt19937 rng(seedOf(5201));
    morva::osg::getIDmapHandler().reset();
    for (int round = 0; round < roundsOf(20); ++round) {
        const std::size_t count = 1 + rng() % (round % 10 == 0 ? 40 : 9);
        const unsigned limit = std::array<unsigned, 4>{1, 2, 3, 8}[rng() % 4];
        SCOPED_TRACE(testing::Message() << count << " tasks, limit " << limit);
        const std::size_t failing = rng() % (2 * count); // the place of one that fails, if any
        const bool by_step = rng() % 2 == 0;
        const morva_test::stream_capture error(std::cerr);
        takeIdLock(); // held by the main thread when it starts the first task
        shared_state state;
        std::vector<std::string> expected = numbersBelow(count);
        if (failing < count)
            expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(failing));
        EXPECT_EQ(runTasks(count, limit, state,
                           [&](test_arguments& task) {
                               const bool fails = task.place == failing;
                               task.yields = rng() % 3 * 20;
                               task.takes_id_lock = rng() % 2 == 0;
                               task.steps = fails || rng() % 2 == 0 ? 15 : 0;
                               task.fails = fails && !by_step;
                               task.failing = fails && by_step ? 7 : task.failing;
                           }),
                  expected);
        EXPECT_LE(state.most_at_work, static_cast<int>(limit));
        EXPECT_EQ(error.text(), failing >= count ? ""
                                : by_step        ? "Standard exception in geomerge: step\n"
                                : failing == 0   ? "Error occured in geomerge.\n"
                                                 : "Standard exception in geomerge: broken\n");
        EXPECT_EQ(morva::osg::getIDmapHandler().releaseHeldLock(), 0U);
    }
    morva::osg::getIDmapHandler().reset();
}

TEST(WorkerThreads, HelpersTakeStepsBesideAThreadThatIsNoTask) {
    for (const unsigned places : {1U, 7U}) { // beside a thread that is no task
        threadHandler handler("TEST_POOL", places);
        morva::osg::task_helpers helpers(handler);
        const morva::step_help::scope helped(&helpers);
        for (const bool may_help : {false, true}) {
            shared_state state;
            const presence here(state);
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
