// The finished tool: one node in, one core out, and a file of it.

#include <morva/tools/morva_osg_simplify.h>

#include <cmath>
#include <cstdint>
#include <string>

#include <OpenSG/OSGSceneFileHandler.h>

#include <morva/core/morva_osg_crease_normals.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_fresh.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_index_rebuild.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_element_index.h>
#include <morva/geosets/morva_osg_extract_options.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/tools/morva_osg_edge_queue.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

constexpr std::size_t edges_between_lines = 10000;

/// A new geometry that shares all properties of another, and its material.
::osg::GeometryPtr sharingAll(const ::osg::GeometryPtr& geometry) {
    fresh<::osg::GeometryPtr> shell(::osg::Geometry::create());
    shell->setTypes(geometry->getTypes());
    shell->setLengths(geometry->getLengths());
    shell->setIndices(geometry->getIndices());
    for (const vertex_property which : all_properties) {
        withProperty(geometry, shell.get(), which,
                     [](const auto& property, const auto& take) { take(property); });
    }
    auto& mapping = *shell->editMFIndexMapping();
    for (const ::osg::UInt16 bits : geometry->getIndexMapping())
        mapping.push_back(bits);
    shell->setMaterial(geometry->getMaterial());
    return shell.release();
}

/// The triangles of a node in a geometry without room to spare, or null if there are none.
::osg::RefPtr<::osg::GeometryPtr> extracted(const ::osg::NodePtr& node) {
    osg_geoset geoset;
    geoset.lean = true;
    extract(node, geoset, false, true, false, true, true);
    if (geoset.size == 0)
        return {};
    return ::osg::RefPtr<::osg::GeometryPtr>(sharingAll(geoset.geometry.get()));
}

/// How many triangles of a core would be left out by an extraction, which is made for all else
/// that it does.
unsigned int leftOutOf(const ::osg::NodePtr& node) {
    osg_geoset geoset;
    geoset.lean = true;
    extract_options options;
    options.search_material = options.clean_texcoords = true;
    return extract(node, geoset, options);
}

/// createSharedIndex() or createSingleIndex() over all properties that there are.
void index(const ::osg::GeometryPtr& geometry, triangle_index form) {
    if (!hasFurtherProperties(geometry))
        return rebuildAsTriangles(geometry, form);
    unindexVertices(geometry);
    indexVertices(geometry, form == triangle_index::per_property);
}

/// Collapses until no more edges than `limit` are left; places and index change in place.
void collapseEdges(span<::osg::Pnt3f> places, span<UInt32> corners, UInt32 limit) {
    const vertex_uses uses(places.size(), corners);
    edge_queue queue(places, corners, uses);
    std::vector<vertex_pair> pairs;
    for (bool more = true; more && queue.edges() > limit; more = queue.findNext()) {
        if (queue.edges() % edges_between_lines == 0)
            say({"Simplify: ", std::to_string(queue.edges())});
        pairs.push_back(queue.collapse());
    }
    for (std::size_t v = 0; v < places.size(); ++v)
        places[v] = queue.place(v);
    const std::vector<UInt32> fate = fates(places.size(), pairs, pairs.size());
    for (UInt32& vertex : corners)
        vertex = fate[vertex];
}

/// Writes a scene for a look at it; nothing depends on it.
void writeAside(const ::osg::NodePtr& node) {
    try {
        ::osg::SceneFileHandler::the().write(node, "simple.osb", false);
    } catch (...) { // a scene file is no part of the result
    }
}

} // namespace

double CalcEdgeCost(::osg::GeometryPtr geometry, unsigned int a, unsigned int b,
                    std::map<unsigned int, unsigned int>& references) {
    double distance = 0;
    const ::osg::GeoPositionsPtr positions =
        geometry == ::osg::NullFC ? ::osg::GeoPositionsPtr() : geometry->getPositions();
    if (positions != ::osg::NullFC && a < positions->size() && b < positions->size())
        distance = distanceBetween(positions->getValue(a), positions->getValue(b));
    const double start = references[a];
    return distance + start + references[b];
}

::osg::GeometryPtr simplifyGeometry(::osg::NodePtr node, unsigned int targetTriangles) {
    if (targetTriangles == 0 || node == ::osg::NullFC)
        return ::osg::NullFC;
    const ::osg::RefPtr<::osg::GeometryPtr> held = extracted(node);
    const ::osg::GeometryPtr geometry = held.get();
    if (geometry == ::osg::NullFC)
        return ::osg::NullFC;
    // Rows of a geoset are spread out to three times what triangles need, unless told otherwise.
    const std::size_t positions = std::size_t{3} * geometry->getPositions()->size();

    index(geometry, triangle_index::common);
    const std::string distinct = std::to_string(geometry->getPositions()->size());
    say({"CreateSingleIndex: ", distinct});
    const auto indices = ::osg::GeoIndicesUI32Ptr::dcast(geometry->getIndices());
    if (indices == ::osg::NullFC) {
        say({"Sorry no index...."});
        return ::osg::NullFC;
    }
    say({"MyRefMap Entries: ", distinct}); // every distinct corner is one of a triangle
    collapseEdges(editSpan(::osg::GeoPositions3fPtr::dcast(geometry->getPositions())),
                  editSpan(indices), targetTriangles * 3);
    say({"simpified"});

    const ::osg::RefPtr<::osg::NodePtr> result(newNodeWith(geometry));
    const unsigned int left_out = leftOutOf(result.get());
    say({"Tris: ", std::to_string(positions)});
    say({"NoTris: ", std::to_string(left_out)});
    say({"extracted"});
    index(geometry, triangle_index::per_property);
    calcCreaseNormals(geometry, crease_angle);
    say({"createsingle done"});
    writeAside(result.get());
    say({"The Return.."});
    fresh<::osg::GeometryPtr> simplified(sharingAll(geometry));
    reportWhole(simplified.get());
    return simplified.release();
}

} // namespace morva::osg
