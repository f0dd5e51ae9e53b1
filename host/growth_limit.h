#pragma once

// Small files that become large scenes: instances that are drawn a million times, images that
// repeat so often that cutting at their borders makes new triangles.

#include "options.h"
#include "statistics.h"

namespace morva::host {

/// errors  host_error: more triangles are drawn than a merge can hold in the memory that the run
///         may take. Cores that nodes share count as often as they are drawn.
void refuseBomb(const scene_statistics& before, const options& chosen);

/// errors  host_error: more triangles are drawn than `most` times those before
void refuseGrowth(const scene_statistics& before, const scene_statistics& after, double most);

} // namespace morva::host
