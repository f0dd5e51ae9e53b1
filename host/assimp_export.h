#pragma once

// Writes a scene through the import library's exporters: OBJ, PLY, STL, COLLADA.
//
// Meshes hold one kind of primitive, so a core with triangles and lines becomes two. Images go
// beside the file as PNG or JPEG.

#include <string>

#include <OpenSG/OSGNode.h>

#include "image_codec.h"

namespace morva::host {

/// Writes the scene below `root` in the format of the path's extension.
/// What the format does not keep (output_formats.h) is left out.
/// errors   host_error: the disk, or a scene that the format cannot hold
void writeThroughAssimp(const ::osg::NodePtr& root, const image_sources& images,
                        const std::string& path);

} // namespace morva::host
