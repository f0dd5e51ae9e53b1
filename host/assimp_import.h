#pragma once

// From the import library's scene to ours.
//
//     aiNode with a matrix        Transform node    (identity: Group node)
//       mesh 3, mesh 5              Geometry nodes, cores shared by all nodes that use the mesh
//       child                       ...
//     aiNode, identity, one mesh, no children: the Geometry node itself
//
// Nothing is merged, reordered or made up: vertices, faces and materials stay as they are in the
// file; polygons are cut into triangles. Whatever the scene contains, reading it is safe: the
// library runs in a process of its own (import_process.h), and what comes from there is checked.

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterial.h>

#include "model.h"
#include "scene_handover.h"

namespace morva::host {

/// Reads a file with the import library and converts it into `target`. Materials of all files but
/// those of glTF 2.0 get their records.
/// errors  host_error
void importThroughAssimp(const std::string& path, model& target);

/// Hands over a mesh, by its number in the scene. Asked once for each that is drawn, in the order
/// of first use: nodes come before their children, and these in order.
using mesh_source = std::function<std::unique_ptr<handed_mesh>(unsigned mesh)>;

/// Makes the core of a mesh, by its number in the scene, with a set of texture coordinates in
/// front; null if it has no faces.
using core_maker = std::function<::osg::GeometryPtr(unsigned mesh, unsigned coordinate_set)>;

/// Converts a scene of the import library.
///
/// folder   where textures in files are looked for
/// cores    with it, the meshes need a name and a material only: their values are known elsewhere
/// returns  the materials that are drawn, by their number in the scene; null for all others
/// errors   host_error for contents that cannot be a scene: indices out of range, a tree too deep,
///          matrices that are not finite; what `next` and `cores` throw
std::vector<::osg::MaterialRefPtr> importScene(const handed_scene& source,
                                               const std::string& folder, const mesh_source& next,
                                               model& target, const core_maker& cores = {});

/// A material and the set of texture coordinates that its texture wants.
struct imported_material {
    ::osg::MaterialRefPtr material;
    unsigned coordinate_set = 0;
};

/// Converts one material.
///
/// The colours of the scene graph hold more than they show: the alpha of the specular colour,
/// which lighting does not use, is 1 minus the metalness, and the shininess is that of the
/// roughness, so that materials which differ only there stay different and come out again.
imported_material importMaterial(const aiScene& scene, const aiMaterial& source,
                                 const std::string& folder, model& target);

/// Converts one mesh; null if it has no faces. `coordinate_set` becomes the first set.
/// errors  host_error
::osg::GeometryPtr importMesh(const handed_mesh& source, unsigned coordinate_set, model& target);

/// Shininess of a roughness and back; both ends are exact.
float shininessOf(float roughness);
float roughnessOf(float shininess);

} // namespace morva::host
