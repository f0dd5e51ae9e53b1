#include <morva/occlusion/morva_osg_ambient_occlusion_bake.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_property_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_work.h>

namespace morva::osg {

vertex_values untraced(const ::osg::NodePtr& node, vertex_view view) {
    vertex_values result{world_vertices(node), {}, {}};
    // Where the space of a geometry is the world, all vertices at a place have the value of the
    // first one there, whatever their normals are.
    result.distinct = result.vertices.distinctOnes(view == vertex_view::along_normal &&
                                                   !result.vertices.isInWorld());
    result.values.resize(result.distinct.vertices.size());
    return result;
}

void bakeAll(std::vector<vertex_values>& geometries, const occlusion_rays& scene,
             const bake_setup& setup, const std::function<void(const vertex_values&)>& take) {
    work_progress progress;
    vertex_work work;
    for (const vertex_values& one : geometries)
        work.counts.push_back(one.values.size());
    work.piece = [&](std::size_t geometry, std::size_t first, std::size_t last) {
        vertex_values& own = geometries[geometry];
        occlusion_rays trace = scene;
        for (std::size_t i = first; i < last; ++i) {
            const std::size_t vertex = own.distinct.vertices[i];
            const float3 normal =
                setup.view == vertex_view::along_normal ? own.vertices.normal(vertex) : float3();
            own.values[i] = opennessOf(setup.rays, own.vertices.position(vertex), normal,
                                       setup.distance, trace);
        }
    };
    work.end = [&](std::size_t geometry) {
        vertex_values& own = geometries[geometry];
        if (!own.vertices.hasPositions())
            return sayNoPositions();
        take(own);
        own.values = {};
        own.distinct = {};
        progress.sayEnd(geometry, geometries.size());
    };
    doInOrder(work, setup.threads, progress);
}

void storeInSlot6(const vertex_values& baked) {
    const ::osg::GeometryPtr geometry = baked.vertices.geometry();
    const ::osg::RefPtr<::osg::GeoTexCoords1fPtr> made(::osg::GeoTexCoords1f::create());
    made->editField().resize(baked.vertices.size());
    const span<::osg::Real32> values = editSpan(made.get());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i] = baked.of(i);
    const geometry_edit edit(geometry);
    geometry->setTexCoords6(made.get());
    mapWithPositions(geometry, vertex_property::texcoords6);
}

void sayNoPositions() { say({"Positions are NullFC. Skipping this Geometry."}); }

} // namespace morva::osg
