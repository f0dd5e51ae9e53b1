#pragma once

// The import library's scene on its way to another process. What is sent is what the host makes use
// of: nodes, meshes, materials, embedded textures, and counts of what it names as left out. Bones,
// morph targets, animations, cameras, lights and metadata stay behind.
//
// Faces arrive as one list of indices for each kind: the library has an array for each face.

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <assimp/mesh.h>
#include <assimp/scene.h>

#include "byte_pipe.h"

namespace morva::host {

/// The faces of a mesh as index lists, sorted by kind, in the order of the file.
struct face_lists {
    std::vector<std::uint32_t> triangles, lines, points;
    std::vector<std::uint32_t> polygons;        ///< corners of all polygons, end to end
    std::vector<std::uint32_t> polygon_lengths; ///< of each polygon, above 3
    std::size_t size() const {
        return triangles.size() + lines.size() + points.size() + polygons.size();
    }
    std::uint32_t highest() const;
};

/// errors  host_error: there is no such vertex
void checkIndex(const aiMesh& mesh, std::uint32_t index);

/// Checks each face of a mesh. errors  the same, and for arrays that are not there
void checkFaces(const aiMesh& mesh);

/// What the scene holds that nothing is made of.
struct left_out {
    unsigned animations = 0, cameras = 0, lights = 0;
    unsigned skins = 0;  ///< meshes with bones
    unsigned morphs = 0; ///< meshes with morph targets
};

/// What is to be said of that, one sentence each.
std::vector<std::string> notesOn(const left_out& rest);

/// A scene as it arrives: well formed, but with values as they were.
struct handed_scene {
    std::unique_ptr<aiScene> scene; ///< its meshes are to come
    unsigned meshes = 0;            ///< how many it has
    left_out rest;
    std::vector<std::string> files; ///< opened for it
};

struct handed_mesh {
    aiMesh mesh; ///< without faces of its own
    face_lists faces;
};

/// Sends a scene, and after it each mesh that a node uses, in the order of first use: nodes come
/// before their children, and these in order.
///
/// files   opened for the scene
/// errors  host_error, sent as well, for contents that cannot be a scene: null arrays, a node tree
///         that is no tree or too deep, meshes that are not there. Indices are not checked
void sendScene(const aiScene& scene, const std::set<std::string>& files, pipe_writer& out);

/// Sends why there is nothing to come.
void sendFailure(const std::string& reason, pipe_writer& out);

/// Sends that memory ran out.
void sendShortage(pipe_writer& out);

/// errors  pipe_ended; host_error with the reason that was sent; std::bad_alloc if memory ran out
///         here or there
handed_scene receiveScene(pipe_reader& in);

/// The next mesh. errors  the same
std::unique_ptr<handed_mesh> receiveMesh(pipe_reader& in);

} // namespace morva::host
