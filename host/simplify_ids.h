#pragma once

// The parts that a .glb or .gltf tells of, carried through a simplification: which row of its table
// each vertex has goes into the coordinate set of the IDs, and from there into the output.

#include <optional>
#include <string>

#include "model.h"
#include "part_table.h"

namespace morva::host {

/// Enters the rows in the cores of the scene, and returns the table; nothing if the file has none.
///
/// path    of the file that `source` was read from
/// errors  host_error: the file is damaged where it tells of parts
std::optional<part_table> enterParts(const std::string& path, const model& source);

} // namespace morva::host
