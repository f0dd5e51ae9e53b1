#pragma once

// The rival of what fires rays: Embree on one thread, back faces dropped by a filter.

#include <vector>

#include <embree3/rtcore.h>

#include <OpenSG/OSGNode.h>

#include <morva/core/morva_math.h>

namespace morva_bench {

/// The triangles below a node, in the world.
std::vector<morva::float_triangle> trianglesOf(const ::osg::NodePtr& node);

class embree_scene {
  public:
    explicit embree_scene(const std::vector<morva::float_triangle>& triangles);
    embree_scene(const embree_scene&) = delete;
    embree_scene& operator=(const embree_scene&) = delete;
    ~embree_scene();

    /// The closest hit; the direction has any length, in which `tfar` counts.
    RTCRayHit fire(const morva::float3& from, const morva::float3& direction) const;
    /// Whether there is any hit.
    bool isStopped(const morva::float3& from, const morva::float3& direction) const;

  private:
    RTCDevice device_;
    RTCScene scene_;
};

} // namespace morva_bench
