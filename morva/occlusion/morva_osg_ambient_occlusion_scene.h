#pragma once

// A scene made ready for the rays of occlusion, and the vertices that fire them.

#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>
#include <morva/trees/bih_tree.h>

namespace morva::osg {

using occlusion_geoset = osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>;
using occlusion_rays = scene_rays<bih_tree<float>, occlusion_geoset>;

/// The parts of a scene with a tree each, and a tree over them. Any number of threads may fire.
struct traced_scene {
    /// Takes coordinates off untextured cores below `root`, see extract(). The ID map learns of no
    /// name by it.
    /// prints  "Prepare Geoset: ", the progress of the parts, and a line end
    explicit traced_scene(const ::osg::NodePtr& root);
    traced_scene(const traced_scene&) = delete;
    traced_scene& operator=(const traced_scene&) = delete;

    occlusion_rays rays() const { return {tree, parts}; }

    occlusion_geoset parts;
    bih_tree<float> tree;
};

/// Length of the diagonal of a node's volume, brought up to date.
double diagonalOf(const ::osg::NodePtr& node);

/// The vertices of a node in the world: one per row of its positions. Reads plain memory once it is
/// made, so that any thread may ask.
class world_vertices {
  public:
    /// Without positions there are none.
    explicit world_vertices(const ::osg::NodePtr& node);

    bool hasPositions() const { return geometry_.get() != ::osg::NullFC; }
    ::osg::GeometryPtr geometry() const { return geometry_.get(); }
    std::size_t size() const { return positions_.size(); }

    float3 position(std::size_t vertex) const;
    /// Of length 1, or shorter than 1e-6; zero where there is none.
    float3 normal(std::size_t vertex) const;

    /// Which vertices have to be asked: others are equal to one of them.
    struct distinct {
        std::vector<::osg::UInt32> vertices; ///< ascending
        std::vector<::osg::UInt32> number;   ///< per vertex: which of `vertices` is equal to it
    };
    /// Vertices are equal if their places are, and with `by_normal` their normals. A NaN equals
    /// nothing.
    distinct distinctOnes(bool by_normal) const;

    /// Whether the node's space is the world.
    bool isInWorld() const;

  private:
    ::osg::RefPtr<::osg::GeometryPtr> geometry_; ///< null without positions
    property_block<::osg::Pnt3f> positions_;
    property_block<::osg::Vec3f> normals_;
    ::osg::Matrix to_world_;
};

} // namespace morva::osg
