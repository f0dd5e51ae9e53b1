#pragma once

// `morva divide`: a model as cells, each in a file of its own, with a manifest of all of them.

#include "options.h"

namespace morva::host {

/// As many files as a folder is given.
constexpr std::size_t most_cells = 100000;

/// Carries the command out.
/// errors  host_error
void divide(const options& chosen);

} // namespace morva::host
