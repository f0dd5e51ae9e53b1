#pragma once

// The ID map that a run attached to the root of its result: which part a triangle came from.
//
//     object of a core's tree -> first corner of its triangle -> coordinate set -> ID -> name
//
// The set is the one that the map names for the node, or set 7 where none was free. A node that has
// neither came out under its own name and has no IDs.

#include <string>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>
#include <OpenSG/OSGStringAttributeMap.h>

namespace morva::host {

class root_id_map {
  public:
    /// Without attachments at `root` nothing has an ID.
    explicit root_id_map(const ::osg::NodePtr& root);

    /// The input name that the ID of a triangle stands for; empty: it has none.
    ///
    /// node    with a geometry below the root
    /// object  number of the triangle in the core's tree
    std::string nameOf(const ::osg::NodePtr& node, unsigned int object) const;

  private:
    ::osg::StringAttributeMapRefPtr sets_, names_;
};

} // namespace morva::host
