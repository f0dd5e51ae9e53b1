#pragma once

// A model file as a scene, and what the host knows of it beside the scene graph.

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include "image_codec.h"
#include "material_record.h"

namespace morva::host {

struct model {
    ::osg::NodeRefPtr root;   ///< never null after reading, never a geometry node itself
    image_sources images;     ///< files of the images
    material_records records; ///< what the materials say beyond the scene
    std::vector<::osg::MaterialRefPtr> materials; ///< by their number in the file; null: unused
    std::map<std::string, ::osg::ImageRefPtr> images_by_name; ///< those read so far
    std::vector<std::string> notes;      ///< what was left out or looks wrong, one sentence each
    std::uint64_t loose_points = 0;      ///< vertices of meshes left out for lack of faces
    std::uint64_t file_bytes = 0;        ///< of the file itself, without those it refers to
    std::vector<std::string> files_read; ///< the file itself and all others opened for it
};

/// Reads a model file by its extension: .osb through the scene graph, everything else through
/// the import library. No part hangs below a matrix that mirrors (see uprightMirroredParts()).
///
/// errors  host_error: the file is missing, empty, damaged, of an unknown format or holds
///         nothing to draw
model readModel(const std::string& path);

} // namespace morva::host
