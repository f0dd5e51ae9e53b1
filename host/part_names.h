#pragma once

// One name per part, so that the ID map can tell parts apart.
//
//     root "engine"                 engine/block/bolt      first bolt
//       "block": bolt, bolt   ->    engine/block/bolt~2    second bolt
//       nameless group: cover       engine/#1/cover
//
// Names are safe inside JSON text as they stand: valid UTF-8 without quotes, backslashes and
// control characters; "/" only between the steps of the path.

#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>

namespace morva::host {

/// A node and what it is called in the file.
struct named_part {
    ::osg::NodePtr node;
    ::osg::UInt32 node_id;     ///< the node's container: no other one ever gets it
    std::string original_name; ///< of the node or else of its geometry; empty if neither has one
    std::string path;          ///< the unique name
    std::string name;          ///< what the node is called: the unique name, or the original one
};

/// Lists the geometry nodes below `root` in walk order.
///
/// rename  gives every one of them a unique name; group names and core names stay
std::vector<named_part> namedParts(const ::osg::NodePtr& root, bool rename);

/// Lists all nodes below `root`, itself included, as they are. Geometry nodes come first, with the
/// paths that they have for namedParts(); a path is taken by one node alone.
std::vector<named_part> namedNodes(const ::osg::NodePtr& root);

/// Makes the other texts of the tree that go into the ID map file safe in the same way: names of
/// groups and cores, keys and values of string attributes. Values keep quotes and backslashes,
/// which the file escapes. Safe texts stay as they are.
void makeTreeSafe(const ::osg::NodePtr& root);

/// A name made safe: what could break JSON or the path becomes "_".
std::string safeName(const std::string& name);

} // namespace morva::host
