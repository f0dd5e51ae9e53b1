#pragma once

// Tasks of one kind on the workers of a threadHandler, from start to joined result.
//
//     task_list<mergeGeometryMTArguments> tasks(handler, mergeGeometryInVectorMultithread);
//     for (...) tasks.start(record, place);   // blocks while the limit is reached
//     tasks.joinInto(result);                 // children by place, whoever started or ended first
//
// A record has the fields `result`, `barrier`, `handler`, `finished` and `names`. A worker is a
// function whose body is runWorker(). What a worker throws ends in one line on standard error and
// a null result. Names that it generates are given at the join, by place: they are those that one
// thread gives. A list that is left early waits for its workers and destroys what they made.

#include <deque>
#include <map>
#include <utility>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/idmap/morva_osg_idmaphandler.h>
#include <morva/idmap/morva_osg_late_names.h>
#include <morva/merge/threadHandler.h>

namespace morva::osg {

/// What the merge pass says of an exception.
inline constexpr caught_texts merge_failure{
    "bad_alloc caught in geomerge: ", "Standard exception in geomerge: ",
    "Error occured in geomerge."};

/// The body of a worker: stores what `run` returns, and stays until the task is joined.
template <typename Arguments, typename Task>
void runWorker(Arguments& task, const Task& run) noexcept {
    {
        const held_lock_end end;
        const late_names::scope waits(task.names);
        try {
            fresh<::osg::NodePtr> made(run());
            // Filled in this thread: must be known as changed before another one hangs it in.
            if (made.get() != ::osg::NullFC)
                reportChange(made.get());
            task.result = made.release();
        } catch (...) {
            printCaught(merge_failure);
            if (task.names != nullptr)
                task.names->clear(); // holds what was made
        }
    }
    if (!task.barrier.empty())
        task.handler->leave(task.barrier, task.finished);
}

/// Started tasks in their order. Owns the records.
template <typename Arguments> class task_list {
  public:
    task_list(threadHandler& handler_, void (*worker_)(void*))
        : handler(handler_), worker(worker_) {}
    task_list(const task_list&) = delete;
    task_list& operator=(const task_list&) = delete;
    ~task_list() {
        joinAll();
        for (const auto& [place, index] : record_at)
            const fresh<::osg::NodePtr> unwanted(records[index].result);
    }

    /// Starts a task, or runs it here if no thread is to be had for it. Joins before, in the order
    /// of starting, what stands at its barrier already: few threads are there at a time, however
    /// many tasks there are. Each task has a `place` of its own among the results.
    void start(Arguments task, std::size_t place) {
        while (joined < records.size() && handler.hasFinished(records[joined].finished))
            join();
        if (handler.workersInside() == records.size() - joined) { // who was let go has left
            for (; ended < joined; ++ended)
                handler.endThread(static_cast<unsigned int>(ended));
        }
        const auto index = static_cast<unsigned int>(records.size());
        task.barrier = handler.createBarrierName(index);
        task.handler = &handler;
        task.names = &names.emplace_back();
        records.push_back(std::move(task));
        Arguments& record = records.back();
        getIDmapHandler().releaseHeldLock();
        bool started = false;
        try {
            record_at.emplace(place, index);
            started = handler.start(worker, &record, index);
        } catch (...) {
            record_at.erase(place); // nothing runs
            records.pop_back();
            throw;
        }
        if (!started) {
            record.barrier.clear();
            record.finished = true;
            worker(&record);
        }
    }

    /// Joins all tasks and adds their results to `parent`, in the order of their places, in which
    /// they get their names, too.
    void joinInto(const ::osg::NodePtr& parent) {
        joinAll();
        for (const auto& [place, index] : record_at) {
            fresh<::osg::NodePtr> made(std::exchange(records[index].result, ::osg::NodePtr()));
            if (!records[index].barrier.empty())
                handler.takeChanges(index);
            if (made.get() == ::osg::NullFC)
                continue;
            addChildTo(parent, made.get());
            reportChange(made.release());
            reportChange(parent);
            records[index].names->give();
        }
    }

  private:
    void joinAll() {
        while (joined < records.size())
            join();
    }

    /// Waits for the end of the first task that is not joined yet.
    void join() {
        const Arguments& task = records[joined++];
        if (task.barrier.empty())
            return;
        getIDmapHandler().releaseHeldLock();
        handler.join(task.barrier);
    }

    threadHandler& handler;
    void (*worker)(void*);
    std::deque<Arguments> records;                 ///< in the order of starting
    std::deque<late_names> names;                  ///< of the records
    std::map<std::size_t, unsigned int> record_at; ///< by place
    std::size_t joined = 0;                        ///< records whose workers are let go
    std::size_t ended = 0; ///< records whose threads are ended early; at most `joined`
};

} // namespace morva::osg
