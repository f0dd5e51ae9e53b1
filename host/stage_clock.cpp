#include "stage_clock.h"

#include <algorithm>
#include <fstream>
#include <sstream>

#include <sys/resource.h>

namespace morva::host {

namespace {

void resetPeak() {
    std::ofstream file("/proc/self/clear_refs");
    file << "5\n"; // 5: the peak of the resident memory, nothing else
}

std::uint64_t peakBytes() {
    std::ifstream file("/proc/self/status");
    std::string line;
    while (std::getline(file, line)) {
        if (line.compare(0, 6, "VmHWM:") != 0)
            continue;
        std::uint64_t kibibytes = 0;
        std::istringstream(line.substr(6)) >> kibibytes;
        return kibibytes * 1024;
    }
    return 0;
}

/// The most of any process started here that has ended.
std::uint64_t peakOfEnded() {
    rusage usage{};
    return getrusage(RUSAGE_CHILDREN, &usage) == 0 ? usage.ru_maxrss * std::uint64_t{1024} : 0;
}

} // namespace

void stage_clock::begin(const std::string& name) {
    end();
    stages_.push_back({name, 0.0, 0});
    resetPeak();
    ended_before_ = peakOfEnded();
    start_ = std::chrono::steady_clock::now();
    running_ = true;
}

void stage_clock::end() {
    if (!running_)
        return;
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - start_;
    stages_.back().seconds = spent.count();
    const std::uint64_t ended = peakOfEnded();
    stages_.back().peak_bytes = std::max(peakBytes(), ended > ended_before_ ? ended : 0);
    running_ = false;
}

} // namespace morva::host
