#pragma once

// Finding equal values of vertex properties: hashes, equality, and a table of numbers.
//
//     number_table known(corners);
//     number = known.findOrEnter(hashOf(value), next, [&](UInt32 other) {
//         return isEqual(values[other], value);
//     });
//
// Equal is what no component tells apart: 0 and -0 are equal, a NaN equals nothing.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include <OpenSG/OSGBaseTypes.h>

namespace morva::osg {

constexpr ::osg::UInt32 no_number = std::numeric_limits<::osg::UInt32>::max();
constexpr std::size_t batch_size = 32; ///< corners whose table places are fetched ahead together

/// Open addressing over numbers that are given from 0 up; at most two thirds full. What equal
/// means is told by the caller, who keeps what the numbers stand for. The hash beside a number
/// spares most looks at the values, and all of them when the table grows.
class number_table {
  public:
    /// Does not grow while a fifth of the corners or fewer are distinct.
    explicit number_table(std::size_t corners) {
        std::size_t size = 64;
        while (size < corners / 3)
            size *= 2;
        slots_.resize(size);
    }

    void fetch(::osg::UInt32 hash) const {
        __builtin_prefetch(&slots_[hash & (slots_.size() - 1)]);
    }

    /// The number entered for an equal value before, or else `next`, which is entered now.
    template <typename Equal>
    ::osg::UInt32 findOrEnter(::osg::UInt32 hash, ::osg::UInt32 next, const Equal& equal) {
        if ((next + 1ULL) * 3 > slots_.size() * 2)
            grow();
        std::size_t at = hash & (slots_.size() - 1);
        for (; slots_[at].number != no_number; at = (at + 1) & (slots_.size() - 1)) {
            if (slots_[at].hash == hash && equal(slots_[at].number))
                return slots_[at].number;
        }
        slots_[at] = {next, hash};
        return next;
    }

  private:
    struct slot {
        ::osg::UInt32 number = no_number;
        ::osg::UInt32 hash = 0;
    };

    void grow() {
        std::vector<slot> old(slots_.size() * 2);
        old.swap(slots_);
        for (const slot& entry : old) {
            if (entry.number == no_number)
                continue;
            std::size_t at = entry.hash & (slots_.size() - 1);
            while (slots_[at].number != no_number)
                at = (at + 1) & (slots_.size() - 1);
            slots_[at] = entry;
        }
    }

    std::vector<slot> slots_;
};

/// The bits of a component; of 0 for -0, which counts as equal.
inline std::uint64_t bitsOf(float component) {
    const float without_sign_of_zero = component + 0.0F;
    ::osg::UInt32 bits = 0;
    std::memcpy(&bits, &without_sign_of_zero, sizeof(bits));
    return bits;
}

/// Share of the value of one column, 0 to 4, in a hash over several (multilinear hashing): shares
/// are added, and hashOfSum() finishes.
template <typename Value> std::uint64_t hashShare(const Value& value, std::size_t column) {
    constexpr std::uint64_t odd[10] = {
        0x9E3779B97F4A7C15ULL, 0xC2B2AE3D27D4EB4FULL, 0xD6E8FEB86659FD93ULL, 0xA0761D6478BD642FULL,
        0xE7037ED1A0B428DBULL, 0x8EBC6AF09C88C6E3ULL, 0x589965CC75374CC3ULL, 0x1D8E4E27C47D124FULL,
        0xEB44ACCAB455D165ULL, 0xAEF17502108EF2D9ULL};
    std::uint64_t share = (bitsOf(value[0]) | bitsOf(value[1]) << 32) * odd[2 * column];
    if constexpr (sizeof(Value) == 3 * sizeof(float))
        share += bitsOf(value[2]) * odd[2 * column + 1];
    return share;
}

inline ::osg::UInt32 hashOfSum(std::uint64_t sum) {
    return static_cast<::osg::UInt32>(((sum ^ sum >> 32) * 0x9E3779B97F4A7C15ULL) >> 32);
}

template <typename Value>::osg::UInt32 hashOf(const Value& value) {
    return hashOfSum(hashShare(value, 0));
}

/// Whether no component is greater or smaller than the other's; never so for a NaN.
template <typename Value> bool isEqual(const Value& a, const Value& b) {
    bool equal = a[0] == b[0] && a[1] == b[1];
    if constexpr (sizeof(Value) == 3 * sizeof(float))
        equal = equal && a[2] == b[2];
    return equal;
}

} // namespace morva::osg
