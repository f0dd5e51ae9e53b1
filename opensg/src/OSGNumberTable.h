#pragma once

#include "OpenSG/OSGBaseTypes.h"

#include <vector>

OSG_BEGIN_NAMESPACE

/// One step of a hash over words.
inline UInt64 osgMixHash(UInt64 hash, UInt64 word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    return hash ^ (hash >> 29);
}

/// An open-addressing table of numbers; what equal means is told by the caller.
class NumberTable {
  public:
    /// entries  how many numbers can come at most
    explicit NumberTable(std::size_t entries) {
        std::size_t size = 16;
        while (size < entries * 2)
            size *= 2;
        _slots.assign(size, Free);
    }
    /// The number that is equal, or `number` itself, which is then entered.
    template <class Equal> UInt32 findOrEnter(UInt64 hash, UInt32 number, const Equal& equal) {
        for (std::size_t i = hash & (_slots.size() - 1);; i = (i + 1) & (_slots.size() - 1)) {
            if (_slots[i] == Free)
                return _slots[i] = number;
            if (equal(_slots[i]))
                return _slots[i];
        }
    }

  private:
    enum : UInt32 { Free = 0xFFFFFFFFu };
    std::vector<UInt32> _slots;
};

OSG_END_NAMESPACE
