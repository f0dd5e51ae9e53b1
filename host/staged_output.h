#pragma once

// One file on its way, with the files that belong to it.
//
//     staged_output output("out/engine.gltf");   // makes out/.morva-.../new/
//     write(output.path());                      // engine.gltf, engine.93b7....bin in there
//
// It goes to its place as a part of an output_set, or not at all.

#include <cstdint>
#include <string>
#include <vector>

#include "stage_folder.h"

namespace morva::host {

class staged_output {
  public:
    /// target  where the file is to be; links are followed
    /// errors  host_error: the target's folder is missing or cannot be written, or the target is
    ///         no plain file
    explicit staged_output(const std::string& target);

    /// Where to write the main file: the name given, in the stage folder. Files that belong to it
    /// go beside it.
    std::string path() const { return stage_.fresh() + "/" + name_; }
    /// The folder of path().
    std::string folder() const { return stage_.fresh(); }
    /// Where the main file is to be, without links.
    const std::string& target() const { return target_; }
    /// The folder for files that this one replaces.
    std::string old() const { return stage_.old(); }

    /// Names of the files written so far, the main one last.
    /// errors  host_error: the main one is missing
    std::vector<std::string> names() const;
    /// Sizes' sum of the files written so far.
    std::uint64_t bytes() const;

  private:
    std::string name_;   ///< as given, without its folder: what it leads to may be called otherwise
    std::string target_; ///< without links
    stage_folder stage_; ///< in the target's folder: a file moves within one file system
};

} // namespace morva::host
