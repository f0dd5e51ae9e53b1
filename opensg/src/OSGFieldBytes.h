#pragma once

// Fields to bytes in memory, through the binary transport that every field has.

#include "OpenSG/OSGBinaryDataHandler.h"

#include <cstring>
#include <stdexcept>
#include <vector>

OSG_BEGIN_NAMESPACE

/// Collects what fields write; clear() keeps the memory.
class field_bytes_out : public BinaryDataHandler {
  public:
    void clear() { _bytes.clear(); }
    const std::vector<UInt8>& bytes() const { return _bytes; }
    std::vector<UInt8>& bytes() { return _bytes; }

  protected:
    void write(MemoryHandle source, UInt32 count) override {
        if (count == 0)
            return;
        const std::size_t end = _bytes.size();
        _bytes.resize(end + count);
        std::memcpy(_bytes.data() + end, source, count);
    }
    void read(MemoryHandle, UInt32) override {
        throw std::out_of_range("this handler only writes");
    }

  private:
    std::vector<UInt8> _bytes;
};

/// Spreads bytes over 64 bits; not meant against intent. Reads words: the result is one
/// machine's own.
inline UInt64 osgHashBytes(const UInt8* data, std::size_t count, UInt64 seed) {
    constexpr UInt64 odd = 0x9E3779B97F4A7C15u;
    UInt64 hash = (seed ^ count) * odd;
    const auto mix = [&hash](UInt64 word) {
        hash = (hash ^ word) * odd;
        hash ^= hash >> 32;
    };
    while (count >= sizeof(UInt64)) {
        UInt64 word;
        std::memcpy(&word, data, sizeof(word));
        mix(word);
        data += sizeof(word);
        count -= sizeof(word);
    }
    UInt64 rest = 0;
    if (count != 0)
        std::memcpy(&rest, data, count);
    mix(rest);
    return hash;
}

OSG_END_NAMESPACE
