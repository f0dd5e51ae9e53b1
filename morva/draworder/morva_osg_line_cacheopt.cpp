#include <morva/draworder/morva_osg_line_cacheopt.h>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_draw_pieces.h>
#include <morva/draworder/morva_osg_list_steps.h>

namespace morva::osg {

float FindLineVertexScore(vlinecache_vertex_data* vertex) {
    vertex->score = vertexScore<line_rules>(vertex->linesLeft, vertex->cachePosition);
    return vertex->score;
}

float calcLineScore(std::vector<vcache_line_data>& lines,
                    std::vector<vlinecache_vertex_data>& vertices, unsigned int line) {
    return detail::scoreElement<line_rules>(lines[line], vertices);
}

void calcLineScoreForVertices(std::vector<vcache_line_data>& lines,
                              std::vector<vlinecache_vertex_data>& vertices, unsigned int vertex) {
    for (const unsigned int line : vertices[vertex].lines)
        calcLineScore(lines, vertices, line);
}

unsigned int searchHighestScoreLine(std::vector<vcache_line_data>& lines,
                                    std::vector<vlinecache_vertex_data>& vertices,
                                    std::list<unsigned int>& lruList, bool& flushCache,
                                    unsigned long& lineMarker) {
    flushCache = false;
    float best = -2.0F;
    unsigned int place = 0;
    bool taken = false;
    for (const unsigned int vertex : lruList)
        taken = detail::takeBest(lines, vertices[vertex].lines, best, place) || taken;
    if (taken)
        return place;
    flushCache = detail::findUndrawn(lines, lineMarker);
    return flushCache ? static_cast<unsigned int>(lineMarker) : 0;
}

void linedrawlist::addLine(vcache_line_data* line) {
    lines.push_back(line);
    detail::enterDrawn(*line, *this);
}

::osg::NodePtr optimizeLineCache(::osg::NodePtr geoNode, unsigned int limit, bool perProperty) {
    if (geoNode == ::osg::NullFC)
        return ::osg::NullFC;
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(geoNode->getCore());
    if (geometry == ::osg::NullFC)
        return ::osg::NullFC;
    detail::joinCorners(geometry);
    return detail::piecesOf<line_rules>(geoNode, limit, perProperty, createLineGeo);
}

} // namespace morva::osg
