#pragma once

// Simplified parts in their scene: the nodes stay, with their names, materials and places, and get
// other cores.
//
//     bolt            core of triangles            a core that had nothing but triangles
//     frame           core of triangles            one that had lines or points, too: they stay as
//       frame         core of lines and points     they were, in a last child
//
// A core that several nodes had becomes one core for all of them.

#include <cstddef>
#include <vector>

#include "simplify_parts.h"

namespace morva::host {

/// Puts a level in the place of what is there: the source or another level. A part without steps
/// and without degenerate triangles gets its source's core.
/// errors  std::bad_alloc
void showLevel(std::vector<simplified_part>& parts, std::size_t level);

} // namespace morva::host
