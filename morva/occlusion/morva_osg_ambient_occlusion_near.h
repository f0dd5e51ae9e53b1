#pragma once

// A quick answer for most rays of occlusion: that something stops them near. It comes from one tree
// over all triangles of a scene, which is private, and is proven with the trees of the parts: a
// triangle counts if the descent through these would come to it, by the same arithmetic, whatever
// it may hit before. So values stay as they are to the last bit. Rays that get no answer descend.

#include <cstdint>
#include <memory>
#include <vector>

#include <morva/core/morva_math.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_scene_geoset.h>
#include <morva/occlusion/morva_osg_ambient_occlusion_rays.h>
#include <morva/trees/bih_tree.h>
#include <morva/trees/ray_cells.h>
#include <morva/trees/wide_tree.h>

namespace morva::osg {

using occlusion_geoset = osg_scene_geoset<bih_tree<float>, build_setup, osg_geoset>;

/// Finds what stops rays near. Any number of threads may ask.
class near_hits {
    class firing;

  public:
    /// Makes it for a scene and the tree over its parts, which stay where they are and as they are;
    /// null where it is of no use: on a processor without AVX2, for coordinates that are not finite
    /// or beyond 1e12, without triangles, and without memory.
    static std::unique_ptr<near_hits> of(const bih_tree<float>& tree,
                                         const occlusion_geoset& parts);

    near_hits(const near_hits&) = delete;
    near_hits& operator=(const near_hits&) = delete;
    ~near_hits();

    /// No leaf.
    static constexpr std::uint32_t none = wide_tree::leaf_flag;

    /// What lies near a place. A copy costs nothing; it refers to the whole.
    class view {
      public:
        /// Without a scene nothing is near.
        view() = default;
        view(const near_hits& all, const float3& position, double reach);

        /// Whether the hit that the descent finds for a ray from the place is certain to lie nearer
        /// to it, by the distance that opennessOf() takes, than the reach. False says nothing.
        ///
        /// likely  in and out: the leaf to try first; the one that stops the ray, if it does
        bool stops(const occlusion_ray& ray, std::uint32_t& likely) const;

      private:
        friend class near_hits::firing;
        const near_hits* hits_ = nullptr;
        float3 position_;
        double reach_ = 0.0;
        bool all_is_near_ = false; ///< the whole scene
    };

  private:
    struct part_place;
    struct taken_triangle;
    struct packed_leaf;

    near_hits(const bih_tree<float>& tree, const occlusion_geoset& parts);
    void takePart(const occlusion_geoset& parts, std::uint32_t part, std::vector<wide_item>& items,
                  std::vector<taken_triangle>& taken);
    void packLeaves(const occlusion_geoset& parts, const std::vector<wide_item>& items,
                    const std::vector<taken_triangle>& taken);

    float_box scene_box_; ///< that rays are clipped at
    std::vector<part_place> parts_;
    std::vector<ray_cell> cells_; ///< around the leaves of all parts
    std::unique_ptr<wide_tree> tree_;
    std::vector<packed_leaf> leaves_; ///< as those of the tree
    detail::wide_box bounds_;         ///< of all triangles
    double slack_ = 0.0;              ///< world units that a place may be off
};

} // namespace morva::osg
