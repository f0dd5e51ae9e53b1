#pragma once

// What a user should know of a run with occlusion before it starts: how long it takes, and what it
// does that its keys don't tell.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "part_names.h"

namespace morva::host {

/// The parameters of a run with baking that keeps colours and textures, unless they name the key or
/// `replace` asks for grey ones; without baking as they are.
std::string withKeptColors(const std::string& parameters, bool replace);

/// How many rays the baking fires, and about how long that takes, in one sentence; empty without.
std::string bakeEstimate(const ::osg::NodePtr& root, const std::string& parameters);

/// One sentence each on what interior removal, baking and hulls do that their keys don't tell.
std::vector<std::string> bakeNotes(const std::vector<named_part>& parts,
                                   const std::string& parameters);

} // namespace morva::host
