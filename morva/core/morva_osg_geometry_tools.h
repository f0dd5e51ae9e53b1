#pragma once

// Questions about geometry, index rebuilding, and the moves of colour between materials and
// vertices.
//
//     counts          getNumberOfPrimitives, getVertexCount, counttriangles, ... and those of
//                     morva_osg.h
//     tests           is_rogue, isVertexCountBelowThreshold, hasVertexColors, checkGeoProperties
//     index           joinEqualVertices: equal vertices share an index
//                     createSharedIndex: one index per property; createSingleIndex: one for all
//     colour          VertexColorIntoMaterial, MaterialColorIntoVertex, setMaterialInGeometry
//
// All work in the calling thread's aspect without locks; what edits does so in place. Null
// geometries and nodes are accepted unless told otherwise.

#include <algorithm>
#include <cmath>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg.h>
#include <morva/core/morva_osg_single_index.h>

namespace morva::osg {

/// Whether a triangle is seen to be sound at one look, without a branch: then is_rogue() does not
/// hold for it. Most triangles are; of the others nothing is said.
inline bool isPlainlySound(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
    float ab = 0.F, bc = 0.F, ca = 0.F, reach = 0.F, spread[3];
    for (unsigned int i = 0; i < 3; ++i) {
        const float x = std::abs(a[i] - b[i]), y = std::abs(b[i] - c[i]), z = std::abs(c[i] - a[i]);
        ab += x;
        bc += y;
        ca += z;
        spread[i] = x + y; // 0: all three are equal on this axis
        reach += std::abs(a[i]) + std::abs(b[i]) + std::abs(c[i]);
    }
    const float second = std::max(std::min(spread[0], spread[1]),
                                  std::min(std::max(spread[0], spread[1]), spread[2]));
    // A sum beyond 4e-6 has a term beyond 1e-6, and one below the limit none beyond it. What is no
    // number fails the last.
    return static_cast<int>(ab > 4e-6F) & static_cast<int>(bc > 4e-6F) &
           static_cast<int>(ca > 4e-6F) & static_cast<int>(second > 0.F) &
           static_cast<int>(reach <= 999999995904.0F);
}

/// Whether a triangle must not be kept: two corners coincide within 1e-6 on every axis, or all
/// lie on a line along an axis, or a coordinate is beyond +-999999995904 or NaN.
inline bool is_rogue(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
    if (isPlainlySound(a, b, c))
        return false;
    // Written so that a NaN in a difference means apart, and is found further down.
    const auto coincide = [](const ::osg::Pnt3f& p, const ::osg::Pnt3f& q) {
        for (unsigned int i = 0; i < 3; ++i) {
            if (!(p[i] - q[i] <= 1e-6F && q[i] - p[i] <= 1e-6F))
                return false;
        }
        return true;
    };
    if (coincide(a, b) || coincide(b, c) || coincide(a, c))
        return true;
    unsigned int equal_axes = 0;
    for (unsigned int i = 0; i < 3; ++i)
        equal_axes += a[i] == b[i] && b[i] == c[i] ? 1 : 0;
    if (equal_axes >= 2)
        return true;
    for (const ::osg::Pnt3f* p : {&a, &b, &c}) {
        for (unsigned int i = 0; i < 3; ++i) {
            if (!((*p)[i] <= 999999995904.0F && (*p)[i] >= -999999995904.0F))
                return true;
        }
    }
    return false;
}

/// Area by the edge vectors from `a`: products in single precision, root in double. 0 if the
/// result is not finite.
MORVA_API double triangle_area(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c);

/// Points n, lines n/2, triangles n/3, strips, fans and polygons n-2, quads n/2; line loops, line
/// strips and quad strips count nothing. 0 for what is no geometry or lacks types or lengths.
MORVA_API unsigned int getNumberOfPrimitives(const ::osg::NodePtr& node);
/// Sum over the nodes.
MORVA_API unsigned int getNumberOfPrimitives(std::vector<::osg::NodePtr> nodes);

/// How many of the classes points, lines and triangles occur. Line loops, line strips and quad
/// strips belong to none.
MORVA_API unsigned int getNumberOfPrimitiveTypes(const ::osg::NodePtr& node);

/// Vertices of one primitive of a class: 0 gives 1, 1 gives 2, 4 gives 3, all else 0.
MORVA_API unsigned int getVertexCountOfPrimitiveType(int primitive_class);

/// Whether no property of the node's geometry has more than `threshold` entries. The coordinate
/// sets 3 to 6 are not looked at. True for what is no geometry.
MORVA_API bool isVertexCountBelowThreshold(const ::osg::NodePtr& node, unsigned int threshold);

/// Sum of all primitive lengths over the nodes, whatever the type. The nodes must not be null.
MORVA_API unsigned int getVertexCount(std::vector<::osg::NodePtr>& nodes);
/// The same over what getGeometryNodes(root, nodes, false) lists.
MORVA_API unsigned int getVertexCount(::osg::NodePtr root);

/// Triangles, over all primitive types, that is_rogue() does not hold for. Two names, one count.
MORVA_API unsigned int count_triangles(const ::osg::GeometryPtr& geometry);
MORVA_API unsigned int counttriangles(const ::osg::GeometryPtr& geometry);

/// Whether some node has a geometry with at least one vertex colour.
MORVA_API bool hasVertexColors(std::vector<::osg::NodePtr>& nodes);

/// Lets all vertices of a geometry whose stored bytes are equal share the index that comes first.
///
/// Per entry of the index mapping, over the properties of the entry; over all of them if the
/// mapping is empty. A missing index is made, 0, 1, 2, ..., and the mapping cleared then.
/// Properties, types, lengths and the form of the indices stay; indices that lead nowhere stay as
/// they are. -0 and 0 are different, equal NaNs are equal. Does what ::osg::createSharedIndex is
/// meant to do; some releases of that one join with the first of several unlike vertices at one
/// place alone. cost   linear on average method open addressing on the bytes of the elements
/// Trees for picking stay as they are: call mark_bih().
MORVA_API void joinEqualVertices(const ::osg::GeometryPtr& geometry);

/// Flattens a geometry to one run of triangles and indexes every property on its own.
///
/// Positions, normals, colours and the coordinate sets 0 and 7 lose their duplicates, each
/// property for itself; values stay in order of first use. Each corner has one index per present
/// property, in this order. Values are equal if no component is greater or smaller than the
/// other's: 0 and -0 are equal, the first met stays; a NaN equals nothing. Colours keep three
/// components. Lines and points go; other properties stay and are mapped no more.
/// cost   linear on average
/// method open addressing on the bits of the values
/// Trees for picking stay as they are: call mark_bih().
MORVA_API void createSharedIndex(::osg::GeometryPtr geometry);

/// createSharedIndex(), then one common index: every distinct corner stands once in each of the
/// five properties, corners numbered by first use. The index mapping ends empty.
/// Trees for picking stay as they are: call mark_bih().
MORVA_API void createSingleIndex(::osg::GeometryPtr geometry);

/// Turns a uniform vertex colour (equal within 1e-6 per component) into a material of the
/// geometry's own and drops the vertex colours.
///
/// withAlpha  four components, with a blend chunk; a geometry without such colours prints
///            "Sorry No AlphaColor" and counts as done
/// returns    false if the geometry has a material already, has no colours, or several
MORVA_API bool VertexColorIntoMaterial(::osg::GeometryPtr geometry, bool withAlpha);

/// Bakes the colour of a node's material into its vertices and takes the material away.
///
/// Present vertex colours are mixed half and half, others are made. A textured material, one
/// without a colour and a fully transparent one stay; so does a material group above.
/// returns  whether the colour was baked
MORVA_API bool MaterialColorIntoVertex(::osg::NodePtr node);

/// Gives a geometry without a material of its own the one that it shows.
MORVA_API void setMaterialInGeometry(::osg::NodePtr& node);

/// Takes the geometry nodes that show no material at all out of a scene, and returns them below
/// a new group, or null if there are none.
MORVA_API ::osg::NodePtr CollectNonMaterialNodes(::osg::NodePtr root);

/// A new geometry of one primitive type, triangles or lines, without lengths and positions yet.
MORVA_API ::osg::GeometryPtr createGeo();
MORVA_API ::osg::GeometryPtr createLineGeo();

/// Takes empty normals, colours and coordinate sets 0 to 3 off a geometry, and returns whether it
/// has types, lengths and positions, so that it can be drawn.
MORVA_API bool checkGeoProperties(::osg::GeometryPtr geometry);

} // namespace morva::osg
