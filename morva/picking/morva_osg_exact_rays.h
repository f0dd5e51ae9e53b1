#pragma once

// Rays through the tree of one core in double precision. For the library's own source files.
//
//     const exact_ray ray = rayOf(line);                  in the core's frame
//     core_hit hit;
//     if (firstInCore(payload, ray, both_sides, reach, hit)) ...
//
// A ray meets a triangle if it passes none of its edges on the wrong side; on which side of an edge
// it passes is the same for both triangles there, to the last bit, so that nothing slips through
// between them. A point on an edge belongs to both.
//
// Method: signs of the triple products of the ray and the edges; descent by the planes of the tree,
// which hold every element, a little widened.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGDynamicVolume.h>
#include <OpenSG/OSGLine.h>

#include <morva/core/morva_math.h>
#include <morva/picking/morva_osg_attach_bih.h>

namespace morva::osg {

using double3 = math::vector<double, 3>;

/// Points `from + t * direction` with t of at least 0; the direction may have any length.
struct exact_ray {
    double3 from, direction;
};

exact_ray rayOf(const ::osg::Line& line);

/// A triangle that a ray meets.
struct core_hit {
    double t = 0.0;
    unsigned int object = 0;
    bool back_face = false;
};

/// The part of a ray within a box that is widened by `share` of the largest of its coordinates.
///
/// entry, exit  out: parameters, entry of at least 0
/// returns      false for a ray that misses the box; a NaN misses
bool clipWidened(const float_box& box, const exact_ray& ray, double share, double& entry,
                 double& exit);

/// Whether a node's volume, in the frame of the ray, tells that the ray meets nothing below the
/// node at a parameter of at most `reach`: only one that is valid does.
bool isMissed(const ::osg::DynamicVolume& volume, const exact_ray& ray, double reach);

/// The first triangle of a core at a parameter of at most `reach`; of equally near ones that of the
/// least object number.
///
/// payload     ready
/// both_sides  triangles that face away count as well
/// hit         out, left alone if there is none
bool firstInCore(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
                 double reach, core_hit& hit);

/// Appends all triangles of a core that a ray meets, in no order.
void allInCore(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
               std::vector<core_hit>& hits);

/// Normal of a triangle by its winding, of any length.
double3 normalOf(const BIHAttachPayload& payload, unsigned int object);

/// A vector at length 1; one without a direction stays zero.
::osg::Vec3f unitVector(const double3& vector);

} // namespace morva::osg
