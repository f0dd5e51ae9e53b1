#include "heap.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>

#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

namespace morva::host {

namespace {

constexpr int largest_block = 32 << 20; ///< the most that the C library takes from its heap
constexpr int later_growth = 64 << 20;

/// Half of the machine's memory, as far as the C library takes a number of bytes.
int bytesToReserve() {
    const std::int64_t pages = sysconf(_SC_PHYS_PAGES);
    const std::int64_t bytes = pages / 2 * sysconf(_SC_PAGESIZE);
    return static_cast<int>(std::clamp<std::int64_t>(bytes, 0, INT_MAX));
}

std::uintptr_t roundedUp(std::uintptr_t address, std::uintptr_t step) {
    return (address + step - 1) / step * step;
}

} // namespace

void reserveHeap() {
    mallopt(M_MMAP_THRESHOLD, largest_block);
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    mallopt(M_TOP_PAD, bytesToReserve());
    const auto begin = reinterpret_cast<std::uintptr_t>(sbrk(0));
    void* volatile block = std::malloc(1 << 20); // more than the heap has: makes it grow
    std::free(block);
    const auto end = reinterpret_cast<std::uintptr_t>(sbrk(0));
    mallopt(M_TOP_PAD, later_growth);
    const auto first_page = roundedUp(begin, static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE)));
    if (first_page < end) // only advice: without huge pages the heap is as good as before
        madvise(reinterpret_cast<void*>(first_page), end - first_page, MADV_HUGEPAGE);
}

} // namespace morva::host
