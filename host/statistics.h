#pragma once

// What a scene costs to draw and to keep: the figures of the table and of the report.
//
//     scene_statistics before = measureScene(root);
//     optTree(...)
//     scene_statistics after = measureScene(result);
//
// Drawn things count once per node that draws them (triangles, lines, points, draw calls), stored
// things once per core (vertices, index entries, bytes). What a viewer would not show is counted
// only among the nodes.

#include <cstdint>
#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "geometry_view.h"
#include "view_store.h"

namespace morva::host {

struct scene_statistics {
    std::uint64_t nodes = 0;
    std::uint64_t levels = 0;         ///< nodes on the longest way down, the root included
    std::uint64_t leaves = 0;         ///< nodes without children
    std::uint64_t draw_calls = 0;     ///< nodes that draw a core
    std::uint64_t geometry_cores = 0; ///< different cores among them
    std::uint64_t materials = 0;      ///< different material objects in use, equal or not
    std::uint64_t textures = 0;       ///< different image objects in use
    std::uint64_t triangles = 0;
    std::uint64_t lines = 0;
    std::uint64_t points = 0;
    std::uint64_t vertices = 0; ///< different sets of indices that corners use; 0 if unmeasured
    std::uint64_t index_entries_16 = 0;
    std::uint64_t index_entries_32 = 0;
    double acmr = 0.0; ///< cache misses per triangle of the cores; 0 if unmeasured or none
    std::uint64_t geometry_bytes = 0; ///< of all vertex and index properties
    std::uint64_t faulty_cores = 0;   ///< cores that cannot be drawn: indices out of range
};

/// What is measured: what can be counted along the primitives, or besides what takes a look at
/// every vertex, which is most of the time.
enum class measure { counts, all };

/// Measures a scene. O(corners), on up to four threads.
///
/// views  of its cores, for who looks at them next; may be null
scene_statistics measureScene(const ::osg::NodePtr& root, measure what = measure::all,
                              view_store* views = nullptr);

/// errors  host_error: the scene, read from `path`, has cores that cannot be drawn
void refuseFaults(const scene_statistics& scene, const std::string& path);

/// Misses of a cache of 32 vertices, least recently used first out, over the triangles of a core
/// drawn once, from an empty cache. `vertex_of_corner` numbers the corners' vertices.
std::uint64_t countCacheMisses(const geometry_view& view,
                               const std::vector<std::uint32_t>& vertex_of_corner,
                               std::uint32_t vertex_count);

} // namespace morva::host
