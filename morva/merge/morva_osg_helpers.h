#pragma once

// Helpers of the tasks on a threadHandler: threads that take a share of one task's steps.
//
//     worker      step 0  step 2 .. step 4 .... all taken: joins its helpers, goes on
//     helper 0            step 1 ... step 3 ....
//
// A helper begins where a place under the handler's limit is free, and no task is left to be
// started; looked for before each step, since a task next to it may just have ended. It stands at
// no barrier: the task's thread joins it and takes its changes over before the steps are done.

#include <morva/core/morva_shared_steps.h>
#include <morva/merge/threadHandler.h>

namespace morva::osg {

/// Help for the tasks of one handler, which is to outlive it. One per task.
class MORVA_API task_helpers : public step_help {
  public:
    explicit task_helpers(threadHandler& handler) : handler_(handler) {}

    /// A helper that the system has no thread or no memory for is done without.
    void share(std::size_t count, const numbered_step& step) override;

  private:
    threadHandler& handler_;
};

} // namespace morva::osg
