#include "memory_limit.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

#include <malloc.h>
#include <sys/resource.h>
#include <unistd.h>

#include "text.h"

namespace morva::host {

namespace {

constexpr std::uint64_t least_bytes = std::uint64_t{64} << 20;
/// More than any machine has.
constexpr std::uint64_t no_memory = std::uint64_t{1} << 43;

std::uint64_t limit_in_force = 0; ///< 0: none of ours

std::uint64_t machineMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES), bytes = sysconf(_SC_PAGESIZE);
    return pages > 0 && bytes > 0 ? static_cast<std::uint64_t>(pages) * bytes : 0;
}

/// What the process has of the kind that is limited.
std::uint64_t dataBytes() {
    std::ifstream file("/proc/self/statm");
    std::uint64_t pages = 0;
    for (int column = 0; column < 6; ++column) // data and stack are the sixth
        file >> pages;
    return file ? pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE)) : 0;
}

bool isUnlimited(int resource) {
    rlimit limit{};
    return getrlimit(static_cast<__rlimit_resource>(resource), &limit) == 0 &&
           limit.rlim_cur == RLIM_INFINITY;
}

void setSoftLimit(rlim_t bytes) {
    rlimit limit{};
    if (getrlimit(RLIMIT_DATA, &limit) != 0)
        return;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_DATA, &limit);
}

} // namespace

std::uint64_t usualMemory() { return machineMemory() / 4 * 3; }

std::uint64_t bytesOfSize(const std::string& text) {
    const std::string units = "KMGT";
    const std::size_t unit = text.empty() ? std::string::npos : units.find(text.back());
    const std::string number = text.substr(0, text.empty() ? 0 : text.size() - 1);
    if (unit == std::string::npos || number.empty() || number.size() > 15 ||
        number.find_first_not_of("0123456789.") != std::string::npos ||
        std::count(number.begin(), number.end(), '.') > 1 || number == ".")
        return 0;
    const double bytes = std::ldexp(std::stod(number), 10 * (static_cast<int>(unit) + 1));
    if (bytes < static_cast<double>(least_bytes))
        return 0;
    return static_cast<std::uint64_t>(std::min(bytes, static_cast<double>(no_memory)));
}

memory_limit::memory_limit(std::uint64_t bytes) {
    rlimit present{};
    if (bytes == 0 || getrlimit(RLIMIT_DATA, &present) != 0 || present.rlim_cur != RLIM_INFINITY)
        return;
    if (dataBytes() > no_memory)
        return;
    if (dataBytes() >= bytes / 4)
        malloc_trim(0); // what the heap holds in reserve would be a large part of it
    setSoftLimit(bytes);
    limit_in_force = bytes;
}

memory_limit::~memory_limit() {
    if (limit_in_force != 0)
        setSoftLimit(RLIM_INFINITY);
    limit_in_force = 0;
}

void memory_limit::leaveRoom() {
    if (limit_in_force != 0)
        setSoftLimit(limit_in_force / 3 * 2);
}

std::string outOfMemory(const std::string& doing) {
    // With a limit on address space as well nobody knows which one it was.
    if (limit_in_force == 0 || !isUnlimited(RLIMIT_AS))
        return "out of memory while " + doing;
    return doing + " needs more than " + readableBytes(limit_in_force) +
           " of memory (--max-memory)";
}

} // namespace morva::host
