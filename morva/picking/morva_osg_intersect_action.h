#pragma once

// Picking through ::osg::IntersectAction: enter functions for geometry cores in the place of the
// scene graph's own.
//
//     register_morva_intersect();                     once
//     ...
//     const std::unique_ptr<::osg::IntersectAction> action(::osg::IntersectAction::create(line));
//     action->apply(root);                            descends the core's tree, front faces alone
//     if (action->didHit()) ...                       getHitTriangle() is the list's object number
//
//     register_morva_intersect     the first triangle that faces the line
//     register_exact_intersect     the same without the ways in which boxes can hide a triangle
//     register_bbox_intersect      where the line enters the volume of a geometry
//     unregister_morva_intersect   the scene graph's own again: all triangles, both sides
//
// Functions count for actions that are created afterwards. The object number leads to the triangle
// by triangle_of_object(), and the normal is that of the geometry's own frame, as always with this
// action; all_hits() and first_hit() of morva_osg_ray_hits.h answer in world coordinates.
//
// Threads: registering is for when no action runs. Any number of threads may pick once
// precalc_BIH() ran, no tree is dirty and all volumes are valid; a pick builds what is missing.

#include <string>

#include <OpenSG/OSGAction.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGNodeCore.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Makes actions pick by geometry_enter(), by the scene graph's own function, or by bbox_enter().
MORVA_API void register_morva_intersect();
MORVA_API void unregister_morva_intersect();
MORVA_API void register_bbox_intersect();

/// Makes actions pick as first_hit() does: flat parts away from 0 and triangles on the walls of
/// their core's box are found, in double precision. Counts nothing.
///
/// both_sides  triangles that face away are hit as well; the normal stays that of the winding
MORVA_API void register_exact_intersect(bool both_sides);

/// Enters the first triangle of a core that faces the line, from the core's tree, which is made or
/// built anew where it has to be.
///
/// returns  Skip if the node's volume is valid and missed, else Continue, also for an action of
///          another class. Adds 1 to num_picktests() for each core that is tested
/// errors   std::bad_alloc while a tree is built
MORVA_API ::osg::Action::ResultE geometry_enter(::osg::CNodePtr& node, ::osg::Action* action);

/// Enters the place where the line enters a node's volume, which is brought up to date, with the
/// normal (0, 0, 1), if the core is a geometry with triangles.
///
/// returns  Skip if the volume is missed, else Continue
MORVA_API ::osg::Action::ResultE bbox_enter(::osg::CNodePtr& node, ::osg::Action* action);

/// One line on the tree of a core: whether it is active, nodes, leaves, depth, largest leaf,
/// triangles, and the box of its list. "No BIHTree." without one, for null too.
MORVA_API std::string get_info(::osg::NodeCorePtr core);

} // namespace morva::osg
