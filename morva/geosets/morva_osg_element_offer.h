#pragma once

// How many elements extraction will find in a geometry, before it walks.
//
//     offerOf(geometry, 3).room        triangles; 2: lines, 1: points
//
// The counts by primitive lengths are 32-bit sums that pass over quad strips and wrap where a
// length is too short, and claim what the data may not have. An offer never falls short of what
// extraction finds, and is bounded by the data. Primitives without lengths take all vertices.

#include <cstdint>

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

/// Elements of one kind that a geometry offers.
struct element_offer {
    std::uint64_t counted = 0; ///< by primitive lengths where they can be trusted, else as `room`
    std::uint64_t room = 0;    ///< to make room for; 0: there are none. At least `counted`
};

/// The elements of `corners` vertices: 3 triangles, 2 lines, 1 points. Points are the vertices of
/// GL_LINES, as getNumberOfPoints() counts them. O(primitives).
element_offer offerOf(const ::osg::GeometryPtr& geometry, unsigned int corners);

/// checkGeoProperties(), but lengths may be missing altogether.
bool canBeExtracted(const ::osg::GeometryPtr& geometry);

} // namespace morva::osg
