#pragma once

// The edges of a triangle mesh, the cheapest first, while their ends move.
//
//     triangle t      corners 3 t, 3 t + 1, 3 t + 2; edge 3 t + k goes from corner k to the next
//     cost            length + references of its start + references of its end
//     first of all    of equal costs the edge with the lowest number
//
//         5                         least of all         a node: the least of eight below it,
//      5       6                    one node per eight   in one line of the cache; a change goes
//     9 5 7   6 8                   least cost by        up as long as it changes the node above
//     | | |   | |                   triangle
//
//     edge_queue queue(places, corners, uses);
//     for (bool more = queue.hasNext(); more; more = queue.findNext())
//         const vertex_pair taken = queue.collapse();
//
// A collapse of the edge (a, b) moves a to the middle, and a takes over the references of b. The
// ends of other edges stay: one that names b still means the place that b had. So only the edges
// that name a change, and which those are never changes.
// One thread.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include <OpenSG/OSGVector.h>

#include <morva/core/morva_span.h>

namespace morva::osg {

/// A vertex that stays at the middle of an edge, and the one that goes into it.
struct vertex_pair {
    ::osg::UInt32 kept = 0;
    ::osg::UInt32 gone = 0;
};

/// Moves the kept end of a collapsed edge to the middle.
inline void moveToMiddle(::osg::Pnt3f& kept, const ::osg::Pnt3f& gone) {
    for (unsigned int i = 0; i < 3; ++i)
        kept[i] = kept[i] + (gone[i] - kept[i]) * 0.5F;
}

/// Distance of two places: differences in single precision, all else in double.
inline double distanceBetween(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b) {
    const auto apart = [&](unsigned int i) { return static_cast<double>(b[i] - a[i]); };
    const double x = apart(0), y = apart(1), z = apart(2);
    return std::sqrt(x * x + y * y + z * z);
}

/// Where the corners of each vertex are after the first `count` collapses: at which vertex.
template <typename Pairs>
std::vector<::osg::UInt32> fates(std::size_t vertices, const Pairs& pairs, std::size_t count) {
    std::vector<::osg::UInt32> fate(vertices);
    std::iota(fate.begin(), fate.end(), 0U);
    // From the last one back: those that are at `gone` share what becomes of those at `kept`.
    for (std::size_t i = count; i-- > 0;)
        fate[pairs[i].gone] = fate[pairs[i].kept];
    return fate;
}

/// The edges of triangles at the corners of one vertex.
inline std::size_t edgeFrom(std::size_t corner) { return corner; }
inline std::size_t edgeTo(std::size_t corner) { return corner % 3 == 0 ? corner + 2 : corner - 1; }
/// The corner that an edge leads to.
inline std::size_t endOf(std::size_t edge) { return edge % 3 == 2 ? edge - 2 : edge + 1; }

/// Corners by vertex: those of vertex v are `corners[first[v]]` up to `corners[first[v + 1]]`.
struct vertex_uses {
    vertex_uses(std::size_t vertices, span<const ::osg::UInt32> vertex_of_corner);

    span<const ::osg::UInt32> of(std::size_t vertex) const {
        return {corners.data() + first[vertex], first[vertex + 1] - first[vertex]};
    }
    std::size_t count(std::size_t vertex) const { return first[vertex + 1] - first[vertex]; }

    std::vector<::osg::UInt32> first;   ///< one per vertex, and the number of corners
    std::vector<::osg::UInt32> corners; ///< ascending for each vertex
};

/// Vertices at the end of an open edge: one that a single triangle has, between vertices that it
/// has once.
std::vector<bool> borderVertices(const vertex_uses& uses, span<const ::osg::UInt32> corners);

/// Numbers whose least can be asked for while they change.
class least_tree {
  public:
    /// Takes the numbers, none of them a NaN; what is not below the largest double never comes out.
    explicit least_tree(std::vector<double> numbers);

    double operator[](std::size_t place) const { return levels_[0][place]; }
    /// Asks for a number and the node above.
    void fetch(std::size_t place) const {
        __builtin_prefetch(&levels_[0][place]);
        __builtin_prefetch(&levels_[1][place / 8]);
    }
    /// Changes a number without the nodes above it: mend(place) or mendAll() must follow.
    void put(std::size_t place, double number) { levels_[0][place] = number; }
    void mend(std::size_t place);
    void mendAll();
    /// What mendAll() costs, in calls of mend().
    std::size_t mendsOfAll() const { return levels_[0].size() / (8 * levels_.size()); }

    /// The first place of the least number, or `none`.
    std::size_t least() const;
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

  private:
    /// The numbers, then the nodes, up to a level of one; each filled up to a multiple of eight.
    std::vector<std::vector<double>> levels_;
};

class edge_queue {
  public:
    /// places   one per vertex
    /// corners  3 vertices per triangle, each below the number of places; stays with the caller
    /// uses     of these corners, for as long as this lives
    /// locked   vertices whose edges are never taken; empty: none
    edge_queue(span<const ::osg::Pnt3f> places, span<const ::osg::UInt32> corners,
               const vertex_uses& uses, const std::vector<bool>& locked = {});

    /// Edges that were not taken yet.
    std::size_t edges() const { return left_; }

    /// Takes the chosen edge and changes what depends on it. The first edge is chosen from the
    /// start, whatever its cost, unless it is locked.
    vertex_pair collapse();

    /// Chooses the edge of the least cost; false if none is left that has one. NaN and infinity
    /// are none.
    bool findNext();
    bool hasNext() const { return chosen_ != least_tree::none; }

    /// The ends of the chosen edge.
    vertex_pair next() const { return {corners_[chosen_], corners_[endOf(chosen_)]}; }

    ::osg::Pnt3f place(std::size_t vertex) const { return vertices_[vertex].place; }

  private:
    struct vertex_state {
        ::osg::Pnt3f place;
        ::osg::UInt32 references;
    };
    static constexpr std::uint8_t all_closed = 7;

    static std::vector<vertex_state> statesOf(span<const ::osg::Pnt3f> places,
                                              const vertex_uses& uses);
    static std::vector<std::uint8_t> closedEdges(span<const ::osg::UInt32> corners,
                                                 const std::vector<bool>& locked);
    std::vector<double> leastCosts() const;
    double costOf(std::size_t edge) const;
    double leastCost(std::size_t triangle) const;
    void recalculate(std::size_t vertex);

    span<const ::osg::UInt32> corners_;
    const vertex_uses& uses_;
    std::vector<vertex_state> vertices_;
    std::vector<std::uint8_t> closed_; ///< per triangle a bit for each edge: taken, or locked
    least_tree costs_;                 ///< per triangle: of its edges that are not closed
    std::size_t left_;
    std::size_t chosen_ = 0;
};

} // namespace morva::osg
