#pragma once

// Whether the vertices of a geometry have an index for a property.
//
//     mapping    {positions, normals} {colours}       two indices per vertex
//     indices    7 2   3 0   9 2  ...                 texture coordinates: none
//
// Without indices a vertex takes the row of its own running number, with indices and no mapping one
// index serves all properties. What a primitive iterator gives for a property that no mapping entry
// names is any number, so it is not asked then. Any number of threads may ask.

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

/// False if the mapping of an indexed geometry has no entry for this map bit. Says nothing of
/// whether the property is there. `geometry` must not be null.
inline bool hasIndex(const ::osg::GeometryPtr& geometry, ::osg::UInt16 bit) {
    return geometry->getIndices() == ::osg::NullFC || geometry->getMFIndexMapping()->size() == 0 ||
           geometry->calcMappingIndex(bit) >= 0;
}

} // namespace morva::osg
