#pragma once

// What a command tells: its answer on standard output, notes on standard error.

#include <string>
#include <string_view>
#include <vector>

namespace morva::host {

/// Prints what is to be told on standard output and makes sure that it went out.
/// errors  host_error: it did not, now or before
void tell(const std::string& text);

/// Prints a text on standard error, with "morva: " before each of its lines. Allocates nothing.
void tellError(std::string_view text);

/// Prints one line for each note, if `quiet` is false.
void tellNotes(const std::vector<std::string>& notes, bool quiet);

} // namespace morva::host
