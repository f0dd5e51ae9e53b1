#pragma once

// Scores of the vertex-cache optimisers, for triangles and for lines.
//
//     vertex    2 / sqrt(elements that wait for it) + what its place in the cache adds
//     element   sum of its vertices, and a bonus for how many of them are above 0
//
// Everything is single precision, and orders depend on the last bit: tables of these values are
// made by these functions.

#include <cmath>
#include <cstdint>
#include <cstring>

namespace morva::osg {

/// What differs between the two kinds of elements.
struct triangle_rules {
    static constexpr unsigned corners = 3;
    static constexpr float bonus[] = {0.0F, 0.0F, 1.0F, 3.0F}; ///< by vertices above 0
    static constexpr int recent = 3;                           ///< first places, which score alike
    static constexpr float slope = 0.03448276F;                ///< 1/29
    static constexpr bool revisits_evicted = true;             ///< looks at what fell out too early
};
struct line_rules {
    static constexpr unsigned corners = 2;
    static constexpr float bonus[] = {0.0F, 0.0F, 3.0F};
    static constexpr int recent = 2;
    static constexpr float slope = 0.033333335F; ///< 1/30
    static constexpr bool revisits_evicted = false;
};

constexpr int cache_places = 32;

/// What a place in the cache adds to a vertex score; 0 outside.
template <typename Rules> float placeScore(int place) {
    if (place < 0)
        return 0.0F;
    if (place < Rules::recent)
        return 0.75F;
    return std::pow(1.0F - static_cast<float>(place - Rules::recent) * Rules::slope, 1.5F);
}

/// Score of a vertex by the elements that wait for it and its place, -1 for outside the cache.
template <typename Rules> float vertexScore(int waiting, int place) {
    if (waiting == 0)
        return -1.0F;
    return 2.0F * std::pow(static_cast<float>(waiting), -0.5F) + placeScore<Rules>(place);
}

/// Score of an element whose corner k scores `scoreOf(k)`.
template <typename Rules, typename ScoreOf> float elementScore(const ScoreOf& scoreOf) {
    float sum = 0.0F;
    unsigned positive = 0;
    for (unsigned k = 0; k < Rules::corners; ++k) {
        const float score = scoreOf(k);
        sum += score;
        positive += score > 0.0F ? 1 : 0;
    }
    return sum + Rules::bonus[positive];
}

/// The bits of a score. Those of positive scores are ordered as the scores are, and 0 is less.
inline std::uint32_t scoreBits(float score) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &score, sizeof(bits));
    return bits;
}

inline float scoreOfBits(std::uint32_t bits) {
    float score = 0.0F;
    std::memcpy(&score, &bits, sizeof(score));
    return score;
}

} // namespace morva::osg
