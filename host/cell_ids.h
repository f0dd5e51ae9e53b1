#pragma once

// The IDs that a model brings, on their way into its cells.
//
//     .glb, .gltf   rows of the file's part table become IDs in coordinate set 7, and each cell
//     gets
//                   the whole table: a row means the same part in all of them
//     .osb          set 7 is there; the ID map of the root goes with each cell, and becomes a part
//                   table where that is what a file has

#include <optional>
#include <string>
#include <vector>

#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGStringAttributeMap.h>

#include "model.h"
#include "part_table.h"

namespace morva::host {

class cell_ids {
  public:
    /// Reads the IDs of a model as it came, and puts those of a part table into its cores.
    /// notes   out: what can't be kept, one sentence each
    /// errors  host_error: the file is damaged where it tells of parts
    cell_ids(const std::string& path, const model& read, std::vector<std::string>& notes);

    /// For writeModel(); null without IDs.
    const part_table* table() const { return table_ ? &*table_ : nullptr; }
    /// Whether the root has a map that knows nodes by their names, which must stay then.
    bool goesByNames() const { return !maps_.empty(); }
    /// Gives a cell's root the map of the model's root.
    void attachTo(const ::osg::NodePtr& root) const;

  private:
    struct bound_map {
        ::osg::StringAttributeMapRefPtr map;
        ::osg::UInt16 binding;
    };
    std::optional<part_table> table_;
    std::vector<bound_map> maps_;
};

} // namespace morva::host
