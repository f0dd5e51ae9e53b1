#pragma once

// The values of all vertices of some geometries: which have to be traced, and where they go.

#include <functional>
#include <vector>

#include <morva/core/morva_span.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_scene.h>

namespace morva::osg {

/// The values of one geometry.
struct vertex_values {
    world_vertices vertices;
    world_vertices::distinct distinct;
    std::vector<float> values; ///< one per distinct vertex

    float of(std::size_t vertex) const { return values[distinct.number[vertex]]; }
};

/// What a vertex looks at.
enum class vertex_view {
    along_normal, ///< rays lean towards its normal
    all_around,   ///< rays are those of the set
};

/// The vertices of a node, nothing traced yet.
vertex_values untraced(const ::osg::NodePtr& node, vertex_view view);

/// How a list of geometries is traced.
struct bake_setup {
    span<const float3> rays;
    double distance = 0.0; ///< world units
    vertex_view view = vertex_view::along_normal;
    unsigned int threads = 1;
};

/// Traces geometry after geometry, hands the values of each to `take`, and says how far it is. One
/// without positions gets a line instead. Values are dropped once they were taken.
void bakeAll(std::vector<vertex_values>& geometries, const occlusion_rays& scene,
             const bake_setup& setup, const std::function<void(const vertex_values&)>& take);

/// Writes values to the texture coordinates 6 of a geometry.
void storeInSlot6(const vertex_values& baked);

/// What passes say of a geometry without positions.
void sayNoPositions();

} // namespace morva::osg
