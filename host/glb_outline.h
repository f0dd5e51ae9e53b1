#pragma once

// What a binary glTF 2.0 file is made of, but for the values of its meshes.
//
//     glb_outline outline = outlineOf(document);
//     outline.scene              nodes, materials, images, empty meshes, as the import library
//                                would hand them over
//     outline.primitives[m]      where the values of mesh m lie
//
// The scene is that of the import library so that one road leads on from there: importScene()
// makes nodes and materials of it, whoever read the file. Names, their made-up forms and the order
// in which images are numbered are the import library's, too.

#include <array>
#include <memory>
#include <optional>
#include <vector>

#include <assimp/scene.h>

#include "gltf_document.h"

namespace morva::host {

/// Where the values of a mesh lie. All lists of vertices have as many values as `positions`.
struct glb_primitive {
    unsigned mode = 4;                                       ///< 0 points, 1 lines, 4 triangles
    gltf_accessor positions;                                 ///< 3 floats each
    std::optional<gltf_accessor> normals;                    ///< 3 floats each
    std::optional<gltf_accessor> colors;                     ///< 3 or 4 floats, bytes or shorts
    std::array<std::optional<gltf_accessor>, 4> coordinates; ///< 2 floats each
    std::optional<gltf_accessor> indices;                    ///< packed; none: all in order

    std::size_t cornerCount() const { return indices ? indices->count : positions.count; }
};

struct glb_outline {
    /// The materials are those of the file, in its order, null where no mesh uses them, and the
    /// default one at last.
    std::unique_ptr<aiScene> scene;
    std::vector<glb_primitive> primitives; ///< of each mesh of the scene
};

/// Takes a file apart.
/// errors  host_error for whatever is not of the plain kind: skins, morph targets, animations,
///         lights, texture transforms, compression, sparse or quantised values, images
///         outside of the file, required extensions, material extensions with textures, strips,
///         fans and loops, node graphs that are no trees, and all that the format forbids;
///         std::bad_alloc
glb_outline outlineOf(const gltf_document& document);

} // namespace morva::host
