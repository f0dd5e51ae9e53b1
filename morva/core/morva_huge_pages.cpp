#include <morva/core/morva_huge_pages.h>

#include <cstdint>

#include <sys/mman.h>

namespace morva {

namespace {

constexpr std::size_t huge_page = 2 << 20;
constexpr std::size_t smallest = 2 * huge_page; ///< below this, hardly a whole page lies inside

} // namespace

void wishHugePages(void* begin, std::size_t bytes) noexcept {
    if (bytes < smallest)
        return;
    const auto address = reinterpret_cast<std::uintptr_t>(begin);
    const std::size_t before = (huge_page - address % huge_page) % huge_page;
    const std::size_t inside = (bytes - before) / huge_page * huge_page;
    madvise(static_cast<char*>(begin) + before, inside, MADV_HUGEPAGE);
}

} // namespace morva
