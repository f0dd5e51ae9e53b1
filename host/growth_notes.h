#pragma once

// Why an output takes more than its input where nothing went wrong.

#include <string>
#include <vector>

#include <morva/driver/morva_osg_run_plan.h>

#include "statistics.h"

namespace morva::host {

/// One sentence where bytes or cache misses have grown and bounded cores are why; else none.
std::vector<std::string> growthNotes(const scene_statistics& before, const scene_statistics& after,
                                     const morva::osg::run_plan& plan);

} // namespace morva::host
