#pragma once

// The descent of a ray with the companion of its tree: the same steps, to the same leaves in the
// same order, but for subtrees that would change nothing (ray_companion.h tells which). Include
// <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/ray_companion.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cmath>
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
template <typename Descent> class ray_skipping {
  public:
    ray_skipping(const ray_companion& companion, Descent& literal)
        : companion_(companion), literal_(literal) {}

    /// Goes down from the root, or returns false: the ray is one that the companion says nothing
    /// about, and nothing has happened.
    bool descend(float t_min, float t_max) {
        if (!within_limits())
            return false;
        if (!companion_.empty) {
            note_hit();
            walk(t_min, t_max);
        }
        return true;
    }

  private:
    /// A far child to come back to.
    struct pending {
        const ray_node* node;
        int side;
        bool flat;   ///< it may be left out if it is behind the hit
        float entry; ///< fraction of the segment at its box
        float t_far, t_min, t_max;
    };

    /// What is left out of a node: bit 0 for the left child, bit 1 for the right.
    struct view {
        int wanted; ///< the ray has to go there if the planes say so
        int flat;   ///< it meets all triangles flat enough
        __m128 entry;
    };

    /// Asks whether the argument holds for the ray, and turns it into steps of the grid.
    bool within_limits() {
        double reach2 = 0, length2 = 0, way[3];
        for (std::size_t a = 0; a < 3; ++a) {
            const double p = double(literal_.from_[a]);
            const double low = double(companion_.low[a]), high = double(companion_.high[a]);
            const double far = std::max(std::abs(p - low), std::abs(p - high));
            way[a] = double(literal_.to_[a]) - p;
            reach2 += far * far;
            length2 += way[a] * way[a];
            const double per_step = companion_.steps_per_unit[a];
            origin_[a] = static_cast<float>((p - companion_.grid_low[a]) * per_step);
            const float step = static_cast<float>(way[a] * per_step);
            inverse_step_[a] = 1.0f / (std::abs(step) < 1e-25f ? 1e-25f : step);
        }
        const float reach = std::max(static_cast<float>(std::sqrt(reach2)), companion_.diagonal);
        const float length = static_cast<float>(std::sqrt(length2));
        if (!(reach <= ray_reach_limit * companion_.diagonal) ||
            !(length <= ray_length_limit * companion_.diagonal) || !(length >= 1e-6f * reach))
            return false;
        const float per_length = 1 / length;
        for (std::size_t a = 0; a < 3; ++a) {
            along_[a] = static_cast<float>(way[a]) * per_length;
            if (along_[a] != 0 && std::abs(along_[a]) < 1e-12f)
                return false;
        }
        opening_ = std::max(1.0f, reach / (ray_usual_reach * companion_.diagonal));
        spread();
        return true;
    }

    /// Brings the ray into registers.
    void spread() {
        for (std::size_t a = 0; a < 3; ++a) {
            origin4_[a] = _mm_set1_ps(origin_[a]);
            inverse4_[a] = _mm_set1_ps(inverse_step_[a]);
        }
        along_xy_ = _mm_setr_ps(along_[0], along_[0], along_[1], along_[1]);
        along_z_ = _mm_setr_ps(along_[2], along_[2], opening_, opening_);
        const float3 &p = literal_.from_, &q = literal_.to_;
        p_ = {_mm_set1_ps(p[0]), _mm_set1_ps(p[1]), _mm_set1_ps(p[2])};
        qp_ = {_mm_set1_ps(p[0] - q[0]), _mm_set1_ps(p[1] - q[1]), _mm_set1_ps(p[2] - q[2])};
    }

    void note_hit() {
        hit_ = literal_.result_.hit;
        if (hit_)
            hit_distance_ = distance<float, float3>(literal_.from_, literal_.result_.point);
        const float t = literal_.result_.t;
        last_ = hit_ && t < past_end ? t : past_end; // a NaN hides nothing
    }

    view look(const ray_node& node) const {
        const __m128i zero = _mm_setzero_si128();
        __m128 entry = _mm_setzero_ps(), exit = _mm_set1_ps(last_);
        for (int a = 0; a < 3; ++a) {
            const __m128i steps =
                _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&node.box[a][0][0]));
            const __m128 sides = _mm_cvtepi32_ps(_mm_unpacklo_epi16(steps, zero));
            const __m128 one = _mm_mul_ps(_mm_sub_ps(sides, origin4_[a]), inverse4_[a]);
            const __m128 other = _mm_shuffle_ps(one, one, _MM_SHUFFLE(1, 0, 3, 2));
            entry = _mm_max_ps(_mm_min_ps(one, other), entry);
            exit = _mm_min_ps(_mm_max_ps(one, other), exit);
        }
        const int met = _mm_movemask_ps(_mm_cmple_ps(entry, exit)) & 3;
        const int flat = flat_for(node);
        return {met | (~flat & 3), flat, entry};
    }

    /// For which children the ray is steep enough on the cone of normals.
    int flat_for(const ray_node& node) const {
        const __m128i packed =
            _mm_loadl_epi64(reinterpret_cast<const __m128i*>(&node.normal[0][0]));
        const __m128i words = _mm_srai_epi16(_mm_unpacklo_epi8(packed, packed), 8);
        const __m128i xy = _mm_srai_epi32(_mm_unpacklo_epi16(words, words), 16);
        const __m128i zs = _mm_srai_epi32(_mm_unpackhi_epi16(words, words), 16);
        const __m128 first = _mm_mul_ps(_mm_cvtepi32_ps(xy), along_xy_);
        const __m128 second = _mm_mul_ps(_mm_cvtepi32_ps(zs), along_z_);
        const __m128 sum = _mm_add_ps(_mm_add_ps(first, _mm_movehl_ps(first, first)), second);
        const __m128 size = _mm_andnot_ps(_mm_set1_ps(-0.0f), sum);
        return _mm_movemask_ps(_mm_cmpge_ps(size, _mm_movehl_ps(second, second))) & 3;
    }

    /// The steps of ray_descent::descend(), with a stack of its own.
    void walk(float t_min, float t_max) {
        pending stack[128]; // the build makes nothing for deeper trees
        int waiting = 0;
        const ray_node* node = nullptr;
        int side = 0;
        for (;;) {
            node = arrive(node, side, t_min, t_max);
            side = -1;
            if (node != nullptr)
                side = choose(*node, t_min, t_max, stack, waiting);
            while (side < 0) {
                if (waiting == 0)
                    return;
                const pending& next = stack[--waiting];
                if (hit_ && (next.t_far > hit_distance_ || (next.flat && next.entry > last_)))
                    continue;
                t_min = next.t_min;
                t_max = hit_ ? hit_distance_ : next.t_max;
                node = next.node;
                side = next.side;
            }
        }
    }

    /// Goes to a child, or to the root if there is no node: past its chain, and into the leaf if it
    /// is one. Returns the node to go on from, or null.
    const ray_node* arrive(const ray_node* from, int side, float& t_min, float& t_max) {
        const std::uint32_t chain = from == nullptr ? companion_.root_chain : from->chain[side];
        if (chain != 0 && !pass(chain, t_min, t_max))
            return nullptr;
        const std::uint32_t at = from == nullptr ? companion_.root_at : from->at[side];
        const std::uint32_t count = from == nullptr ? companion_.root_count : from->count[side];
        if (count == 0)
            return &companion_.nodes[at];
        for (std::uint32_t k = 0; k < count; k += 4)
            packet(at + std::uint64_t(k), std::min(4U, count - k));
        return nullptr;
    }

    /// One step: the child to go on with, or -1. Its sibling may wait on the stack.
    int choose(const ray_node& node, float& t_min, float& t_max, pending* stack, int& waiting) {
        const view seen = look(node);
        const float from = literal_.from_[node.axis], inverse = literal_.inverse_[node.axis];
        const int near = 0.0f > inverse ? 1 : 0, far = 1 - near;
        const float t_left = (node.left_plane - from) * inverse;
        const float t_right = (node.right_plane - from) * inverse;
        const float t_near = near == 1 ? t_right : t_left, t_far = near == 1 ? t_left : t_right;
        // One branch that can't be foretold is enough.
        const bool past_near = t_min > t_near, past_far = t_far > t_max;
        const int go_near = (seen.wanted >> near) & (past_near ? 0 : 1);
        const int go_far = (seen.wanted >> far) & ((past_near | !past_far) ? 1 : 0);
        switch (go_near | go_far << 1) {
        case 0:
            return -1;
        case 1:
            t_max = smaller(t_near, t_max);
            return near;
        case 2:
            if (hit_ && !past_near) {
                t_max = hit_distance_;
                if (t_far > t_max)
                    return -1;
            }
            t_min = larger(t_far, t_min);
            return far;
        default:
            alignas(16) float entry[4];
            _mm_store_ps(entry, seen.entry);
            stack[waiting++] = {&node,      far,   (seen.flat >> far & 1) != 0,
                                entry[far], t_far, larger(t_far, t_min),
                                t_max};
            t_max = smaller(t_near, t_max);
            return near;
        }
    }

    /// Steps where one side has nothing to hit; false if the ray does not come to the other.
    bool pass(std::uint32_t chain, float& t_min, float& t_max) const {
        for (const ray_step* step = &companion_.chains[chain];; ++step) {
            const float from = literal_.from_[step->axis], inverse = literal_.inverse_[step->axis];
            const bool down = 0.0f > inverse;
            const float t_left = (step->left_plane - from) * inverse;
            const float t_right = (step->right_plane - from) * inverse;
            const float t_near = down ? t_right : t_left, t_far = down ? t_left : t_right;
            if (step->leads_left != down) { // to the near side
                if (t_min > t_near)
                    return false;
                t_max = smaller(t_near, t_max);
            } else {
                if (!(t_min > t_near)) {
                    if (t_far > t_max)
                        return false;
                    if (hit_)
                        t_max = hit_distance_;
                    if (hit_ && t_far > t_max)
                        return false;
                }
                t_min = larger(t_far, t_min);
            }
            if (step->last)
                return true;
        }
    }

    /// Triangles that the ray meets are left to the literal test, in their order.
    void packet(std::uint64_t first, std::uint32_t width) {
        int met = meets_of_packet(companion_.corners.data() + 9 * first, width, p_, qp_);
        for (; met != 0; met >>= 1, ++first) {
            if ((met & 1) == 0)
                continue;
            literal_.element(literal_.tree_.indices[first]);
            note_hit();
        }
    }

    /// Rounding takes t at most so far.
    static constexpr float past_end = 1.00001f;

    const ray_companion& companion_;
    Descent& literal_;
    float origin_[3], inverse_step_[3]; ///< on the grid
    float along_[3];                    ///< direction, of unit length
    float opening_;                     ///< of cones, for far rays; at least 1
    __m128 origin4_[3], inverse4_[3], along_xy_, along_z_;
    packet3 p_, qp_;
    bool hit_ = false;       ///< as in the result
    float hit_distance_ = 0; ///< of the result's point
    float last_ = past_end;  ///< what lies behind this fraction of the segment changes nothing
};

} // namespace detail
} // namespace morva
