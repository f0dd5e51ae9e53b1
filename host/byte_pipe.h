#pragma once

// A stream of values through a pipe, between two processes of one program: both ends agree on what
// comes when, and values stand as they stand in memory.
//
//     out.value(count);                  in.value<std::uint64_t>() == count
//     out.array(points, count);          in.array(points, count);
//
// What is large goes from and to where it lies, without a stay in a buffer.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace morva::host {

/// The stream ended, or cannot be written to: the other process is gone.
class pipe_ended : public std::runtime_error {
  public:
    pipe_ended() : std::runtime_error("the pipe between two processes ended") {}
};

/// Closes the descriptor with itself.
class pipe_end {
  public:
    explicit pipe_end(int descriptor) : descriptor_(descriptor) {}
    ~pipe_end() { close(); }
    pipe_end(const pipe_end&) = delete;
    pipe_end& operator=(const pipe_end&) = delete;
    void close();

  protected:
    int descriptor_; ///< -1: closed
};

class pipe_writer : public pipe_end {
  public:
    explicit pipe_writer(int descriptor);
    /// errors  pipe_ended
    void bytes(const void* first, std::size_t count);
    /// Sends what is still in the buffer; to be called at the end. errors  pipe_ended
    void flush();

    template <typename T> void value(const T& one) {
        static_assert(std::is_trivially_copyable_v<T>, "sent as it stands in memory");
        bytes(&one, sizeof one);
    }
    template <typename T> void array(const T* first, std::size_t count) {
        bytes(first, count * sizeof(T));
    }
    template <typename T> void list(const std::vector<T>& all) {
        value<std::uint64_t>(all.size());
        array(all.data(), all.size());
    }
    void text(std::string_view characters) {
        value<std::uint64_t>(characters.size());
        bytes(characters.data(), characters.size());
    }

  private:
    std::vector<char> buffer_;
};

class pipe_reader : public pipe_end {
  public:
    explicit pipe_reader(int descriptor);
    /// errors  pipe_ended
    void bytes(void* first, std::size_t count);

    template <typename T> T value() {
        static_assert(std::is_trivially_copyable_v<T>, "sent as it stands in memory");
        T one;
        bytes(&one, sizeof one);
        return one;
    }
    template <typename T> void array(T* first, std::size_t count) {
        bytes(first, count * sizeof(T));
    }
    template <typename T> void list(std::vector<T>& all) {
        all.resize(value<std::uint64_t>());
        array(all.data(), all.size());
    }
    std::string text() {
        std::string characters(value<std::uint64_t>(), '\0');
        bytes(characters.data(), characters.size());
        return characters;
    }

  private:
    /// Bytes that came, at least one.
    std::size_t readSome(void* first, std::size_t count) const;

    std::vector<char> buffer_;
    std::size_t next_ = 0, end_ = 0; ///< of the bytes in the buffer that are to be taken
};

} // namespace morva::host
