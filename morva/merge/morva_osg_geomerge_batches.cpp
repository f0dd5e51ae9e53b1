// One merge group: its nodes poured into geosets, a batch at a time, and cut into cores.

#include <morva/merge/morva_osg_geomerge.h>

#include <algorithm>
#include <cstdint>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>
#include <morva/geosets/morva_osg_splitmodel.h>
#include <morva/geosets/morva_osg_stage_errors.h>
#include <morva/merge/morva_osg_geomerge_stages.h>
#include <morva/textures/morva_osg_texcoord_form.h>
#include <morva/trees/kd_strategies.h>

namespace morva::osg {

namespace {

/// Coordinates beyond this many repetitions of the image keep their fraction alone.
constexpr int wrap_limit = 50;

/// What all batches of a group have in common.
struct batch_setup {
    ::osg::MaterialPtr material;
    const kd_build_setup& kd;
    const mergeGeo_setup& setup;
    std::uint64_t limit = 0; ///< elements of one batch
    primitive_sums sums;
    ::osg::NodePtr out; ///< takes the batch nodes in
};

/// `value` cut to an integer; what is too large for the room of a geoset becomes the largest.
std::uint64_t cut(float value) {
    return value < 4294967040.0F ? static_cast<std::uint64_t>(value) : 4294967040U;
}

template <typename Geoset> void giveMaterial(Geoset& geoset, const batch_setup& batch) {
    if (batch.material != ::osg::NullFC)
        geoset.geometry->setMaterial(batch.material);
}

// Room for a whole batch, in vertices. The fields do not exist yet: extraction makes them of
// this length, so that they grow once. A batch ends with the node that takes it over the limit;
// a fifth more room lets most such nodes in without growing.

void prepare(osg_geoset& geoset, const batch_setup& batch) {
    const bool one_batch = batch.sums.triangles <= batch.limit;
    const std::uint64_t vertices =
        one_batch ? 3 * batch.sums.triangles : cut(static_cast<float>(batch.limit) * 1.2F * 3.0F);
    geoset.vertex_capacity = vertices;
    giveMaterial(geoset, batch);
}

void prepare(osg_line_geoset& geoset, const batch_setup& batch) {
    const bool one_batch = batch.sums.lines <= batch.limit;
    geoset.setWishedSize(one_batch ? 2 * batch.sums.lines
                                   : 2 * cut(static_cast<float>(batch.limit) * 1.2F));
    giveMaterial(geoset, batch);
}

void prepare(osg_point_geoset& geoset, const batch_setup& batch) {
    geoset.setWishedSize(std::min(batch.limit, batch.sums.points));
    giveMaterial(geoset, batch);
}

/// True if the geoset holds more than one batch, or the rest of the group.
bool isDue(std::uint64_t vertices, unsigned int corners, bool last, std::uint64_t limit) {
    return vertices / corners > limit || (last && vertices > 0);
}

/// Sorts what a geoset holds. Making cores needs no extents.
void sort(osg_geoset& geoset, kd_tree<float>& tree, const batch_setup& batch) {
    geoset.setup();
    if (batch.setup.optimizetc > 0)
        optimizeTexCoords(geoset, batch.setup.optimizetc, wrap_limit, repeatsOf(batch.material));
    compile(geoset, tree, batch.kd, kd_strategy_ObjMedian());
    geoset.dropExtents();
}

template <typename Geoset>
void sort(Geoset& geoset, kd_tree<float>& tree, const batch_setup& batch) {
    geoset.setup();
    compile(geoset, tree, batch.kd, kd_strategy_ObjMedian());
}

template <typename Geoset>
::osg::NodePtr cores(Geoset& geoset, const kd_tree<float>& tree, const batch_setup& batch) {
    return Split(tree, geoset, 0, 0, batch.kd.max_elements, ::osg::NodePtr(), batch.setup.opt,
                 batch.setup.calcnormals);
}

::osg::NodePtr cores(osg_point_geoset& geoset, const kd_tree<float>& tree,
                     const batch_setup& batch) {
    return Make_N_GeometryCores(tree, geoset, 0, 0, batch.kd.max_elements, batch.setup.opt,
                                batch.setup.calcnormals);
}

/// Turns what the geoset holds into a batch node, and empties it for the next batch.
template <typename Geoset> void flush(Geoset& geoset, const batch_setup& batch) {
    fresh<::osg::NodePtr> node(newGroupNode());
    kd_tree<float> tree;
    sort(geoset, tree, batch);
    fresh<::osg::NodePtr> made(cores(geoset, tree, batch));
    addChildTo(node.get(), made.get());
    made.release();
    addChildTo(batch.out, node.get());
    node.release();
    geoset.clear();
    prepare(geoset, batch);
}

/// As flush(); a point batch that fails is lost alone.
void flushPoints(osg_point_geoset& geoset, const batch_setup& batch) {
    try {
        flush(geoset, batch);
        return;
    } catch (...) {
        printSetupError();
    }
    geoset.clear();
    prepare(geoset, batch);
}

void pour(const std::vector<::osg::NodePtr>& nodes, const batch_setup& batch) {
    osg_geoset triangles;
    osg_line_geoset lines;
    osg_point_geoset points;
    triangles.lean = true; // large batches, and several of them at once
    prepare(triangles, batch);
    prepare(lines, batch);
    prepare(points, batch);

    extract_options wanted;
    wanted.to_world = batch.setup.toworld;
    wanted.search_material = batch.material != ::osg::NullFC;
    wanted.write_ids = !batch.setup.idmap.empty();
    wanted.clean_texcoords = batch.setup.deleteunusedtc;
    for (const ::osg::NodePtr& node : nodes) {
        const bool last = &node == &nodes.back();
        extract(node, triangles, wanted);
        extract(node, lines, wanted);
        extract(node, points, wanted);
        if (isDue(triangles.vertex_count, 3, last, batch.limit))
            flush(triangles, batch);
        if (isDue(lines.vertex_count, 2, last, batch.limit))
            flush(lines, batch);
        if (isDue(points.vertex_count, 1, last, batch.limit))
            flushPoints(points, batch);
    }
}

} // namespace

primitive_sums sumPrimitives(const std::vector<::osg::NodePtr>& nodes) {
    primitive_sums sums;
    for (const ::osg::NodePtr& node : nodes) {
        if (node == ::osg::NullFC)
            continue;
        const ::osg::GeometryPtr core = ::osg::GeometryPtr::dcast(node->getCore());
        sums.triangles += offerOf(core, 3).room;
        sums.lines += offerOf(core, 2).room;
        sums.points += offerOf(core, 1).room;
    }
    return sums;
}

::osg::NodePtr mergeGeometryInVector(::osg::MaterialPtr material,
                                     const std::vector<::osg::NodePtr>& nodes,
                                     const kd_build_setup& kd, const mergeGeo_setup& setup,
                                     unsigned int limit) {
    if (nodes.empty())
        return ::osg::NullFC;
    fresh<::osg::NodePtr> out(newGroupNode());
    batch_setup batch{material, kd, setup, limit, sumPrimitives(nodes), out.get()};
    if (batch.sums.triangles == 0 && batch.sums.lines == 0 && batch.sums.points == 0) {
        say({"Empty Geometry, no primitives found. "});
    }
    pour(nodes, batch);
    return out.release();
}

} // namespace morva::osg
