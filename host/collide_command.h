#pragma once

#include "options.h"

namespace morva::host {

/// `morva collide`: whether two parts or assemblies of a file touch, and where; on request for many
/// poses of the second. No contact is an answer, no error.
/// errors  host_error
void collide(const options& chosen);

} // namespace morva::host
