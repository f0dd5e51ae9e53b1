#pragma once

// Writes a scene as glTF 2.0, straight from the scene graph: vertex data goes from the cores to
// the file without a copy where it can.
//
//     .glb    one file
//     .gltf   JSON, and beside it NAME.0123456789abcdef.bin, named by its content: a new pair
//             never shares a file with the one before
//
// With a part table the parts go into the file, see gltf_features.h.
//
// Values that the format does not allow are made valid, see gltf_values.h; all others are written
// as they are.
//
// Hidden subtrees stay out; switches and levels of detail are written as what they show. Cores
// with strips, fans, quads or polygons become triangle lists.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "image_codec.h"
#include "material_record.h"
#include "part_table.h"
#include "view_store.h"

namespace morva::host {

/// Writes the scene below `root`.
///
/// parts    of the scene; null if nothing is known of them
/// records  of its materials; may be null
/// views    of its cores
/// path     ends in .glb or .gltf
/// returns  what was left out or changed, one sentence each
/// errors   host_error: the disk, or more than 4 GiB for .glb
std::vector<std::string> writeGltf(const ::osg::NodePtr& root, const image_sources& images,
                                   const part_table* parts, const material_records* records,
                                   view_store& views, const std::string& path);

} // namespace morva::host
