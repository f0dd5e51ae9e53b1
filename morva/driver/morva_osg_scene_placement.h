#pragma once

// Moves a finished scene in space, and gives it one material.
//
//     transformSceneBB      fits it into a box, keeping its proportions
//     centerGeoPositions    bakes all transforms in and moves its centre to a point
//     baseGeoPositions      moves its lowest corner to the origin, down to a whole unit
//     applyTransform        the step below: one matrix on all positions
//     change..., reduce...  another material for nodes and scenes
//
// Places are written into the vertices; normals and all else stay, so that a matrix with a
// rotation leaves the normals behind. A core that several nodes share is moved once for each of
// them, but by centerGeoPositions(), which gives each node a core of its own.
//
// A material group above a geometry takes a change of material for all that hangs below it; a
// geometry without one takes it itself.
//
// Caller's thread and aspect, no locks. Null nodes are accepted.

#include <string>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGVector.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Moves every position, used or not, by a matrix; the bottom row of the matrix has no say. All
/// arithmetic is in double precision. Trees for picking stay as they are: call mark_bih().
MORVA_API void applyTransform(::osg::GeometryPtr geometry,
                              ::osg::TransformationMatrix<double> const& matrix);
/// The same for the topmost geometries of a subtree, once per node. Transforms on the way do not
/// count: the matrix acts in each geometry's own space. Call mark_bih() here, too.
MORVA_API void applyTransform(::osg::NodePtr node,
                              ::osg::TransformationMatrix<double> const& matrix);

/// Scales and moves a scene into a box: the lower corners meet, and the tightest axis fills it.
/// Trees for picking stay as they are, with all three forms: call mark_bih().
///
/// min, max  lowest and highest corner, world units; a NaN passes for valid
/// prints    why nothing is done: the box is flat or inside out, or the scene's is empty or flat
MORVA_API void transformSceneBB(::osg::NodePtr node, ::osg::Pnt3f const& min,
                                ::osg::Pnt3f const& max);
/// Into a cube of this edge length around the origin; 0, negative and NaN do nothing.
MORVA_API void transformSceneBB(::osg::NodePtr node, float size);
/// Into the box of a text: "1:2:3:4:5:6" is the lowest corner, then the highest. Further numbers
/// are ignored; with fewer a line is printed and nothing is done.
MORVA_API void transformSceneBB(::osg::NodePtr node, std::string list);

/// Bakes the transforms below `node` into copies of the cores, one per node, and moves the centre
/// of the node's own volume to the point of the text, as in "1:2:3".
///
/// Geometry under switches and levels of detail moves along; hidden nodes and those that must be
/// left alone only lose their transforms. Does nothing without geometry to move.
/// prints  the new centre and the offset, or that the text has fewer than three numbers
MORVA_API void centerGeoPositions(::osg::NodePtr node, std::string list);

/// Subtracts the lowest coordinate of all geometry, rounded down to a whole number, from every
/// position, axis by axis. Keeps the precision of models that lie far from the origin.
///
/// Does nothing if a transform stands above some geometry. Nodes under switches and levels of
/// detail, and those that must be left alone, stay. Trees for picking stay as they are: call
/// mark_bih().
MORVA_API void baseGeoPositions(::osg::NodePtr node);

/// Gives `node` a material: through the outermost material group above it, or else in its own
/// geometry core. A node that shows this material already is left alone.
MORVA_API void changeMaterialForNode(::osg::NodePtr node, ::osg::MaterialPtr material);

/// changeMaterialForNode() for every geometry node that a merge would take, transparent ones
/// last. Nodes under switches and levels of detail, and those that must be left alone, stay.
MORVA_API void changeMaterialsInScene(::osg::NodePtr node, ::osg::MaterialPtr material);

/// The material with the most primitives (see getNumberOfPrimitives), null being a material like
/// any other. Of equals null, or else the one that the walk meets first; null if nothing counts.
MORVA_API ::osg::MaterialPtr getMostUsedMaterialInScene(::osg::NodePtr node);

/// Gives the whole scene its most used material.
MORVA_API void reduceSceneMaterialsToOne(::osg::NodePtr node);

} // namespace morva::osg
