#pragma once

// The vertices of many geometries on a few threads, with an end for each geometry in their order.
//
//     caller     0 0 0 end(0)  1 1 . end(1) ...    takes pieces as the others do, and ends what is
//     helper 1   0 0 1 1 1 2 2 ...                 finished, in order
//     helper 2   0 0 1 1 2 2 2 ...
//
// The helpers are none of the scene graph's threads: work on pieces must touch plain memory only.
// Ends run on the caller's thread and may do anything. What they print is the same for any number
// of threads.

#include <cstddef>
#include <functional>
#include <vector>

namespace morva::osg {

/// How many elements each geometry has, and what to do with them.
struct vertex_work {
    std::vector<std::size_t> counts; ///< one per geometry
    /// Does elements `first` to `last`, the latter left out, of a geometry; any thread.
    std::function<void(std::size_t geometry, std::size_t first, std::size_t last)> piece;
    /// Once all pieces of the geometry are done; caller's thread, in order, also for empty ones.
    std::function<void(std::size_t geometry)> end;
};

/// Says how far a bake is: the end of geometry `number` of `count`, in per cent and without a line
/// end; for a sink `done` of `total` elements.
struct work_progress {
    std::size_t done = 0;
    std::size_t total = 1;

    /// On standard output "\r", the share of the geometries in front of this one, "%".
    void sayEnd(std::size_t number, std::size_t count) const;
    /// Nothing on standard output.
    void sayPiece() const;
};

/// Does it all.
///
/// threads   at work at a time, the caller's included; below 1 is as 1. Fewer where the system has
///           no more
/// progress  out: kept up to date, for `end` to say
/// errors    the first exception of a piece or an end, once all threads are done
void doInOrder(const vertex_work& work, unsigned int threads, work_progress& progress);

} // namespace morva::osg
