#pragma once

// Which cells of a model touch.

#include <cstddef>
#include <vector>

#include <morva/tools/morva_osg_model_cells.h>

namespace morva::host {

/// Per cell the numbers of those whose boxes touch its own, be it in a point, ascending. A sweep
/// along one axis: O(n log n) and what stands side by side there.
std::vector<std::vector<std::size_t>>
neighboursOf(const std::vector<morva::osg::model_cell>& cells);

} // namespace morva::host
