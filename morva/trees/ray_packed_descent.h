#pragma once

// The descent of a ray with the companion of its tree: the steps of ray_descent, on packed nodes,
// with a cluster of triangles at a time. Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/ray_companion.h>
#include <morva/trees/ray_packets.h>
#include <morva/trees/ray_triangle.h>

#include <cstdint>
#include <limits>

namespace morva {
namespace detail {

/// One ray on its way. `Descent` is the ray_descent that it stands in for.
template <typename Descent> class ray_packed_descent {
  public:
    ray_packed_descent(const ray_companion& companion, Descent& literal)
        : companion_(companion), literal_(literal), segment_(literal.from_, literal.to_),
          prover_(literal.from_, literal.to_, companion.low, companion.high) {
        note_hit();
    }

    /// Goes down from the root.
    void descend(float t_min, float t_max) {
        const packed_node* const nodes = companion_.nodes.data();
        pending stack[deepest_packed + 2];
        pending* top = stack;
        packed_child here; // the root
        for (;;) {
            do
                here = step(nodes[here.bits], t_min, t_max, top);
            while (here.bits != 0 && !here.is_leaf());
            while (here.bits == 0 || here.is_leaf()) {
                if (here.bits != 0)
                    leaf(here, t_min, t_max);
                here = {};
                if (top == stack)
                    return;
                --top;
                if (hit_ && top->t_far > hit_distance_)
                    continue;
                t_min = top->t_min;
                t_max = hit_ ? hit_distance_ : top->t_max;
                here = top->child;
            }
        }
    }

  private:
    /// A far child to come back to.
    struct pending {
        packed_child child;
        float t_far, t_min, t_max;
    };

    /// From a node to a child, which may be nothing. The other may wait on the stack.
    packed_child step(const packed_node& node, float& t_min, float& t_max, pending*& top) const {
        const std::uint32_t axis = node.child[0].axis();
        const float from = literal_.from_[axis], inverse = literal_.inverse_[axis];
        const bool down = 0.0f > inverse;
        const float t_left = (node.left_plane - from) * inverse;
        const float t_right = (node.right_plane - from) * inverse;
        const packed_child left = node.child[0].without_axis(), right = node.child[1];
        const float t_near = down ? t_right : t_left, t_far = down ? t_left : t_right;
        const packed_child near = down ? right : left, far = down ? left : right;
        const float later = larger(t_far, t_min);
        if (t_min > t_near) {
            t_min = later;
            return far;
        }
        const float sooner = smaller(t_near, t_max);
        if (t_far > t_max || far.bits == 0) {
            t_max = sooner;
            return near;
        }
        if (near.bits == 0) {
            if (hit_) {
                t_max = hit_distance_;
                if (t_far > t_max)
                    return {};
            }
            t_min = later;
            return far;
        }
        *top++ = {far, t_far, later, t_max};
        t_max = sooner;
        return near;
    }

    void leaf(packed_child here, float t_min, float t_max) {
        const ray_cluster& cluster = companion_.cluster(here);
        const triangle_packet* const packets = cluster.packets();
        const std::uint32_t count = cluster.packet_count();
        if (count > 1 && prover_.misses(cluster.low, cluster.high) &&
            prover_.is_steep(cluster.bearings(), cluster.fours()))
            return;
        if (wide_registers) {
            if (!any_met_avx2(packets, count, segment_, nearest_))
                return;
            if (!take_only_one(cluster, t_min, t_max))
                literal_.descend(cluster.node(), t_min, t_max);
        } else {
            if (!any_met_sse2(packets, count, segment_, nearest_))
                return;
            literal_.descend(cluster.node(), t_min, t_max);
        }
        note_hit();
    }

    /// Keeps the hit of a cluster if it has but one that is nearer than what there is, and the
    /// descent is certain to come to its leaf. Nothing happens before it on the way.
    [[gnu::noinline]] bool take_only_one(const ray_cluster& cluster, float t_min, float t_max) {
        std::uint64_t place = 0;
        unsigned count = 0;
        for (std::uint32_t k = 0; k < cluster.packet_count(); ++k) {
            float fractions[packet_width];
            unsigned met = lanes_met_avx2(cluster.packets()[k], segment_, fractions);
            for (; met != 0; met &= met - 1) {
                const auto lane = static_cast<unsigned>(__builtin_ctz(met));
                if (hit_ && !(nearest_ > fractions[lane]))
                    continue;
                place = packet_width * k + lane;
                ++count;
            }
        }
        const bih_tree<float>& tree = literal_.tree_;
        place += first_below(cluster.node());
        if (count != 1 || !comes_to_leaf(cluster.node(), place, t_min, t_max))
            return false;
        literal_.element(tree.indices[place]);
        return true;
    }

    /// First place in the tree's indices below a node.
    std::uint64_t first_below(std::uint64_t node) const {
        while (!literal_.tree_.nodes[node].is_leaf())
            ++node;
        return literal_.tree_.nodes[node].first;
    }

    /// Whether the descent from a node comes to the leaf of a place in the tree's indices, if it
    /// hits nothing before: its range is not empty between the planes around that, and the hit that
    /// there is lies not before them.
    bool comes_to_leaf(std::uint64_t node, std::uint64_t place, float t_min, float t_max) const {
        while (!literal_.tree_.nodes[node].is_leaf()) {
            const bih_node<float>& here = literal_.tree_.nodes[node];
            const auto right = static_cast<std::uint64_t>(here.right);
            const auto axis = static_cast<std::size_t>(here.axis);
            const float from = literal_.from_[axis], inverse = literal_.inverse_[axis];
            const bool is_left = place < first_below(right);
            const float t = ((is_left ? here.left_plane : here.right_plane) - from) * inverse;
            if (is_left == (0.0F > inverse))
                t_min = larger(t, t_min);
            else
                t_max = smaller(t, t_max);
            node = is_left ? node + 1 : right;
        }
        return t_min <= t_max && (!hit_ || t_min <= hit_distance_);
    }

    void note_hit() {
        hit_ = literal_.result_.hit;
        if (!hit_)
            return;
        nearest_ = literal_.result_.t;
        prover_.stop_at(nearest_);
        hit_distance_ = distance<float, float3>(literal_.from_, literal_.result_.point);
    }

    const ray_companion& companion_;
    Descent& literal_;
    const packet_segment segment_;
    miss_prover prover_;
    bool hit_ = false;                                        ///< as in the result
    float nearest_ = std::numeric_limits<float>::quiet_NaN(); ///< its t, once there is a hit
    float hit_distance_ = 0;                                  ///< of the result's point
};

} // namespace detail
} // namespace morva
