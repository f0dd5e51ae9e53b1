#pragma once

// The parts in a glTF file: which one each vertex belongs to, and what is known of it.
//
//     primitive      attributes  _FEATURE_ID_0                 a row of the table per vertex
//                    extensions  EXT_mesh_features             where the rows are
//     file           extensions  EXT_structural_metadata       the table
//
//     table, class "part"        name      STRING              absent if no part has one
//                                path      STRING
//                                boxMin    VEC3 of FLOAT32     above boxMax: none known
//                                boxMax    VEC3 of FLOAT32

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <OpenSG/OSGNode.h>

#include "flat_mesh.h"
#include "gltf_buffer.h"
#include "part_table.h"

namespace morva::host {

class gltf_features {
  public:
    /// With a null table nothing is added.
    gltf_features(gltf_buffer& buffer, const part_table* parts) : buffer_(buffer), parts_(parts) {}

    /// The set of texture coordinates of a node's core that holds IDs and no coordinates; -1 for
    /// none.
    int setOf(const ::osg::NodePtr& node) const;
    /// Adds the rows of a core's vertices to its primitives, all of which share the attributes.
    void addTo(nlohmann::json& primitives, const flat_mesh& mesh, const ::osg::GeometryPtr& core);
    /// Adds the table and the names of the extensions to the file's JSON, if there are parts.
    void addTo(nlohmann::json& file) const;
    /// What was left out, one sentence each.
    std::vector<std::string> notes() const;

  private:
    /// Whether the IDs are few enough to be told apart.
    bool fits() const { return parts_->rows.size() <= gltf_buffer::exact_rows; }
    /// The row of no part.
    std::uint32_t none() const { return static_cast<std::uint32_t>(parts_->rows.size()); }
    std::vector<std::uint32_t> rowsOf(const flat_mesh& mesh, const ::osg::GeometryPtr& core) const;

    gltf_buffer& buffer_;
    const part_table* parts_;
    std::vector<std::uint32_t> last_mesh_; ///< per row: number of the last mesh that has it
    std::uint32_t meshes_ = 0;             ///< that carry rows
};

} // namespace morva::host
