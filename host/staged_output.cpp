#include "staged_output.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include <unistd.h>

#include "host_error.h"

namespace fs = std::filesystem;

namespace morva::host {

staged_output::staged_output(const std::string& target) {
    const fs::path path(target);
    folder_ = path.has_parent_path() ? path.parent_path().string() : ".";
    name_ = path.filename().string();
    std::error_code error;
    if (name_.empty() || fs::is_directory(path, error))
        throw host_error("cannot write '" + target + "': it is a folder");
    if (!fs::exists(folder_, error))
        throw host_error("cannot write '" + target + "': there is no folder '" + folder_ + "'");
    if (!fs::is_directory(folder_, error))
        throw host_error("cannot write '" + target + "': '" + folder_ + "' is no folder");
    temporary_ = (fs::path(folder_) / ".morva-XXXXXX").string();
    if (mkdtemp(temporary_.data()) == nullptr) {
        temporary_.clear();
        throw host_error("cannot write in the folder '" + folder_ + "': " + std::strerror(errno));
    }
}

staged_output::~staged_output() {
    std::error_code ignored;
    if (temporary_.empty())
        return;
    fs::remove_all(temporary_, ignored);
    if (ignored) // it may only have lacked a little memory
        fs::remove_all(temporary_, ignored);
}

std::string staged_output::path() const { return (fs::path(temporary_) / name_).string(); }

std::uint64_t staged_output::commit() {
    try {
        std::vector<fs::path> files;
        for (const fs::directory_entry& entry : fs::directory_iterator(temporary_))
            files.push_back(entry.path());
        // The main file refers to the others: it comes last.
        std::sort(files.begin(), files.end());
        std::stable_partition(files.begin(), files.end(),
                              [&](const fs::path& file) { return file.filename() != name_; });
        if (files.empty() || files.back().filename() != name_)
            throw host_error("cannot write '" + name_ + "': nothing was written");
        std::uint64_t bytes = 0;
        for (const fs::path& file : files) {
            bytes += fs::file_size(file);
            fs::rename(file, fs::path(folder_) / file.filename());
        }
        fs::remove(temporary_);
        temporary_.clear();
        return bytes;
    } catch (const fs::filesystem_error& error) {
        throw host_error("cannot write '" + name_ + "': " + error.code().message());
    }
}

output_file::output_file(const std::string& path)
    : path_(path), file_(std::fopen(path.c_str(), "wb")) {
    if (file_ == nullptr)
        fail();
}

output_file::~output_file() {
    if (file_ != nullptr)
        std::fclose(file_);
}

void output_file::write(const void* bytes, std::size_t count) {
    if (count != 0 && std::fwrite(bytes, 1, count, file_) != count)
        fail();
}

void output_file::close() {
    std::FILE* const file = file_;
    file_ = nullptr;
    if (std::fclose(file) != 0)
        fail();
}

void output_file::fail() const {
    const int reason = errno;
    throw host_error("cannot write '" + fs::path(path_).filename().string() +
                     "': " + std::strerror(reason));
}

} // namespace morva::host
