#pragma once

// Bytes of a scene file: a checked walk over them, and numbers from and to big endian.
//
//     byte_cursor in(data, bytes);
//     const UInt32 count = in.number<UInt32>();
//     byte_cursor list = in.part(UInt64(count) * 4);    // damage if that much is not there
//
// Nothing here allocates: what a length in the file promises is compared with what is left first.

#include "OpenSG/OSGBaseTypes.h"

#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>

OSG_BEGIN_NAMESPACE

/// What is wrong with a file, and where. Thrown inside the reader only.
class scene_damage : public std::runtime_error {
  public:
    scene_damage(const std::string& what, UInt64 place)
        : std::runtime_error("byte " + std::to_string(place) + ": " + what) {}
};

/// Copies `count` numbers of 1, 2, 4 or 8 bytes between the machine's order and big endian; both
/// directions are the same exchange.
void osgCopyBigEndian(const void* from, void* to, std::size_t count, UInt32 bytesOfNumber);

class byte_cursor {
  public:
    byte_cursor() = default;
    byte_cursor(const UInt8* data, std::size_t bytes)
        : _start(data), _at(data), _end(data + bytes) {}

    /// From the start of the file.
    UInt64 place() const { return static_cast<UInt64>(_at - _start); }
    UInt64 left() const { return static_cast<UInt64>(_end - _at); }

    [[noreturn]] void fail(const std::string& what) const { throw scene_damage(what, place()); }
    void require(bool holds, const Char8* otherwise) const {
        if (!holds)
            fail(otherwise);
    }

    const UInt8* take(UInt64 bytes) {
        require(bytes <= left(), "the data ends early");
        const UInt8* here = _at;
        _at += bytes;
        return here;
    }
    /// The next bytes as a walk of their own; places still count from the start of the file.
    byte_cursor part(UInt64 bytes) {
        byte_cursor inner = *this;
        inner._end = take(bytes) + bytes;
        return inner;
    }
    template <class T> T number() {
        T value;
        osgCopyBigEndian(take(sizeof(T)), &value, 1, sizeof(T));
        return value;
    }
    /// A length that counts a closing null byte, then that many bytes; length 0 is empty, too.
    std::string_view text(UInt32 longest = 0xFFFFFFFFu) {
        const UInt64 before = place();
        const UInt32 length = number<UInt32>();
        if (length == 0)
            return std::string_view();
        if (length > longest)
            throw scene_damage("a name has an unlikely length", before);
        const char* characters = reinterpret_cast<const char*>(take(length));
        if (std::memchr(characters, 0, length) != characters + length - 1)
            throw scene_damage("a text does not end with its only null byte", before);
        return std::string_view(characters, length - 1);
    }

  private:
    const UInt8* _start = nullptr;
    const UInt8* _at = nullptr;
    const UInt8* _end = nullptr;
};

OSG_END_NAMESPACE
