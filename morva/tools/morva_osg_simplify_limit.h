#pragma once

// How many steps of a simplification keep it near its source.
//
//     const simplification run = simplify(core, {0});
//     const std::size_t steps = longestWithin(run, run.steps.size(), 0.1);
//     const ::osg::GeometryPtr near = simplifiedCore(run, steps);
//
// The distance of a run to its source goes up and down with the steps, so that no search by halves
// finds the last state that is near enough. This one goes back from the last step, and proves for
// what it passes over that it is too far away:
//
//     a triangle of the result       has been where it is since one of its corners moved last: all
//     that is too far away           states since then have it
//     a point of the source that     the steps are taken back, one after the other, until a
//     triangle nothing is near to             that one of them brings back is near it
//
// One thread.

#include <cstddef>
#include <vector>

#include <morva/core/morva_export.h>
#include <morva/tools/morva_osg_simplify.h>
#include <morva/tools/morva_osg_surface_distance.h>

namespace morva::osg {

/// The longest prefix of a run, of at most `most` steps, whose largest distance to the source is
/// at most `limit`, as distanceToSource() and distanceToResult() measure it.
///
/// limit   0 or above
/// spaces  in which the distance has to be within the limit; none: that of the geometry
/// errors  std::bad_alloc
/// cost    a measurement of the whole per round, and per step that is passed over a look at the
///         triangles at its ends; there are few rounds as a rule
MORVA_API std::size_t longestWithin(const simplification& run, std::size_t most, double limit,
                                    const std::vector<linear_map>& spaces = {});

} // namespace morva::osg
