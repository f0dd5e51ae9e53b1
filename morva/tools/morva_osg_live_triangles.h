#pragma once

// How many triangles still have three corners, while vertices go into each other.
//
//     names    a b c d        the places that the corners of triangles are at now
//     classes  {0 2} {1} - {3}       the vertices that came to be there; - nobody is
//
// A collapse lets the vertices at one name join those at another, and a triangle dies as soon as
// two of its corners are together. The smaller class is looked through: O(E log E) over all.
// One thread.

#include <cstddef>
#include <vector>

#include <morva/tools/morva_osg_edge_queue.h>

namespace morva::osg {

class live_triangles {
  public:
    /// Triangles that have a vertex twice are dead from the start. What is told stays with the
    /// caller, for as long as this lives.
    live_triangles(span<const ::osg::UInt32> corners, const vertex_uses& uses);

    ::osg::UInt32 count() const { return live_; }
    /// Asks for what join() will look at first.
    void fetch(vertex_pair pair) const {
        __builtin_prefetch(&vertices_[pair.kept]);
        __builtin_prefetch(&vertices_[pair.gone]);
    }
    /// Lets those at the name `gone` join those at `kept`.
    void join(vertex_pair pair);

  private:
    static constexpr ::osg::UInt32 nobody = static_cast<::osg::UInt32>(-1);

    /// What a number stands for as a name, a vertex and a class, together: most are all three.
    struct vertex_state {
        ::osg::UInt32 class_at = 0; ///< of those at the name, or `nobody`
        ::osg::UInt32 class_of = 0; ///< of the vertex
        ::osg::UInt32 next = 0;     ///< vertex: the next of its class, in a ring
        ::osg::UInt32 use = 0;      ///< class: corners at its vertices
    };

    void killBetween(::osg::UInt32 smaller, ::osg::UInt32 larger);

    span<const ::osg::UInt32> corners_;
    const vertex_uses& uses_;
    std::vector<vertex_state> vertices_; ///< one per number
    std::vector<bool> dead_;             ///< per triangle
    ::osg::UInt32 live_ = 0;
};

} // namespace morva::osg
