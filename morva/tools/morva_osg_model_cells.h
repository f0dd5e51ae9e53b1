#pragma once

// A model in cells: one median tree over the triangles of all parts, in the world.
//
//      +-------+---+---+      a cell is a leaf of the tree, with what each part has in it:
//      |       | 1 |   |
//      |   0   +---+ 3 |      cell 1   part 0, 812 triangles
//      |       | 2 |   |               part 4, 90 triangles, 12 lines
//      +-------+---+---+
//
//     const cell_division division = divideModel(parts, {cell_measure::triangles, 5000});
//     for (std::size_t i = 0; i < division.cells.size(); ++i)
//         write(::osg::NodeRefPtr(cellScene(division, i)).get());       one at a time
//
// A node of the tree is cut in the middle of its longest axis until it is within the limit. A
// triangle across the plane goes by the centre of its extent, or is cut. Lines and points are never
// cut and do not count for the limit: they go by their centre.
//
// What no plane can tell apart stays together, above the limit: triangles with the same extent, and
// with cell_straddle::cut those that all planes cut alike. The tree ends for any input.
//
// A part keeps its own space: cells hold it below a transform where it is placed by one, so that
// whole triangles come out with the bits that they had.
//
// One thread. Method: "Multidimensional binary search trees used for associative searching",
// Bentley, 1975; convex clipping of triangles.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// What a limit bounds.
enum class cell_measure {
    triangles, ///< those of a cell, pieces included
    size,      ///< the edges of the tree's box, in world units
};

/// What becomes of a triangle across a plane.
enum class cell_straddle {
    centre, ///< it stays whole, on the side of its centre, and may reach out of the cell's space
    cut,    ///< each side gets its pieces
};

/// Normals of what comes into a cell.
enum class cell_normals {
    keep,   ///< as they are; of pieces interpolated
    recalc, ///< made anew within the cell, with creases from 30 degrees on
};

struct model_cell_options {
    cell_measure measure = cell_measure::triangles;
    double limit = 5000.0; ///< above 0; of triangles the whole ones count, at least 1
    cell_straddle straddle = cell_straddle::centre;
    cell_normals normals = cell_normals::keep;
};

/// A box in the world; `low` above `high`: nothing is in it.
struct cell_box {
    ::osg::Pnt3f low, high;
};

/// What a cell has of a part; never nothing.
struct cell_share {
    std::uint32_t part = 0;      ///< its place in the caller's list
    std::uint64_t triangles = 0; ///< whole ones and pieces
    std::uint64_t lines = 0;     ///< single ones: strips come apart
    std::uint64_t points = 0;
};

struct model_cell {
    cell_box space; ///< of the tree's leaf; without triangles in the model: as `box`
    cell_box box;   ///< of what is in the cell
    std::uint64_t triangles = 0, lines = 0, points = 0; ///< sums over the shares
    std::vector<cell_share> shares;                     ///< ascending by part
    bool above_limit = false;
};

/// What the division did to a part.
struct divided_part {
    std::uint64_t triangles = 0; ///< in cells, counted before any is cut
    std::uint64_t lines = 0, points = 0;
    std::uint64_t pieces = 0; ///< that came to them by cuts: cells hold the sum of both
    /// Triangles, lines and points without a finite place: they are in no cell.
    std::uint64_t unplaced = 0;
};

struct cell_contents; ///< for cellScene()

struct cell_division {
    std::vector<divided_part> parts; ///< one per node of the caller
    std::vector<model_cell> cells;   ///< in the order of the tree's leaves; none is empty
    std::shared_ptr<const cell_contents> contents;
};

/// The planes of the tree of a division, at most.
constexpr std::uint64_t most_cell_planes = 1000000;

/// Divides the geometries of a list of nodes; nodes without one count as empty parts.
///
/// parts    none is null; a core may be there any number of times. They and their properties must
///          not change as long as `contents` lives
/// returns  no cell if there is nothing with a place
/// errors   std::invalid_argument: the limit is not above 0, or NaN; std::length_error: the limit
///          asks for more than `most_cell_planes` planes, or for pieces without end;
///          std::bad_alloc
/// cost     O(n log n); about 60 bytes per triangle while it runs, 30 after it;
///          with cuts 8 more, and about 220 per piece
MORVA_API cell_division divideModel(const std::vector<::osg::NodePtr>& parts,
                                    const model_cell_options& options);

/// A cell as a scene, held by nobody yet: a group, in it for each share a geometry node with the
/// part's name, traversal mask and the material that it shows, below a transform where the part is
/// placed by one. Vertices are those in use, all properties with them, one index for all; elements
/// are in the order of the part. Pieces take interpolated values, and the ID of their triangle.
/// With new normals an index per property, and lines and points in a node of their own behind.
/// errors  std::out_of_range: there is no such cell; std::bad_alloc
MORVA_API ::osg::NodePtr cellScene(const cell_division& division, std::size_t cell);

} // namespace morva::osg
