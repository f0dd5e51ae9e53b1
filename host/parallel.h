#pragma once

// The same work for many items on a few threads.

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

namespace morva::host {

/// Calls `work(i)` once for each i below `count`, on at most four threads, and waits.
///
/// The threads are none of the scene graph's: `work` must touch plain memory only, and must not
/// throw.
template <typename Work> void runParallel(std::size_t count, Work work) {
    std::atomic<std::size_t> next{0};
    const auto run = [&] {
        for (std::size_t i = next++; i < count; i = next++)
            work(i);
    };
    std::vector<std::thread> helpers;
    const unsigned cores = std::min(4u, std::thread::hardware_concurrency());
    for (unsigned i = 1; i < cores && i < count; ++i)
        helpers.emplace_back(run);
    run();
    for (std::thread& helper : helpers)
        helper.join();
}

} // namespace morva::host
