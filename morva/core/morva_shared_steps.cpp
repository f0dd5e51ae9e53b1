#include <morva/core/morva_shared_steps.h>

namespace morva {

namespace {

/// Who helps this thread; null: nobody.
thread_local step_help* open_scope = nullptr;

} // namespace

step_help::scope::scope(step_help* help) : before_(open_scope) { open_scope = help; }

step_help::scope::~scope() { open_scope = before_; }

bool hasHelp() { return open_scope != nullptr; }

void shareSteps(std::size_t count, const numbered_step& step) {
    if (open_scope != nullptr && count > 1) {
        open_scope->share(count, step);
        return;
    }
    for (std::size_t i = 0; i < count; ++i)
        step(i);
}

} // namespace morva
