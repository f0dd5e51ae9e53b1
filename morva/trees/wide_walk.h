#pragma once

// The way of a ray through a wide_tree, eight boxes at a time. For processors with AVX2.

#include <morva/core/morva_math.h>
#include <morva/trees/wide_tree.h>

#include <array>
#include <cstddef>
#include <cstdint>

#include <immintrin.h>

namespace morva {
namespace detail {

/// For each set of lanes, a bit each, those of the set: the order in which they wait, the first to
/// be visited last. A ray that goes up along the node's axis visits the lowest first, so that there
/// the highest stands first.
struct lane_orders {
    std::array<std::array<std::uint8_t, wide_width>, 256> lanes{};

    explicit constexpr lane_orders(bool highest_first) {
        for (unsigned set = 0; set < 256; ++set) {
            std::size_t count = 0;
            for (unsigned k = 0; k < wide_width; ++k) {
                const unsigned lane = highest_first ? wide_width - 1 - k : k;
                if ((set >> lane & 1) != 0)
                    lanes[set][count++] = static_cast<std::uint8_t>(lane);
            }
        }
    }
};
inline constexpr lane_orders orders_of_lanes[2] = {lane_orders(true), lane_orders(false)};

} // namespace detail

/// Comes to the leaves whose boxes a ray meets, more or less the nearest first, until one of them
/// ends it. Rounding may lose a box that the ray touches: nothing is to rest on a leaf that did not
/// come.
///
/// inverse      1 / direction per component
/// t_min, t_max the part of the ray that counts
/// use          bool(std::uint32_t leaf): whether that was enough
/// returns      whether it was
template <typename Use>
[[gnu::target("avx2")]] bool walk(const wide_tree& tree, const float3& from, const float3& inverse,
                                  float t_min, float t_max, Use& use) {
    if (tree.nodes.empty())
        return false;
    constexpr float spare = 1.000001F;
    std::uint32_t stack[(detail::wide_levels + 1) * wide_width];
    std::size_t depth = 0;
    stack[depth++] = 0;
    const __m256 from_x = _mm256_set1_ps(from[0]), inverse_x = _mm256_set1_ps(inverse[0]);
    const __m256 from_y = _mm256_set1_ps(from[1]), inverse_y = _mm256_set1_ps(inverse[1]);
    const __m256 from_z = _mm256_set1_ps(from[2]), inverse_z = _mm256_set1_ps(inverse[2]);
    // Rows of a node: those of the planes through which the ray comes in, and goes out.
    std::size_t first[3], last[3];
    for (std::size_t axis = 0; axis < 3; ++axis) {
        first[axis] = axis + (inverse[axis] < 0 ? 3 : 0);
        last[axis] = axis + (inverse[axis] < 0 ? 0 : 3);
    }
    const __m256 least = _mm256_set1_ps(t_min), most = _mm256_set1_ps(t_max * spare);
    while (depth != 0) {
        std::uint32_t here = stack[--depth];
        while ((here & wide_tree::leaf_flag) == 0) {
            const wide_node& node = tree.nodes[here];
            const auto plane = [&](std::size_t row, const __m256& start, const __m256& factor)
                __attribute__((target("avx2"))) {
                return (_mm256_load_ps(node.planes[row]) - start) * factor;
            };
            // A NaN, of a ray in a plane, is passed over: the second operand stays.
            __m256 in = least, out = most;
            in = _mm256_max_ps(plane(first[0], from_x, inverse_x), in);
            in = _mm256_max_ps(plane(first[1], from_y, inverse_y), in);
            in = _mm256_max_ps(plane(first[2], from_z, inverse_z), in);
            out = _mm256_min_ps(plane(last[0], from_x, inverse_x), out);
            out = _mm256_min_ps(plane(last[1], from_y, inverse_y), out);
            out = _mm256_min_ps(plane(last[2], from_z, inverse_z), out);
            const __m256 meets = _mm256_cmp_ps(in, out * _mm256_set1_ps(spare), _CMP_LE_OQ);
            const auto met = static_cast<unsigned>(_mm256_movemask_ps(meets));
            if (met == 0)
                break;
            const bool falling = first[node.axis] >= 3;
            const auto lane =
                static_cast<unsigned>(falling ? 31 - __builtin_clz(met) : __builtin_ctz(met));
            here = node.child[lane];
            const unsigned others = met & ~(1U << lane);
            const auto& order = detail::orders_of_lanes[falling ? 1 : 0].lanes[others];
            const __m256i lanes = _mm256_cvtepu8_epi32(
                _mm_loadl_epi64(reinterpret_cast<const __m128i*>(order.data())));
            const __m256i children =
                _mm256_load_si256(reinterpret_cast<const __m256i*>(node.child));
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(stack + depth),
                                _mm256_permutevar8x32_epi32(children, lanes));
            depth += static_cast<std::size_t>(__builtin_popcount(others));
        }
        if ((here & wide_tree::leaf_flag) != 0 && use(here & ~wide_tree::leaf_flag))
            return true;
    }
    return false;
}

} // namespace morva
