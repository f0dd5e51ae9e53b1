#pragma once

// Output that is there whole or not at all.
//
//     staged_output output("out/engine.gltf");   // makes out/.morva-x7Qf2c/
//     write(output.path());                      // .../engine.gltf, .../engine.bin
//     output.commit();                           // moves all files to out/, the main one last
//
// Without commit() the folder goes with what is in it, so that neither an error nor a full disk
// leaves half a file, and a file of the same name stays as it was.

#include <cstdint>
#include <cstdio>
#include <string>

namespace morva::host {

class staged_output {
  public:
    /// errors  host_error: the target's folder is missing or cannot be written, or the target is
    ///         a folder
    explicit staged_output(const std::string& target);
    ~staged_output();
    staged_output(const staged_output&) = delete;
    staged_output& operator=(const staged_output&) = delete;

    /// Where to write the main file: the target's name in the temporary folder. Files that
    /// belong to it go beside it.
    std::string path() const;

    /// Moves every file to the target's folder and returns their sizes' sum in bytes.
    /// errors  host_error; files that were there before may then be new ones, each whole
    std::uint64_t commit();

  private:
    std::string folder_;    ///< of the target, "." if it has none
    std::string name_;      ///< of the target, without folder
    std::string temporary_; ///< empty once it is gone
};

/// A file being written. Every failure is a host_error with the system's reason.
class output_file {
  public:
    explicit output_file(const std::string& path);
    ~output_file();
    output_file(const output_file&) = delete;
    output_file& operator=(const output_file&) = delete;

    void write(const void* bytes, std::size_t count);
    /// Must be called: it tells what only shows when the last bytes go out.
    void close();

  private:
    [[noreturn]] void fail() const;

    std::string path_;
    std::FILE* file_ = nullptr;
};

} // namespace morva::host
