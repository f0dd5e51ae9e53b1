#pragma once

// Gives a scene another material. A material group above a geometry takes the change for all that
// hangs below it; a geometry without one takes it itself.
//
// Caller's thread and aspect, no locks. Null nodes are accepted.

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGNode.h>

#include <morva/core/morva_export.h>

namespace morva::osg {

/// Gives `node` a material: through the outermost material group above it, or else in its own
/// geometry core. A node that shows this material already is left alone.
MORVA_API void changeMaterialForNode(::osg::NodePtr node, ::osg::MaterialPtr material);

/// changeMaterialForNode() for every geometry node that a merge would take, transparent ones
/// last. Nodes under switches and levels of detail, and those that must be left alone, stay.
MORVA_API void changeMaterialsInScene(::osg::NodePtr node, ::osg::MaterialPtr material);

/// The material with the most primitives (see getNumberOfPrimitives), null being a material like
/// any other. Of equals the first in the order of material pointers; null if nothing counts.
MORVA_API ::osg::MaterialPtr getMostUsedMaterialInScene(::osg::NodePtr node);

/// Gives the whole scene its most used material.
MORVA_API void reduceSceneMaterialsToOne(::osg::NodePtr node);

} // namespace morva::osg
