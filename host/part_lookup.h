#pragma once

// From a triangle that was hit to the part that it belongs to.
//
//     scene of a file     what the file tells of its parts (.glb and .gltf with features, .osb with
//                         an ID map in its root), else the node that was hit
//     optTree()'s result  the ID map in its root, else the node if it kept its name, else its place
//                         among the parts that are carried over in a new draw order
//
// One thread.

#include <string>
#include <unordered_map>
#include <vector>

#include <OpenSG/OSGNode.h>

#include <morva/picking/morva_osg_ray_hits.h>

#include "feature_ids.h"
#include "model.h"
#include "part_names.h"
#include "root_id_map.h"

namespace morva::host {

/// What the part behind a hit is called.
struct part_label {
    std::string name; ///< as in the source file; empty if it has none
    std::string path; ///< of this part alone; empty: there is no telling the part
    std::string core; ///< the node that was hit, where it may hold other parts too
};

/// The geometry nodes of a scene as parts.
class node_parts {
  public:
    explicit node_parts(const std::vector<named_part>& parts);

    /// The part whose node was hit.
    part_label of(const morva::osg::ray_hit& hit) const;
    /// Null: none of them has the path.
    const part_label* at(const std::string& path) const;

  private:
    std::unordered_map<std::string, part_label> by_path_;
    std::unordered_map<::osg::UInt32, const part_label*> by_node_;
};

/// The parts of a file, by what it tells of them.
class file_parts {
  public:
    /// errors  host_error: the file is damaged where it tells of parts
    file_parts(const std::string& path, const model& read, const node_parts& nodes);

    part_label of(const morva::osg::ray_hit& hit) const;

  private:
    feature_ids features_;
    root_id_map ids_;
    const node_parts& nodes_;
};

/// The parts of a run's result.
class result_parts {
  public:
    /// sources  parts of the scene that went in, which has their unique names; must stay
    /// carried  what carriedParts() gave before the run
    result_parts(const ::osg::NodePtr& result, const node_parts& sources,
                 const std::vector<std::string>& carried);

    part_label of(const morva::osg::ray_hit& hit) const;

  private:
    std::string nameOf(const morva::osg::ray_hit& hit, const std::string& core) const;

    ::osg::NodePtr root_;
    root_id_map ids_;
    const node_parts* sources_;
    std::unordered_map<::osg::UInt32, std::string> carried_; ///< by child of the root
};

/// The names of the parts that a run takes over as they are, but under names of its own, in the
/// order in which they come out. Ask before the run, as it takes the scene apart.
std::vector<std::string> carriedParts(const ::osg::NodePtr& root, const std::string& parameters);

} // namespace morva::host
