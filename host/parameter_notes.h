#pragma once

// Bad parameters are no errors to the library; the host at least says what it will not do.

#include <string>
#include <vector>

namespace morva::host {

/// One sentence per token that has no effect: not of the form key(value), repeated, or with a
/// key that nobody reads.
std::vector<std::string> parameterNotes(const std::string& parameters);

} // namespace morva::host
