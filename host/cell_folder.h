#pragma once

// The folder that the cells of a model go to, all of them or none.
//
//     out/cell_0000.glb, cell_0001.glb, ...    and what other formats have beside them
//         manifest.json                        comes last: whoever sees it has the cells
//
// The files are staged in the folder (stage_folder.h) and moved together. One that is there already
// must be empty; with `overwrite` the files of the same names are replaced, and cells that only the
// manifest there knew of go.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "output_set.h"
#include "stage_folder.h"

namespace morva::host {

class cell_folder {
  public:
    /// errors  host_error: it can't be made or written, or is not empty without `overwrite`
    cell_folder(const std::string& path, const std::string& input, bool overwrite);

    /// Tells which files were read, so that none of them is replaced.
    void keepOff(const std::vector<std::string>& files) { outputs_.keepOff(files); }
    /// Where to write a file.
    std::string pathOf(const std::string& name) const { return manifest_->folder() + "/" + name; }
    std::string pathOfManifest() const { return manifest_->path(); }

    /// Makes sure that all can go to its place.
    /// errors  host_error
    void check() const { outputs_.check(); }
    /// Puts all files in their places.
    /// errors  host_error: all is then as before
    void commit();

  private:
    std::vector<std::string> oldCells() const;

    std::string path_;
    made_folder folder_; ///< goes last, when nothing of ours is in it
    output_set outputs_;
    staged_output* manifest_ = nullptr;
};

/// "cell_0012.glb"
std::string cellName(std::size_t cell, const std::string& format);

} // namespace morva::host
