#pragma once

// Parts and assemblies by what a user calls them.

#include <string>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGNode.h>

#include "part_names.h"

namespace morva::host {

class node_names {
  public:
    explicit node_names(const ::osg::NodePtr& root);

    /// The node of that path, or the one node of that name in the file. A node and its only child
    /// of the same name are one: the upper of them is meant.
    ///
    /// errors  host_error with exit_usage: there is none, or there are several, which are listed
    ::osg::NodePtr find(const std::string& name) const;

    /// Name and path of a node below the root.
    const named_part& of(const ::osg::NodePtr& node) const;

  private:
    std::vector<named_part> nodes_;
    std::unordered_map<::osg::UInt32, std::size_t> by_node_; ///< place in `nodes_`
};

} // namespace morva::host
