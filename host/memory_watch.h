#pragma once

// Whether memory ran out, whoever noticed.
//
//     const memory_watch memory;           one at a time, for the length of a run
//     model = read();
//     memory.check("reading 'a.glb'");     host_error: out of memory while reading 'a.glb'
//
// The import library, the scene graph and the optimiser catch what they cannot allocate, and go on
// with what is there: their results may lack something that no count tells. So each allocation
// that fails is noted here, and the run ends at the next check. A reserve is given back to the
// first of them, so that the way there has memory too: destructors that allocate could not fail
// otherwise but by ending the process.

#include <cstddef>
#include <new>
#include <string>

namespace morva::host {

class memory_watch {
  public:
    memory_watch();
    ~memory_watch();
    memory_watch(const memory_watch&) = delete;
    memory_watch& operator=(const memory_watch&) = delete;

    /// Whether an allocation has failed since the watch began, on any thread.
    static bool ranOut();
    /// errors  host_error with outOfMemory(doing) if so
    static void check(const std::string& doing);
    /// errors  the same if there is no block of so many bytes now, for what would not ask
    static void require(std::size_t bytes, const std::string& doing);

  private:
    std::new_handler before_;
};

} // namespace morva::host
