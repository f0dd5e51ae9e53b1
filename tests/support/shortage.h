#pragma once

// Lets single allocations fail, so that a test can see what a pass does when memory runs out, and
// tells how much is held:
//
//     failInTurn(1024, [&](const auto& starved) {
//         node_ref root(build());                               allocations here succeed
//         const bool failed = starved([&] { pass(root); });     one of these throws, or none
//         EXPECT_TRUE(failed || isWhole(root));
//     });
//
// Replaces the global allocation functions: include it in one source file of a program alone.

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <malloc.h>
#include <new>

#include <gtest/gtest.h>

namespace morva_test {

/// Lets large allocations fail within its scope: `count` of them, after `index` that succeed.
/// Those below `bytes` are not counted.
class shortage {
  public:
    explicit shortage(long index, long count = 1, std::size_t bytes = 2048) {
        before_failure = index;
        failures_left = count;
        watched_bytes = bytes;
    }
    shortage(const shortage&) = delete;
    shortage& operator=(const shortage&) = delete;
    ~shortage() { watched_bytes = std::numeric_limits<std::size_t>::max(); }

    /// True if some allocation failed.
    static bool happened() { return before_failure < 0; }

    /// The most bytes that `pass` held at once, beyond those held before.
    template <class Pass> static std::size_t mostHeldBy(const Pass& pass) {
        const std::size_t before = held;
        most_held = before;
        pass();
        return most_held - before;
    }

    /// No more than so much can be held from now on; what was asked for then gets the new handler.
    static void limitTo(std::size_t bytes) { limit = bytes; }

    static void* allocate(std::size_t bytes) {
        while (bytes > limit || held + bytes > limit) {
            const std::new_handler handler = std::get_new_handler();
            if (handler == nullptr)
                throw std::bad_alloc();
            handler();
        }
        if (bytes >= watched_bytes && before_failure.fetch_sub(1) <= 0 &&
            failures_left.fetch_sub(1) > 0)
            throw std::bad_alloc();
        void* memory = std::malloc(bytes == 0 ? 1 : bytes);
        if (memory == nullptr)
            throw std::bad_alloc();
        const std::size_t now = held += malloc_usable_size(memory);
        if (now > most_held) // exact as long as one thread allocates
            most_held = now;
        return memory;
    }
    /// A call of its own, or the compiler takes new and free for a mismatch.
    [[gnu::noinline]] static void release(void* memory) {
        held -= malloc_usable_size(memory);
        std::free(memory);
    }

  private:
    static inline std::atomic<std::size_t> watched_bytes{std::numeric_limits<std::size_t>::max()};
    static inline std::atomic<long> before_failure{0};
    static inline std::atomic<long> failures_left{0};
    static inline std::atomic<std::size_t> limit{std::numeric_limits<std::size_t>::max()};
    static inline std::atomic<std::size_t> held{0};
    static inline std::atomic<std::size_t> most_held{0};
};

/// Calls `round` once for each allocation of at least `bytes` that `starved` meets in it, which is
/// the one to fail there, and at last with none failing. A std::bad_alloc out of what is starved
/// ends there.
template <typename Round> void failInTurn(std::size_t bytes, const Round& round) {
    bool failed = true;
    long index = 0;
    for (; failed; ++index) {
        ASSERT_LT(index, 20000);
        SCOPED_TRACE(testing::Message() << "allocation " << index);
        round([&](const auto& act) {
            try {
                const shortage one(index, 1, bytes);
                act();
                failed = shortage::happened();
            } catch (const std::bad_alloc&) {
                failed = true;
            }
            return failed;
        });
    }
    EXPECT_GT(index, 1) << "nothing was there to fail"; // the last round has no failure
}

} // namespace morva_test

void* operator new(std::size_t bytes) { return morva_test::shortage::allocate(bytes); }
void* operator new[](std::size_t bytes) { return morva_test::shortage::allocate(bytes); }
// Of its own, since a sanitizer's would not come to the one above.
void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept {
    try {
        return morva_test::shortage::allocate(bytes);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept { morva_test::shortage::release(memory); }
void operator delete[](void* memory) noexcept { morva_test::shortage::release(memory); }
void operator delete(void* memory, std::size_t) noexcept { morva_test::shortage::release(memory); }
void operator delete[](void* memory, std::size_t) noexcept {
    morva_test::shortage::release(memory);
}
