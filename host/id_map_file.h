#pragma once

// The ID map file, looked at once it is written.

#include <cstdint>
#include <string>

namespace morva::host {

/// What an ID map file lacks, in words; empty if it is whole. The writer's own errors show only
/// there: a full disk cuts the text short, and without memory the tree stays behind.
///
/// nodes  how many nodes the input tree has: so many the file must tell of, at least
std::string faultOfIdMap(const std::string& path, std::uint64_t nodes);

} // namespace morva::host
