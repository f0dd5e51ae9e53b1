#pragma once

// The direct road of a binary glTF 2.0 file: values go from the file into the scene, once.

#include <string>

#include "model.h"

namespace morva::host {

/// Reads a .glb into `target` if it is one of the plain kind; see glb_outline.h. The scene is the
/// one that the import library's road makes.
///
/// returns  false if it is none, or has a fault of any sort: `target` is as before, and the import
///          library reads it or knows what to say
/// errors   std::bad_alloc
bool readGlb(const std::string& path, model& target);

} // namespace morva::host
