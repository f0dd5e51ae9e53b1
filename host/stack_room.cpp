#include "stack_room.h"

#include <algorithm>
#include <exception>
#include <new>

#include <pthread.h>
#include <sys/resource.h>

#include "host_error.h"

namespace morva::host {

namespace {

constexpr std::size_t bytes_per_level = 1536;
constexpr std::size_t other_bytes = std::size_t{128} << 10;
/// Names of parts hold the names above them: their sum grows with the square of the depth.
constexpr std::size_t most_levels = 2000;
constexpr std::size_t least_stack = std::size_t{1} << 20;

/// Of this process and of each thread that it starts.
std::size_t stackBytes() {
    rlimit limit{};
    if (getrlimit(RLIMIT_STACK, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY)
        return std::size_t{8} << 20; // the usual one
    return limit.rlim_cur;
}

struct errand {
    const std::function<void()>& work;
    std::exception_ptr failure;
};

void* run(void* argument) {
    errand& own = *static_cast<errand*>(argument);
    try {
        own.work();
    } catch (...) {
        own.failure = std::current_exception();
    }
    return nullptr;
}

} // namespace

std::size_t mostLevels() {
    const std::size_t bytes = stackBytes();
    return bytes > other_bytes ? std::min((bytes - other_bytes) / bytes_per_level, most_levels) : 0;
}

void checkStack() {
    if (mostLevels() == 0)
        throw host_error("the stack limit of " + std::to_string(stackBytes() >> 10) +
                         " KiB is too low: more than " + std::to_string(other_bytes >> 10) +
                         " KiB are needed");
}

std::string tooDeep() {
    const std::size_t levels = mostLevels();
    std::string text = "the node tree is deeper than " + std::to_string(levels) + " levels";
    if (levels == most_levels)
        return text;
    return text + ", the most for a stack limit of " + std::to_string(stackBytes() >> 10) + " KiB";
}

void runOnStack(std::size_t bytes, const std::function<void()>& work) {
    errand own{work, nullptr};
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        throw std::bad_alloc();
    pthread_t thread{};
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            bytes = std::min<std::size_t>(bytes, limit.rlim_cur / 8); // the work wants some, too
    }
    bool runs = false;
    for (bytes = std::max(bytes, least_stack); !runs && bytes >= least_stack; bytes /= 2)
        runs = pthread_attr_setstacksize(&attributes, bytes) == 0 &&
               pthread_create(&thread, &attributes, &run, &own) == 0;
    pthread_attr_destroy(&attributes);
    if (!runs)
        throw std::bad_alloc();
    pthread_join(thread, nullptr);
    if (own.failure)
        std::rethrow_exception(own.failure);
}

} // namespace morva::host
