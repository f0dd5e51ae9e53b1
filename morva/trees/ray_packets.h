#pragma once

// The test of a triangle for eight at a time. Include <morva/trees/ray_traversal.h>.

#include <morva/core/morva_math.h>
#include <morva/trees/ray_triangle.h>

#include <cstddef>

#include <immintrin.h>

namespace morva {
namespace detail {

constexpr std::size_t packet_width = 8;

/// Eight triangles: the x of their first corners side by side, y, z; then b - a, then c - a. Places
/// that are left over hold zeros, which no segment of finite length meets.
struct alignas(32) triangle_packet {
    float a[3][packet_width] = {}, ab[3][packet_width] = {}, ac[3][packet_width] = {};

    void put(std::size_t lane, const float_triangle& t) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            a[axis][lane] = t.a[axis];
            ab[axis][lane] = t.b[axis] - t.a[axis];
            ac[axis][lane] = t.c[axis] - t.a[axis];
        }
    }
};

/// A segment.
struct packet_segment {
    float p[3];  ///< first point
    float qp[3]; ///< that less the last one

    packet_segment(const float3& from, const float3& to)
        : p{from[0], from[1], from[2]}, qp{from[0] - to[0], from[1] - to[1], from[2] - to[2]} {}
};

/// Eight vectors, for functions that run on processors with such registers alone.
struct eight_vectors {
    __m256 x, y, z;
};

[[gnu::target("avx2")]] inline eight_vectors load8(const float (&rows)[3][packet_width]) {
    return {_mm256_load_ps(rows[0]), _mm256_load_ps(rows[1]), _mm256_load_ps(rows[2])};
}
[[gnu::target("avx2")]] inline eight_vectors repeat8(const float (&v)[3]) {
    return {_mm256_set1_ps(v[0]), _mm256_set1_ps(v[1]), _mm256_set1_ps(v[2])};
}
[[gnu::target("avx2")]] inline eight_vectors cross8(const eight_vectors& a,
                                                    const eight_vectors& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
[[gnu::target("avx2")]] inline __m256 dot8(const eight_vectors& a, const eight_vectors& b) {
    return _mm256_setzero_ps() + a.x * b.x + a.y * b.y + a.z * b.z;
}
[[gnu::target("avx2")]] inline __m256 is_above(__m256 a, __m256 b) {
    return _mm256_cmp_ps(a, b, _CMP_GT_OQ);
}

/// What meets() works out of eight triangles: the lanes that it lets go, and what a hit's fraction
/// comes from.
struct eight_meetings {
    __m256 out, d, s;
};

[[gnu::target("avx2")]] inline eight_meetings
meet8(const triangle_packet& packet, const eight_vectors& p, const eight_vectors& qp) {
    const __m256 zero = _mm256_setzero_ps();
    const eight_vectors ab = load8(packet.ab), ac = load8(packet.ac), n = cross8(ab, ac);
    const eight_vectors a = load8(packet.a), ap{p.x - a.x, p.y - a.y, p.z - a.z};
    const eight_vectors e = cross8(qp, ap);
    const __m256 d = dot8(qp, n), s = dot8(ap, n), v = dot8(ac, e), w = dot8(ab, e);
    __m256 out = _mm256_or_ps(_mm256_cmp_ps(zero, d, _CMP_GE_OQ), is_above(zero, s));
    out = _mm256_or_ps(out, _mm256_or_ps(is_above(s, d), is_above(zero, v)));
    out = _mm256_or_ps(out, _mm256_or_ps(is_above(v, d), is_above(w, zero)));
    out = _mm256_or_ps(out, is_above(v - w, d));
    return {out, d, s};
}

/// Whether a segment of finite length meets any triangle of `count` packets, by meets() to the last
/// bit, nearer than `nearest`: a fraction of it, or NaN for anywhere.
[[gnu::target("avx2")]] inline bool any_met_avx2(const triangle_packet* packets, std::size_t count,
                                                 const packet_segment& segment, float nearest) {
    const eight_vectors p = repeat8(segment.p), qp = repeat8(segment.qp);
    for (const triangle_packet* const end = packets + count; packets != end; ++packets) {
        const eight_meetings tried = meet8(*packets, p, qp);
        if (_mm256_movemask_ps(tried.out) == 255)
            continue;
        const __m256 t = _mm256_set1_ps(1) / tried.d * tried.s;
        const __m256 out =
            _mm256_or_ps(tried.out, _mm256_cmp_ps(t, _mm256_set1_ps(nearest), _CMP_GE_OQ));
        if (_mm256_movemask_ps(out) != 255)
            return true;
    }
    return false;
}

/// Which triangles of a packet a segment of finite length meets, a bit each, and where: by meets()
/// to the last bit.
///
/// fractions  out: of the segment, for those that are met
[[gnu::target("avx2")]] inline unsigned lanes_met_avx2(const triangle_packet& packet,
                                                       const packet_segment& segment,
                                                       float (&fractions)[packet_width]) {
    const eight_meetings tried = meet8(packet, repeat8(segment.p), repeat8(segment.qp));
    const int out = _mm256_movemask_ps(tried.out);
    if (out != 255)
        _mm256_storeu_ps(fractions, _mm256_set1_ps(1) / tried.d * tried.s);
    return static_cast<unsigned>(out ^ 255);
}

/// Whether this processor has such registers.
inline bool has_wide_registers() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") != 0;
}
inline const bool wide_registers = has_wide_registers();

/// Four vectors.
struct four_vectors {
    __m128 x, y, z;
};

inline four_vectors repeat4(const float (&v)[3]) {
    return {_mm_set1_ps(v[0]), _mm_set1_ps(v[1]), _mm_set1_ps(v[2])};
}
inline four_vectors cross4(const four_vectors& a, const four_vectors& b) {
    return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline __m128 dot4(const four_vectors& a, const four_vectors& b) {
    return _mm_setzero_ps() + a.x * b.x + a.y * b.y + a.z * b.z;
}

/// The same on any processor, by halves of packets.
inline bool any_met_sse2(const triangle_packet* packets, std::size_t count,
                         const packet_segment& segment, float nearest) {
    const four_vectors p = repeat4(segment.p), qp = repeat4(segment.qp);
    const __m128 zero = _mm_setzero_ps(), one = _mm_set1_ps(1);
    for (std::size_t half = 0; half < 2 * count; ++half) {
        const auto load = [&](const float(&rows)[3][packet_width]) -> four_vectors {
            const std::size_t lane = half % 2 * 4;
            return {_mm_load_ps(rows[0] + lane), _mm_load_ps(rows[1] + lane),
                    _mm_load_ps(rows[2] + lane)};
        };
        const triangle_packet& t = packets[half / 2];
        const four_vectors a = load(t.a), ab = load(t.ab), ac = load(t.ac), n = cross4(ab, ac);
        const four_vectors ap{p.x - a.x, p.y - a.y, p.z - a.z}, e = cross4(qp, ap);
        const __m128 d = dot4(qp, n), s = dot4(ap, n), v = dot4(ac, e), w = dot4(ab, e);
        __m128 out = _mm_or_ps(_mm_cmpge_ps(zero, d), _mm_cmpgt_ps(zero, s));
        out = _mm_or_ps(out, _mm_or_ps(_mm_cmpgt_ps(s, d), _mm_cmpgt_ps(zero, v)));
        out = _mm_or_ps(out, _mm_or_ps(_mm_cmpgt_ps(v, d), _mm_cmpgt_ps(w, zero)));
        out = _mm_or_ps(out, _mm_cmpgt_ps(v - w, d));
        if (_mm_movemask_ps(out) == 15)
            continue;
        out = _mm_or_ps(out, _mm_cmpge_ps(one / d * s, _mm_set1_ps(nearest)));
        if (_mm_movemask_ps(out) != 15)
            return true;
    }
    return false;
}

} // namespace detail
} // namespace morva
