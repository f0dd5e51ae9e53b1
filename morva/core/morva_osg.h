#pragma once

// Bridges between the scene graph and the scene-free half of the library: plain component copies
// between the two worlds' points, vectors and matrices, and the three counts of what a geometry
// draws. Also the process-wide counters of picking and collision.
//
// The counts have lists of primitive types of their own, which callers rely on:
//
//     type     points  lines  loop  lines-strip  tris  strip  fan   quads  quad-strip  polygon
//     tris     -       -      -     -            n/3   n-2    n-2   n/2    -           n-2
//     lines    -       n/2    n     n-1          -     -      -     -      -           -
//     points   -       n      -     -            -     -      -     -      -           -
//
// Read the calling thread's aspect, change nothing.

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_math.h>

namespace morva::osg {

/// Copies the components; neither converts nor normalises.
MORVA_API void set(math::vector<float, 3>& to, const ::osg::Vec3f& from);
MORVA_API void set(math::vector<float, 3>& to, const ::osg::Pnt3f& from);
MORVA_API void set(::osg::Vec3f& to, const math::vector<float, 3>& from);
MORVA_API void set(::osg::Pnt3f& to, const math::vector<float, 3>& from);
MORVA_API void set(math::transformation_matrix<float>& to, const ::osg::Matrix& from);

/// Sum over the primitives by the table above; integer divisions, unsigned arithmetic, so that a
/// strip shorter than 2 wraps. 0 for a null geometry or one without types or lengths. Entries
/// beyond the shorter of the two do not count.
MORVA_API unsigned int getNumberOfTriangles(::osg::GeometryPtr geometry);
MORVA_API unsigned int getNumberOfLines(::osg::GeometryPtr geometry);
/// Sums the lengths of line primitives: point primitives are not looked at.
MORVA_API unsigned int getNumberOfPoints(::osg::GeometryPtr geometry);

/// The same for the geometry core of a node; 0 for a null node or another core.
MORVA_API unsigned int getNumberOfTriangles(const ::osg::NodePtr& node);
MORVA_API unsigned int getNumberOfLines(const ::osg::NodePtr& node);
MORVA_API unsigned int getNumberOfPoints(const ::osg::NodePtr& node);

/// Counters of the process; each starts at 0, and a caller may set it. Threads add to them with
/// countOne(): a plain read beside that may be behind.
MORVA_API unsigned int& num_attachments(); ///< attachments that attach_bih() made
MORVA_API unsigned int& num_colltests();   ///< calls of collision()
MORVA_API unsigned int& num_picktests();   ///< cores that geometry_enter() tested

/// Adds 1 to a counter that other threads may add to.
inline void countOne(unsigned int& counter) { __atomic_fetch_add(&counter, 1U, __ATOMIC_RELAXED); }

} // namespace morva::osg
