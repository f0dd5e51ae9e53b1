#pragma once

// Where a twin that follows an iterator of the scene graph must stop.

#include "tests/support/test.h"

namespace morva_test {

/// Whether the geometry's data has all `corners` vertices of the element at which the iterator
/// stands. Iterators may deliver a last one that it has not, and that must not be read.
template <typename Iterator> bool isWhole(const Iterator& it, ::osg::Int32 corners) {
    const ::osg::GeometryPtr geometry = it.getGeometry();
    const auto stride = ::osg::Int32(geometry->getIndexMapping().size());
    for (::osg::Int32 k = 0; k < corners; ++k) {
        const ::osg::Int32 place = it.getIndexIndex(k);
        const bool held =
            place < 0 ? it.getPositionIndex(k) < ::osg::Int32(geometry->getPositions()->size())
                      : place + (stride == 0 ? 1 : stride) <=
                            ::osg::Int32(geometry->getIndices()->size());
        if (!held)
            return false;
    }
    return true;
}

} // namespace morva_test
