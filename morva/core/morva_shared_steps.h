#pragma once

// Independent pieces of one task's work, which others may take a share of.
//
//     task      shareSteps(6, step)    step(0)  step(2)  step(4)   waits
//     helper                              step(1)  step(3)  step(5)
//
//     const step_help::scope here(&help);    // by the pass that the task belongs to
//     ... shareSteps(parts.size(), [&](std::size_t i) { fill(parts[i]); });
//
// Where no scope is open the calling thread takes all steps, in their order. What a step writes is
// its own: which thread takes it must not matter.

#include <cstddef>
#include <functional>

#include <morva/core/morva_export.h>

namespace morva {

/// Takes one step by its number.
using numbered_step = std::function<void(std::size_t)>;

/// Whoever can help a task.
class MORVA_API step_help {
  public:
    /// Lets the calling thread have this help meanwhile; null: none.
    class MORVA_API scope {
      public:
        explicit scope(step_help* help);
        scope(const scope&) = delete;
        scope& operator=(const scope&) = delete;
        ~scope();

      private:
        step_help* before_;
    };

    step_help() = default;
    step_help(const step_help&) = delete;
    step_help& operator=(const step_help&) = delete;
    virtual ~step_help() = default;

    /// As shareSteps().
    virtual void share(std::size_t count, const numbered_step& step) = 0;
};

/// Whether the calling thread may be helped.
MORVA_API bool hasHelp();

/// Takes steps 0 to `count - 1`, and returns when all are taken.
///
/// errors  what a step throws, once nobody is at work any more; of several one. The others may not
///         have been taken then
MORVA_API void shareSteps(std::size_t count, const numbered_step& step);

} // namespace morva
