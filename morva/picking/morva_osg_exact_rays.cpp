#include <morva/picking/morva_osg_exact_rays.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include <morva/core/morva_osg.h>
#include <morva/picking/morva_osg_core_trees.h>
#include <morva/trees/ray_triangle.h>

namespace morva::osg {

namespace {

/// Of the largest coordinate: more than arithmetic in double precision can err by.
constexpr double own_rounding = 1e-9;
/// The same for volumes, which matrices of single precision have moved.
constexpr double volume_rounding = 1e-5;

double3 minus(const float3& a, const double3& b) {
    return {static_cast<double>(a[0]) - b[0], static_cast<double>(a[1]) - b[1],
            static_cast<double>(a[2]) - b[2]};
}

using detail::cross; // exactly the opposite for exchanged arguments

double dot(const double3& a, const double3& b) { return detail::dot<double>(a, b); }

bool isFinite(const double3& v) {
    return std::isfinite(v[0]) && std::isfinite(v[1]) && std::isfinite(v[2]);
}

/// One ray on its way through one tree; what it meets goes to `use`, which returns the parameter
/// behind which nothing counts any more.
///
/// The ray is taken to start at its entry into the box, so that numbers stay as small as the core
/// is, however far away the ray comes from.
template <typename Use> class exact_descent {
  public:
    exact_descent(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
                  double reach, double entry, const Use& use)
        : tree_(*payload.tree), list_(*payload.geoset), way_(ray.direction),
          square_(dot(way_, way_)), entry_(entry), both_sides_(both_sides), reach_(reach),
          use_(use) {
        for (std::size_t i = 0; i < 3; ++i)
            from_[i] = ray.from[i] + entry * way_[i];
    }

    /// Everything below a node between two parameters, which count from the entry on.
    void descend(std::uint64_t node, double first, double last) {
        while (first <= last && entry_ + first <= reach_) {
            const bih_node<float>& here = tree_.nodes[node];
            if (here.is_leaf()) {
                for (std::uint32_t k = 0; k < here.count; ++k)
                    test(static_cast<std::uint32_t>(tree_.indices[here.first + k]));
                return;
            }
            const part left = partBelow(here, first, last), right = partAbove(here, first, last);
            const bool up = way_[static_cast<std::size_t>(here.axis)] >= 0.0;
            const auto right_node = static_cast<std::uint64_t>(here.right);
            const part near = up ? left : right, far = up ? right : left;
            descend(up ? node + 1 : right_node, near.first, near.last);
            node = up ? right_node : node + 1;
            first = far.first;
            last = far.last;
        }
    }

  private:
    struct part {
        double first, last; ///< first above last: nothing
    };

    /// What of a range lies where `sign` times the axis is at most `sign` times a plane, which is
    /// moved a little to be sure.
    part partOf(const bih_node<float>& node, double plane, double sign, double first,
                double last) const {
        const auto axis = static_cast<std::size_t>(node.axis);
        const double spare = 1e-12 * (std::abs(plane) + std::abs(from_[axis]));
        const double ahead = sign * (plane - from_[axis]) + spare; // from the start to the plane
        const double speed = sign * way_[axis];
        if (speed == 0.0)
            return ahead >= 0.0 ? part{first, last} : part{1.0, 0.0};
        if (speed > 0.0)
            return {first, std::min(last, ahead / speed)};
        return {std::max(first, ahead / speed), last};
    }
    part partBelow(const bih_node<float>& node, double first, double last) const {
        return partOf(node, static_cast<double>(node.left_plane), 1.0, first, last);
    }
    part partAbove(const bih_node<float>& node, double first, double last) const {
        return partOf(node, static_cast<double>(node.right_plane), -1.0, first, last);
    }

    void test(std::uint32_t object) {
        const float_triangle& triangle = list_.triangles[object];
        const double3 a = minus(triangle.a, from_), b = minus(triangle.b, from_),
                      c = minus(triangle.c, from_);
        const double u = dot(way_, cross(b, c)), v = dot(way_, cross(c, a)),
                     w = dot(way_, cross(a, b));
        const double sum = u + v + w;
        const bool front = u <= 0.0 && v <= 0.0 && w <= 0.0 && sum < 0.0;
        const bool back = both_sides_ && u >= 0.0 && v >= 0.0 && w >= 0.0 && sum > 0.0;
        if (!front && !back)
            return;
        const double t =
            entry_ + (u * dot(a, way_) + v * dot(b, way_) + w * dot(c, way_)) / (sum * square_);
        if (t >= 0.0 && t <= reach_)
            reach_ = use_(core_hit{t, object, back});
    }

    const bih_tree<float>& tree_;
    const triangle_list& list_;
    double3 from_;
    const double3 way_;
    const double square_; ///< of the direction's length
    const double entry_;
    const bool both_sides_;
    double reach_;
    const Use& use_;
};

template <typename Use>
void forEachMet(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
                double reach, const Use& use) {
    double entry = 0.0, exit = 0.0;
    if (!clipWidened(payload_access::facts(payload)->box, ray, own_rounding, entry, exit))
        return;
    exact_descent<Use>(payload, ray, both_sides, reach, entry, use).descend(0, 0.0, exit - entry);
}

} // namespace

exact_ray rayOf(const ::osg::Line& line) {
    exact_ray ray;
    for (std::size_t i = 0; i < 3; ++i) {
        ray.from[i] = static_cast<double>(line.getPosition()[static_cast<::osg::UInt32>(i)]);
        ray.direction[i] = static_cast<double>(line.getDirection()[static_cast<::osg::UInt32>(i)]);
    }
    return ray;
}

bool clipWidened(const float_box& box, const exact_ray& ray, double share, double& entry,
                 double& exit) {
    if (!isFinite(ray.from) || !isFinite(ray.direction))
        return false;
    double largest = 0.0;
    for (std::size_t i = 0; i < 3; ++i)
        largest = std::max({largest, std::abs(static_cast<double>(box.min[i])),
                            std::abs(static_cast<double>(box.max[i])), std::abs(ray.from[i])});
    entry = 0.0;
    exit = std::numeric_limits<double>::max();
    for (std::size_t i = 0; i < 3; ++i) {
        const double low = static_cast<double>(box.min[i]) - share * largest - ray.from[i];
        const double high = static_cast<double>(box.max[i]) + share * largest - ray.from[i];
        const double way = ray.direction[i];
        if (way == 0.0) {
            if (!(low <= 0.0 && high >= 0.0))
                return false;
            continue;
        }
        entry = std::max(entry, (way > 0.0 ? low : high) / way);
        exit = std::min(exit, (way > 0.0 ? high : low) / way);
    }
    return entry <= exit;
}

bool isMissed(const ::osg::DynamicVolume& volume, const exact_ray& ray, double reach) {
    if (!volume.isValid() || volume.isInfinite() || volume.isEmpty())
        return false;
    ::osg::Pnt3f low, high;
    volume.getBounds(low, high);
    float_box box;
    set(box.min, low);
    set(box.max, high);
    double entry = 0.0, exit = 0.0;
    return !clipWidened(box, ray, volume_rounding, entry, exit) || entry > reach;
}

bool firstInCore(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
                 double reach, core_hit& hit) {
    bool found = false;
    forEachMet(payload, ray, both_sides, reach, [&](const core_hit& met) {
        if (!found || met.t < hit.t || (met.t == hit.t && met.object < hit.object))
            hit = met;
        found = true;
        return hit.t;
    });
    return found;
}

void allInCore(const BIHAttachPayload& payload, const exact_ray& ray, bool both_sides,
               std::vector<core_hit>& hits) {
    constexpr double endless = std::numeric_limits<double>::max();
    forEachMet(payload, ray, both_sides, endless, [&](const core_hit& met) {
        hits.push_back(met);
        return endless;
    });
}

double3 normalOf(const BIHAttachPayload& payload, unsigned int object) {
    const float_triangle& triangle = payload.geoset->triangles[object];
    const double3 a{static_cast<double>(triangle.a[0]), static_cast<double>(triangle.a[1]),
                    static_cast<double>(triangle.a[2])};
    return cross(minus(triangle.b, a), minus(triangle.c, a));
}

::osg::Vec3f unitVector(const double3& vector) {
    const double largest =
        std::max({std::abs(vector[0]), std::abs(vector[1]), std::abs(vector[2])});
    if (!(largest > 0.0) || !std::isfinite(largest))
        return {};
    double3 unit{vector[0] / largest, vector[1] / largest, vector[2] / largest};
    unit.normalize();
    return {static_cast<float>(unit[0]), static_cast<float>(unit[1]), static_cast<float>(unit[2])};
}

} // namespace morva::osg
