#pragma once

// Where the nodes of a glTF file stand, by the file's own numbers.

#include <assimp/scene.h>

#include "gltf_document.h"

namespace morva::host {

/// The matrix that a node tells, or translation times rotation times scale: multiplied in single
/// precision, in the order in which the import library multiplies those of glTF 2.0.
/// errors  host_error: lists of other lengths, or of what is no number
aiMatrix4x4 nodeMatrix(const nlohmann::json& node);

/// Sets the matrices of a glTF 1.0 file's nodes anew: the import library turns and stretches what
/// it has moved already. Its nodes are named by their keys in the file. Other versions, and nodes
/// whose numbers cannot be read, stay as they are.
void placeOldNodes(const gltf_document& document, aiNode& root);

} // namespace morva::host
