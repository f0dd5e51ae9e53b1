#pragma once

// The descent of a ray with the companion of its tree: the steps of ray_descent, on packed nodes,
// with four triangles at a time. Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/ray_companion.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <emmintrin.h>

namespace morva {
namespace detail {

/// Four vectors side by side.
struct packet3 {
    __m128 x, y, z;
};
inline packet3 cross(const packet3& a, const packet3& b) {
    return {_mm_sub_ps(_mm_mul_ps(a.y, b.z), _mm_mul_ps(a.z, b.y)),
            _mm_sub_ps(_mm_mul_ps(a.z, b.x), _mm_mul_ps(a.x, b.z)),
            _mm_sub_ps(_mm_mul_ps(a.x, b.y), _mm_mul_ps(a.y, b.x))};
}
/// In the order of the test: from 0 on, x, y, z.
inline __m128 dot(const packet3& a, const packet3& b) {
    const __m128 x = _mm_add_ps(_mm_setzero_ps(), _mm_mul_ps(a.x, b.x));
    return _mm_add_ps(_mm_add_ps(x, _mm_mul_ps(a.y, b.y)), _mm_mul_ps(a.z, b.z));
}

/// Which of up to four triangles the segment meets, as bits: meets() for each, to the last bit.
///
/// corners  a packet of `width` triangles, as in ray_companion; lanes beyond read what follows
/// p, qp    first point of the segment, and that less the last one
inline int meets_of_packet(const float* corners, std::uint32_t width, const packet3& p,
                           const packet3& qp) {
    const auto row = [&](std::uint32_t i) {
        const float* const at = corners + i * width;
        return packet3{_mm_loadu_ps(at), _mm_loadu_ps(at + width), _mm_loadu_ps(at + 2 * width)};
    };
    const packet3 a = row(0), ab = row(3), ac = row(6), n = cross(ab, ac);
    const __m128 zero = _mm_setzero_ps(), d = dot(qp, n);
    const packet3 ap{_mm_sub_ps(p.x, a.x), _mm_sub_ps(p.y, a.y), _mm_sub_ps(p.z, a.z)};
    const __m128 s = dot(ap, n);
    const packet3 e = cross(qp, ap);
    const __m128 v = dot(ac, e), w = dot(ab, e);
    __m128 out = _mm_cmpge_ps(zero, d);
    out = _mm_or_ps(out, _mm_or_ps(_mm_cmpgt_ps(zero, s), _mm_cmpgt_ps(s, d)));
    out = _mm_or_ps(out, _mm_or_ps(_mm_cmpgt_ps(zero, v), _mm_cmpgt_ps(v, d)));
    out = _mm_or_ps(out, _mm_or_ps(_mm_cmpgt_ps(w, zero), _mm_cmpgt_ps(_mm_sub_ps(v, w), d)));
    return ~_mm_movemask_ps(out) & ((1 << width) - 1);
}

/// One ray on its way. `Descent` is the ray_descent that it stands in for.
template <typename Descent> class ray_packed_descent {
  public:
    ray_packed_descent(const ray_companion& companion, Descent& literal)
        : companion_(companion), literal_(literal) {
        const float3 &p = literal.from_, &q = literal.to_;
        p_ = {_mm_set1_ps(p[0]), _mm_set1_ps(p[1]), _mm_set1_ps(p[2])};
        qp_ = {_mm_set1_ps(p[0] - q[0]), _mm_set1_ps(p[1] - q[1]), _mm_set1_ps(p[2] - q[2])};
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
                    leaf(here);
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

    void leaf(packed_child here) {
        std::uint64_t first = here.index();
        std::uint32_t count = here.count();
        if (count == 0) {
            const big_leaf& big = companion_.big_leaves[first];
            first = big.first;
            count = big.count;
        }
        for (std::uint32_t k = 0; k < count; k += 4)
            packet(first + k, std::min(4U, count - k));
    }

    /// Triangles that the ray meets are left to the literal test, in their order.
    void packet(std::uint64_t first, std::uint32_t width) {
        int met = meets_of_packet(companion_.corners.get() + 9 * first, width, p_, qp_);
        for (; met != 0; met >>= 1, ++first) {
            if ((met & 1) == 0)
                continue;
            literal_.element(literal_.tree_.indices[first]);
            note_hit();
        }
    }

    void note_hit() {
        hit_ = literal_.result_.hit;
        if (hit_)
            hit_distance_ = distance<float, float3>(literal_.from_, literal_.result_.point);
    }

    const ray_companion& companion_;
    Descent& literal_;
    packet3 p_, qp_;
    bool hit_ = false;       ///< as in the result
    float hit_distance_ = 0; ///< of the result's point
};

} // namespace detail
} // namespace morva
