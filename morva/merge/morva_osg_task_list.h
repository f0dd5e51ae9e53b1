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
#include <morva/merge/morva_osg_helpers.h>
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
        task_helpers helpers(*task.handler);
        const step_help::scope helped(&helpers);
        try {
            fresh<::osg::NodePtr> made(run());
            // Filled in this thread: must be known as changed before another one hangs it in.
            if (made.get() != ::osg::NullFC)
                reportChange(made.get());
            task.result = made.release();
        } catch (...) {
            print_caught(merge_failure);
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
    task_list(threadHandler& handler, void (*worker)(void*)) : handler_(handler), worker_(worker) {}
    task_list(const task_list&) = delete;
    task_list& operator=(const task_list&) = delete;
    ~task_list() {
        joinAll();
        for (const auto& [place, index] : record_at_)
            const fresh<::osg::NodePtr> unwanted(records_[index].result);
    }

    /// Starts a task, or runs it here if no thread is to be had for it. Joins before, in the order
    /// of starting, what stands at its barrier already: few threads are there at a time, however
    /// many tasks there are. Each task has a `place` of its own among the results.
    void start(Arguments task, std::size_t place) {
        while (joined_ < records_.size() && handler_.hasFinished(records_[joined_].finished))
            join();
        if (handler_.workersInside() == records_.size() - joined_) { // who was let go has left
            for (; ended_ < joined_; ++ended_)
                handler_.endThread(static_cast<unsigned int>(ended_));
        }
        const auto index = static_cast<unsigned int>(records_.size());
        task.barrier = handler_.createBarrierName(index);
        task.handler = &handler_;
        task.names = &names_.emplace_back();
        records_.push_back(std::move(task));
        Arguments& record = records_.back();
        getIDmapHandler().releaseHeldLock();
        bool started = false;
        try {
            record_at_.emplace(place, index);
            started = handler_.start(worker_, &record, index);
        } catch (...) {
            record_at_.erase(place); // nothing runs
            records_.pop_back();
            throw;
        }
        if (!started) {
            record.barrier.clear();
            record.finished = true;
            worker_(&record);
        }
    }

    /// Joins all tasks and adds their results to `parent`, in the order of their places, in which
    /// they get their names, too.
    void joinInto(const ::osg::NodePtr& parent) {
        joinInto(parent, [](std::size_t) {});
    }
    /// The same; `added` is told the place of each that has a result.
    template <typename Added> void joinInto(const ::osg::NodePtr& parent, const Added& added) {
        joinAll();
        for (const auto& [place, index] : record_at_) {
            fresh<::osg::NodePtr> made(std::exchange(records_[index].result, ::osg::NodePtr()));
            if (!records_[index].barrier.empty())
                handler_.takeChanges(index);
            if (made.get() == ::osg::NullFC)
                continue;
            addChildTo(parent, made.get());
            reportChange(made.release());
            reportChange(parent);
            records_[index].names->give();
            added(place);
        }
    }

  private:
    void joinAll() {
        handler_.noMoreTasks();
        while (joined_ < records_.size())
            join();
    }

    /// Waits for the end of the first task that is not joined yet.
    void join() {
        const Arguments& task = records_[joined_++];
        if (task.barrier.empty())
            return;
        getIDmapHandler().releaseHeldLock();
        handler_.join(task.barrier);
    }

    threadHandler& handler_;
    void (*worker_)(void*);
    std::deque<Arguments> records_;                 ///< in the order of starting
    std::deque<late_names> names_;                  ///< of the records
    std::map<std::size_t, unsigned int> record_at_; ///< by place
    std::size_t joined_ = 0;                        ///< records whose workers are let go
    std::size_t ended_ = 0; ///< records whose threads are ended early; at most `joined_`
};

} // namespace morva::osg
