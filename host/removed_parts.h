#pragma once

// Which parts interior removal took off a scene, and a scene of them, so that it can be undone.
//
//     removal_watch watch(root, parts);
//     optTree(root, "ambientgutout(true),...");
//     const std::vector<std::size_t> gone = watch.removed(result);
//     writeModel(watch.sceneOf(gone).get(), ...);

#include <cstddef>
#include <vector>

#include <OpenSG/OSGMaterial.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include "part_names.h"

namespace morva::host {

/// Holds the parts of a scene over a run.
class removal_watch {
  public:
    /// Until the end of this the root stands below a group, which tells it from what has left it.
    ///
    /// parts  of the scene below `root`, which has no parent
    removal_watch(const ::osg::NodePtr& root, const std::vector<named_part>& parts);
    removal_watch(const removal_watch&) = delete;
    removal_watch& operator=(const removal_watch&) = delete;
    ~removal_watch();

    /// After the run: the places in `parts` of those that are in no scene any more, ascending.
    std::vector<std::size_t> removed(const ::osg::NodePtr& result) const;

    /// Some of the parts where they were, with the materials that they showed, by their names.
    ::osg::NodeRefPtr sceneOf(const std::vector<std::size_t>& places) const;

  private:
    struct held_part {
        ::osg::NodeRefPtr node;
        ::osg::NodeCoreRefPtr core;
        ::osg::MaterialRefPtr material; ///< that it shows; may be null
        ::osg::Matrix to_world;
        std::string name;
    };

    ::osg::NodeRefPtr root_, above_;
    std::vector<held_part> parts_;
};

} // namespace morva::host
