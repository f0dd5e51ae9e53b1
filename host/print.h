#pragma once

// Short numbers that tell byte strings from each other. Method: FNV-1a, 64 bits.

#include <cstddef>
#include <cstdint>

namespace morva::host {

/// The print of no bytes.
constexpr std::uint64_t empty_print = 0xCBF29CE484222325u;

/// The print of what `print` stands for and `count` more bytes.
inline std::uint64_t extendedPrint(std::uint64_t print, const void* bytes, std::size_t count) {
    const auto* next = static_cast<const std::uint8_t*>(bytes);
    for (std::size_t i = 0; i < count; ++i)
        print = (print ^ next[i]) * 0x100000001B3u;
    return print;
}

} // namespace morva::host
