#pragma once

#include "options.h"

namespace morva::host {

/// `morva simplify`: each drawn part of a file with fewer triangles, at one level or several.
/// errors  host_error
void simplify(const options& chosen);

} // namespace morva::host
