#pragma once

// Line order for a post-transform vertex cache, and pieces of bounded index range: what
// morva_osg_cacheopt.h does for triangles, with two ends instead of three corners.
//
// What differs: no line is dropped for its shape; places 0 and 1 of the cache score 0.75; slot 0
// of the texture coordinates is not carried; and once nothing in the cache waits for a line, the
// walk goes on with the first one not drawn.

#include <list>
#include <set>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_single_index.h>

namespace morva::osg {

/// Orders the lines of a geometry node and cuts them into pieces; everything else of the geometry
/// is left out. Arguments as for optimizeCache(), which calls this.
///
/// returns  a new group with one geometry node per piece, without a reference; null for what is
///          no geometry node
/// errors   what is thrown ends the work with a line on standard output
///
/// Lines whose position index leads nowhere are left out; another such index reads as zero.
MORVA_API ::osg::NodePtr optimizeLineCache(::osg::NodePtr geoNode, unsigned int limit,
                                           bool perProperty);

/// A line that waits to be drawn.
struct vcache_line_data {
    float score = -1.0F;    ///< -1 until scored, and once drawn
    unsigned int index = 0; ///< number in the source
    ::osg::Int32 positions[2] = {-1, -1};
    ::osg::Int32 normals[2] = {-1, -1};
    ::osg::Int32 colors[2] = {-1, -1};
    ::osg::Int32 texCoords7[2] = {-1, -1};
    bool drawn = false;
};

/// A position and who still needs it.
struct vlinecache_vertex_data {
    ::osg::Int32 linesLeft = 0;      ///< not drawn yet
    ::osg::Int32 cachePosition = -1; ///< 0 the most recent; -1 outside
    float score = -1.0F;             ///< by FindLineVertexScore()
    ::osg::Int32 lineCount = 0;      ///< drawn ones included
    std::list<unsigned int> lines;   ///< places of those not drawn yet, as they came
};

/// One piece of the result.
struct linedrawlist {
    bool perProperty = false;
    unsigned int limit = 0;             ///< entries at which it counts as full
    std::list<vcache_line_data*> lines; ///< in draw order; owned by the walk
    /// Only if `perProperty`.
    std::set<unsigned int> usedPositions, usedNormals, usedColors, usedTexCoords7;
    std::set<singleIndexStruct> usedCorners; ///< only if not `perProperty`; slot 0 stays -1

    /// Draws the line: appends it, marks it, and enters its indices. Not null.
    MORVA_API void addLine(vcache_line_data* line);
};

/// Scores a vertex from its place and the lines left; stores and returns. Not null.
MORVA_API float FindLineVertexScore(vlinecache_vertex_data* vertex);

/// Scores a line: sum of its ends, and 3 if both are positive. Stores and returns it; a drawn one
/// gives -1 and stays as it is. `line` is a place in range.
MORVA_API float calcLineScore(std::vector<vcache_line_data>& lines,
                              std::vector<vlinecache_vertex_data>& vertices, unsigned int line);

/// calcLineScore() for all lines that wait for a vertex in range.
MORVA_API void calcLineScoreForVertices(std::vector<vcache_line_data>& lines,
                                        std::vector<vlinecache_vertex_data>& vertices,
                                        unsigned int vertex);

/// Chooses the line to draw next: the best one that touches the cache, of equal ones the first
/// found; else, with `flushCache` set, the first not drawn from `lineMarker` on; without one 0.
MORVA_API unsigned int searchHighestScoreLine(std::vector<vcache_line_data>& lines,
                                              std::vector<vlinecache_vertex_data>& vertices,
                                              std::list<unsigned int>& lruList, bool& flushCache,
                                              unsigned long& lineMarker);

} // namespace morva::osg
