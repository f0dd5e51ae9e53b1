#pragma once

// A core as a writer wants it: one set of vertices, one index per corner, every vertex used.
//
// Single-indexed cores that use all their entries pass through without a copy. Cores with several
// indices per corner, or with entries that nothing uses, get vertices by first use.

#include <cstddef>
#include <cstdint>
#include <vector>

#include "geometry_view.h"

namespace morva::host {

/// Values of one attribute, one entry per vertex of the mesh.
struct flat_attribute {
    int components = 0; ///< 0: absent
    const float* values = nullptr;
    std::vector<float> gathered; ///< behind `values` unless they are the core's own
};

struct flat_mesh {
    /// The view must outlive the mesh. `id_set` is the set of coordinates that holds IDs: it comes
    /// out as `ids`; -1 for none.
    explicit flat_mesh(const geometry_view& view, int id_set = -1);

    /// The last set is the library's own, for IDs on their way: it is not written as coordinates.
    static constexpr std::size_t written_sets = geometry_view::coordinate_sets - 1;

    std::size_t vertex_count = 0;
    flat_attribute positions, normals, colors;
    flat_attribute coordinates[written_sets];
    flat_attribute ids;                   ///< the first component counts
    std::vector<std::uint32_t> triangles; ///< three vertices each; empty if `running`
    std::vector<std::uint32_t> lines;     ///< two each; strips and loops cut up
    std::vector<std::uint32_t> points;    ///< one each
    /// The vertices are triangles as they stand, three by three: no index needed.
    bool running = false;
};

} // namespace morva::host
