#pragma once

// Shared vertices for lines and points: what createSingleIndex() and createSharedIndex() do for
// triangles, which drop every other primitive on the way.
//
//     lines        A B  B C  C A             unindexed: 6 rows per property
//     one index    0 1  1 2  2 0             3 rows per property
//     per property 00 11  11 20  20 00       interleaved, each property by its own values
//
// Rows are equal if all components are, 0.0 and -0.0 included; a NaN equals nothing. Numbers go by
// first use.

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

/// Gives an unindexed geometry an index and takes repeated rows out of its positions, normals,
/// colours, secondary colours and texture coordinates 7. Primitives stay as they are.
///
/// per_property  one index per property, with one mapping entry each, instead of one for all
/// errors        std::bad_alloc; the geometry may then be half done
void indexVertices(const ::osg::GeometryPtr& geometry, bool per_property);

} // namespace morva::osg
