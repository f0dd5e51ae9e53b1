#include <morva/merge/morva_osg_helpers.h>

#include <atomic>
#include <exception>
#include <mutex>
#include <optional>
#include <vector>

#include <morva/idmap/morva_osg_idmaphandler.h>

namespace morva::osg {

namespace {

/// Of one share, however many places there are.
constexpr std::size_t most_helpers = 64;

/// Steps that several threads take, each the next one that nobody has.
class step_queue {
  public:
    step_queue(std::size_t count, const numbered_step& step) : count_(count), step_(step) {}

    /// Takes one step; false if there is none.
    bool takeOne() noexcept {
        const std::size_t number = next_.fetch_add(1, std::memory_order_relaxed);
        if (number >= count_)
            return false;
        try {
            step_(number);
            return true;
        } catch (...) {
            const std::lock_guard<std::mutex> guard(mutex_);
            error_ = std::current_exception();
        }
        next_.store(count_, std::memory_order_relaxed); // nobody needs the others
        return false;
    }

    /// More than one step that nobody has.
    bool isWorthHelping() const { return next_.load(std::memory_order_relaxed) + 1 < count_; }

    void rethrow() const {
        if (error_ != nullptr)
            std::rethrow_exception(error_);
    }

  private:
    const std::size_t count_;
    const numbered_step& step_;
    std::atomic<std::size_t> next_{0};
    std::mutex mutex_;         ///< guards `error_`
    std::exception_ptr error_; ///< of a step
};

void helpMultithread(void* queue) {
    auto& steps = *static_cast<step_queue*>(queue);
    const held_lock_end end;
    while (steps.takeOne()) {
    }
}

/// The helpers of one share; joined when it goes.
class helper_list {
  public:
    helper_list(threadHandler& handler, step_queue& steps) : handler_(handler), steps_(steps) {}
    helper_list(const helper_list&) = delete;
    helper_list& operator=(const helper_list&) = delete;
    ~helper_list() {
        for (const unsigned int number : numbers_)
            handler_.joinHelper(number);
    }

    /// Starts one more if a place is free.
    void grow() noexcept {
        if (has_failed_ || numbers_.size() == most_helpers)
            return;
        try {
            numbers_.reserve(numbers_.size() + 1);
            if (const auto number = handler_.startHelper(helpMultithread, &steps_, has_failed_))
                numbers_.push_back(*number);
        } catch (...) {
            has_failed_ = true;
        }
    }

  private:
    threadHandler& handler_;
    step_queue& steps_;
    std::vector<unsigned int> numbers_;
    bool has_failed_ = false; ///< there was no thread or no memory: not asked for again
};

} // namespace

void task_helpers::share(std::size_t count, const numbered_step& step) {
    step_queue steps(count, step);
    {
        const step_help::scope nobody(nullptr); // a step is taken by one thread
        helper_list helpers(handler_, steps);
        do {
            if (steps.isWorthHelping())
                helpers.grow();
        } while (steps.takeOne());
        getIDmapHandler().releaseHeldLock(); // a helper may wait for it
    }
    steps.rethrow();
}

} // namespace morva::osg
