#pragma once

// What spares a walk the long lists. A hub, a vertex of very many elements, isn't looked at each
// time that one of them is drawn: its reach is kept by what its neighbours score outside the cache,
// and those inside answer for the elements that they share with it.
//
//     rim ---o---o---o---   each o beside the hub x, which has an element with every two of them
//             \  |  /
//                x          looked at when score + reach come up to the best element so far
//
// An element can so be found at a vertex that is not its first in the cache, and the rule for equal
// scores is spelt out here.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

#include <morva/core/morva_span.h>
#include <morva/draworder/morva_osg_walk_table.h>

namespace morva::osg {

/// The hubs of one run.
template <typename Rules> class hub_bounds {
  public:
    /// Finds them; `table` has to outlive it, and nothing is drawn yet.
    explicit hub_bounds(walk_table<Rules>& table) : table_(table) {
        for (std::size_t i = 0; i < table_.vertices.size(); ++i)
            enterHub(static_cast<std::uint32_t>(i));
        for (auto& [v, reach] : reach_) {
            const walk_vertex& at = table_.vertices[v];
            for (std::uint32_t j = 0; j < at.waiting; ++j)
                reach = std::max(reach, outsideReach(v, table_.lists[at.first + j]));
        }
    }

    bool empty() const { return beside_.empty(); }
    /// Whether it has been a hub, or shares elements with one.
    bool isBeside(std::uint32_t v) const { return !beside_.empty() && beside_[v]; }

    /// Raises the reach of the hubs beside a vertex that left the cache and got its new score.
    void raiseBeside(std::uint32_t v) {
        walk_vertex& at = table_.vertices[v];
        if (isHub(at))
            return; // the ceiling holds
        table_.tidy(at);
        for (std::uint32_t i = 0; i < at.waiting; ++i) {
            const std::uint32_t element = table_.lists[at.first + i];
            const std::uint32_t* c = table_.cornersOf(element);
            for (unsigned k = 0; k < corners_each; ++k) {
                if (!isHub(table_.vertices[c[k]]))
                    continue;
                float& reach = reach_[c[k]];
                reach = std::max(reach, outsideReach(c[k], element));
            }
        }
    }

    /// Looks for a better element at `cache[i]`, which is beside a hub.
    ///
    /// sure  whether it may offer more than its reach
    /// Rare: out of line it takes 1 % of all instructions off the walk over an engine.
    [[gnu::noinline]] void search(span<cached_vertex> cache, std::size_t i, bool sure,
                                  walk_choice& best) {
        const std::uint32_t v = cache[i].vertex;
        walk_vertex& at = table_.vertices[v];
        const bool hub = isHub(at);
        float& reach = hub ? reach_[v] : cache[i].reach;
        if ((hub || !sure) && at.score + reach + table_.rounding_slack < scoreOfBits(best.score))
            return;
        table_.tidy(at);
        reach = 0.0F;
        for (std::uint32_t j = 0; j < at.waiting; ++j) {
            const std::uint32_t element = table_.lists[at.first + j];
            const std::uint32_t score = scoreBits(table_.scoreOf(element));
            if (score > best.score ||
                (score == best.score && comesBefore(cache, element, best.element)))
                best = {score, element};
            reach = std::max(reach, hub ? outsideReach(v, element)
                                        : reachBy(v, element, [](const walk_vertex& other) {
                                              return other.score;
                                          }));
        }
    }

  private:
    static constexpr unsigned corners_each = Rules::corners;
    static constexpr std::uint32_t hub_size = 64; ///< more elements wait for a hub

    static bool isHub(const walk_vertex& at) { return at.waiting > hub_size; }
    /// No hub scores more as long as it is one.
    float ceiling() const { return table_.base_score[hub_size + 1] + 1.0F; }

    void enterHub(std::uint32_t v) {
        const walk_vertex& at = table_.vertices[v];
        if (!isHub(at))
            return;
        beside_.resize(table_.vertices.size(), 0);
        for (std::uint32_t j = 0; j < at.waiting; ++j) {
            const std::uint32_t* c = table_.cornersOf(table_.lists[at.first + j]);
            for (unsigned k = 0; k < corners_each; ++k)
                beside_[c[k]] = 1;
        }
        reach_[v] = 0.0F;
    }

    /// What an element adds to the score of its vertex if the others are outside the cache.
    float outsideReach(std::uint32_t v, std::uint32_t element) const {
        return reachBy(v, element,
                       [&](const walk_vertex& other) { return table_.baseScore(other.waiting); });
    }

    template <typename Score>
    float reachBy(std::uint32_t v, std::uint32_t element, const Score& scoreOfOther) const {
        const std::uint32_t* c = table_.cornersOf(element);
        const unsigned own = static_cast<unsigned>(std::find(c, c + corners_each, v) - c);
        float sum = 0.0F;
        for (unsigned k = 0; k < corners_each; ++k) {
            const walk_vertex& other = table_.vertices[c[k]];
            if (k != own)
                sum += isHub(other) ? ceiling() : scoreOfOther(other);
        }
        return Rules::bonus[corners_each] + sum;
    }

    /// Number of the first vertex in the cache that the element has.
    std::size_t firstInCache(span<const cached_vertex> cache, std::uint32_t element) const {
        std::size_t i = 0;
        while (i < cache.size() && !table_.isCorner(cache[i].vertex, table_.cornersOf(element)))
            ++i;
        return i;
    }

    bool comesBefore(span<const cached_vertex> cache, std::uint32_t element,
                     std::uint32_t other) const {
        const std::size_t first = firstInCache(cache, element);
        const std::size_t others = firstInCache(cache, other);
        return first != others ? first < others : element < other;
    }

    walk_table<Rules>& table_;
    std::vector<std::uint8_t> beside_;               ///< per vertex; empty without hubs
    std::unordered_map<std::uint32_t, float> reach_; ///< by the scores outside the cache
};

} // namespace morva::osg
