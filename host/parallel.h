#pragma once

// The same work for many items on a few threads.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <exception>
#include <thread>
#include <vector>

namespace morva::host {

/// Calls `work(i)` once for each i below `count`, on at most four threads, and waits.
///
/// The threads are none of the scene graph's: `work` must touch plain memory only. There are fewer
/// of them where the system gives no more; the caller's is one.
/// errors  the first exception of `work`, once all threads are done; items may be left undone then
template <typename Work> void runParallel(std::size_t count, Work work) {
    std::atomic<std::size_t> next{0};
    std::atomic<bool> failed{false};
    std::exception_ptr failure;
    const auto run = [&] {
        try {
            for (std::size_t i = next++; i < count; i = next++)
                work(i);
        } catch (...) {
            next = count;
            if (!failed.exchange(true))
                failure = std::current_exception();
        }
    };
    std::vector<std::thread> helpers;
    const unsigned cores = std::min(4u, std::thread::hardware_concurrency());
    try {
        for (unsigned i = 1; i < cores && i < count; ++i)
            helpers.emplace_back(run);
    } catch (const std::exception&) {
        // No thread or no memory for one: those that there are do the work.
    }
    run();
    for (std::thread& helper : helpers)
        helper.join();
    if (failure)
        std::rethrow_exception(failure);
}

} // namespace morva::host
