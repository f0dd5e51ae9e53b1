#pragma once

// One node on its way to several: its triangles in a sorted tree, and what comes in its place.
//
//     node_triangles triangles(node, options);
//     if (triangles.sort(setup)) {
//         fresh<::osg::NodePtr> made(triangles.split(parts, limit, options));
//         const ::osg::NodePtr now = putInPlace(node, made);
//     }

#include <cstdint>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_osg_fresh.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/tools/morva_divide_geonodes.h>
#include <morva/trees/kd_records.h>

namespace morva::osg {

/// The triangles of one geometry node in its own space. `tree` is over all of `geoset` once sort()
/// has returned true.
struct node_triangles {
    node_triangles(const ::osg::NodePtr& node, const division_options& options);

    /// Builds the tree; false if there are no triangles.
    bool sort(const kd_build_setup& setup);

    /// Split() from the root, without a model.
    ::osg::NodePtr split(int parts, unsigned int limit, const division_options& options) const;

    /// Whether one of the root's sides has all triangles; false if the root is a leaf.
    bool allOnOneSide() const;

    osg_geoset geoset;
    kd_tree<float> tree;
};

/// Puts a new node in the place of a geometry node, and gives it that one's name, mask, other
/// attachments, and behind its own children that one's and a node with its lines and points. A node
/// without a parent stays, and takes core and children of the new one.
///
/// made     released, or destroyed
/// returns  the node that stands there now
/// errors   std::bad_alloc
::osg::NodePtr putInPlace(const ::osg::NodePtr& node, fresh<::osg::NodePtr>& made);

} // namespace morva::osg
