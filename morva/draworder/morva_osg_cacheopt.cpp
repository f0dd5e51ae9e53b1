#include <morva/draworder/morva_osg_cacheopt.h>

#include <iostream>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_new_nodes.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>
#include <morva/draworder/morva_osg_draw_pieces.h>
#include <morva/draworder/morva_osg_line_cacheopt.h>

namespace morva::osg {

namespace {

/// The node's geometry, or null with a line that says why it cannot be optimised.
::osg::GeometryPtr usableGeometry(const ::osg::NodePtr& node) {
    if (node == ::osg::NullFC) {
        std::cout << "Cacheopt Return: geoNode == ::osg::NullFC" << std::endl;
        return ::osg::NullFC;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry == ::osg::NullFC) {
        std::cout << "Cacheopt Return: geo == ::osg::NullFC" << std::endl;
        return ::osg::NullFC;
    }
    if (geometry->getTypes() == ::osg::NullFC || geometry->getTypes()->size() == 0) {
        std::cout << "Cacheopt Return: Empty Type" << std::endl;
        return ::osg::NullFC;
    }
    return geometry;
}

/// Keeps the best of a vertex's triangles; returns whether one was better than `best`.
bool takeBest(const std::vector<vcache_triangle_data>& triangles,
              const std::list<unsigned int>& waiting, float& best, unsigned int& place) {
    bool taken = false;
    for (const unsigned int candidate : waiting) {
        if (!(triangles[candidate].score > best))
            continue;
        best = triangles[candidate].score;
        place = candidate;
        taken = true;
    }
    return taken;
}

} // namespace

float FindVertexScore(vcache_vertex_data* vertex) {
    vertex->score = vertexScore<triangle_rules>(vertex->trianglesLeft, vertex->cachePosition);
    return vertex->score;
}

float calcTriangleScore(std::vector<vcache_triangle_data>& triangles,
                        std::vector<vcache_vertex_data>& vertices, unsigned int triangle) {
    vcache_triangle_data& of = triangles[triangle];
    if (of.drawn)
        return -1.0F;
    float sum = 0.0F;
    unsigned int positive = 0;
    for (const ::osg::Int32 position : of.positions) {
        const float score = vertices[static_cast<std::size_t>(position)].score;
        sum += score;
        positive += score > 0.0F ? 1 : 0;
    }
    const float bonus[4] = {0.0F, 0.0F, 1.0F, 3.0F};
    of.score = sum + bonus[positive];
    return of.score;
}

void calcTriangleScoreForVertices(std::vector<vcache_triangle_data>& triangles,
                                  std::vector<vcache_vertex_data>& vertices, unsigned int vertex) {
    for (const unsigned int triangle : vertices[vertex].triangles)
        calcTriangleScore(triangles, vertices, triangle);
}

unsigned int nextTriangleFromSearchMarker(std::vector<vcache_triangle_data>& triangles,
                                          unsigned long& triangleMarker) {
    for (unsigned long i = triangleMarker; i < triangles.size(); ++i) {
        if (triangles[i].drawn)
            continue;
        triangleMarker = i;
        return static_cast<unsigned int>(i);
    }
    return 0;
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
        taken = takeBest(triangles, vertices[vertex].triangles, best, place) || taken;
    if (taken)
        return place;
    if (vertexMarker < vertices.size() && vertices[vertexMarker].trianglesLeft > 0 &&
        takeBest(triangles, vertices[vertexMarker].triangles, best, place)) {
        // The number, not the place: what stands there may be any triangle, or none.
        return triangles[place].index;
    }
    flushCache = true;
    return nextTriangleFromSearchMarker(triangles, triangleMarker);
}

void drawlist::addTriangle(vcache_triangle_data* triangle) {
    triangles.push_back(triangle);
    triangle->drawn = true;
    triangle->score = -1.0F;
    for (unsigned int k = 0; k < 3; ++k) {
        if (!perProperty) {
            usedCorners.insert({triangle->positions[k], triangle->normals[k], triangle->colors[k],
                                triangle->texCoords[k], triangle->texCoords7[k]});
            continue;
        }
        usedPositions.insert(static_cast<unsigned int>(triangle->positions[k]));
        usedNormals.insert(static_cast<unsigned int>(triangle->normals[k]));
        usedColors.insert(static_cast<unsigned int>(triangle->colors[k]));
        usedTexCoords.insert(static_cast<unsigned int>(triangle->texCoords[k]));
        usedTexCoords7.insert(static_cast<unsigned int>(triangle->texCoords7[k]));
    }
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
        bool aboveLimit = false;
        fresh<::osg::NodePtr> made(optimizeCache(nodes[i], aboveLimit, limit, perProperty));
        if (made.get() != ::osg::NullFC)
            addChildTo(result.get(), made.get());
        made.release();
        const std::streamsize precision = std::cout.precision(4);
        std::cout << '\r' << 100.0 * static_cast<double>(i) / static_cast<double>(nodes.size())
                  << "% ";
        std::cout.precision(precision);
    }
    return result.release();
}

} // namespace morva::osg
