#pragma once

// The pool of the merge pass: one named thread per task, at most `maxThreads` of them at work.
//
//     main thread                     a worker
//       start task 0, 1, ...            work; result into its record
//       limit reached: wait  <------->  count itself out, wake the main thread
//       join 0, 1, ... in order <---->  stand at its own barrier until joined
//
// It is no queue: start() blocks while the limit is reached, and a worker that is done stands at
// the barrier of its record until the main thread comes to it. Joins are in the order of
// starting, so that nothing depends on who finished first.
//
// Threads, locks and barriers go by name, and the same name gives the same object: a handler can
// be made again under its name once the last one is gone, but two of one name must not overlap.
// Once all tasks are started, places that are free are for helpers, which take a share of the work
// inside a task (morva_osg_helpers.h): threads with names of their own, that stand at no barrier.
//
// Workers run in aspect 0. No other lock may be held at the barriers: not by a worker that counts
// itself out, nor by the main thread when it starts or joins, or they wait for each other.

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include <OpenSG/OSGBarrier.h>
#include <OpenSG/OSGLock.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Starts workers under a limit and joins them. One main thread.
class MORVA_API threadHandler {
  public:
    /// Gets the lock `name`, the lock `name`_WAITLOCK and the barriers `name`_WAITBARRIER and
    /// `name`_WAITBARRIER_UNLOCK.
    threadHandler(std::string name, unsigned int maxThreads);
    threadHandler(const threadHandler&) = delete;
    threadHandler& operator=(const threadHandler&) = delete;
    /// Ends all threads whose names were given out. Every started task has been joined by then.
    ~threadHandler();

    /// Returns `name`_Thread_`index`, and remembers it for the end.
    std::string createThreadName(unsigned int index);
    /// Returns `name`_Barrier_`index`.
    std::string createBarrierName(unsigned int index) const;

    /// Runs `worker` on the thread `index`, and waits while `maxThreads` are at work.
    ///
    /// record   given to the worker, which ends with leave(); stays until it is joined
    /// returns  false if there is no such thread to be had; nothing runs then
    bool start(void (*worker)(void*), void* record, unsigned int index);

    /// Waits for the end of the task with that barrier.
    void join(const std::string& barrierName);

    /// Workers that may still stand at a barrier. Their threads are not to be ended.
    unsigned int workersInside() const { return inside_.load(std::memory_order_acquire); }

    /// Ends the thread `index`, whose worker has left; its name can be run again.
    void endThread(unsigned int index);

    /// Takes over what the thread of the joined task `index` recorded in its change list.
    void takeChanges(unsigned int index);

    /// The end of a worker: counts it out, notes that in its record, wakes the main thread if that
    /// waits, and stays until the task is joined. The record may be gone afterwards.
    void leave(const std::string& barrierName, bool& finished);

    /// Reads what leave() notes: joining that task does not have to wait for its work.
    bool hasFinished(const bool& finished) const;

    /// No task is started any more: helpers can be.
    void noMoreTasks();

    /// Runs `helper` on a thread `name`_Helper_ and a number, if a place is free.
    ///
    /// failed   out: set if there is a place, but no such thread to be had; else as it was
    /// returns  the number for joinHelper(), or nothing if no helper was started
    std::optional<unsigned int> startHelper(void (*helper)(void*), void* argument, bool& failed);

    /// Waits for the end of a helper, gives its place and its number back, and takes over what it
    /// recorded in its change list.
    void joinHelper(unsigned int number);

    std::string name;                     ///< start of all names
    unsigned int maxThreads;              ///< workers at a time; below 1 is as 1
    unsigned int running = 0;             ///< tasks and helpers not yet finished; under `lock`
    ::osg::Lock* lock;                    ///< guards `running` and `waiting`
    ::osg::Lock* waitLock;                ///< got and kept; nobody takes it
    ::osg::Barrier* waitBarrier;          ///< where the main thread waits for a worker to end
    ::osg::Barrier* unlockBarrier;        ///< where that worker lets it go
    bool waiting = false;                 ///< the main thread stands at the two barriers
    std::vector<std::string> threadNames; ///< all that createThreadName() gave out

  private:
    std::optional<unsigned int> takePlace();
    void leavePlace(unsigned int number);
    std::string helperName(unsigned int number) const;

    std::atomic<unsigned int> inside_{0}; ///< started workers that have not left yet
    bool all_started_ = false;            ///< under `lock`, as what follows
    std::vector<bool> helpers_;           ///< which numbers helpers at work have
};

} // namespace morva::osg
