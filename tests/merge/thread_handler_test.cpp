// The pool of the merge pass: hand-over at its barriers, failing tasks.

#include "tests/support/merge_scenes.h"

#include <atomic>
#include <stdexcept>

#include <OpenSG/OSGThreadManager.h>

#include <morva/merge/morva_osg_task_list.h>

namespace {

using morva::osg::threadHandler;

constexpr std::size_t none = ~std::size_t(0);

/// Who is at work in a test: its tasks, and helpers that take steps of theirs.
struct crew {
    std::atomic<int> at_work{0}, most_at_work{0};

    /// Takes a while, and until so many were at work together.
    void linger(int company, unsigned yields) const {
        for (unsigned i = 0; i < yields || most_at_work < company; ++i)
            std::this_thread::yield();
    }
};

/// Counts a thread that is at work, once.
struct presence {
    explicit presence(crew& counted) : at(counted) {
        const int now = depth++ == 0 ? ++at.at_work : 0;
        for (int most = at.most_at_work; most < now;)
            at.most_at_work.compare_exchange_weak(most, now);
    }
    ~presence() { at.at_work -= --depth == 0 ? 1 : 0; }
    crew& at;
    static inline thread_local int depth = 0;
};

/// Takes all steps once, with whoever helps; one of them throws, perhaps.
void takeSteps(crew& all, std::size_t count, std::size_t failing, int company) {
    std::vector<std::atomic<int>> taken(count);
    morva::shareSteps(count, [&](std::size_t i) {
        const presence here(all);
        all.linger(company, 20);
        ++taken[i];
        if (i == failing)
            throw std::runtime_error("step");
    });
    for (const auto& times : taken)
        EXPECT_EQ(times, 1);
}

struct test_arguments {
    std::function<void()> work;
    std::size_t place = 0; ///< among the results
    ::osg::NodePtr result;
    std::string barrier;
    threadHandler* handler = nullptr;
    bool finished = false;
    morva::osg::late_names* names = nullptr;
};

void workMultithread(void* argument) {
    auto& task = *static_cast<test_arguments*>(argument);
    morva::osg::runWorker(task, [&task] {
        task.work();
        return named(std::to_string(task.place), group());
    });
}

/// The names of the joined results, their places, in order; tasks start in another one.
template <typename Prepare>
std::string runTasks(std::size_t count, unsigned limit, const char* pool, const Prepare& prepare) {
    const node_ref parent(group());
    threadHandler handler(pool, limit);
    {
        morva::osg::task_list<test_arguments> list(handler, workMultithread);
        for (std::size_t i = 0; i < count; ++i) {
            test_arguments task;
            task.place = (i + count / 2) % count;
            task.work = prepare(task.place);
            list.start(task, task.place);
        }
        list.joinInto(parent.get());
    }
    EXPECT_TRUE(handler.running == 0 && !handler.waiting);
    EXPECT_EQ(handler.threadNames.size(), count);
    return textOf(parent.get());
}

TEST(WorkerThreads, GiveResultsByPlaceWhateverTheTasksDo) {
    std::mt19937 rng(seedOf(5201));
    // Names that stand for threads without aspects give no workers: the main thread does it.
    ::osg::ThreadManager::the()->getThread("TEST_MIXED_Thread_1", "OSGBaseThread");
    ::osg::ThreadManager::the()->getThread("TEST_MIXED_Helper_0", "OSGBaseThread");
    for (int round = 0; round < roundsOf(30); ++round) {
        const std::size_t count = 1 + rng() % (round % 10 == 0 ? 40 : 9);
        const unsigned limit = std::array<unsigned, 4>{1, 2, 3, 8}[rng() % 4];
        SCOPED_TRACE(testing::Message() << count << " tasks, limit " << limit);
        const std::size_t failing = rng() % (2 * count); // the place of one that fails, if any
        const bool by_step = rng() % 2 == 0, is_mixed = rng() % 4 == 0;
        const int most = int(std::min<std::size_t>(count, limit));
        const node_ref expected(group());
        for (std::size_t i = 0; i < count; ++i)
            if (i != failing)
                expected->addChild(named(std::to_string(i), group()));
        crew tasks;
        const auto prepare = [&](std::size_t place) -> std::function<void()> {
            const bool fails = place == failing;
            const unsigned yields = rng() % 3 * 20;
            return [=, &tasks] {
                const presence here(tasks);
                tasks.linger(is_mixed ? 0 : most, yields);
                takeSteps(tasks, 15, fails && by_step ? 7 : none, 0);
                if (fails)
                    place == 0 ? throw 7 : throw std::runtime_error("broken");
            };
        };
        const stream_capture error(std::cerr);
        EXPECT_EQ(runTasks(count, limit, is_mixed ? "TEST_MIXED" : "TEST_POOL", prepare),
                  textOf(expected.get()));
        EXPECT_LE(tasks.most_at_work, int(limit));
        EXPECT_GE(tasks.most_at_work, is_mixed ? 1 : most) << "all places were taken";
        EXPECT_EQ(error.text(), failing >= count ? ""
                                : by_step        ? "Standard exception in geomerge: step\n"
                                : failing == 0   ? "Error occured in geomerge.\n"
                                                 : "Standard exception in geomerge: broken\n");
    }
    const auto leave_early = [](std::size_t place) { // waits and cleans up
        place == 0 ? throw 7 : void();
        return [] {};
    };
    EXPECT_THROW(runTasks(3, 3, "TEST_POOL", leave_early), int);
}

TEST(WorkerThreads, HelpersTakeStepsBesideAThreadThatIsNoTask) {
    for (const int places : {1, 7}) {
        threadHandler handler("TEST_POOL", unsigned(places));
        morva::osg::task_helpers helpers(handler);
        const morva::step_help::scope helped(&helpers);
        for (const bool may_help : {false, true}) {
            crew alone;
            const presence here(alone);
            takeSteps(alone, 200, none, may_help ? 2 : 1);
            EXPECT_LE(alone.most_at_work, may_help ? places + 1 : 1);
            handler.noMoreTasks();
        }
    }
}

} // namespace
