#include <morva/occlusion/morva_osg_ambient_occlusion.h>

#include <string>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_edits.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_bake.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_prepare.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_stages.h>

namespace morva::osg {

namespace {

/// Of a vertex without a colour.
constexpr float fill_grey = 0.5F;

void replaceByGrey(const vertex_values& baked) {
    const ::osg::GeometryPtr geometry = baked.vertices.geometry();
    const ::osg::RefPtr<::osg::GeoColors3fPtr> made(::osg::GeoColors3f::create());
    made->editField().resize(baked.vertices.size());
    const span<::osg::Color3f> colors = editSpan(made.get());
    for (std::size_t i = 0; i < colors.size(); ++i) {
        const float value = baked.of(i);
        colors[i] = ::osg::Color3f(value, value, value);
    }
    const geometry_edit edit(geometry);
    geometry->setColors(made.get());
    mapWithPositions(geometry, vertex_property::color);
}

void multiplyColors(const vertex_values& baked) {
    const ::osg::GeometryPtr geometry = baked.vertices.geometry();
    const geometry_edit edit(geometry);
    if (geometry->getColors()->getParents().size() > 1)
        geometry->setColors(geometry->getColors()->clone());
    const ::osg::GeoColorsPtr colors = geometry->getColors();
    const open_edit values(colors);
    while (colors->size() < baked.vertices.size())
        colors->addValue(::osg::Color3f(fill_grey, fill_grey, fill_grey));
    changeColors(colors, static_cast<::osg::UInt32>(baked.vertices.size()),
                 [&baked](::osg::Color3f& scaled, ::osg::UInt32 i) {
                     for (unsigned int k = 0; k < 3; ++k)
                         scaled[k] *= baked.of(i);
                 });
}

/// Brings the scene into the form in which it is baked, and lists its geometry.
std::vector<::osg::NodePtr> preparedNodes(const ::osg::NodePtr& root, const ::osg::NodePtr& start,
                                          bool replaceColors) {
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(start, nodes, false);
    if (start == root) // else the one node is the root's stand-in, and is to share its core
        giveOwnCores(nodes);
    prepareAll(nodes, replaceColors);
    for (const ::osg::NodePtr& node : nodes)
        giveSingleIndex(geometryOf(node));
    return nodes;
}

} // namespace

void sayNoRays(int shots) {
    say({"No rays for ", std::to_string(shots), " shots: from ", std::to_string(least_shots),
         " to ", std::to_string(most_shots), " are possible."});
}

void bakeOcclusion(const ::osg::NodePtr& root, bool replaceColors, int shots,
                   unsigned int threads) {
    if (root == ::osg::NullFC)
        return;
    bake_setup setup;
    setup.rays = rayVecsOf(shots);
    if (setup.rays.empty())
        return sayNoRays(shots);
    if (geometryOf(root) != ::osg::NullFC)
        giveOwnCore(root); // before its stand-in holds it, too
    const walk_start start(root);
    const std::vector<::osg::NodePtr> nodes = preparedNodes(root, start.get(), replaceColors);
    const traced_scene scene(start.get());
    setup.distance = diagonalOf(root);
    setup.threads = threads;
    say({"Calc Ambient Occlusion: "});
    std::vector<vertex_values> geometries;
    for (const ::osg::NodePtr& node : nodes) {
        if (geometryOf(node)->getNormals() == ::osg::NullFC)
            giveNewNormals(geometryOf(node));
        geometries.push_back(untraced(node, vertex_view::along_normal));
    }
    bakeAll(geometries, scene.rays(), setup, [replaceColors](const vertex_values& baked) {
        if (replaceColors || baked.vertices.geometry()->getColors() == ::osg::NullFC)
            replaceByGrey(baked);
        else
            multiplyColors(baked);
    });
    say_over_progress({"done."});
}

void AddAmbientOcclusion(::osg::NodePtr root, bool replaceColors, int shots, unsigned int) {
    bakeOcclusion(root, replaceColors, shots, 1);
}

bool saveAOinTC6(::osg::NodePtr node,
                 const osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>& scene,
                 bih_tree<float>& tree, unsigned int shots, double distance, bool) {
    if (geometryOf(node) == ::osg::NullFC || geometryOf(node)->getPositions() == ::osg::NullFC) {
        sayNoPositions();
        return false;
    }
    giveOwnCore(node);
    vertex_values baked = untraced(node, vertex_view::all_around);
    const span<const float3> rays = rayVecsOf(static_cast<int>(shots));
    for (std::size_t i = 0; i < baked.values.size(); ++i) {
        const float3 position = baked.vertices.position(baked.distinct.vertices[i]);
        baked.values[i] = opennessOf(rays, position, {}, distance, occlusion_rays(tree, scene));
    }
    storeInSlot6(baked);
    return true;
}

void saveAOinTC6MT(SAO6Arguments) {}

} // namespace morva::osg
