#pragma once

// What the audit measures on the triangles of a core: where they lie, whether they are degenerate,
// their area, and how far their texture coordinates reach.
//
//     const placement world(node);
//     const auto moved = placed(view, &world);
//     forEachTriangle(view, [&](auto a, auto b, auto c) {
//         sum += triangleArea(view, moved, a, b, c).area;
//     });
//
// Plain memory, but for making a placement: any thread.

#include <cstdint>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/textures/morva_osg_texcoords.h>

#include "geometry_view.h"

namespace morva::host {

/// From a node's own space to the world.
struct placement {
    explicit placement(const ::osg::NodePtr& node);

    float matrix[4][3]; ///< by column
};

/// The positions of a core, moved if there is a placement; empty for a core without primitives.
std::vector<::osg::Pnt3f> placed(const geometry_view& view, const placement* to);

/// Whether the merge drops a triangle, told by its corners.
bool isDegenerate(const geometry_view& view, const std::vector<::osg::Pnt3f>& moved,
                  std::uint32_t a, std::uint32_t b, std::uint32_t c);

/// The same in the core's own space.
bool isDegenerate(const geometry_view& view, std::uint32_t a, std::uint32_t b, std::uint32_t c);

/// An area, and by how much the rounding of the corners may have changed it.
struct measured_area {
    double area = 0.0, rounding = 0.0;
};

measured_area triangleArea(const geometry_view& view, const std::vector<::osg::Pnt3f>& moved,
                           std::uint32_t a, std::uint32_t b, std::uint32_t c);

/// Whether some triangle's coordinates, in their normal form, lie beyond a limit along a direction
/// that repeats.
bool reachesBeyond(const geometry_view& view, int limit,
                   morva::osg::repeating_directions repeats = {});

} // namespace morva::host
