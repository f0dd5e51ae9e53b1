#pragma once

// The files that one run writes, in place together or not at all.
//
//     output_set outputs("in.gltf", overwrite);
//     staged_output& model = outputs.addModel("out/engine.gltf"); // refuses names of one file
//     staged_output& report = outputs.add("out/engine.json");
//     outputs.keepOff(files_that_the_reader_opened);              // refuses them, too
//     write(model.path()), write(report.path());
//     outputs.commit();                                           // moves all of them
//
// Unless commit() comes to its end every file stays as it was. A process that is killed in the
// middle of it leaves the model, which comes last, with the files that belong to it.

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "file_identity.h"
#include "file_moves.h"
#include "staged_output.h"

namespace morva::host {

class output_set {
  public:
    /// overwrite  the model may replace the input, and files that belong to it any file that was
    ///            not read for another one
    output_set(const std::string& input, bool overwrite);

    /// Makes room for the model, before all other files.
    /// errors  host_error: it is the input, without `overwrite`, or cannot be written
    staged_output& addModel(const std::string& target);

    /// Makes room for a file.
    /// errors  host_error: it is the input or another output under whatever name, or cannot be
    ///         written
    staged_output& add(const std::string& target);

    /// Tells which files were read, so that none of them is replaced.
    /// errors  host_error: one of the outputs is one of them
    void keepOff(const std::vector<std::string>& files);

    /// Takes an output back that is not to be written.
    void drop(const staged_output& output);

    /// Makes sure that all that was written can go to its place.
    /// errors  host_error: a file that belongs to an output would replace one that the output in
    ///         place does not refer to, or nothing was written
    void check() const;

    /// Puts all files in their places: those that belong to others before them, the model last.
    /// A replaced file hands on its permissions; a file that is there with the same content stays.
    /// Buffers named by their content that only the replaced model referred to go.
    /// gone    more files that nobody needs then; one that was read stays
    /// errors  host_error: those of check(), or the disk; all files are then as before
    void commit(const std::vector<std::string>& gone = {});

  private:
    std::vector<file_move> plannedMoves() const;
    void planSideFiles(const staged_output& output, std::vector<file_move>& moves) const;
    std::string whyNotReplaced(const std::string& path, bool referred) const;
    bool wasRead(const std::string& path) const;
    std::vector<std::string> buffersWithoutModel() const;

    std::optional<file_identity> input_; ///< nothing if it is not there
    bool overwrite_;
    bool in_place_ = false; ///< the model replaces the input
    std::vector<std::unique_ptr<staged_output>> outputs_;
    std::vector<file_identity> read_;
};

} // namespace morva::host
