#pragma once

// Several files to their places, all or none.

#include <string>
#include <vector>

namespace morva::host {

/// A file on its way; all three places are in one file system.
struct file_move {
    std::string from;   ///< whole
    std::string to;     ///< nothing, or a plain file that is to be replaced
    std::string backup; ///< nothing: where a replaced file is kept until all moves are done
};

/// Carries out the moves in their order; no signal ends the process in between. A replaced file
/// hands on its owner, if the system lets it, and its permissions.
///
/// gone    files that nobody needs once all moves are done: removed then
/// errors  host_error with the system's reason: everything is as before, but for `from`
void moveAll(const std::vector<file_move>& moves, const std::vector<std::string>& gone = {});

} // namespace morva::host
