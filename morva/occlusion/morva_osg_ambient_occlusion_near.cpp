#include <morva/occlusion/morva_osg_ambient_occlusion_near.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <new>

#include <morva/trees/ray_traversal.h>

#if defined(__SSE2__)
#include <morva/trees/ray_packets.h>
#include <morva/trees/wide_walk.h>
#endif

namespace morva::osg {

#if defined(__SSE2__)

namespace {

/// Coordinates up to which no product of three overflows.
constexpr float largest_coordinate = 1e12F;

/// What a distance may be off: relative, and as a share of the largest coordinate.
constexpr double relative_slack = 1e-5, coordinate_slack = 2e-6;

bool isTame(const float_triangle& triangle) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (const float at : {triangle.a[axis], triangle.b[axis], triangle.c[axis]}) {
            if (!(std::abs(at) <= largest_coordinate))
                return false;
        }
    }
    return true;
}

/// From a point to the farthest corner of a box.
double farthestOf(const float3& from, const detail::wide_box& box) {
    double sum = 0.0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        const auto at = static_cast<double>(from[axis]);
        const double way = std::max(static_cast<double>(box.high[axis]) - at,
                                    at - static_cast<double>(box.low[axis]));
        sum += way * way;
    }
    return std::sqrt(sum);
}

} // namespace

/// A part, and where it is among them.
struct near_hits::part_place {
    ray_cell cell; ///< in the tree over the parts
    float_box box;
};

/// The triangles of a leaf, which all belong to one part.
struct near_hits::packed_leaf {
    detail::triangle_packet triangles;
    std::uint32_t part = 0;
    std::array<std::uint32_t, detail::packet_width> cells{}; ///< of the lanes
};

near_hits::~near_hits() = default;

std::unique_ptr<near_hits> near_hits::of(const bih_tree<float>& tree,
                                         const occlusion_geoset& parts) {
    if (!detail::wide_registers || tree.nodes == nullptr)
        return nullptr;
    for (std::uint32_t part = 0; part < parts.built_count; ++part) {
        const osg_geoset& geoset = parts.geosets[part];
        if (parts.trees[part].nodes == nullptr || geoset.simple_tris == nullptr ||
            !std::all_of(geoset.simple_tris, geoset.simple_tris + geoset.size, isTame))
            return nullptr;
    }
    const std::uint64_t triangles = parts.triangles_of(0, parts.built_count);
    if (triangles == 0 || triangles >= wide_tree::leaf_flag)
        return nullptr;
    try {
        return std::unique_ptr<near_hits>(new near_hits(tree, parts));
    } catch (const std::bad_alloc&) {
        return nullptr; // the descent alone does
    }
}

/// Where an item of the tree comes from.
struct near_hits::taken_triangle {
    std::uint32_t number; ///< in its part
    std::uint32_t cell;
};

near_hits::near_hits(const bih_tree<float>& tree, const occlusion_geoset& parts)
    : scene_box_(parts.box), parts_(parts.built_count) {
    for_each_cell(tree, 0, {}, [&](const bih_node<float>& leaf, const ray_cell& cell) {
        for (std::uint32_t k = 0; k < leaf.count; ++k)
            parts_[tree.indices[leaf.first + std::uint64_t(k)]].cell = cell;
    });
    std::vector<wide_item> items;
    std::vector<taken_triangle> taken;
    const std::uint64_t triangles = parts.triangles_of(0, parts.built_count);
    items.reserve(triangles);
    taken.reserve(triangles);
    for (std::uint32_t part = 0; part < parts.built_count; ++part)
        takePart(parts, part, items, taken);
    tree_ = std::make_unique<wide_tree>(items);
    packLeaves(parts, items, taken);
    for (const wide_item& item : items)
        bounds_.grow(item);
    float largest = 0.0F;
    for (std::size_t axis = 0; axis < 3; ++axis)
        largest = std::max({largest, -bounds_.low[axis], bounds_.high[axis]});
    slack_ = occlusion_ray::start_slack + coordinate_slack * static_cast<double>(largest);
}

void near_hits::takePart(const occlusion_geoset& parts, std::uint32_t part,
                         std::vector<wide_item>& items, std::vector<taken_triangle>& taken) {
    parts_[part].box = parts.geosets[part].bbox;
    const bih_tree<float>& tree = parts.trees[part];
    for_each_cell(tree, 0, {}, [&](const bih_node<float>& leaf, const ray_cell& cell) {
        const auto cell_number = static_cast<std::uint32_t>(cells_.size());
        cells_.push_back(cell);
        for (std::uint32_t k = 0; k < leaf.count; ++k) {
            const std::uint64_t number = tree.indices[leaf.first + std::uint64_t(k)];
            wide_item item{};
            for (std::size_t axis = 0; axis < 3; ++axis)
                corner_range(parts.geosets[part].simple_tris[number], axis, item.low[axis],
                             item.high[axis]);
            item.owner = part;
            item.number = static_cast<std::uint32_t>(items.size());
            items.push_back(item);
            taken.push_back({static_cast<std::uint32_t>(number), cell_number});
        }
    });
}

void near_hits::packLeaves(const occlusion_geoset& parts, const std::vector<wide_item>& items,
                           const std::vector<taken_triangle>& taken) {
    leaves_.resize(tree_->leaves.size());
    for (std::size_t i = 0; i < leaves_.size(); ++i) {
        const wide_tree::leaf& leaf = tree_->leaves[i];
        packed_leaf& packed = leaves_[i];
        packed.part = items[leaf.first].owner;
        for (std::uint32_t lane = 0; lane < leaf.count; ++lane) {
            const taken_triangle& from = taken[items[leaf.first + lane].number];
            packed.triangles.put(lane, parts.geosets[packed.part].simple_tris[from.number]);
            packed.cells[lane] = from.cell;
        }
    }
}

near_hits::view::view(const near_hits& all, const float3& position, double reach)
    : hits_(&all), position_(position), reach_(reach),
      all_is_near_(farthestOf(position, all.bounds_) * (1.0 + 2.0 * relative_slack) + all.slack_ <
                   reach) {}

/// One ray on its way.
class near_hits::firing {
  public:
    firing(const view& place, const occlusion_ray& fired)
        : view_(place), hits_(*place.hits_), ray_(fired),
          inverse_(detail::inverse_of(fired.direction)), in_parts_(inverse_) {}

    [[gnu::target("avx2")]] bool run(std::uint32_t& likely) {
        if (!detail::clip_ray(hits_.scene_box_, ray_.from, ray_.direction, inverse_, entry_, exit_))
            return false;
        if (likely != none && (*this)(likely))
            return true;
        if (!walk(*hits_.tree_, ray_.from, inverse_, entry_, exit_, *this))
            return false;
        likely = last_;
        return true;
    }

    /// For walk(): a leaf. Whether one of its triangles stops the ray near.
    [[gnu::target("avx2")]] bool operator()(std::uint32_t number) {
        const packed_leaf& leaf = hits_.leaves_[number];
        last_ = number;
        if (!comesTo(leaf.part))
            return false;
        float fractions[detail::packet_width];
        unsigned met = detail::lanes_met_avx2(leaf.triangles,
                                              detail::packet_segment(ray_.from, end_), fractions);
        for (; met != 0; met &= met - 1) {
            const auto lane = static_cast<std::size_t>(__builtin_ctz(met));
            float since = since_;
            if (comes_to(hits_.cells_[leaf.cells[lane]], ray_.from, inverse_, since, far_) &&
                (view_.all_is_near_ ||
                 isNear(detail::point_at(ray_.from, end_, fractions[lane]), since)))
                return true;
        }
        return false;
    }

  private:
    /// Whether the descent comes to a part; then the segment is the one that it goes on with there.
    bool comesTo(std::uint32_t part) {
        if (part == part_)
            return comes_;
        part_ = part;
        const part_place& place = hits_.parts_[part];
        part_since_ = entry_;
        comes_ = comes_to(place.cell, ray_.from, inverse_, part_since_, exit_) &&
                 in_parts_.enters(place.box, ray_.from, since_, far_, end_) &&
                 std::isfinite(end_[0] * 0.0F + end_[1] * 0.0F + end_[2] * 0.0F);
        return comes_;
    }

    /// Whether the descent, to which this one of the hits lies open, comes to a near one. On its
    /// way it takes distances for parameters: what may keep it from this hit is nearer than the
    /// larger of the parameters at which the ray enters the cells.
    bool isNear(const float3& hit, float since) const {
        const auto way = static_cast<double>(detail::distance<float, float3>(view_.position_, hit));
        const auto kept_off_by = static_cast<double>(std::max(since, part_since_));
        return std::max(way, kept_off_by) * (1.0 + relative_slack) + hits_.slack_ < view_.reach_;
    }

    const view& view_;
    const near_hits& hits_;
    const occlusion_ray& ray_;
    const float3 inverse_;
    const detail::element_rays<float, float3> in_parts_;
    float entry_ = 0.0F, exit_ = 0.0F;                               ///< range in the scene's box
    std::uint32_t last_ = none;                                      ///< leaf tried last
    std::uint32_t part_ = std::numeric_limits<std::uint32_t>::max(); ///< asked for last
    bool comes_ = false;
    float part_since_ = 0.0F;         ///< where the ray enters its cell
    float since_ = 0.0F, far_ = 0.0F; ///< range in that part
    float3 end_;
};

bool near_hits::view::stops(const occlusion_ray& ray, std::uint32_t& likely) const {
    return hits_ != nullptr && ray.isFired() && firing(*this, ray).run(likely);
}

#else

struct near_hits::part_place {};
struct near_hits::packed_leaf {};

near_hits::~near_hits() = default;

std::unique_ptr<near_hits> near_hits::of(const bih_tree<float>&, const occlusion_geoset&) {
    return nullptr;
}

near_hits::view::view(const near_hits&, const float3&, double) {}

bool near_hits::view::stops(const occlusion_ray&, std::uint32_t&) const { return false; }

#endif

} // namespace morva::osg
