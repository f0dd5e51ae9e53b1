#pragma once

// Writes a scene through the import library's exporters: OBJ, PLY, STL, COLLADA and the others
// that it knows.
//
// Meshes hold one kind of primitive, so a core with triangles and lines becomes two. Images go
// beside the file as PNG or JPEG.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "image_codec.h"

namespace morva::host {

/// Extensions that writeThroughAssimp() can write.
std::vector<std::string> assimpExtensions();

/// Writes the scene below `root` in the format of the path's extension.
/// returns  what the format has no place for and was left out, one sentence each
/// errors   host_error: the disk, or a scene that the format cannot hold
std::vector<std::string> writeThroughAssimp(const ::osg::NodePtr& root, const image_sources& images,
                                            const std::string& path);

} // namespace morva::host
