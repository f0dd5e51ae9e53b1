#pragma once

// Cut points by edge, so that two triangles with a common edge get one point on it.
//
//     split_points points;
//     points.store(p, q, cut);
//     points.find(q, p);        // the same cut: an edge has no direction
//     points.clear();           // the next plane
//
// Keys meet exactly, number by number: -0.0 is 0.0, a NaN is like nothing. There is no tolerance,
// since a seam stays closed only if both sides come to the same bits.
//
// A table with open addressing over a list of entries; emptying costs what was stored, not what
// the table holds, since a build empties it at each node. One thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// The cut points of one plane. Invariant: `slots` is empty or a power of two above twice the
/// number of entries, and holds each entry's number plus 1 once; all else in it is 0.
class MORVA_API split_points {
  public:
    /// The point stored for the edge between `p` and `q`, in either direction; null if none is.
    /// Valid until the next store() or clear().
    const ::osg::Pnt3d* find(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q) const;

    /// Stores the point of an edge that find() does not know.
    /// errors  std::bad_alloc; nothing is stored then
    void store(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, const ::osg::Pnt3d& cut);

    void clear();
    std::size_t size() const { return entries.size(); }
    bool empty() const { return entries.empty(); }

  private:
    struct entry {
        ::osg::Pnt3d p, q, cut;
        std::uint64_t hash;
    };

    void place(std::size_t index);

    std::vector<entry> entries;
    std::vector<std::uint32_t> slots;
};

} // namespace morva::osg
