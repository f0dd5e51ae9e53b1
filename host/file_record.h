#pragma once

#include <cstdint>
#include <string>

namespace morva::host {

/// A model file as reported.
struct file_record {
    std::string path;
    std::uint64_t bytes = 0; ///< with the files that were written beside it; 0 if not written
};

} // namespace morva::host
