#pragma once

// What the import library's materials say beyond what the scene holds, as records.
//
//     normals, normals of the camera, heights that are normals    normalTexture
//     emission                                                    emissiveTexture
//     ambient occlusion, light maps                               occlusionTexture
//     metalness and roughness in one file                         metallicRoughnessTexture
//     coats, transmission                                         extensions, as numbers
//
// glTF has no place for other kinds: specular, opacity, reflection, ...

#include <string>

#include <assimp/scene.h>

#include "model.h"

namespace morva::host {

/// Keeps records for the materials of a scene that `target` was made from. What is left out is
/// noted.
///
/// folder  where textures in files are looked for
void keepLibraryRecords(const aiScene& scene, const std::string& folder, model& target);

} // namespace morva::host
