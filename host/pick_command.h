#pragma once

// `morva pick`: which parts rays hit, in the scene of a file and on request in the result of a run
// on it as well. Writes no file.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include "options.h"
#include "part_lookup.h"

namespace morva::host {

/// Carries the command out. A miss is an answer, no error.
/// errors  host_error
void pick(const options& chosen);

/// The result of a run that writes no file, and its parts.
struct run_result {
    ::osg::NodeRefPtr root;
    result_parts parts;
};

/// Runs the optimiser on a scene, which is taken apart.
///
/// parts   of the scene, named by namedParts() with unique names
/// nodes   the same; must stay as long as the result
/// errors  host_error
run_result optimisedInMemory(const ::osg::NodePtr& root, const std::vector<named_part>& parts,
                             const node_parts& nodes, const std::string& parameters);

} // namespace morva::host
