#pragma once

// What a scene draws, as a sorted list of triangles in world space with all their attributes: two
// scenes that draw the same have equal lists, however nodes, cores and indices are laid out.
//
//     const world_mesh before = worldMesh(input), after = worldMesh(output);
//     EXPECT_EQ(firstDifference(before, after), "");                        to the last bit
//     EXPECT_EQ(firstDifference(before, after, {1e-5F, 1e-3F, 1e-6F}), ""); within tolerances
//
// A triangle starts at its lowest corner; its winding stays. -0.0 counts as 0.0, a NaN equals a
// NaN. Attributes that a geometry lacks are zero.

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

namespace morva_test {

/// Which attributes enter the list, and which triangles stay out.
struct mesh_choice {
    using rule = bool (*)(const ::osg::Pnt3f&, const ::osg::Pnt3f&, const ::osg::Pnt3f&);

    bool normals = true;
    bool colors = true;      ///< secondary ones as well
    bool coordinates = true; ///< slots 0 to 6
    bool ids = false;        ///< slot 7
    rule dropped = nullptr;  ///< true for a triangle to leave out, asked in the core's own space
};

/// One corner: position, normal, colour, secondary colour, seven coordinate pairs, the ID.
struct world_corner {
    static constexpr std::size_t normal_at = 3, color_at = 6, coordinates_at = 12, id_at = 26;
    std::array<float, 27> values{};
};

struct world_triangle {
    std::array<world_corner, 3> corners;

    bool operator==(const world_triangle& other) const;
    bool operator<(const world_triangle& other) const; ///< a total order, NaN included
};

using world_mesh = std::vector<world_triangle>;

/// All triangles below a node, sorted. Nodes that traversals skip are included.
world_mesh worldMesh(const ::osg::NodePtr& root, const mesh_choice& choice = {});

/// Largest differences that still count as equal.
struct mesh_tolerance {
    float position; ///< world units, > 0
    float normal;
    float other; ///< colours, coordinates and IDs
};

/// The first triangle that stands in only one of the lists, in words; empty for equal lists. Each
/// needs a partner of its own; linear while few lie within the tolerance of each other.
std::string firstDifference(const world_mesh& expected, const world_mesh& actual,
                            const mesh_tolerance& tolerance = {0, 0, 0});

/// Sums that a pass must keep.
struct mesh_summary {
    std::size_t triangles = 0;
    double area = 0.0;
    std::array<float, 3> min{}, max{}; ///< zero if there is no triangle
};
mesh_summary summaryOf(const world_mesh& mesh);

} // namespace morva_test
