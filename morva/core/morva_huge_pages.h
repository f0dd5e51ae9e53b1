#pragma once

// Large blocks that are written from end to end cost a fault per page. Asked for in time, the
// system backs them with pages of 2 MiB: a five-hundredth of the faults, and fewer misses of the
// address cache when they are read out of order.
//
//     auto rows = vector_in_huge_pages<row>(count);
//
// A wish only: content and behaviour are the same, whatever the system does. Any thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <sys/mman.h>

namespace morva {

/// Asks for huge pages within the `bytes` from `begin` on, before they are written. Small blocks
/// are left alone.
inline void wish_huge_pages(void* begin, std::size_t bytes) noexcept {
    constexpr std::size_t huge_page = 2 << 20;
    if (bytes < 2 * huge_page)
        return; // hardly a whole page lies inside
    const auto address = reinterpret_cast<std::uintptr_t>(begin);
    const std::size_t before = (huge_page - address % huge_page) % huge_page;
    const std::size_t inside = (bytes - before) / huge_page * huge_page;
    madvise(static_cast<char*>(begin) + before, inside, MADV_HUGEPAGE);
}

/// A vector of `count` values as T() makes them, in huge pages if it is large.
template <typename T> std::vector<T> vector_in_huge_pages(std::size_t count) {
    std::vector<T> values;
    values.reserve(count);
    wish_huge_pages(values.data(), count * sizeof(T));
    values.resize(count);
    return values;
}

} // namespace morva
