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
// A table with open addressing over a list of entries. Emptying it costs next to nothing, since a
// build does so at each node: places in the table carry the number of the round that filled them.
// One thread.

#include <cstddef>
#include <cstdint>
#include <vector>

#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// The cut points of one plane. Invariant: `places` is empty or a power of two above twice the
/// number of entries, and holds the number of each entry once in the present round.
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

    struct place {
        std::uint32_t round = 0; ///< taken if that of the table
        std::uint32_t index = 0; ///< of an entry
    };

    void enter(std::size_t index);

    std::vector<entry> entries;
    std::vector<place> places;
    std::uint32_t round = 1;
};

} // namespace morva::osg
