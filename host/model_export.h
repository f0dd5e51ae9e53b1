#pragma once

// A scene to a model file, by extension: .glb and .gltf by the writer of the host, .osb by the
// scene graph, everything else through the import library.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "image_codec.h"
#include "material_record.h"
#include "part_table.h"
#include "view_store.h"

namespace morva::host {

/// Whether a path has an extension that writeModel() can write.
bool canWrite(const std::string& path);

/// Whether files of this extension hold what material records say.
bool keepsRecords(const std::string& extension);

/// The extensions that can be written, "assbin, collada, ...".
std::string writableExtensions();

/// Writes the scene below `root`; files that belong to it go beside it.
/// parts    for formats that tell of parts; null if nothing is known of them
/// records  of the materials, for formats that have a place for them; null if there are none
/// views    of its cores, if there are some already
/// returns  what the format has no place for and was left out, one sentence each
/// errors   host_error
std::vector<std::string> writeModel(const ::osg::NodePtr& root, const image_sources& images,
                                    const std::string& path, const part_table* parts = nullptr,
                                    const material_records* records = nullptr,
                                    view_store* views = nullptr);

} // namespace morva::host
