#pragma once

// A scene made ready for the rays of occlusion, and the vertices that fire them.

#include <memory>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_near.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>
#include <morva/trees/bih_tree.h>

namespace morva::osg {

/// Fires at such a scene: by descents, but for what is known without. It remembers what stopped
/// each ray of the set last, which is likely to stop the same ray of a point beside. One thread at
/// a time; copies know nothing of each other.
class occlusion_rays {
  public:
    /// quick  of that scene, or null
    occlusion_rays(const bih_tree<float>& tree, const occlusion_geoset& parts,
                   const near_hits* quick = nullptr)
        : descents_(tree, parts), quick_(quick) {}

    bool operator()(const occlusion_ray& ray, float3& point) const { return descents_(ray, point); }

    /// What is known to be near a place, see opennessOf(). Until the next is asked for.
    class view {
      public:
        bool stops(std::size_t number, const occlusion_ray& ray) {
            if (number >= likely_.size())
                likely_.resize(number + 1, near_hits::none);
            return near_.stops(ray, likely_[number]);
        }

      private:
        friend class occlusion_rays;
        view(const near_hits::view& near, std::vector<std::uint32_t>& likely)
            : near_(near), likely_(likely) {}

        near_hits::view near_;
        std::vector<std::uint32_t>& likely_; ///< leaf by number of the ray
    };
    view near(const float3& position, double reach) {
        return {quick_ == nullptr ? near_hits::view() : near_hits::view(*quick_, position, reach),
                likely_};
    }

  private:
    scene_rays<bih_tree<float>, occlusion_geoset> descents_;
    const near_hits* quick_;
    std::vector<std::uint32_t> likely_;
};

/// The parts of a scene with a tree each, and a tree over them. Any number of threads may fire.
struct traced_scene {
    /// Takes coordinates off untextured cores below `root`, see extract(). The ID map learns of no
    /// name by it.
    /// prints  "Prepare Geoset: ", the progress of the parts, and a line end
    explicit traced_scene(const ::osg::NodePtr& root);
    traced_scene(const traced_scene&) = delete;
    traced_scene& operator=(const traced_scene&) = delete;

    occlusion_rays rays() const { return {tree, parts, quick.get()}; }

    occlusion_geoset parts;
    bih_tree<float> tree;
    std::unique_ptr<near_hits> quick; ///< or null
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
