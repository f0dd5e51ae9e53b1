#pragma once

// Bringing a scene into the state in which the vertices of a geometry have one value each.
//
//     own cores      what is baked into a core shows at one place only
//     materials      go, or into the vertices: see PrepareGeometryForAO()
//     single index   each row of the positions is a vertex, and all properties follow it
//
// Caller's thread and aspect.

#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>

namespace morva::osg {

/// Gives a node a copy of its core if another node holds that core, too.
void giveOwnCore(const ::osg::NodePtr& node);

/// Gives a copy of its core to each node that holds one that another node of the list held before,
/// or that a node outside holds.
///
/// nodes  with geometry cores, each once
void giveOwnCores(const std::vector<::osg::NodePtr>& nodes);

/// PrepareGeometryForAO() for each of them. What else shows a material group's material keeps it.
void prepareAll(const std::vector<::osg::NodePtr>& nodes, bool replaceColors);

/// The platform's createSharedIndex, where it joins all that is equal, and createSingleIndex: each
/// property has one row per vertex. Nothing without positions.
void giveSingleIndex(const ::osg::GeometryPtr& geometry);

/// The same with normals made anew in between, smooth over each shared position.
void giveNewNormals(const ::osg::GeometryPtr& geometry);

} // namespace morva::osg
