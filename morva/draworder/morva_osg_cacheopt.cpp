#include <morva/draworder/morva_osg_cacheopt.h>

#include <locale>
#include <sstream>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/draworder/morva_osg_draw_pieces.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>
#include <morva/draworder/morva_osg_list_steps.h>

namespace morva::osg {

namespace {

/// The node's geometry, or null with a line that says why it cannot be optimised.
::osg::GeometryPtr usableGeometry(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC) {
        say({"Cacheopt Return: geoNode == ::osg::NullFC"});
        return ::osg::NullFC;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry == ::osg::NullFC) {
        say({"Cacheopt Return: geo == ::osg::NullFC"});
        return ::osg::NullFC;
    }
    if (geometry->getTypes() == ::osg::NullFC || geometry->getTypes()->size() == 0) {
        say({"Cacheopt Return: Empty Type"});
        return ::osg::NullFC;
    }
    return geometry;
}

} // namespace

float FindVertexScore(vcache_vertex_data* vertex) {
    vertex->score = vertexScore<triangle_rules>(vertex->trianglesLeft, vertex->cachePosition);
    return vertex->score;
}

float calcTriangleScore(std::vector<vcache_triangle_data>& triangles,
                        std::vector<vcache_vertex_data>& vertices, unsigned int triangle) {
    return detail::scoreElement<triangle_rules>(triangles[triangle], vertices);
}

void calcTriangleScoreForVertices(std::vector<vcache_triangle_data>& triangles,
                                  std::vector<vcache_vertex_data>& vertices, unsigned int vertex) {
    for (const unsigned int triangle : vertices[vertex].triangles)
        calcTriangleScore(triangles, vertices, triangle);
}

unsigned int nextTriangleFromSearchMarker(std::vector<vcache_triangle_data>& triangles,
                                          unsigned long& triangleMarker) {
    return detail::findUndrawn(triangles, triangleMarker)
               ? static_cast<unsigned int>(triangleMarker)
               : 0;
}

unsigned int searchHighestScoreTriangle(std::vector<vcache_triangle_data>& triangles,
                                        std::vector<vcache_vertex_data>& vertices,
                                        std::list<unsigned int>& lruList, bool& flushCache,
                                        unsigned long& triangleMarker,
                                        unsigned long& vertexMarker) {
    flushCache = false;
    float best = -2.0F;
    unsigned int place = 0;
    bool taken = false;
    for (const unsigned int vertex : lruList)
        taken = detail::takeBest(triangles, vertices[vertex].triangles, best, place) || taken;
    if (taken)
        return place;
    if (vertexMarker < vertices.size() && vertices[vertexMarker].trianglesLeft > 0 &&
        detail::takeBest(triangles, vertices[vertexMarker].triangles, best, place)) {
        // The number, not the place: what stands there may be any triangle, or none.
        return triangles[place].index;
    }
    flushCache = true;
    return nextTriangleFromSearchMarker(triangles, triangleMarker);
}

void drawlist::addTriangle(vcache_triangle_data* triangle) {
    triangles.push_back(triangle);
    detail::enterDrawn(*triangle, *this);
}

::osg::NodePtr optimizeCache(::osg::NodePtr geoNode, bool& aboveLimit, unsigned int limit,
                             bool perProperty) {
    aboveLimit = false;
    const ::osg::GeometryPtr geometry = usableGeometry(geoNode);
    if (geometry == ::osg::NullFC)
        return ::osg::NullFC;

    if (isVertexCountBelowThreshold(geoNode, limit)) {
        detail::joinCorners(geometry);
        const bool mapped = !geometry->getMFIndexMapping()->empty();
        if (!perProperty)
            ::osg::createSingleIndex(geometry);
        if (!perProperty && mapped) // then all properties are rewritten, and its own
            reportWhole(geometry);
        nameGeometry(geoNode, &idmapHandler::getNextGeometryName);
        return geoNode;
    }

    aboveLimit = true;
    const ::osg::UInt32 first_type = geometry->getTypes()->getValue(0);
    if (first_type == 1 || getNumberOfLines(geometry) != 0)
        return optimizeLineCache(geoNode, limit, perProperty);
    if (first_type == 0 || getNumberOfPoints(geometry) != 0)
        return geoNode;
    detail::joinCorners(geometry);
    return detail::piecesOf<triangle_rules>(geoNode, limit, perProperty, createGeo);
}

::osg::NodePtr optimizeCacheForTree(::osg::NodePtr root, unsigned int limit, bool perProperty,
                                    bool dropNormals) {
    fresh<::osg::NodePtr> result(newGroupNode());
    const walk_start start(root);
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(start.get(), nodes, false);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(nodes[i]->getCore());
        if (dropNormals && geometry != ::osg::NullFC) {
            const geometry_edit edit(geometry);
            geometry->setNormals(::osg::NullFC);
        }
        bool above_limit = false;
        fresh<::osg::NodePtr> made(optimizeCache(nodes[i], above_limit, limit, perProperty));
        if (made.get() != ::osg::NullFC)
            addChildTo(result.get(), made.get());
        made.release();
        std::ostringstream share;
        share.imbue(std::locale::classic());
        share.precision(4);
        share << 100.0 * static_cast<double>(i) / static_cast<double>(nodes.size());
        say_progress(i, nodes.size(), {"\r", share.str(), "% "}, flush::no);
    }
    return result.release();
}

} // namespace morva::osg
