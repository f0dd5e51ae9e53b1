#pragma once

// Which segments surely meet none of some triangles, without asking each. Include
// <morva/trees/ray_traversal.h>.
//
// A segment that misses the box of triangles by more than rounding meets none of them, unless it
// lies on edge: there the test takes a triangle from anywhere in its plane. So two things are
// asked: does the segment miss the box by a margin, and does it cross all planes steeply? With
//
//     u = 2^-24        p, q  the segment     n  the cross product of two edges     D = (p - q) . n
//     M  longest edge                        R  from p to the farthest triangle, at least M / 2
//
// each product of three lengths that the test compares is off by at most 7 u times those lengths.
// Where D is at least K |p - q| M^2, what it takes for a hit therefore lies in the plane at most
// 43 u R / K from the triangle, at a fraction that is off by at most 14 u R / (K |p - q|); where D
// is below -7 u |p - q| M^2 it takes nothing, nor where n comes out as zero. This is the bound of
// rounding alone: what may overflow or underflow counts as not proven.

#include <morva/core/morva_math.h>
#include <morva/trees/ray_triangle.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <emmintrin.h>

namespace morva {
namespace detail {

/// K, and the margin as a share of R: room for the test of the box is in it.
constexpr float least_slope = 3e-3F;
constexpr float miss_margin = 64 * 0x1p-24F / least_slope;

/// Within these nothing overflows or underflows.
constexpr float longest_proven = 1e9F, shortest_way_proven = 1e-12F, shortest_edge_proven = 1e-10F;

/// Normals this near to each other are one. Twice as much covers the rounding to 16 bits, too, the
/// length of a way by estimate, and those 7 u.
constexpr float same_normal = 1e-3F;
constexpr float slope_spare = 2 * same_normal;

/// Four unit normals in 32767ths, and what a unit way has to have along each of them. Places that
/// are left over are steep for all.
struct alignas(16) ray_bearings {
    std::int16_t xy[4][2] = {};
    std::int16_t z_least[4][2] = {{0, -32768}, {0, -32768}, {0, -32768}, {0, -32768}};
};
static_assert(sizeof(ray_bearings) == 32, "two are one line of the cache");

/// Collects the normals of triangles. Equal ones that follow each other soon are one.
class bearing_list {
  public:
    void clear() { all_.clear(); }

    void add(const float_triangle& t) {
        const float3 ab = difference<float3>(t.b, t.a), ac = difference<float3>(t.c, t.a);
        const float3 bc = difference<float3>(t.c, t.b), n = cross(ab, ac);
        if (n[0] == 0 && n[1] == 0 && n[2] == 0)
            return;
        const float longest =
            std::max({dot<float>(ab, ab), dot<float>(ac, ac), dot<float>(bc, bc)});
        const float length = std::sqrt(dot<float>(n, n));
        const float least = least_slope * longest / length + slope_spare;
        const bool is_proven = least < 0.99F &&
                               longest > shortest_edge_proven * shortest_edge_proven &&
                               std::isfinite(n[0] + n[1] + n[2]);
        insert(is_proven ? bearing{{n[0] / length, n[1] / length, n[2] / length}, least} : never());
    }

    /// In fours; at most `most_fours`.
    std::uint32_t fours() const { return static_cast<std::uint32_t>((all_.size() + 3) / 4); }
    static constexpr std::uint32_t most_fours = 15;

    ray_bearings four(std::uint32_t index) const {
        ray_bearings made;
        for (std::size_t i = 4 * index; i < std::min<std::size_t>(all_.size(), 4 * index + 4);
             ++i) {
            const auto& [normal, least] = all_[i];
            made.xy[i % 4][0] = rounded(normal[0]);
            made.xy[i % 4][1] = rounded(normal[1]);
            made.z_least[i % 4][0] = rounded(normal[2]);
            made.z_least[i % 4][1] = rounded(least);
        }
        return made;
    }

  private:
    struct bearing {
        float3 normal;
        float least;
    };
    static bearing never() { return {{0, 0, 0}, 1}; }

    void insert(const bearing& made) {
        const std::size_t recent = all_.size() < 8 ? 0 : all_.size() - 8;
        for (std::size_t i = recent; i < all_.size(); ++i) {
            const float3 apart = difference<float3>(all_[i].normal, made.normal);
            if (dot<float>(apart, apart) < same_normal * same_normal) {
                all_[i].least = std::max(all_[i].least, made.least);
                return;
            }
        }
        if (all_.size() == std::size_t(4) * most_fours)
            all_.assign(1, never());
        else if (all_.empty() || all_.front().least < 1)
            all_.push_back(made);
    }
    static std::int16_t rounded(float x) {
        return static_cast<std::int16_t>(x * 32767 + (x < 0 ? -0.5F : 0.5F));
    }

    std::vector<bearing> all_;
};

/// One segment of finite length before many boxes of triangles.
class miss_prover {
  public:
    /// low, high  of all triangles
    miss_prover(const float3& from, const float3& to, const float3& low, const float3& high)
        : from_(four(from)) {
        const __m128 way = four(to) - from_;
        const float square = sum3(way * way);
        const float reach = sum3(_mm_max_ps(from_ - four(low), four(high) - from_));
        const bool is_proven = square > shortest_way_proven * shortest_way_proven &&
                               square < longest_proven * longest_proven && reach < longest_proven;
        const float margin = is_proven ? reach * miss_margin : HUGE_VALF;
        const float per_length = _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(square)));
        inverse_ = _mm_set1_ps(1) / way;
        margin_ = _mm_set1_ps(margin);
        spare_ = margin * per_length;
        stop_at(1);
        const __m128i unit = _mm_cvtps_epi32(way * _mm_set1_ps(-32767 * per_length));
        const __m128i pairs = _mm_packs_epi32(unit, unit);
        xy_ = _mm_shuffle_epi32(pairs, 0x00);
        z_ = _mm_shuffle_epi32(pairs, 0x55);
    }

    /// Hits at this fraction of the segment and beyond don't count any more.
    void stop_at(float fraction) { stop_ = fraction + spare_; }

    /// Whether the segment misses a box by the margin. Four floats are read at each corner.
    bool misses(const float* low, const float* high) const {
        const __m128 one = (_mm_load_ps(low) - from_ - margin_) * inverse_;
        const __m128 two = (_mm_load_ps(high) - from_ + margin_) * inverse_;
        const __m128 in = _mm_min_ps(one, two), out = _mm_max_ps(one, two);
        __m128 first = _mm_max_ss(in, _mm_movehl_ps(in, in));
        __m128 last = _mm_min_ss(out, _mm_movehl_ps(out, out));
        first = _mm_max_ss(_mm_max_ss(first, _mm_shuffle_ps(in, in, 1)), _mm_set_ss(-spare_));
        last = _mm_min_ss(_mm_min_ss(last, _mm_shuffle_ps(out, out, 1)), _mm_set_ss(stop_));
        return _mm_comigt_ss(first, last) != 0;
    }

    /// Whether it crosses all planes steeply, or from behind.
    bool is_steep(const ray_bearings* bearings, std::uint32_t fours) const {
        const __m128i back = _mm_set1_epi32(static_cast<int>(-slope_spare * 32767 * 32767));
        __m128i flat = _mm_setzero_si128();
        for (const ray_bearings* const end = bearings + fours; bearings != end; ++bearings) {
            const __m128i xy = _mm_load_si128(reinterpret_cast<const __m128i*>(bearings->xy));
            const __m128i zl = _mm_load_si128(reinterpret_cast<const __m128i*>(bearings->z_least));
            const __m128i along = _mm_add_epi32(_mm_madd_epi16(xy, xy_), _mm_madd_epi16(zl, z_));
            const __m128i least =
                _mm_srai_epi32(zl, 1); // in 32767 * 32768ths; below is less than 1
            flat = _mm_or_si128(
                flat, _mm_and_si128(_mm_cmpgt_epi32(along, back), _mm_cmpgt_epi32(least, along)));
        }
        return _mm_movemask_epi8(flat) == 0;
    }

  private:
    static __m128 four(const float3& v) { return _mm_setr_ps(v[0], v[1], v[2], 0); }
    static float sum3(__m128 v) {
        return _mm_cvtss_f32(v) + _mm_cvtss_f32(_mm_shuffle_ps(v, v, 1)) +
               _mm_cvtss_f32(_mm_movehl_ps(v, v));
    }

    __m128 from_, inverse_, margin_;
    __m128i xy_, z_;     ///< of the unit way back, in 32767ths: x and y in turn; z and 0
    float spare_, stop_; ///< fractions of the segment: that one is off by, that ends it
};

} // namespace detail
} // namespace morva
