#pragma once

// Whether two paths are one file, whatever they look like: "a.glb", "./a.glb", a link to it,
// another name of the same file.

#include <optional>
#include <string>

#include <sys/types.h>

namespace morva::host {

/// What the system knows a file by. Holds for as long as the file is there.
struct file_identity {
    dev_t device;
    ino_t number;

    friend bool operator==(const file_identity& one, const file_identity& other) {
        return one.device == other.device && one.number == other.number;
    }
};

/// The file that a path leads to through all links; nothing if there is none.
std::optional<file_identity> identityOf(const std::string& path);

/// The path without links: that of the file itself, which need not be there, in a folder that must
/// be.
/// errors  host_error: the folder is missing, the path is a folder, or links lead in a circle
std::string withoutLinks(const std::string& path);

/// Whether two paths without links are one file, or would be once both are written.
bool areOneFile(const std::string& one, const std::string& other);

} // namespace morva::host
