#pragma once

// Views of the cores of a scene, each made once for all who look at the scene.
//
//     view_store views;
//     scene_statistics before = measureScene(root, measure::all, views);
//     report.plan = planAudit(root, parts, parameters, views);
//     views.clear();                                       before cores change
//
// Made by the scene graph's thread alone; what it gives can be read by any.

#include <map>

#include <OpenSG/OSGGeometry.h>

#include "geometry_view.h"

namespace morva::host {

class view_store {
  public:
    /// core  not null; its properties stay as they are as long as the view is used
    const geometry_view& of(const ::osg::GeometryPtr& core) {
        return views_.try_emplace(core.getFieldContainerId(), core).first->second;
    }
    void clear() { views_.clear(); }

  private:
    std::map<::osg::UInt32, geometry_view> views_;
};

} // namespace morva::host
