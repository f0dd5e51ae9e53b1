#pragma once

// The import library in a process of its own: whatever a file does to it, the command goes on and
// can tell. Post-processing happens there as well, after the indices of all faces were checked.

#include <cstdint>
#include <memory>
#include <string>

#include "child_process.h"
#include "scene_handover.h"

namespace morva::host {

class importing_library {
  public:
    /// Starts to read a file and to cut its polygons into triangles.
    /// errors  host_error or std::bad_alloc: there is no process to be had
    importing_library(const std::string& path, std::uint64_t file_bytes);

    /// To be called once. errors  host_error: the file cannot be read, or the library crashed;
    /// std::bad_alloc
    handed_scene scene();
    /// The meshes that nodes use, one by one. errors  the same
    std::unique_ptr<handed_mesh> nextMesh();

  private:
    template <typename Receive> auto received(Receive receive);

    std::string path_;
    child_process child_; ///< takes a while to end: it gives back all that the library took
};

} // namespace morva::host
