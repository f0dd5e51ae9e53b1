#pragma once

// Folders for what is not finished yet. They go when their owner goes, when a signal ends the
// process (signal_watch.h), or, after a crash, when the next run comes to the same place.
//
//     out/.morva-.../run        the mark of this run (run_marker.h)
//                      /new/    files being written
//                      /old/    while they are moved to out/: what they replace
//
// All functions may be called from any thread.

#include <mutex>
#include <string>
#include <vector>

namespace morva::host {

class stage_folder {
  public:
    /// Makes a folder in `folder`, after those of ended runs were swept from there.
    /// errors  host_error: nothing can be made there
    explicit stage_folder(const std::string& folder);
    ~stage_folder();
    stage_folder(const stage_folder&) = delete;
    stage_folder& operator=(const stage_folder&) = delete;

    /// Folder for files being written.
    std::string fresh() const { return path_ + "/new"; }
    /// Folder for files being replaced.
    std::string old() const { return path_ + "/old"; }

  private:
    std::string path_;
    std::vector<char> reserve_; ///< room for the buffers of open folders, let go to remove them
};

/// A folder that a run makes for its files: it goes with its owner, or when a signal ends the
/// process, if it is empty then.
class made_folder {
  public:
    /// Makes the folder unless there is one, which then stays.
    /// errors  host_error: it can't be made, or a file is there
    explicit made_folder(const std::string& path);
    ~made_folder();
    made_folder(const made_folder&) = delete;
    made_folder& operator=(const made_folder&) = delete;

  private:
    std::string path_; ///< empty: it was there
};

/// While the result lives, removeStageFolders() waits: for what must be done whole.
std::unique_lock<std::mutex> holdStageFolders();

/// Removes all stage folders of the process, and those made for files, and lets no thread make or
/// finish one any more: only for a process that ends now.
void removeStageFolders();

} // namespace morva::host
