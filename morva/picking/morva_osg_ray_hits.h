#pragma once

// Rays through a scene in world coordinates, and where a hit comes from.
//
//     ray_hit hit;
//     if (first_hit(root, ::osg::Line(eye, direction), false, hit))
//         hit.point, hit.normal, hit.triangle ...
//
//     ray ----->|----->|<-----|----->      all_hits(): nearest first; `<` has its back to the ray,
//               0      1      2      3     and counts with `both_sides` alone
//
// Nodes are entered as by an action of the scene graph: those with a traversal mask of 0 and what a
// switch does not show are not hit, nor is what a matrix flattens. Nodes without a core are passed
// over and their children entered. Which side of a triangle is its front is a matter of its core's
// own frame, mirrored or not. Trees are made or built anew where that has to be (see
// morva_osg_attach_bih.h). Matrices are taken as affine.
//
// Where a core's box is flat, where a triangle lies on its wall, and how far away all is does not
// matter: boxes are those of the triangles, a little widened, and all arithmetic is in double
// precision.
//
// Threads: as for picking by an action (morva_osg_intersect_action.h).

#include <limits>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGLine.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// Stands for a triangle that there is not.
inline constexpr unsigned int no_triangle = std::numeric_limits<unsigned int>::max();

/// Where a ray meets a triangle; lengths and directions are the world's.
struct ray_hit {
    ::osg::NodePtr node;       ///< its core has the triangle
    unsigned int object = 0;   ///< number in the list of the core's tree
    unsigned int triangle = 0; ///< number by the scene graph's iterator, rogue ones included
    float distance = 0.0F;     ///< from the start of the ray, >= 0
    ::osg::Pnt3f point;
    ::osg::Vec3f normal;    ///< of the winding, length 1
    bool back_face = false; ///< the triangle faces away: the normal goes with the ray
};

/// All triangles below `root` that a ray meets, nearest first; at equal distances in the order of
/// the walk, and within a core by object number.
///
/// root        may stand anywhere in a scene; null gives nothing
/// world_ray   in world coordinates, not in those of `root`; one that is not finite or has no
///             direction meets nothing
/// both_sides  triangles that face away count as well
/// errors      std::bad_alloc
MORVA_API std::vector<ray_hit> all_hits(const ::osg::NodePtr& root, const ::osg::Line& world_ray,
                                        bool both_sides);

/// The first of all_hits(), without looking for the others.
///
/// hit      out, left alone if there is none
/// returns  whether there is one
MORVA_API bool first_hit(const ::osg::NodePtr& root, const ::osg::Line& world_ray, bool both_sides,
                         ray_hit& hit);

/// The triangle, by the scene graph's iterator, that an object number of a core's tree stands for:
/// the list leaves rogue triangles out. `no_triangle` if there is none, and for a null geometry.
///
/// cost  that of a look-up while the core's tree is up to date, else linear in the triangles
MORVA_API unsigned int triangle_of_object(const ::osg::GeometryPtr& geometry, unsigned int object);

/// The ID of the part that an object of a core comes from: the first component that the first
/// corner of its triangle has in a coordinate set.
///
/// id_set   of the core's node: the one that idmapHandler::texCoordMapping names ("TC0" is
///          textureUnit(0)), texcoords7 where none was free
/// returns  -1 without the object, the set or a value that is an int of at least 0
MORVA_API int id_of_object(const ::osg::GeometryPtr& geometry, unsigned int object,
                           vertex_property id_set = vertex_property::texcoords7);

} // namespace morva::osg
