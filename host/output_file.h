#pragma once

// A file being written, with every failure told.

#include <cstddef>
#include <cstdio>
#include <string>

namespace morva::host {

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

/// Writes a whole file.
/// errors  host_error with the system's reason
void writeFile(const std::string& path, const std::string& text);

} // namespace morva::host
