#include <morva/draworder/morva_osg_line_cacheopt.h>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/draworder/morva_osg_draw_pieces.h>

namespace morva::osg {

float FindLineVertexScore(vlinecache_vertex_data* vertex) {
    vertex->score = vertexScore<line_rules>(vertex->linesLeft, vertex->cachePosition);
    return vertex->score;
}

float calcLineScore(std::vector<vcache_line_data>& lines,
                    std::vector<vlinecache_vertex_data>& vertices, unsigned int line) {
    vcache_line_data& of = lines[line];
    if (of.drawn)
        return -1.0F;
    const float a = vertices[static_cast<std::size_t>(of.positions[0])].score;
    const float b = vertices[static_cast<std::size_t>(of.positions[1])].score;
    of.score = a + b;
    if (a > 0.0F && b > 0.0F)
        of.score += 3.0F;
    return of.score;
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
    constexpr float nothing = -2.0F;
    float best = nothing;
    unsigned int place = 0;
    for (const unsigned int vertex : lruList) {
        for (const unsigned int line : vertices[vertex].lines) {
            if (!(lines[line].score > best))
                continue;
            best = lines[line].score;
            place = line;
        }
    }
    if (best != nothing)
        return place;
    for (unsigned long i = lineMarker; i < lines.size(); ++i) {
        if (lines[i].drawn)
            continue;
        flushCache = true;
        lineMarker = i;
        return static_cast<unsigned int>(i);
    }
    return place;
}

void linedrawlist::addLine(vcache_line_data* line) {
    lines.push_back(line);
    line->drawn = true;
    line->score = -1.0F;
    for (unsigned int k = 0; k < 2; ++k) {
        if (!perProperty) {
            usedCorners.insert(
                {line->positions[k], line->normals[k], line->colors[k], -1, line->texCoords7[k]});
            continue;
        }
        usedPositions.insert(static_cast<unsigned int>(line->positions[k]));
        usedNormals.insert(static_cast<unsigned int>(line->normals[k]));
        usedColors.insert(static_cast<unsigned int>(line->colors[k]));
        usedTexCoords7.insert(static_cast<unsigned int>(line->texCoords7[k]));
    }
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
