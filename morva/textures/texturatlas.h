#pragma once

// Packs rectangles into one that is about as small as can be: sizes of images in texels, nothing
// of the images themselves.
//
//     +-----------+-------+----+      Shelves, begun with the largest size. Lines of smaller ones
//     |           |   B   | C  |      are stacked on a shelf where its first group is taller. What
//     |     A     +---+---+----+      is left over is kept as free rectangles, joined where they
//     |           | C |  free  |      meet, and filled before the next shelf is opened.
//     +-----------+---+--------+
//
//     texturatlas atlas;
//     atlas.items = {{64, 32}, {16, 16}};
//     atlas.calculate(0);                  atlas.placed tells where each size has gone
//
// Rectangles of one size are all alike, so that the result is asked by size. The same input gives
// the same places. An atlas belongs to one thread.
//
// Method: next-fit decreasing-height shelves with a pool of waste rectangles, after "Performance
// Bounds for Level-Oriented Two-Dimensional Packing Algorithms", Coffman, Garey, Johnson, Tarjan,
// 1980.

#include <cstdint>
#include <list>
#include <map>
#include <vector>

#include <morva/core/morva_export.h>

namespace morva {

/// A size in texels; of a place, x and y.
struct MORVA_API texturinfo {
    std::int32_t width = 0;
    std::int32_t height = 0;
};

/// By height, then by width: sizes from the lowest up. List, pool and result have this order.
inline bool operator<(const texturinfo& a, const texturinfo& b) {
    return a.height != b.height ? a.height < b.height : a.width < b.width;
}
inline bool operator==(const texturinfo& a, const texturinfo& b) {
    return a.width == b.width && a.height == b.height;
}

/// What is to be packed, and how it was. Cleared by the caller between runs: a run adds to what the
/// containers hold, and places groups that are there once more.
struct MORVA_API texturatlas {
    using map = std::multimap<texturinfo, texturinfo>; ///< size to place

    std::int32_t width = 1;       ///< of the result; sides above the largest number are that
    std::int32_t height = 1;      ///< the same
    std::uint64_t itemCount = 0;  ///< length of `items`, for the caller: nothing here reads it
    std::list<texturinfo> items;  ///< what is to be packed, in any order; sorted by calculate()
    std::vector<int> groupCounts; ///< items of each size
    std::vector<texturinfo> groupSizes; ///< distinct sizes, the largest first
    /// An entry per item; equal sizes in the order in which they were placed.
    map placed;
    map freeSpaces; ///< what stayed free

    /// Packs `items`; without any, nothing changes.
    ///
    /// maximumWidth  1 to 8192: no wider, but for items that are wider themselves, which stick out,
    ///               and for items of one size, which come as a grid of their own. Else no limit
    /// errors        std::bad_alloc; all but the order of `items` is then as before
    ///
    /// Sides of 0 take no room. O(n (log n + free rectangles)).
    void calculate(unsigned int maximumWidth);

    /// How many of `count` equal rectangles to put in a row, for about as many rows. From 11 on:
    /// the division that leaves the fewest places empty, then the squarest, with one column more
    /// for sizes above 1 : 2 and one less for those above 2 : 1, by the first of `groupSizes`.
    int calcItemsInRow(int count) const;

    /// Joins free rectangles that share a whole side until none do, each with the first in order,
    /// and drops those without area.
    ///
    /// errors  std::bad_alloc; nothing has changed then
    void combineFreeSpaces();
};

} // namespace morva
