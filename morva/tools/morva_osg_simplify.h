#pragma once

// Fewer triangles by greedy edge collapse: again and again the cheapest edge goes into its middle.
//
//     cost of an edge   its length + how many corners use its start + how many use its end
//
// so that short edges between rarely used vertices go first. Every triangle has its own three
// edges, and an edge keeps the names of its ends: one of a vertex that went into another still
// means the place where that was, and may bring it back. There is no quadric error, and nothing
// keeps a triangle from turning over.
//
//     simplifyGeometry     the finished tool: prints, writes "simple.osb", counts edges
//     simplify             the same run for a program: neither prints nor writes, counts live
//                          triangles, and leaves a record of which every prefix can be made
//
//     const simplification run = simplify(core, {60000, 30000});          one run, two stops
//     for (const simplify_stop& stop : run.stops)
//         giveAway(simplifiedCore(run, stop.collapses), stop.reached);
//
// One thread; the geometry must not change between simplify() and the last use of its record.
// Method: edge collapse, "Mesh Optimization", H. Hoppe et al., 1993, with the cost above.

#include <cstddef>
#include <map>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// One directed edge of one triangle: an edge that two triangles share is there twice.
struct edge {
    ::osg::UInt32 start = 0; ///< position index
    ::osg::UInt32 end = 0;   ///< position index
    ::osg::Real64 cost = 0;  ///< see CalcEdgeCost()
};

/// Cost of the edge from position `a` to position `b`: their distance, with differences in single
/// and the rest in double precision, plus the references of `a`, plus those of `b`.
///
/// geometry    null, or without one of the positions: the distance is 0
/// references  how many corners use a position; what is missing is entered with 0
MORVA_API double CalcEdgeCost(::osg::GeometryPtr geometry, unsigned int a, unsigned int b,
                              std::map<unsigned int, unsigned int>& references);

/// Simplifies the triangles of a geometry node until no more than three edges per triangle of the
/// target are left, and writes the result to "simple.osb" in the current directory, if it can.
///
/// Vertices are welded by all that they have; triangles that lost their extent stay in the result.
/// The first edge goes first, whatever its cost; of equal costs the earlier one. The node stays,
/// but loses the coordinates 0 to 3 if it has no texture image, as with extract().
///
/// targetTriangles  0 gives null; times three it wraps at 32 bits
/// returns  a new geometry with one index per property and new normals, held by nobody yet; null,
///          without a word, for a null node or one without triangles
/// prints   the stages, and the number of edges left where it is a multiple of 10000
/// errors   std::bad_alloc; a file that cannot be written is none
/// cost     O(E log E) over the edges for bounded numbers of triangles at a vertex
MORVA_API ::osg::GeometryPtr simplifyGeometry(::osg::NodePtr node, unsigned int targetTriangles);

/// Which corners are one vertex, and move together.
enum class simplify_weld {
    position, ///< those at one place; each keeps its colours, coordinates and ID
    corner,   ///< those that agree in all properties; one that moves takes those of its end
};

struct simplify_options {
    simplify_weld weld = simplify_weld::position;
    /// An edge with an end on an open edge stays. Open is what one triangle alone has.
    bool lock_borders = false;
};

/// One step of a run.
struct simplify_step {
    ::osg::UInt32 kept = 0; ///< vertex that moved to the middle between both
    ::osg::UInt32 gone = 0; ///< vertex whose corners went to `kept`
    ::osg::UInt32 live = 0; ///< triangles with three different corners afterwards
};

/// Where a run came down to one of its targets.
struct simplify_stop {
    std::size_t collapses = 0; ///< steps up to there
    bool reached = false;      ///< false: a floor, since no more edges could be taken
};

/// The record of a run. Vertices, steps and triangles are numbered from 0. Each step moves
/// `places[kept]` to the middle and all corners at `gone` to `kept`; any number of first steps is
/// a state of its own.
struct simplification {
    ::osg::RefPtr<::osg::GeometryPtr> source; ///< where the other properties are
    simplify_options options;
    std::vector<::osg::UInt32> corners;  ///< 3 per triangle: corner in the source's own order
    std::vector<::osg::UInt32> vertices; ///< 3 per triangle: vertex
    std::vector<::osg::Pnt3f> places;    ///< one per vertex, before the first step
    std::vector<simplify_step> steps;    ///< as many as the lowest target took
    std::vector<simplify_stop> stops;    ///< one per target, in the caller's order
    ::osg::UInt32 live = 0;              ///< triangles with three different corners at the start

    ::osg::UInt32 liveAfter(std::size_t collapses) const {
        return collapses == 0 ? live : steps[collapses - 1].live;
    }
};

/// Runs one simplification for several targets.
///
/// geometry  any primitives and index forms; triangles that is_rogue() holds for are left out, and
///           lines and points do not take part. Null: an empty record, of which no core is made
/// targets   in live triangles; where the triangles are that few already, the stop is the start.
///           None: no step, which tells `live` at little cost
/// returns   the record; it holds a reference on the geometry
/// progress  to the sink, in triangles; nothing is printed
/// errors    std::bad_alloc, and what the sink throws
/// cost      as simplifyGeometry(); about 95 bytes per triangle at the peak
MORVA_API simplification simplify(const ::osg::GeometryPtr& geometry,
                                  const std::vector<::osg::UInt32>& targets,
                                  const simplify_options& options = {});

/// Triangles after some steps, without their other properties.
struct simplified_triangles {
    std::vector<::osg::Pnt3f> places;    ///< one per vertex of the record; some are of no use
    std::vector<::osg::UInt32> vertices; ///< 3 per triangle
    std::vector<::osg::UInt32> of;       ///< per triangle: its number in the record
};

/// The triangles after the first `collapses` steps of a run, at most all. Those that is_rogue()
/// holds for by then are left out, so they can be fewer than the live ones.
MORVA_API simplified_triangles simplifiedTriangles(const simplification& run,
                                                   std::size_t collapses);

/// The same as a new core, held by nobody yet: triangles with one index per property, the source's
/// material and name, and new normals (crease angle 30 degrees). Attributes are the source's, in
/// the forms of MakeGeoCore(), colours with alpha where it has them.
/// errors  std::bad_alloc
MORVA_API ::osg::GeometryPtr simplifiedCore(const simplification& run, std::size_t collapses);

} // namespace morva::osg
