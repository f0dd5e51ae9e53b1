#include "byte_pipe.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace morva::host {

namespace {

constexpr std::size_t buffer_bytes = 64 << 10;

void writeAll(int descriptor, const char* first, std::size_t count) {
    while (count != 0) {
        const ssize_t written = write(descriptor, first, count);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            throw pipe_ended();
        first += written;
        count -= static_cast<std::size_t>(written);
    }
}

} // namespace

void pipe_end::close() {
    if (descriptor_ >= 0)
        ::close(descriptor_);
    descriptor_ = -1;
}

pipe_writer::pipe_writer(int descriptor) : pipe_end(descriptor) { buffer_.reserve(buffer_bytes); }

void pipe_writer::bytes(const void* first, std::size_t count) {
    const auto* const from = static_cast<const char*>(first);
    if (buffer_.size() + count > buffer_bytes)
        flush();
    if (count > buffer_bytes)
        writeAll(descriptor_, from, count);
    else if (count != 0)
        buffer_.insert(buffer_.end(), from, from + count);
}

void pipe_writer::flush() {
    writeAll(descriptor_, buffer_.data(), buffer_.size());
    buffer_.clear();
}

pipe_reader::pipe_reader(int descriptor) : pipe_end(descriptor), buffer_(buffer_bytes) {}

std::size_t pipe_reader::readSome(void* first, std::size_t count) const {
    for (;;) {
        const ssize_t got = read(descriptor_, first, count);
        if (got > 0)
            return static_cast<std::size_t>(got);
        if (got == 0 || errno != EINTR)
            throw pipe_ended();
    }
}

void pipe_reader::bytes(void* first, std::size_t count) {
    auto* to = static_cast<char*>(first);
    while (count != 0) {
        std::size_t got = std::min(count, end_ - next_);
        if (got != 0) {
            std::memcpy(to, buffer_.data() + next_, got);
            next_ += got;
        } else if (count >= buffer_bytes) {
            got = readSome(to, count);
        } else {
            next_ = 0;
            end_ = readSome(buffer_.data(), buffer_bytes);
            continue;
        }
        to += got;
        count -= got;
    }
}

} // namespace morva::host
