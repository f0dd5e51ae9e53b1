#pragma once

// What texturatlas::calculate() does, with more to ask for.

#include <cstdint>

#include <morva/textures/texturatlas.h>

namespace morva {

struct packing_rules {
    /// A place that meets an item of this run is not taken: its free rectangle is dropped, or the
    /// line ends before it. Else items may overlap at times, since free rectangles below stacked
    /// lines are as wide as the shelf was at the end of the last line.
    bool apart = false;

    /// Texels around each item, 0 to 64. Places with their borders lie at multiples of the next
    /// power of two, and have such sizes, so that smaller levels of an atlas don't mix items.
    /// Sides of 0 have no border.
    unsigned int padding = 0;
};

/// Packs the items of an atlas. `placed` tells where the items themselves lie, by their own sizes;
/// groups, free rectangles and the sides of the atlas are those with borders.
///
/// atlas         with padding, nothing but items
/// maximumWidth  as for texturatlas::calculate()
/// errors        std::bad_alloc; all but the order of `items` is then as before
void pack(texturatlas& atlas, unsigned int maximumWidth, const packing_rules& rules);

} // namespace morva
