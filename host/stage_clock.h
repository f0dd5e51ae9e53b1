#pragma once

// Time and memory of the stages of a run, for the table and the report.
//
//     stage_clock clock;
//     clock.begin("read");  ...  clock.begin("optimise");  ...  clock.end();
//
// The peak is that of the whole process while the stage ran, or that of the largest one started for
// it, where that is more. The kernel keeps it and lets a process reset it; where it refuses the
// reset, a stage shows the largest peak so far.

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace morva::host {

struct stage_record {
    std::string name;
    double seconds = 0.0;
    std::uint64_t peak_bytes = 0; ///< resident, 0 if the kernel does not tell
};

class stage_clock {
  public:
    /// Ends the running stage, if any, and starts the next.
    void begin(const std::string& name);
    void end();
    const std::vector<stage_record>& stages() const { return stages_; }

  private:
    std::vector<stage_record> stages_;
    std::chrono::steady_clock::time_point start_;
    bool running_ = false;
    std::uint64_t ended_before_ = 0; ///< the most of processes that ended before the stage
};

} // namespace morva::host
