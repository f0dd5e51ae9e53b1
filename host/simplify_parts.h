#pragma once

// The parts of a scene on their way to fewer triangles. Nodes that share a core are one part.
//
//     std::vector<simplified_part> parts = partsToSimplify(root, options);
//     simplifyParts(parts, request, tell);           a stop for each level
//     showLevel(parts, 0);   write(...);             see simplify_scene.h
//
// One thread.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/tools/morva_osg_simplify.h>
#include <morva/tools/morva_osg_surface_distance.h>

#include "simplify_line.h"

namespace morva::host {

/// Places in the world that measure a part alike.
struct drawn_space {
    bool uniform = true;          ///< the map is a rotation or mirror image, times a scale
    morva::osg::linear_map map{}; ///< to the world; of a uniform one without meaning
    double scale = 1;             ///< of a uniform one, the largest
    double areas = 0;             ///< by how much these places multiply the area in all
    double integrals = 0;         ///< and the distances by area
};

/// Where a part ends at one level.
struct part_stop {
    double asked = 0; ///< live triangles that the part was to have
    std::size_t steps = 0;
    std::uint32_t live = 0;
    bool floor = false;   ///< it comes no further down
    bool limited = false; ///< by the greatest distance
    /// Once the level was shown: triangles, without those that lost their extent.
    std::uint64_t triangles = 0;
    bool untouched = false;                  ///< it is the source's core
    morva::osg::surface_distance distance{}; ///< in the world, over all places; once measured
};

struct simplified_part {
    ::osg::RefPtr<::osg::GeometryPtr> core; ///< of the source
    std::vector<::osg::NodePtr> nodes;      ///< that have it, shown or not, in walk order
    std::uint64_t drawn = 0;                ///< how many of them draw
    std::string path;                       ///< of the first
    std::uint64_t triangles = 0;            ///< of the source, degenerate ones included
    std::uint32_t live = 0;                 ///< of these, with three different corners
    std::vector<drawn_space> spaces;        ///< of the nodes that draw
    morva::osg::simplification run;
    std::vector<part_stop> stops;                     ///< one per level
    std::vector<::osg::RefPtr<::osg::NodePtr>> rests; ///< see showLevel()
};

/// The drawn cores that have triangles.
/// errors  std::bad_alloc
std::vector<simplified_part> partsToSimplify(const ::osg::NodePtr& root,
                                             const morva::osg::simplify_options& options);

/// Live triangles that are drawn.
std::uint64_t drawnLive(const std::vector<simplified_part>& parts);

/// Runs each part once, as far down as the lowest level asks, and settles its stops: of the two
/// states on both sides of what was asked the nearer one; one that has a triangle to show.
///
/// tell    how many live triangles are gone, of how many
/// errors  std::bad_alloc
void simplifyParts(std::vector<simplified_part>& parts, const simplify_request& request,
                   const std::function<void(std::size_t, std::size_t)>& tell);

/// Measures the distances of a level. On up to four threads.
/// errors  std::bad_alloc
void measureDistances(std::vector<simplified_part>& parts, std::size_t level);

} // namespace morva::host
