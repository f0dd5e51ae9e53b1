#pragma once

#include <cstddef>

#include "OpenSG/OSGConfig.h"

OSG_BEGIN_NAMESPACE

/// Place of an element for which `matches(place)` holds, or `count`. Looks at both ends in turn:
/// lists of parents and children are mostly taken apart from one of them.
template <class Matches>
std::size_t osgFindFromBothEnds(std::size_t count, const Matches& matches) {
    for (std::size_t low = 0, high = count; low < high; ++low) {
        if (matches(low))
            return low;
        --high;
        if (matches(high))
            return high;
    }
    return count;
}

OSG_END_NAMESPACE
