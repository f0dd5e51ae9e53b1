#pragma once

// How the host fails: whatever finds the reason throws a host_error with a text for the user; the
// command catches it at its border, prints one line and exits with the code.

#include <stdexcept>
#include <string>

namespace morva::host {

enum exit_code : int {
    exit_good = 0,
    exit_failed = 1, ///< files, folders, contents, the audit
    exit_usage = 2   ///< the command line
};

/// A reason to stop, in words for the user: no leading program name, no line end.
class host_error : public std::runtime_error {
  public:
    explicit host_error(const std::string& text, exit_code exit_with = exit_failed)
        : std::runtime_error(text), code(exit_with) {}
    exit_code code;
};

} // namespace morva::host
