#pragma once

#include "OSGConfig.h"

#include <cstdint>
#include <cstring>

OSG_BEGIN_NAMESPACE

/// A number of 16 bits: sign, 5 bits of exponent, 10 of fraction (IEEE 754 binary16). Computes as
/// float; storing rounds to the nearest, ties to even, and gives infinity beyond 65504.
class Real16 {
  public:
    Real16() = default;
    Real16(float value) : _bits(bitsOf(value)) {}
    operator float() const;

  private:
    static std::uint16_t bitsOf(float value);

    std::uint16_t _bits = 0;
};

inline std::uint16_t Real16::bitsOf(float value) {
    std::uint32_t wide;
    std::memcpy(&wide, &value, sizeof(wide));
    const std::uint32_t sign = wide >> 16 & 0x8000u;
    std::uint32_t magnitude = wide & 0x7FFFFFFFu;
    if (magnitude > 0x7F800000u) // NaN keeps what fits of its fraction, and stays one
        return static_cast<std::uint16_t>(sign | 0x7E00u | (magnitude >> 13 & 0x3FFu));
    if (magnitude >= 0x47800000u) // 65536 and above
        return static_cast<std::uint16_t>(sign | 0x7C00u);
    std::uint32_t shift = 13;
    if (magnitude < 0x38800000u) { // below the normal numbers: the leading 1 becomes explicit
        const std::uint32_t below = 0x71u - (magnitude >> 23);
        if (below > 11)
            return static_cast<std::uint16_t>(sign);
        magnitude = (magnitude & 0x7FFFFFu) | 0x800000u;
        shift += below;
    } else {
        magnitude -= 0x38000000u;
    }
    const std::uint32_t kept = magnitude >> shift;
    const std::uint32_t half = 1u << (shift - 1);
    const std::uint32_t rest = magnitude & (2 * half - 1);
    const bool up = rest > half || (rest == half && (kept & 1u) != 0);
    return static_cast<std::uint16_t>(sign | (kept + (up ? 1u : 0u)));
}

inline Real16::operator float() const {
    const std::uint32_t sign = std::uint32_t(_bits & 0x8000u) << 16;
    const std::uint32_t exponent = _bits >> 10 & 0x1Fu;
    const std::uint32_t fraction = _bits & 0x3FFu;
    if (exponent == 0) { // below the normal numbers
        const float size = static_cast<float>(fraction) * 5.9604644775390625e-8f; // 2^-24
        return sign != 0 ? -size : size;
    }
    const std::uint32_t wide =
        sign | (exponent == 31 ? 0x7F800000u : (exponent + 112) << 23) | fraction << 13;
    float value;
    std::memcpy(&value, &wide, sizeof(value));
    return value;
}

OSG_END_NAMESPACE
