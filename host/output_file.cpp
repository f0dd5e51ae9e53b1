#include "output_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "host_error.h"

namespace morva::host {

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
    throw host_error("cannot write '" + std::filesystem::path(path_).filename().string() +
                     "': " + std::strerror(reason));
}

void writeFile(const std::string& path, const std::string& text) {
    output_file file(path);
    file.write(text.data(), text.size());
    file.close();
}

} // namespace morva::host
