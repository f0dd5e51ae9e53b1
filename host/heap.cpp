#include "heap.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include <morva/core/morva_huge_pages.h>

namespace morva::host {

namespace {

constexpr int later_growth = 64 << 20;

/// Whether the process may not have all the memory that there is.
bool isLimited() {
    for (const auto resource : {RLIMIT_AS, RLIMIT_DATA}) {
        rlimit limit{};
        if (getrlimit(resource, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
            return true;
    }
    return false;
}

/// Half of the machine's memory, as far as the C library takes a number of bytes.
int bytesToReserve() {
    const std::int64_t pages = sysconf(_SC_PHYS_PAGES);
    const std::int64_t bytes = pages / 2 * sysconf(_SC_PAGESIZE);
    return static_cast<int>(std::clamp<std::int64_t>(bytes, 0, INT_MAX));
}

} // namespace

void reserveHeap() {
    mallopt(M_ARENA_MAX, 1); // one heap for all threads
    if (isLimited())
        return;
    mallopt(M_MMAP_MAX, 0); // and for blocks of any size
    mallopt(M_TRIM_THRESHOLD, INT_MAX);
    mallopt(M_TOP_PAD, bytesToReserve());
    char* const begin = static_cast<char*>(sbrk(0));
    void* volatile block = std::malloc(1 << 20); // more than the heap has: makes it grow
    std::free(block);
    mallopt(M_TOP_PAD, later_growth);
    wish_huge_pages(begin, static_cast<std::size_t>(static_cast<char*>(sbrk(0)) - begin));
}

} // namespace morva::host
