#pragma once

// How much memory a run may take.
//
//     const memory_limit limit(chosen.max_memory);
//     ...                                            std::bad_alloc beyond it
//     throw host_error(outOfMemory("reading 'a.glb'"));
//
// The kernel holds the process to it, whoever allocates: the heap, stacks of threads, whatever is
// mapped to be written.

#include <cstdint>
#include <string>

namespace morva::host {

/// Three quarters of what the machine has.
std::uint64_t usualMemory();

/// "8G", "512M", "1.5G", "800000K": bytes; 0 if the text is none of these, or less than 64 MiB.
std::uint64_t bytesOfSize(const std::string& text);

/// Holds the process to so many bytes as long as it lives. A process with more address space from
/// the start than any machine has memory, as with a sanitizer, cannot be held and is left alone;
/// so is one that may have less already.
class memory_limit {
  public:
    explicit memory_limit(std::uint64_t bytes);
    ~memory_limit();
    memory_limit(const memory_limit&) = delete;
    memory_limit& operator=(const memory_limit&) = delete;

    /// Holds a process that was started for a while to two thirds of what this one may have: what
    /// it sends takes less than half of that here, so that both together stay below the limit.
    static void leaveRoom();
};

/// What is said when memory ran out, with the limit where there is one.
std::string outOfMemory(const std::string& doing);

} // namespace morva::host
