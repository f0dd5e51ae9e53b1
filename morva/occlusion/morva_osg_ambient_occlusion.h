#pragma once

// Occlusion: how open the points of a model are to their surroundings, baked into its vertices; and
// what can be left out of a model because nobody sees it.
//
//     AddAmbientOcclusion              values into the vertex colours
//     gutOutModelPerAmbientOcclusion   parts that no ray leaves go
//     buildModelHull                   the most open triangles stay, of a merged model
//     buildModelHullWithVertexColors   the same by values that stand in the colours
//
// Values come from rays in fixed directions, see morva_osg_ambient_occlusion_rays.h: a vertex fires
// (shots + 1)^3 of them. The set is made once for the process, by the first caller, whose `shots`
// then hold for all. Triangles count from their front alone.
//
// The functions here run on the caller's thread, in its aspect. Exceptions, of which std::bad_alloc
// is the one to expect, leave them as they come. What edits cores leaves trees for picking as they
// are: call mark_bih().
//
// Method: ambient occlusion by ray casting, "Accessibility Shading", Miller 1994.

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_params.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>
#include <morva/trees/bih_tree.h>

namespace morva::osg {

/// The value of a point in a scene, see opennessOf().
///
/// tree, scene  a tree over the parts of the scene, which have trees of their own
/// position     in the world
/// normal       in the world, usually of length 1; zero lets the rays go to all sides
/// shots        as for getRayVecs(); a NaN out of its range
/// distance     world units, up to which a hit counts whole
/// The flags have no effect.
template <typename Tree, typename PartTree, typename Setup, typename Geoset>
float calcAmbientOcclusion(const Tree& tree, const osg_scene_geoset<PartTree, Setup, Geoset>& scene,
                           const math::vector<float, 3>& position,
                           const math::vector<float, 3>& normal, int shots, double distance, bool,
                           bool) {
    return opennessOf(rayVecsOf(shots), position, normal, distance,
                      scene_rays<Tree, osg_scene_geoset<PartTree, Setup, Geoset>>(tree, scene));
}

/// Makes the material of a geometry node ready for occlusion in its vertex colours; other nodes and
/// null are left alone.
///
/// replaceColors  true: its own material goes, and the outermost material group above it becomes a
///                plain group. Other geometry below that group that has no material of its own gets
///                the group's, on a copy of its core if another node holds that, too
///                false: a material without an image goes into the vertices, see
///                MaterialColorIntoVertex(); with an image it stays
MORVA_API void PrepareGeometryForAO(::osg::NodePtr node, bool replaceColors);

/// Bakes occlusion into the vertex colours of a scene. Hidden geometry, that under switches and
/// levels of detail and that which must be left alone stays as it is. Hits up to the diagonal of
/// the root's volume count whole.
///
/// root           null is left alone
/// replaceColors  true: colours become grey values, materials go; false: colours are multiplied,
///                those of plain materials are baked in first, textures stay. Vertices without a
///                colour have a medium grey; alpha stays
/// shots          as for getRayVecs(); out of its range the scene stays as it is, after one line
/// The last argument has no effect.
///
/// Cores come out single-indexed; one that several nodes show is copied for each of them. New
/// normals are made for geometry without. Untextured geometry loses its texture coordinates.
/// prints  what is being done, and the share that is done after each geometry
MORVA_API void AddAmbientOcclusion(::osg::NodePtr root, bool replaceColors, int shots,
                                   unsigned int);

/// Writes the value of each position of a node, with rays to all sides, to its texture coordinates
/// 6, as a property of one component in the place of what was there. A core that another node
/// holds, too, is copied first.
///
/// scene, tree  as for calcAmbientOcclusion()
/// returns      false, after one line, without positions
MORVA_API bool saveAOinTC6(::osg::NodePtr node,
                           const osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>& scene,
                           bih_tree<float>& tree, unsigned int shots, double distance, bool);

/// The record of saveAOinTC6MT().
struct SAO6Arguments {};

/// Does nothing: there is no work of this kind. Kept for callers that start it themselves.
MORVA_API void saveAOinTC6MT(SAO6Arguments arguments);

/// Takes the geometry nodes off a scene of which no vertex is open: its value is at most
/// `threshold`, where hits up to 5 % of the scene's diagonal count whole.
///
/// root       null is left alone
/// shots      as for AddAmbientOcclusion()
/// threshold  0: all rays hit something as near as that
/// The last argument has no effect.
///
/// All normals are made anew, smooth over shared positions. A node with children stays, with an
/// empty group as its core; one without vertices goes; one without positions stays, after a line. A
/// root that is a geometry itself stays. A part is kept for a single open ray, so that each ray
/// that meets nothing near is fired again in double precision.
/// prints  what is being done, the share after each geometry, and how many went
MORVA_API void gutOutModelPerAmbientOcclusion(::osg::NodePtr root, int shots, float threshold,
                                              unsigned int);

/// Merges a model and keeps its most open points, lines and triangles. Hits up to 75 % of the
/// model's diagonal count whole, and an element has the mean value of its vertices.
///
/// root           merged as by mergeGeo(), whose notes hold; the result is a new tree
/// setup          of the merge, which makes single-indexed cores whatever it says
/// maxPrimitives  about so many stay, as getNumberOfPrimitives() counts: those above the value with
///                that many elements behind it, in single precision, and of equal ones the first in
///                walk order. One less without ties; rounding can keep or drop what ties with it.
///                With at least as many as there are, the merged nodes come back as they are; 0
///                drops only those without a value above 0
/// shots          as for AddAmbientOcclusion(); out of its range `root` comes back, after one line
/// The last argument has no effect.
///
/// returns  a group over the merged nodes, each with a new core of the elements that stay, one
///          primitive per element; carried over nodes keep their place in the world. It carries no
///          reference. A node whose copy fails has no core
/// prints   what is being done, and the share after each geometry
MORVA_API ::osg::NodePtr buildModelHull(::osg::NodePtr root, mergeGeo_setup const& setup,
                                        unsigned int maxPrimitives, unsigned int shots, bool);

/// The same by values that stand in the vertex colours: the mean of their components. Nothing is
/// merged or traced: the nodes leave `root` for the result, with what hangs below them. Points and
/// lines count among `maxPrimitives`, but triangles alone are kept; colours go. A node without
/// colours has no core afterwards. Children of `root` that hold hidden geometry go along with all
/// that is left in them.
MORVA_API ::osg::NodePtr buildModelHullWithVertexColors(::osg::NodePtr root,
                                                        unsigned int maxPrimitives);

/// The elements of a node that are above a threshold, as a new core, each with vertices of its own:
/// positions, normals, colours and texture coordinates 0 and 7 as far as the node has them, and the
/// material that it shows. Line strips and loops become lines, strips, fans and quads triangles.
///
/// threshold   compared with the mean of the texture coordinates 6 of the element's positions
/// equalsLeft  in and out: so many elements more that are equal to it are kept
/// returns     null for no geometry, for one without coordinates 6, and after a failure, which
///             prints a line on standard error
MORVA_API ::osg::GeometryPtr copyPrimitivesWithAOThreshold(::osg::NodePtr node, double threshold,
                                                           unsigned int& equalsLeft);

/// The same for triangles alone, by the mean of their colours' components, and without colours.
MORVA_API ::osg::GeometryPtr copyPrimitivesWithAOThresholdInColors(::osg::NodePtr node,
                                                                   double threshold,
                                                                   unsigned int& equalsLeft);

} // namespace morva::osg
