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
    /// Lets those at the name `gone` join those at `kept`.
    void join(vertex_pair pair);

  private:
    static constexpr ::osg::UInt32 nobody = static_cast<::osg::UInt32>(-1);

    void killBetween(::osg::UInt32 smaller, ::osg::UInt32 larger);

    span<const ::osg::UInt32> corners_;
    const vertex_uses& uses_;
    std::vector<::osg::UInt32> class_at_;  ///< per name: a class, or `nobody`
    std::vector<::osg::UInt32> class_of_;  ///< per vertex
    std::vector<::osg::UInt32> next_;      ///< per vertex: the next of its class, in a ring
    std::vector<::osg::UInt32> class_use_; ///< per class: corners at its vertices
    std::vector<bool> dead_;               ///< per triangle
    ::osg::UInt32 live_ = 0;
};

} // namespace morva::osg
