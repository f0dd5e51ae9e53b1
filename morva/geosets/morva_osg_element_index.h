#pragma once

// Shared vertices with every property that a geometry has, for any primitives:
// rebuildAsTriangles() handles triangles alone, and five of the properties.
//
//     lines        A B  B C  C A             unindexed: 6 rows per property
//     one index    0 1  1 2  2 0             3 rows per property
//     per property 00 11  11 20  20 00       interleaved, each property by its own values
//
// Rows are equal if all components are, 0.0 and -0.0 included; a NaN equals nothing. Numbers go by
// first use.

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

/// Gives an unindexed geometry an index and takes repeated rows out of its properties. Primitives
/// stay as they are. All properties have a row for each position, in the forms that MakeGeoCore()
/// makes; the further coordinate sets and secondary colours come behind the rest.
///
/// per_property  one index per property, with one mapping entry each, instead of one for all
/// errors        std::bad_alloc; the geometry may then be half done
void indexVertices(const ::osg::GeometryPtr& geometry, bool per_property);

/// Gives every vertex a row of its own in all properties, and takes the index away. Coordinate
/// sets come out with two components. Primitives stay, so they must use the vertices in order.
///
/// errors  as for indexVertices()
void unindexVertices(const ::osg::GeometryPtr& geometry);

/// Whether a geometry has properties that rebuildAsTriangles() leaves out.
bool hasFurtherProperties(const ::osg::GeometryPtr& geometry);

} // namespace morva::osg
