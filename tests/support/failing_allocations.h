#pragma once

// Lets one allocation fail, to see what a pass does without memory:
//
//     for (long index = 0, failed = true; failed; ++index) {
//         { const allocation_failure one(index); pass(); failed = one.happened(); }
//         ... nothing lost, nothing half done
//     }
//
// Replaces the global allocation functions: include it in one source file of a program of its own.

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace morva_test {

/// Within its scope the allocation number `index`, from 0, of those of `bytes` or more fails.
class allocation_failure {
  public:
    explicit allocation_failure(long index, std::size_t bytes = 1024) {
        until_failure = index;
        watched_bytes = bytes;
    }
    allocation_failure(const allocation_failure&) = delete;
    allocation_failure& operator=(const allocation_failure&) = delete;
    ~allocation_failure() { watched_bytes = std::numeric_limits<std::size_t>::max(); }

    /// Whether there were that many.
    bool happened() const { return until_failure < 0; }

    static void* allocate(std::size_t bytes) {
        void* memory = nullptr;
        if (bytes < watched_bytes || until_failure.fetch_sub(1) != 0)
            memory = std::malloc(bytes == 0 ? 1 : bytes);
        if (memory == nullptr)
            throw std::bad_alloc();
        return memory;
    }

  private:
    inline static std::atomic<std::size_t> watched_bytes{std::numeric_limits<std::size_t>::max()};
    inline static std::atomic<long> until_failure{-1};
};

} // namespace morva_test

[[gnu::noinline]] void* operator new(std::size_t bytes) {
    return morva_test::allocation_failure::allocate(bytes);
}
[[gnu::noinline]] void* operator new[](std::size_t bytes) {
    return morva_test::allocation_failure::allocate(bytes);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }
