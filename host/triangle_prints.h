#pragma once

// Triangles told apart by the bits of their corners, to see which of them came through a stage
// that only changes their order: once, twice or not at all.
//
//     print_list before, after;
//     addPrints(view_of_part, 3, before);   ...   addPrints(view_of_core, 0, after);
//     for (const print_difference& d : comparePrints(before, after)) ...
//
// A print is a hash: the same for the same three points in the same winding, whichever corner
// stands first. Degenerate triangles have none.

#include <cstdint>
#include <vector>

#include "geometry_view.h"
#include "triangle_measures.h"

namespace morva::host {

struct triangle_print {
    std::uint64_t print = 0;
    std::uint32_t part = 0; ///< whose triangle it is
};

using print_list = std::vector<triangle_print>;

/// What happened to the triangles of a part.
struct print_difference {
    std::uint32_t part = 0;
    std::uint64_t again = 0; ///< came out more often than they went in
    std::uint64_t lost = 0;
};

/// Where a triangle must not be degenerate to have a print.
enum class sound_where { where_it_is, in_own_space_too };

/// Appends the prints of a core's triangles, in the core's own space or moved.
void addPrints(const geometry_view& view, std::uint32_t part, print_list& prints,
               const placement* to = nullptr, sound_where sound = sound_where::where_it_is);

/// How many prints of `after` are not in `before`, each of which serves once. O(n log n).
std::uint64_t countStrangers(print_list before, print_list after);

/// One entry per part of `before` with a difference, in part order. Prints that are not in
/// `before` do not count; the part numbers of `after` are not read. O(n log n).
std::vector<print_difference> comparePrints(print_list before, print_list after);

} // namespace morva::host
