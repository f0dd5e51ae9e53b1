#pragma once

// The descent of a ray with the companion of its tree: the steps of ray_descent, on packed nodes,
// with the triangles of a small subtree at a time. Include <morva/trees/ray_traversal.h>.

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
        : companion_(companion), literal_(literal), segment_(literal.from_, literal.to_) {
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
        std::uint32_t first = here.index(), count = here.count();
        if (count == 0) {
            const big_leaf& big = companion_.big_leaves[first];
            first = big.first;
            count = big.count;
        }
        const triangle_packet* const packets = companion_.packets + first;
        const bool met = wide_registers ? any_met_avx2(packets, count, segment_, nearest_)
                                        : any_met_sse2(packets, count, segment_, nearest_);
        if (!met)
            return;
        literal_.descend(companion_.subtrees[first], t_min, t_max);
        note_hit();
    }

    void note_hit() {
        hit_ = literal_.result_.hit;
        if (!hit_)
            return;
        nearest_ = literal_.result_.t;
        hit_distance_ = distance<float, float3>(literal_.from_, literal_.result_.point);
    }

    const ray_companion& companion_;
    Descent& literal_;
    const packet_segment segment_;
    bool hit_ = false;                                        ///< as in the result
    float nearest_ = std::numeric_limits<float>::quiet_NaN(); ///< its t, once there is a hit
    float hit_distance_ = 0;                                  ///< of the result's point
};

} // namespace detail
} // namespace morva
