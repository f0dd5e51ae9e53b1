#pragma once

// The import library in a process of its own: whatever a file does to it, the command goes on and
// can tell. Post-processing happens there as well, after the indices of all faces were checked.

#include <cstdint>
#include <memory>
#include <string>

#include "child_process.h"
#include "scene_handover.h"

namespace morva::host {

struct imported_scene {
    /// Goes with the rest, and takes a while to: it gives back all that the library took.
    std::unique_ptr<child_process> library;
    handed_scene contents;
};

/// Reads a file and cuts its polygons into triangles.
/// errors  host_error: it cannot be read, or the library crashed; std::bad_alloc
imported_scene readThroughLibrary(const std::string& path, std::uint64_t file_bytes);

} // namespace morva::host
