#include "memory_watch.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "host_error.h"
#include "memory_limit.h"

namespace morva::host {

namespace {

/// Address space alone until it is needed: nothing writes to it.
constexpr std::size_t reserve_bytes = std::size_t{8} << 20;

std::atomic<bool> ran_out{false};
std::atomic<void*> reserve{nullptr};

/// Called by operator new before it tries once more; the exception is what its caller gets.
void onFailure() {
    ran_out = true;
    void* const held = reserve.exchange(nullptr);
    if (held == nullptr)
        throw std::bad_alloc();
    std::free(held);
}

} // namespace

memory_watch::memory_watch() : before_(std::get_new_handler()) {
    ran_out = false;
    reserve = std::malloc(reserve_bytes);
    if (reserve == nullptr)
        ran_out = true;
    std::set_new_handler(&onFailure);
}

memory_watch::~memory_watch() {
    std::set_new_handler(before_);
    std::free(reserve.exchange(nullptr));
}

bool memory_watch::ranOut() { return ran_out; }

void memory_watch::require(std::size_t bytes, const std::string& doing) {
    void* volatile block = std::malloc(bytes); // volatile: or the compiler needs no block
    ran_out = ran_out || block == nullptr;
    std::free(block);
    check(doing);
}

void memory_watch::check(const std::string& doing) {
    if (ran_out)
        throw host_error(outOfMemory(doing));
}

} // namespace morva::host
