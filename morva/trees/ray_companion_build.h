#pragma once

// Makes the ray_companion of a tree, from the leaves up.

#include <morva/trees/bih_records.h>
#include <morva/trees/ray_companion.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>

namespace morva {
namespace detail {

/// Directions within `angle` of an axis or its opposite; none if the angle is negative, all from a
/// right angle on.
struct normal_cone {
    double axis[3] = {1, 0, 0}; ///< of unit length
    double angle = -1;

    /// Grows to a small cone around both.
    void join(const normal_cone& other) {
        if (other.angle < 0)
            return;
        if (angle < 0) {
            *this = other;
            return;
        }
        double cosine = 0;
        for (int i = 0; i < 3; ++i)
            cosine += axis[i] * other.axis[i];
        const double side = cosine < 0 ? -1 : 1;
        const double between = std::acos(std::min(1.0, cosine * side));
        if (angle >= between + other.angle)
            return;
        if (other.angle >= between + angle) {
            *this = other;
            return;
        }
        turn(other, side, between);
    }

  private:
    /// Takes the axis in the middle of what both cover; `between` is above 0.
    void turn(const normal_cone& other, double side, double between) {
        const double half = (angle + between + other.angle) / 2;
        const double way = (half - angle) / between;
        double length = 0;
        for (int i = 0; i < 3; ++i) {
            axis[i] = std::sin((1 - way) * between) * axis[i] +
                      std::sin(way * between) * side * other.axis[i];
            length += axis[i] * axis[i];
        }
        length = std::sqrt(length);
        for (double& component : axis)
            component /= length;
        // Close axes lose digits in acos() and in the division.
        angle = length > 0 ? half + 1e-6 : 2;
    }
};

/// What is known of a subtree while the companion is made.
struct ray_subtree {
    std::uint32_t at = 0;                               ///< as in ray_node
    std::uint32_t chain = 0;                            ///< as in ray_node
    std::uint16_t count = 0;                            ///< as in ray_node
    double low[3] = {INFINITY, INFINITY, INFINITY};     ///< of the grown triangles
    double high[3] = {-INFINITY, -INFINITY, -INFINITY}; ///< of the grown triangles
    normal_cone cone;                                   ///< of those that are not across an axis
    double steepness = 0; ///< the most that one adds for a unit of reach

    void join(const ray_subtree& other) {
        for (int a = 0; a < 3; ++a) {
            low[a] = std::min(low[a], other.low[a]);
            high[a] = std::max(high[a], other.high[a]);
        }
        cone.join(other.cone);
        steepness = std::max(steepness, other.steepness);
    }
};

/// One triangle as the argument in ray_companion.h sees it. K is chosen so that the cone opens by
/// a hundredth, within bounds that keep boxes useful.
inline ray_subtree grown_triangle(const float_triangle& t, double diagonal) {
    const float3 ab = difference<float3>(t.b, t.a), ac = difference<float3>(t.c, t.a);
    double n[3], ab2 = 0, ac2 = 0, n2 = 0;
    for (std::size_t i = 0; i < 3; ++i) {
        const std::size_t j = (i + 1) % 3, k = (i + 2) % 3;
        n[i] = double(ab[j]) * double(ac[k]) - double(ab[k]) * double(ac[j]);
        n2 += n[i] * n[i];
        ab2 += double(ab[i]) * double(ab[i]);
        ac2 += double(ac[i]) * double(ac[i]);
    }
    const double area = std::sqrt(n2), longer = std::sqrt(std::max(ab2, ac2));
    const double unit = 8 * 0x1p-24 * longer / area; // steepness for K = 1; infinite without area
    bool across = false;
    for (std::size_t a = 0; a < 3; ++a)
        across |= ab[a] == 0 && ac[a] == 0;
    across = across && 128 * unit * double(ray_reach_limit + ray_length_limit) * diagonal < 0.99;

    const double fitting = 0.01 / (unit * double(ray_usual_reach) * diagonal);
    const double k = across ? 128 : std::min(128.0, std::max(8.0, fitting));
    ray_subtree result;
    if (!across) {
        result.steepness = k * unit * 1.001;
        result.cone.angle = area > 0 ? 1e-7 : 2;
        for (std::size_t a = 0; a < 3 && area > 0; ++a)
            result.cone.axis[a] = n[a] / area;
    }
    const double off = 4 * std::sqrt(std::min(ab2, ac2)) / k;
    for (std::size_t a = 0; a < 3; ++a) {
        const double low = double(std::min({t.a[a], t.b[a], t.c[a]}));
        const double high = double(std::max({t.a[a], t.b[a], t.c[a]}));
        const double grow = (high - low) * 4.5 / k + off;
        result.low[a] = low - grow;
        result.high[a] = high + grow;
    }
    return result;
}

class ray_companion_builder {
  public:
    ray_companion_builder(const bih_tree<float>& tree, const float_triangle* triangles)
        : tree_(tree), triangles_(triangles), made_(new ray_companion) {
        made_->destroy = ray_companion::free;
        made_->triangles = triangles;
    }

    /// Null where the argument does not hold, or the tree is too deep.
    /// errors  std::bad_alloc
    std::unique_ptr<ray_companion> run() {
        if (tree_.max_depth_reached > 120 || tree_.max_leaf_size > 0xffff || !measure())
            return nullptr;
        const std::uint64_t inner = note_live_nodes();
        made_->corners.resize(9 * tree_.index_count + 4);
        made_->nodes.reserve(inner);
        made_->chains.reserve(tree_.leaf_count - inner + 1);
        made_->chains.push_back({});
        made_->empty = live_[0] == 0;
        if (!made_->empty) {
            const ray_subtree root = subtree(0);
            made_->root_at = root.at;
            made_->root_chain = root.chain;
            made_->root_count = root.count;
        }
        return std::move(made_);
    }

  private:
    const float_triangle& triangle_at(std::uint64_t place) const {
        return triangles_[tree_.indices[place]];
    }

    /// Whether some ray can hit a triangle at all.
    static bool lives(const float_triangle& t) {
        const float3 n = cross(difference<float3>(t.b, t.a), difference<float3>(t.c, t.a));
        return n[0] != 0 || n[1] != 0 || n[2] != 0;
    }

    /// Boxes of all corners and of all grown triangles; false if they are not of a common size.
    bool measure() {
        double low[3] = {INFINITY, INFINITY, INFINITY}, high[3] = {-INFINITY, -INFINITY, -INFINITY};
        for (std::uint64_t i = 0; i < tree_.index_count; ++i)
            for (std::size_t a = 0; a < 3; ++a)
                for (const float x :
                     {triangle_at(i).a[a], triangle_at(i).b[a], triangle_at(i).c[a]}) {
                    if (!(std::abs(x) <= 1e9f))
                        return false;
                    low[a] = std::min(low[a], double(x));
                    high[a] = std::max(high[a], double(x));
                }
        double diagonal2 = 0;
        for (std::size_t a = 0; a < 3; ++a) {
            made_->low[a] = static_cast<float>(low[a]);
            made_->high[a] = static_cast<float>(high[a]);
            diagonal2 += (high[a] - low[a]) * (high[a] - low[a]);
        }
        made_->diagonal = static_cast<float>(std::sqrt(diagonal2) * 1.000001);
        if (!(made_->diagonal >= 1e-5f))
            return false;
        lay_grid();
        return true;
    }

    /// Flat boxes get a grid that is not finer than a quarter of the diagonal makes it.
    void lay_grid() {
        ray_subtree all;
        for (std::uint64_t i = 0; i < tree_.index_count; ++i)
            if (lives(triangle_at(i)))
                all.join(grown_triangle(triangle_at(i), double(made_->diagonal)));
        for (std::size_t a = 0; a < 3; ++a) {
            const double side = std::max(all.high[a] - all.low[a], double(made_->diagonal) / 4);
            made_->steps_per_unit[a] = 65500 / side;
            made_->grid_low[a] = all.low[a] - side * 10 / 65500;
        }
    }

    /// Notes which nodes of the tree have triangles that count below them; returns how many have
    /// such on both sides.
    std::uint64_t note_live_nodes() {
        std::uint64_t inner = 0;
        live_.assign(tree_.node_count + 1, 0);
        for (std::uint64_t i = tree_.node_count + 1; i-- > 0;) {
            const bih_node<float>& node = tree_.nodes[i];
            if (node.is_leaf()) {
                for (std::uint32_t k = 0; k < node.count && live_[i] == 0; ++k)
                    live_[i] = lives(triangle_at(node.first + std::uint64_t(k))) ? 1 : 0;
                continue;
            }
            const std::uint8_t left = live_[i + 1];
            const std::uint8_t right = live_[static_cast<std::uint64_t>(node.right)];
            live_[i] = left | right;
            inner += left & right;
        }
        return inner;
    }

    /// The side of an inner node that alone has triangles; -1 for both.
    int only_side(std::uint64_t node) const {
        const bool left = live_[node + 1] != 0;
        const bool right = live_[static_cast<std::uint64_t>(tree_.nodes[node].right)] != 0;
        return left && right ? -1 : (left ? 0 : 1);
    }

    ray_subtree subtree(std::uint64_t node) {
        std::uint32_t chain = 0;
        while (!tree_.nodes[node].is_leaf()) {
            const int side = only_side(node);
            if (side < 0)
                break;
            const bih_node<float>& step = tree_.nodes[node];
            if (chain == 0)
                chain = static_cast<std::uint32_t>(made_->chains.size());
            else
                made_->chains.back().last = false;
            made_->chains.push_back({step.left_plane, step.right_plane,
                                     static_cast<std::uint8_t>(step.axis), side == 0, true});
            node = side == 0 ? node + 1 : static_cast<std::uint64_t>(step.right);
        }
        ray_subtree result =
            tree_.nodes[node].is_leaf() ? leaf(tree_.nodes[node]) : inner(tree_.nodes[node], node);
        result.chain = chain;
        return result;
    }

    ray_subtree inner(const bih_node<float>& node, std::uint64_t index) {
        const std::size_t at = made_->nodes.size();
        made_->nodes.emplace_back();
        made_->nodes[at].left_plane = node.left_plane;
        made_->nodes[at].right_plane = node.right_plane;
        made_->nodes[at].axis = static_cast<std::uint8_t>(node.axis);
        ray_subtree left = subtree(index + 1);
        put_child(made_->nodes[at], 0, left);
        const ray_subtree right = subtree(static_cast<std::uint64_t>(node.right));
        put_child(made_->nodes[at], 1, right);
        left.join(right);
        left.at = static_cast<std::uint32_t>(at);
        left.count = 0;
        return left;
    }

    void put_child(ray_node& node, int side, const ray_subtree& child) const {
        node.at[side] = child.at;
        node.chain[side] = child.chain;
        node.count[side] = child.count;
        for (int a = 0; a < 3; ++a) {
            const double low = (child.low[a] - made_->grid_low[a]) * made_->steps_per_unit[a];
            const double high = (child.high[a] - made_->grid_low[a]) * made_->steps_per_unit[a];
            node.box[a][0][side] = static_cast<std::uint16_t>(std::max(0.0, std::floor(low) - 8));
            node.box[a][1][side] = static_cast<std::uint16_t>(std::ceil(high) + 8);
        }
        put_cone(node, side, child);
    }

    /// Rounds the axis to 127ths, which turns it by at most 0.0069, and the sine up. No axis and
    /// a sine of 1 are never met, no axis and a sine of 0 always.
    void put_cone(ray_node& node, int side, const ray_subtree& child) const {
        const double limit = std::sin(std::max(0.0, child.cone.angle)) + 0.0069 + 1e-5 +
                             child.steepness * double(ray_usual_reach) * double(made_->diagonal);
        const bool none = child.cone.angle < 0, narrow = child.cone.angle < 1.5 && limit < 0.99;
        for (int a = 0; a < 3; ++a)
            node.normal[a][side] =
                none || !narrow ? std::int8_t(0)
                                : static_cast<std::int8_t>(std::lround(child.cone.axis[a] * 127));
        node.sine[side] =
            static_cast<std::int8_t>(none ? 0.0 : (narrow ? std::ceil(limit * 127) : 127.0));
    }

    ray_subtree leaf(const bih_node<float>& node) {
        ray_subtree result;
        for (std::uint32_t k = 0; k < node.count; ++k) {
            const float_triangle& t = triangle_at(node.first + std::uint64_t(k));
            put_corners(node, k, t);
            if (lives(t))
                result.join(grown_triangle(t, double(made_->diagonal)));
        }
        result.at = node.first;
        result.count = static_cast<std::uint16_t>(node.count);
        return result;
    }

    void put_corners(const bih_node<float>& node, std::uint32_t k, const float_triangle& t) {
        const std::uint32_t lane = k % 4, width = std::min(4U, node.count - (k - lane));
        float* const packet = made_->corners.data() + 9 * (node.first + std::uint64_t(k - lane));
        const float3 rows[3] = {t.a, difference<float3>(t.b, t.a), difference<float3>(t.c, t.a)};
        for (std::uint32_t i = 0; i < 9; ++i)
            packet[i * width + lane] = rows[i / 3][i % 3];
    }

    const bih_tree<float>& tree_;
    const float_triangle* const triangles_;
    std::unique_ptr<ray_companion> made_;
    std::vector<std::uint8_t> live_; ///< one per node of the tree
};

} // namespace detail
} // namespace morva
