#pragma once

// Triangle order for a post-transform vertex cache, and pieces of bounded index range.
//
//     bool aboveLimit = false;
//     ::osg::NodePtr better = optimizeCache(node, aboveLimit, 65533, false);
//     parent->replaceChildBy(node, better);           // below the limit it is the node itself
//
// A greedy walk: every vertex has a score, made of its place in a simulated cache of 32 entries,
// the most recently used first, and of how few triangles still need it; the best triangle that
// touches the cache is drawn next. When a piece has `limit` entries in one of its properties the
// next one begins with an empty cache.
//
//     cache    5 9 2 | 7 3 ... 1 |        places 0 1 2 score 0.75, then 1.0 falling to 0
//              just drawn
//
// The walk itself is in morva_osg_cache_walk.h, on plain arrays. The records and functions below
// it are the same walk step by step, on lists: for tools that watch it or steer it.
//
// Calls on different geometries may run in parallel, each in its thread's aspect; the counter of
// names is the one thing shared, and it is guarded.
//
// method  T. Forsyth, Linear-Speed Vertex Cache Optimisation, 2006

#include <list>
#include <set>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_single_index.h>

namespace morva::osg {

/// Orders the triangles of a geometry node and cuts them into pieces.
///
/// aboveLimit   out: whether some property has more than `limit` entries
/// limit        a piece is full once a property has this many entries; it may pass it by two
/// perProperty  counts each property's own entries; otherwise the distinct corners
/// returns      below the limit `geoNode` itself, indexed and renamed, its order untouched; with
///              points in it `geoNode` as it was; with lines what optimizeLineCache() gives; else
///              a new group with one geometry node per piece, every property indexed on its own
/// errors       null, and a line on standard output, for a null node, no geometry or no types;
///              what is thrown later ends the work with a line, and the result is what there is
///
/// The result has no reference, and it is up to the caller to put it in the node's place. The
/// source keeps an index of shared vertices; a tree for picking on it stays as it is: call
/// mark_bih(). Triangles that is_rogue() holds for are dropped, and
/// so are those whose position index leads nowhere; another such index reads as zero.
/// cost         linear in the triangles
MORVA_API ::osg::NodePtr optimizeCache(::osg::NodePtr geoNode, bool& aboveLimit, unsigned int limit,
                                       bool perProperty);

/// optimizeCache() for every geometry node below `root` that is neither hidden nor below a switch.
///
/// dropNormals  takes the normals off first, so that what is above the limit gets new ones
/// returns      a new group of the results, in order; nodes that are handed through move there
/// prints       "\r", the percentage of the nodes in front and "% " after each node
MORVA_API ::osg::NodePtr optimizeCacheForTree(::osg::NodePtr root, unsigned int limit,
                                              bool perProperty, bool dropNormals);

/// A triangle that waits to be drawn.
struct vcache_triangle_data {
    float score = -1.0F;    ///< -1 until scored, and once drawn
    unsigned int index = 0; ///< number in the source; not its place here once one was dropped
    ::osg::Int32 positions[3] = {-1, -1, -1};
    ::osg::Int32 normals[3] = {-1, -1, -1};
    ::osg::Int32 colors[3] = {-1, -1, -1};
    ::osg::Int32 texCoords[3] = {-1, -1, -1};
    ::osg::Int32 texCoords7[3] = {-1, -1, -1};
    bool drawn = false;
};

/// A position and who still needs it.
struct vcache_vertex_data {
    ::osg::Int32 trianglesLeft = 0;    ///< not drawn yet
    ::osg::Int32 cachePosition = -1;   ///< 0 the most recent; -1 outside
    float score = -1.0F;               ///< by FindVertexScore()
    ::osg::Int32 triangleCount = 0;    ///< drawn ones included
    std::list<unsigned int> triangles; ///< places of those not drawn yet, as they came
};

/// One piece of the result.
struct drawlist {
    bool perProperty = false;
    unsigned int limit = 0;                     ///< entries at which it counts as full
    std::list<vcache_triangle_data*> triangles; ///< in draw order; owned by the walk
    /// Only if `perProperty`.
    std::set<unsigned int> usedPositions, usedNormals, usedColors, usedTexCoords, usedTexCoords7;
    std::set<singleIndexStruct> usedCorners; ///< only if not `perProperty`

    /// Draws the triangle: appends it, marks it, and enters its indices. Not null.
    MORVA_API void addTriangle(vcache_triangle_data* triangle);
};

/// Scores a vertex from its place and the triangles left; stores and returns. Not null.
MORVA_API float FindVertexScore(vcache_vertex_data* vertex);

/// Scores a triangle: sum of its vertices and a bonus, 3 for three positive scores, 1 for two.
/// Stores and returns it; a drawn one gives -1 and stays as it is. `triangle` is a place in range.
MORVA_API float calcTriangleScore(std::vector<vcache_triangle_data>& triangles,
                                  std::vector<vcache_vertex_data>& vertices, unsigned int triangle);

/// calcTriangleScore() for all triangles that wait for a vertex in range.
MORVA_API void calcTriangleScoreForVertices(std::vector<vcache_triangle_data>& triangles,
                                            std::vector<vcache_vertex_data>& vertices,
                                            unsigned int vertex);

/// Chooses the triangle to draw next.
///
/// flushCache      out: whether the choice has nothing to do with the cache
/// triangleMarker  where the search for a triangle that is not drawn goes on
/// vertexMarker    last vertex that fell out of the cache too early; beyond the vertices for none
/// returns         the place of the best triangle that touches the cache; else the `index` of the
///                 best one of the marked vertex, which after dropped triangles is not its place
///                 and may be drawn or out of range; else nextTriangleFromSearchMarker().
///                 Of equal ones the first found.
MORVA_API unsigned int searchHighestScoreTriangle(std::vector<vcache_triangle_data>& triangles,
                                                  std::vector<vcache_vertex_data>& vertices,
                                                  std::list<unsigned int>& lruList,
                                                  bool& flushCache, unsigned long& triangleMarker,
                                                  unsigned long& vertexMarker);

/// Moves the marker to the first triangle from there on that is not drawn, and returns its place;
/// without one 0, and the marker stays.
MORVA_API unsigned int nextTriangleFromSearchMarker(std::vector<vcache_triangle_data>& triangles,
                                                    unsigned long& triangleMarker);

} // namespace morva::osg
