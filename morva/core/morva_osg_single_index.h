#pragma once

// The five property indices of one corner as one ordered value.
//
// Two corners are the same vertex of a singly indexed geometry if their records are equal. The
// order is lexicographic over the fields in declared order, by signed numbers.

#include <tuple>

#include <OpenSG/OSGBaseTypes.h>

namespace morva::osg {

/// Indices of one corner; -1 where the geometry lacks the property.
struct singleIndexStruct {
    ::osg::Int32 position = -1;
    ::osg::Int32 normal = -1;
    ::osg::Int32 color = -1;
    ::osg::Int32 texCoord = -1;  ///< texture slot 0
    ::osg::Int32 texCoord7 = -1; ///< texture slot 7

    bool operator<(const singleIndexStruct& other) const {
        return std::tie(position, normal, color, texCoord, texCoord7) <
               std::tie(other.position, other.normal, other.color, other.texCoord, other.texCoord7);
    }
};

} // namespace morva::osg
