#pragma once

// Which source part the triangles of a .glb or .gltf file came from, told by the file itself:
//
//     EXT_mesh_features          `_FEATURE_ID_0` of a vertex is a row of the part table
//     EXT_structural_metadata    the table: name, path and box of each part
//
//     const model read = readModel("out.glb");
//     const feature_ids features = readFeatureIds("out.glb", read);
//     const part_row* part = features.partOf(node, triangle, corner);
//
// Any number of threads may ask.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "model.h"
#include "part_table.h"

namespace morva::host {

class feature_ids {
  public:
    /// Whether the file tells nothing of parts.
    bool empty() const { return parts_.empty(); }
    /// The rows of the part table.
    const std::vector<part_row>& parts() const { return parts_; }

    /// The part that a corner of a triangle belongs to, or null if the file names none.
    ///
    /// node      a geometry node of the model that was read with the file
    /// triangle  its number in the core, from 0, in the order of the core's triangles
    /// corner    0 to 2
    const part_row* partOf(const ::osg::NodePtr& node, std::size_t triangle,
                           unsigned corner = 0) const;

  private:
    friend feature_ids readFeatureIds(const std::string& path, const model& read);

    std::vector<part_row> parts_;
    /// By the core's container: the row of each corner of its triangles, or `no_row`.
    std::map<::osg::UInt32, std::vector<std::uint32_t>> rows_;
    /// By the node's container: the row whose path is its name in the file.
    std::map<::osg::UInt32, std::uint32_t> row_of_node_;
};

/// Reads the part table of a file and the rows of its vertices.
///
/// path     of the file; one that is no .glb or .gltf, or has no part table, gives an empty result
/// read     the scene that readModel() made of it, as it came
/// errors   host_error: the file cannot be read, or is damaged where it tells of parts
feature_ids readFeatureIds(const std::string& path, const model& read);

} // namespace morva::host
