#pragma once

// The values of a mesh as the glTF format allows them. Scenes hold what their files and the
// optimiser say; the format wants more:
//
//     positions     finite. Triangles, lines and points that use another one are left out, as no
//                   viewer can draw them; the position becomes that of a vertex nearby
//     normals       of length 1. One without a direction takes that of the triangles around its
//                   vertex, weighted by their areas, or (0, 0, 1) where there are none
//     colours       0 to 1. What is no number is 1, which leaves the material as it is
//     coordinates   finite, 0 otherwise; and with the origin at the top
//
// Valid values stay as they are, bit for bit, and are not copied but for coordinates.

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "flat_mesh.h"

namespace morva::host {

/// How many values were changed. Positions, normals and coordinates count once per vertex.
struct value_changes {
    std::size_t positions = 0;
    std::size_t lost_triangles = 0, lost_lines = 0, lost_points = 0;
    std::size_t bare_normals = 0;   ///< without a direction
    std::size_t scaled_normals = 0; ///< of another length than 1
    std::size_t colors = 0;         ///< components
    std::size_t coordinates = 0;

    void add(const value_changes& more);
    /// One sentence; empty if nothing was changed.
    std::string text() const;
};

class gltf_values {
  public:
    /// `mesh` must outlive the values and stay where it is. Lists of `mesh` lose what is left out.
    /// Touches plain memory only: any thread may do it.
    explicit gltf_values(flat_mesh& mesh);

    const float* positions() const { return positions_; }
    const float* normals() const { return normals_; }
    const float* colors() const { return colors_; }
    /// Of the sets of two components; empty for all others.
    const std::vector<float>& coordinates(std::size_t set) const { return coordinates_[set]; }
    /// Bounds of the positions.
    const std::array<float, 3>& low() const { return low_; }
    const std::array<float, 3>& high() const { return high_; }
    const value_changes& changes() const { return changes_; }

  private:
    void measure();
    void mendPositions(flat_mesh& mesh);
    void mendNormals(const flat_mesh& mesh);
    void mendColors(const flat_mesh& mesh);
    void turnCoordinates(const flat_mesh& mesh);

    const float* positions_ = nullptr;
    const float* normals_ = nullptr;
    const float* colors_ = nullptr;
    std::size_t count_ = 0; ///< of vertices
    std::vector<float> new_positions_, new_normals_, new_colors_;
    std::vector<float> coordinates_[flat_mesh::written_sets];
    std::array<float, 3> low_{}, high_{};
    bool finite_ = true;
    value_changes changes_;
};

} // namespace morva::host
