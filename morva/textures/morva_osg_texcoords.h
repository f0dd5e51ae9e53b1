#pragma once

// Texture coordinates near the unit square: a repeating image that goes into an atlas must be laid
// out as often as its coordinates repeat, so they are kept small before that.
//
//     normal form     (3.2, 5.1) (4.2, 5.1) (3.2, 6.1)  ->  (0.2, 0.1) (1.2, 0.1) (0.2, 1.1)
//     cutting         u from 0 to 10, limit 2           ->  pieces that span at most 2 each
//
// A triangle may move by whole numbers without looking different, each one by its own. So the
// normal form works on a geoset, where no two triangles have a vertex in common:
//
//     extract(node, geoset, false, true, false, true, true);
//     optimizeTexCoords(geoset, 2, 50);           // the geoset grows by what this returns
//
// The merge knows the material, and leaves directions alone in which its image does not repeat; the
// functions here take all images to repeat.
//
// Coordinates that are not finite, or that the arithmetic makes so, end as NaN or in the unit
// square; a NaN is passed over where the largest one is asked for. One owner of a geoset at a time;
// two threads may work on two of them.

#include <OpenSG/OSGGeoProperty.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/geosets/morva_osg_geoset_tools.h>

namespace morva::osg {

/// Moves each of the six values that is within 0.001 of a whole number onto it, the lower one
/// first. Works in double precision.
MORVA_API void roundTCToInteger(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c);

/// Shifts a triangle up by whole numbers, u and v each, so that nothing is negative. One that is
/// not negative stays.
MORVA_API void getTCPositiv(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c);

/// Shifts a triangle down by whole numbers, u and v each, so that the smallest value is at most 1.
MORVA_API void getTCNearToZero(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c);

/// Keeps the fraction of each point that is beyond `cutLimit` in u or v; its other value as well if
/// that is above 1. Points are looked at one by one: a triangle that reaches beyond loses its
/// shape, which is the price of a bounded atlas.
MORVA_API void cutTC(::osg::Vec2f& a, ::osg::Vec2f& b, ::osg::Vec2f& c, int cutLimit);

/// Directions of coordinates 0 along which an image shows the same a whole number further on.
struct repeating_directions {
    bool u = true, v = true;
};

/// How a material repeats what it shows: not along a direction in which a texture of it is clamped
/// or mirrored. One that wraps in a way of its own counts as repeating, as does a material without
/// textures, or null.
MORVA_API repeating_directions repeatsOf(const ::osg::MaterialPtr& material);

/// Brings the coordinates of all triangles into the normal form, and halves those that still reach
/// above `maxTC` until none does or cannot be halved.
///
/// maxTC     0 or below: normal form only
/// cutLimit  as for cutTC(), which ends the normal form
/// returns   triangles added; 0 without coordinates
///
/// Triangles are taken in order; the pieces of one come behind all others and are taken in turn.
/// Rows behind the last triangle get the normal form too. A geoset that was not set up has no
/// triangles to halve.
/// With a `maxTC` of 1 a triangle from 1 to 1.002 stays, since the normal form would move what it
/// is cut at back onto 1. Where very many pieces are needed, or rounding decides what they read,
/// halving ends once a triangle has come to 2^16 more; those that there are by then stay, with its
/// area. One call adds at most 2^20 triangles, or 4096 for each that was there, and never more than
/// 2^25.
/// errors    std::bad_alloc; the geoset stays usable. A geoset that cannot grow any more prints
///           what osg_geoset::addObject() prints, and its triangles stay uncut
MORVA_API int optimizeTexCoords(osg_geoset& geoset, int maxTC, int cutLimit);

/// Gives a geometry node a new core without indices, in which optimizeTexCoords() has been applied
/// to its triangles.
///
/// returns  triangles added; 0 for a null node and for one whose core is no Geometry, which stay
///          as they are
///
/// The new core has three rows per triangle and one primitive, the material of the old one or of
/// the material group above the node, and no other kind of primitive: lines, points and degenerate
/// triangles are gone. It takes over name and attachments, but no picking tree, and the IDs that
/// vertices have; the node gets none. A node without texture image loses its coordinates 0 to 3,
/// also in the old core. Prints what extract() prints.
/// errors   std::bad_alloc; the node then has its old core, as it has if extraction finds no
///          memory. If memory runs out in the end, a line goes to standard error and the new core
///          is empty
MORVA_API int optimizeTexCoords(::osg::NodePtr& node, int maxTC, int cutLimit);

/// The same as the form for geosets, but large triangles first, with two differences: pieces added
/// are bounded by the coordinates that there were, and of the two largest triangles the smaller is
/// halved, but for the first time. `maxTC` counts also if it is 0 or below.
MORVA_API int optimizeTexCoordsSmart(osg_geoset& geoset, int maxTC, int cutLimit);

/// Whether a coordinate is above 1.05.
///
/// maxU, maxV   out: largest u and v, but at least 0
/// asTriangles  looks at the normal form, limit 50, of three rows at a time; rows that fill no
///              triangle are left out. Nothing is changed
MORVA_API bool hasTexCoordsGreater1(::osg::GeoTexCoordsPtr coordinates, float& maxU, float& maxV,
                                    bool asTriangles);

/// Whether a coordinate is negative.
///
/// minU, minV  out: smallest u and v, but at most 0
MORVA_API bool hasTexCoordsSmaller0(::osg::GeoTexCoordsPtr coordinates, float& minU, float& minV);

/// Whether a geometry node has a coordinate above `limit` + 0.05.
///
/// normalised  looks at the normal form, limit 50, of each triangle that is drawn; a corner
///             without coordinates counts as (0, 0)
MORVA_API bool hasTCabove(::osg::NodePtr node, float limit, bool normalised);

/// Whether a node must stay out of an atlas: its image has a side above `maxImageSide`, or it has
/// normalised coordinates above `limit`.
MORVA_API bool checkGeoForTexIndex(::osg::NodePtr node, float limit, int maxImageSide);

/// Takes the geometry nodes whose normal form reaches above `limit` out of a scene.
///
/// returns  a new group with these nodes, in the order of getGeometryNodes(); null if there are
///          none, for a null root and for a limit below 0
///
/// A node takes along the material of the material group above it. Triangles that reach beyond
/// 1000 would be halved before they are measured; nothing of that is written back.
MORVA_API ::osg::NodePtr CollectNodesWithTexCoordsGreater(::osg::NodePtr root, int limit);

} // namespace morva::osg
