#pragma once

// Functions that rewrite a whole geometry in place. Null geometries and missing positions are
// accepted. None needs an edit bracket.
//
// Geometries share properties. What a function changes, other geometries keep as it was: normals
// and indices that they have too are copied first.

#include "OSGGeometry.h"

OSG_BEGIN_NAMESPACE

/// Normals per position index: the normalised sum of the unit normals of all faces that use the
/// position. A missing property is created; the normals then follow the positions' index.
OSG_SYSTEMLIB_DLLMAPPING void calcVertexNormals(GeometryPtr geometry);

/// Normals per corner: the normalised sum of the unit normals of those faces at the corner's
/// position index whose normal makes an angle below `creaseAngle` (radians) with the corner's own
/// face; the own face always counts. From Pi on as without an angle.
///
/// Normals get an index of their own; every property that was indexed stays in the mapping. A
/// geometry without indices is treated as if indexed 0, 1, 2, ... and stays without: one normal
/// per vertex.
OSG_SYSTEMLIB_DLLMAPPING void calcVertexNormals(GeometryPtr geometry, Real32 creaseAngle);

/// One normal per triangle, its unit normal. A vertex of several triangles has the last one's. The
/// index is dealt with as under a crease angle.
OSG_SYSTEMLIB_DLLMAPPING void calcFaceNormals(GeometryPtr geometry);

/// Counts what the primitives come to by their lengths, degenerate or not.
///
/// returns  the sum of the three counts
OSG_SYSTEMLIB_DLLMAPPING UInt32 calcPrimitiveCount(GeometryPtr geometry, UInt32& triangle,
                                                   UInt32& line, UInt32& point);

/// Lets vertices whose stored bytes are equal share the index that comes first: per entry of the
/// mapping, or over all properties if the mapping is empty. A missing index is made, 0, 1, 2, ...,
/// and the mapping cleared then.
/// Properties keep their length. One that is too short for both of two vertices does not tell them
/// apart; vertices that no property has stay as they are.
///
/// returns  how many indices the last entry of the mapping changed, whatever the ones in front of
///          it did; -1, with a fatal line, for null
OSG_SYSTEMLIB_DLLMAPPING Int32 createSharedIndex(GeometryPtr geometry);

/// Gives each distinct tuple of indices one number, by first use, and rewrites every mapped
/// property to one entry per number; one mapping entry with all bits is left. Properties that
/// other geometries use too are copied first, whatever comes of it. A missing index is made and the
/// mapping cleared then; with an empty mapping nothing else happens, nor with empty indices.
///
/// returns  how many tuples there are; 0 with an empty mapping and, with a warning, for a mapping
///          over empty indices; -1, with a fatal line, for null
OSG_SYSTEMLIB_DLLMAPPING Int32 createSingleIndex(GeometryPtr geometry);

/// Turns the triangles into strips and fans and one run of lone triangles. The set of triangles
/// with their winding stays, less those with two equal vertices; other primitives go.
///
/// iteration            trials; the search is deterministic, so that one is all
/// createStrips         whether to build strips
/// createFans           whether to build fans, around vertices with `minFanEdgeCount` triangles
/// colorCode            not used
/// stitchStrips         joins all strips to one through degenerate triangles
/// stripifyIsolatedTris lone triangles become strips too
/// returns  indices before stitching; 0 if nothing could be built or no position or index exists.
///          The geometry is rewritten only if this is less than what it has
/// method   greedy, each strip from a triangle with the fewest free neighbours, the longest of its
///          three directions (after tomesh by Akeley, Haeberli and Burns, 1990)
OSG_SYSTEMLIB_DLLMAPPING Int32 createOptimizedPrimitives(
    GeometryPtr geometry, UInt32 iteration = 1, bool createStrips = true, bool createFans = true,
    UInt32 minFanEdgeCount = 16, bool colorCode = false, bool stitchStrips = false,
    bool stripifyIsolatedTris = false);

OSG_END_NAMESPACE
