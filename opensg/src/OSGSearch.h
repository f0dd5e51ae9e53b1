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

/// Takes one element for which `matches(element)` holds off a list, if there is one.
template <class List, class Matches> void osgEraseFromBothEnds(List& list, const Matches& matches) {
    const std::size_t place =
        osgFindFromBothEnds(list.size(), [&](std::size_t i) { return matches(list[i]); });
    if (place < list.size())
        list.erase(list.begin() + static_cast<std::ptrdiff_t>(place));
}

OSG_END_NAMESPACE
