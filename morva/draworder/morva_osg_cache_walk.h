#pragma once

// The greedy walk of the vertex-cache optimisers on plain arrays, for triangles and for lines.
//
//     cache_walk<triangle_rules> walk(corners, vertices, {}, columns, 65533);
//     const draw_order order = walk.run();        which element when, and where pieces begin
//
// Draws what the walk on lists draws (morva_osg_cacheopt.h), element by element. What makes it
// fast: an element's score is a sum of its vertices' scores at every moment, so that none is kept;
// of the cache only vertices that still wait for elements are kept, with their places, the most
// recent first:
//
//     waiting   | 9 at 1 | 4 at 2 | 17 at 7 | 3 at 21 |      place 0, 3 to 6, ...: done with
//
// and a vertex remembers its `reach`, the most that the others of one of its elements add to its
// own score. A vertex in the cache only loses while it isn't touched, but for the step out of the
// first places. So a vertex older than that whose score and reach don't come up to the best element
// so far has nothing to offer, and its elements aren't looked at.
//
// One thread per walk; the arrays that it reads must stay as they are.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <unordered_map>
#include <vector>

#include <morva/core/morva_huge_pages.h>
#include <morva/core/morva_span.h>
#include <morva/draworder/morva_osg_cache_scores.h>
#include <morva/draworder/morva_osg_draw_order.h>

namespace morva::osg {

/// The walk; made for one run.
///
/// Where elements were dropped, the number of an element in the source is not its place. The
/// marked vertex chooses by that number all the same, and the walk takes what stands at that
/// place:
///
///     not drawn yet      it is drawn, near the cache or not
///     drawn already      it is drawn a second time; its vertices count one element less than
///                        wait for them. As many elements are drawn as there are, so that another
///                        is left out, and the walk ends
///     beyond the last    nothing is there: the first element not drawn is taken
///
/// A hub, a vertex of very many elements, isn't looked at each time that one of them is drawn; its
/// reach is kept by what its neighbours score outside the cache, and those inside answer for the
/// elements that they share with it.
template <typename Rules> class cache_walk {
  public:
    /// corners   one vertex per corner, all below `vertices`; an element has Rules::corners
    /// numbers   of the elements in the source; empty if they are their places
    /// columns   what fills a piece
    /// errors    std::bad_alloc; std::length_error for 2^32 corners or more
    cache_walk(span<const std::uint32_t> corners, std::size_t vertices,
               span<const std::uint32_t> numbers, const std::vector<counted_column>& columns,
               unsigned int limit)
        : m_corners(corners.data()), m_count(corners.size() / Rules::corners), m_numbers(numbers),
          m_counter(columns, limit), m_vertices(vectorInHugePages<vertex>(vertices)),
          m_waiting(vectorInHugePages<std::uint32_t>(corners.size())), m_drawn(m_count, 0),
          m_marked(vertices) {
        for (int place = 0; place < cache_places; ++place)
            m_place_score[place] = placeScore<Rules>(place);
        for (std::size_t i = 0; i < known_waiting; ++i)
            m_base_score[i] = vertexScore<Rules>(static_cast<int>(i), -1);
        linkElements();
        findHubs();
    }

    draw_order run() {
        m_counter.openPiece();
        m_order.piece_first.push_back(0);
        m_order.elements = vectorInHugePages<std::uint32_t>(m_count);
        std::uint32_t element = m_count > 0 ? firstElement() : 0;
        for (std::size_t i = 0; i < m_count; ++i) {
            if (m_counter.full()) {
                m_counter.openPiece();
                m_order.piece_first.push_back(m_done);
                flush();
                element = nextUndrawn();
            }
            if (m_drawn[element] != 0 && !m_tangled)
                tangle();
            if (m_tangled)
                element = drawTangled(element);
            else
                element = m_beside_hub.empty() ? draw<false>(element) : draw<true>(element);
        }
        return std::move(m_order);
    }

  private:
    static constexpr unsigned corners_each = Rules::corners;
    static constexpr std::size_t known_waiting = 256; ///< entries of m_base_score
    static constexpr std::uint32_t hub_size = 64;     ///< more elements wait for a hub
    /// More than the sum of four scores up to 12 in all can be off by rounding, twice.
    static constexpr float rounding_slack = 1e-5F;

    struct vertex {
        std::uint32_t first = 0;   ///< of its elements in m_waiting
        std::uint32_t listed = 0;  ///< how many are there, drawn ones included
        std::uint32_t waiting = 0; ///< how many of them are not drawn
        float score = -1.0F;       ///< at its present place
    };
    /// A vertex in the cache that elements wait for.
    struct cached {
        std::uint32_t vertex;
        int place;
        float base;  ///< score without the place
        float reach; ///< score of its best element at the last look, less its own then; not of hubs
    };
    /// The best element so far.
    struct choice {
        std::uint32_t score = 0; ///< bits of a positive score; 0: none
        std::uint32_t element = 0;
    };

    /// Lists the elements of each vertex in m_waiting, ascending.
    void linkElements() {
        const std::size_t corner_count = m_waiting.size();
        if (corner_count > 0xFFFFFFFFU)
            throw std::length_error("more corners than numbers");
        for (std::size_t i = 0; i < corner_count; ++i)
            ++m_vertices[m_corners[i]].waiting;
        std::uint32_t end = 0;
        for (vertex& v : m_vertices) {
            end += v.waiting;
            v.first = end;
            v.listed = v.waiting;
            v.score = baseScore(v.waiting);
        }
        for (std::size_t i = corner_count; i-- > 0;)
            m_waiting[--m_vertices[m_corners[i]].first] =
                static_cast<std::uint32_t>(i / corners_each);
    }

    float baseScore(std::uint32_t waiting) const {
        return waiting < known_waiting ? m_base_score[waiting]
                                       : vertexScore<Rules>(static_cast<int>(waiting), -1);
    }

    const std::uint32_t* cornersOf(std::uint32_t element) const {
        return m_corners + std::size_t(element) * corners_each;
    }

    static bool isCorner(std::uint32_t v, const std::uint32_t* c) {
        bool corner = false;
        for (unsigned k = 0; k < corners_each; ++k)
            corner |= v == c[k];
        return corner;
    }

    /// Sum of the vertex scores in corner order, and the bonus for all of them being above 0, as
    /// they are while every element waits at its vertices.
    float elementScore(std::uint32_t element) const {
        const std::uint32_t* c = cornersOf(element);
        float sum = m_vertices[c[0]].score;
        for (unsigned k = 1; k < corners_each; ++k)
            sum += m_vertices[c[k]].score;
        return sum + 3.0F;
    }

    /// Of equal ones the first offered stays.
    void offer(std::uint32_t element, choice& best) const {
        const std::uint32_t score = scoreBits(elementScore(element));
        if (score > best.score)
            best = {score, element};
    }

    std::uint32_t firstElement() const {
        choice best;
        for (std::size_t i = 0; i < m_count; ++i)
            offer(static_cast<std::uint32_t>(i), best);
        return best.element;
    }

    /// The best element that waits for a vertex, whose list has no drawn ones.
    choice bestOf(const vertex& at) const {
        const std::uint32_t* const list = m_waiting.data() + at.first;
        choice best;
        for (std::uint32_t i = 0; i < at.waiting; ++i)
            offer(list[i], best);
        return best;
    }

    /// The same where one element was just drawn; takes it off the list.
    choice bestWithout(std::uint32_t drawn, vertex& at) {
        std::uint32_t* const list = m_waiting.data() + at.first;
        std::uint32_t kept = 0;
        choice best;
        for (std::uint32_t i = 0; i < at.listed; ++i) {
            const std::uint32_t element = list[i];
            if (element == drawn)
                continue;
            list[kept++] = element;
            offer(element, best);
        }
        at.listed = kept;
        return best;
    }

    void enter(std::uint32_t element) {
        m_drawn[element] = 1;
        m_order.elements[m_done++] = element;
        m_counter.template add<corners_each>(element);
    }

    /// Draws an element, moves its vertices to the front of the cache, and returns the next one.
    template <bool Hubs> std::uint32_t draw(std::uint32_t element) {
        enter(element);
        int moved_in = 0;
        const std::size_t touched = touchCorners(element, moved_in);
        const std::size_t sure = ageCache(cornersOf(element), touched, moved_in);
        return search<Hubs>(element, touched, sure);
    }

    /// Begins the next cache with those corners of a drawn element that still wait, and returns
    /// how many they are. `moved_in` receives how many places the corners take.
    std::size_t touchCorners(std::uint32_t element, int& moved_in) {
        const std::uint32_t* const c = cornersOf(element);
        cached* const made = m_cache[1 - m_now];
        std::size_t touched = 0;
        for (unsigned k = corners_each; k-- > 0;) {
            vertex& at = m_vertices[c[k]];
            --at.waiting;
            if (corners_each == 2 && k == 1 && c[0] == c[1]) {
                --at.waiting; // both ends of a line are one vertex
                k = 0;
            }
            if (at.waiting > 0)
                made[touched++] = {c[k], moved_in, baseScore(at.waiting), 0.0F};
            else
                at.listed = 0;
            ++moved_in;
        }
        return touched;
    }

    /// Moves the rest of the cache back behind the corners just drawn, and scores all. Returns how
    /// many vertices, from the first on, may have gained.
    std::size_t ageCache(const std::uint32_t* corners, std::size_t touched, int moved_in) {
        cached* const made = m_cache[1 - m_now];
        std::size_t count = touched;
        std::size_t sure = touched;
        int overtaken = moved_in; // a vertex goes back by those that come from behind it
        const cached* const end = m_cache[m_now] + m_cached;
        for (const cached* from = m_cache[m_now]; from != end; ++from) {
            const bool corner = isCorner(from->vertex, corners);
            overtaken -= corner ? 1 : 0;
            const int place = from->place + overtaken;
            if (place >= cache_places && !corner) {
                leaveCache(*from);
                m_marked = from->vertex;
                continue;
            }
            // A corner is written as well and overwritten by the next; its score comes below.
            made[count] = {from->vertex, place, from->base, from->reach};
            const float score = from->base + m_place_score[place];
            m_vertices[from->vertex].score = score;
            m_upper[count] = score + from->reach + rounding_slack;
            sure += !corner && from->place < Rules::recent ? 1 : 0; // comes out of a flat place
            count += corner ? 0 : 1;
        }
        for (std::size_t i = 0; i < touched; ++i)
            m_vertices[made[i].vertex].score = made[i].base + m_place_score[made[i].place];
        m_now = 1 - m_now;
        m_cached = count;
        return sure;
    }

    [[gnu::noinline]] void leaveCache(const cached& entry) {
        m_vertices[entry.vertex].score = entry.base;
        if (isBesideHub(entry.vertex))
            reachOut(m_vertices[entry.vertex]);
    }

    /// The element to draw next. The first `touched` vertices of the cache still list `drawn`;
    /// the first `sure` ones may offer more than their reach.
    template <bool Hubs>
    std::uint32_t search(std::uint32_t drawn, std::size_t touched, std::size_t sure) {
        choice best;
        cached* const cache = m_cache[m_now];
        for (std::size_t i = 0; i < m_cached; ++i) {
            if (Hubs && isBesideHub(cache[i].vertex)) {
                searchBesideHub(cache[i], i < sure, best);
                continue;
            }
            // An element of an older vertex with a newer one was found there, at equal scores as
            // well; so only what is strictly better counts.
            if (i >= sure && m_upper[i] < scoreOfBits(best.score))
                continue;
            vertex& at = m_vertices[cache[i].vertex];
            const choice found = i < touched ? bestWithout(drawn, at) : bestOf(at);
            cache[i].reach = scoreOfBits(found.score) - at.score;
            if (found.score > best.score)
                best = found;
        }
        if (best.score == 0)
            return nextOutside();
        // Looked at next.
        for (unsigned k = 0; k < corners_each; ++k)
            __builtin_prefetch(&m_waiting[m_vertices[cornersOf(best.element)[k]].first]);
        return best.element;
    }

    /// The element to draw next if nothing in the cache waits.
    [[gnu::noinline]] std::uint32_t nextOutside() {
        choice best;
        if (Rules::revisits_evicted && m_marked < m_vertices.size()) {
            const auto v = static_cast<std::uint32_t>(m_marked);
            if (isBesideHub(v))
                tidy(m_vertices[v]);
            best = bestOf(m_vertices[v]);
        }
        if (best.score != 0)
            return byNumber(best.element);
        flush();
        return nextUndrawn();
    }

    /// What stands at the place that is the number of this element.
    std::uint32_t byNumber(std::uint32_t element) {
        const std::uint32_t number = m_numbers.empty() ? element : m_numbers[element];
        return number < m_count ? number : nextUndrawn();
    }

    std::uint32_t nextUndrawn() {
        std::size_t at = m_first_undrawn;
        while (at < m_count && m_drawn[at] != 0)
            ++at;
        if (at == m_count)
            return 0;
        m_first_undrawn = at;
        return static_cast<std::uint32_t>(at);
    }

    /// Empties the cache.
    void flush() {
        m_flushed = m_done;
        for (std::size_t i = 0; i < m_cached; ++i)
            leaveCache(m_cache[m_now][i]);
        m_cached = 0;
        for (const std::uint32_t v : m_recent)
            m_vertices[v].score = tangledVertexScore(v, 0.0F);
        m_recent.clear();
    }

    // Hubs. Their elements are looked at when their reach comes up to the best element, and
    // otherwise when a neighbour in the cache is. An element can be found at a vertex that is not
    // its first in the cache, so that here the rule for equal scores is spelt out.

    void findHubs() {
        for (std::size_t i = 0; i < m_vertices.size(); ++i) {
            const vertex& at = m_vertices[i];
            if (at.waiting <= hub_size)
                continue;
            m_beside_hub.resize(m_vertices.size(), 0);
            for (std::uint32_t j = 0; j < at.waiting; ++j) {
                const std::uint32_t* c = cornersOf(m_waiting[at.first + j]);
                for (unsigned k = 0; k < corners_each; ++k)
                    m_beside_hub[c[k]] = 1;
            }
            m_hub_reach[static_cast<std::uint32_t>(i)] = 0.0F;
        }
        for (auto& [v, reach] : m_hub_reach) {
            const vertex& at = m_vertices[v];
            for (std::uint32_t j = 0; j < at.waiting; ++j)
                reach = std::max(reach, 3.0F + outsideScore(v, m_waiting[at.first + j]));
        }
    }

    /// Whether it has been a hub, or shares elements with one.
    bool isBesideHub(std::uint32_t v) const { return !m_beside_hub.empty() && m_beside_hub[v]; }
    static bool isHub(const vertex& at) { return at.waiting > hub_size; }

    /// No hub scores more as long as it is one.
    float hubCeiling() const { return m_base_score[hub_size + 1] + 1.0F; }

    /// Sum of what the other corners of an element score outside the cache.
    float outsideScore(std::uint32_t v, std::uint32_t element) const {
        return othersScore(v, element,
                           [&](const vertex& other) { return baseScore(other.waiting); });
    }

    template <typename Score>
    float othersScore(std::uint32_t v, std::uint32_t element, const Score& scoreOfOther) const {
        const std::uint32_t* c = cornersOf(element);
        const unsigned own = static_cast<unsigned>(std::find(c, c + corners_each, v) - c);
        float sum = 0.0F;
        for (unsigned k = 0; k < corners_each; ++k) {
            const vertex& other = m_vertices[c[k]];
            if (k != own)
                sum += isHub(other) ? hubCeiling() : scoreOfOther(other);
        }
        return sum;
    }

    /// Tells the hubs beside a vertex that left the cache what it scores from now on.
    void reachOut(vertex& at) {
        if (isHub(at))
            return; // the ceiling holds
        tidy(at);
        for (std::uint32_t i = 0; i < at.waiting; ++i) {
            const std::uint32_t element = m_waiting[at.first + i];
            const std::uint32_t* c = cornersOf(element);
            for (unsigned k = 0; k < corners_each; ++k) {
                if (!isHub(m_vertices[c[k]]))
                    continue;
                float& reach = m_hub_reach[c[k]];
                reach = std::max(reach, 3.0F + outsideScore(c[k], element));
            }
        }
    }

    /// Takes the drawn elements off a list.
    void tidy(vertex& at) {
        std::uint32_t* const list = m_waiting.data() + at.first;
        const auto end = std::remove_if(
            list, list + at.listed, [&](std::uint32_t element) { return m_drawn[element] != 0; });
        at.listed = static_cast<std::uint32_t>(end - list);
    }

    /// Number of the first vertex in the cache that the element has.
    std::size_t firstInCache(std::uint32_t element) const {
        const cached* const cache = m_cache[m_now];
        std::size_t i = 0;
        while (i < m_cached && !isCorner(cache[i].vertex, cornersOf(element)))
            ++i;
        return i;
    }

    bool comesBefore(std::uint32_t element, std::uint32_t other) const {
        const std::size_t first = firstInCache(element), others = firstInCache(other);
        return first != others ? first < others : element < other;
    }

    [[gnu::noinline]] void searchBesideHub(cached& entry, bool sure, choice& best) {
        vertex& at = m_vertices[entry.vertex];
        const bool hub = isHub(at);
        float& reach = hub ? m_hub_reach[entry.vertex] : entry.reach;
        if ((hub || !sure) && at.score + reach + rounding_slack < scoreOfBits(best.score))
            return;
        tidy(at);
        reach = 0.0F;
        for (std::uint32_t i = 0; i < at.waiting; ++i) {
            const std::uint32_t element = m_waiting[at.first + i];
            const std::uint32_t score = scoreBits(elementScore(element));
            if (score > best.score || (score == best.score && comesBefore(element, best.element)))
                best = {score, element};
            const float others =
                hub ? outsideScore(entry.vertex, element)
                    : othersScore(entry.vertex, element, [](const vertex& v) { return v.score; });
            reach = std::max(reach, 3.0F + others);
        }
    }

    // From the first element that is drawn twice on scores can be anything, and no vertex can be
    // passed over: the rest is drawn as on lists.

    /// Goes over to counts that are apart from the lists, and to the whole cache.
    void tangle() {
        m_tangled = true;
        for (vertex& at : m_vertices)
            tidy(at);
        m_left.resize(m_vertices.size());
        for (std::size_t v = 0; v < m_left.size(); ++v)
            m_left[v] = static_cast<int>(m_vertices[v].waiting);
        // What was drawn last, back to the last flush, is what the cache holds.
        for (std::size_t i = m_done; i-- > m_flushed;) {
            const std::uint32_t* c = cornersOf(m_order.elements[i]);
            for (unsigned k = corners_each; k-- > 0;) {
                if (m_recent.size() == cache_places)
                    break;
                if (std::find(m_recent.begin(), m_recent.end(), c[k]) == m_recent.end())
                    m_recent.push_back(c[k]);
            }
        }
        m_cached = 0;
    }

    float tangledVertexScore(std::uint32_t v, float place_score) const {
        const int left = m_left[v];
        if (left > 0)
            return baseScore(static_cast<std::uint32_t>(left)) + place_score;
        return vertexScore<Rules>(left, -1); // -1 for none, a NaN for less
    }

    float tangledScore(std::uint32_t element) const {
        const std::uint32_t* c = cornersOf(element);
        float sum = m_vertices[c[0]].score;
        unsigned positive = sum > 0.0F ? 1 : 0;
        for (unsigned k = 1; k < corners_each; ++k) {
            const float score = m_vertices[c[k]].score;
            positive += score > 0.0F ? 1 : 0;
            sum += score;
        }
        if (positive == corners_each)
            return sum + 3.0F;
        return corners_each == 3 && positive == 2 ? sum + 1.0F : sum;
    }

    /// Offers the elements of a vertex: returns whether one was better.
    bool offerTangled(std::uint32_t v, float& best, std::uint32_t& element) const {
        bool found = false;
        const std::uint32_t* const list = m_waiting.data() + m_vertices[v].first;
        for (std::uint32_t i = 0; i < m_vertices[v].waiting; ++i) {
            const float score = tangledScore(list[i]);
            if (!(score > best))
                continue; // a NaN is never better
            best = score;
            element = list[i];
            found = true;
        }
        return found;
    }

    /// Takes the element off a list that has no drawn ones.
    void unlink(vertex& at, std::uint32_t element) {
        std::uint32_t* const list = m_waiting.data() + at.first;
        at.waiting =
            static_cast<std::uint32_t>(std::remove(list, list + at.waiting, element) - list);
    }

    std::uint32_t drawTangled(std::uint32_t element) {
        enter(element);
        const std::uint32_t* c = cornersOf(element);
        for (unsigned k = 0; k < corners_each; ++k) {
            unlink(m_vertices[c[k]], element);
            --m_left[c[k]];
        }
        for (unsigned k = 0; k < corners_each; ++k) {
            m_recent.erase(std::remove(m_recent.begin(), m_recent.end(), c[k]), m_recent.end());
            m_recent.insert(m_recent.begin(), c[k]);
        }
        for (std::size_t i = 0; i < m_recent.size(); ++i) {
            const std::uint32_t v = m_recent[i];
            const bool stays = i < cache_places;
            if (!stays && m_left[v] > 0)
                m_marked = v;
            m_vertices[v].score = tangledVertexScore(v, stays ? m_place_score[i] : 0.0F);
        }
        if (m_recent.size() > cache_places)
            m_recent.resize(cache_places);

        float best = -2.0F;
        std::uint32_t next = 0;
        bool found = false;
        for (const std::uint32_t v : m_recent)
            found = offerTangled(v, best, next) || found;
        if (found)
            return next;
        if (m_marked < m_vertices.size() && m_left[m_marked] > 0 &&
            offerTangled(static_cast<std::uint32_t>(m_marked), best, next))
            return byNumber(next);
        flush();
        return nextUndrawn();
    }

    const std::uint32_t* m_corners;
    std::size_t m_count;
    span<const std::uint32_t> m_numbers;
    piece_counter m_counter;
    std::vector<vertex> m_vertices;
    std::vector<std::uint32_t> m_waiting; ///< elements by vertex, ascending; an entry per corner
    std::vector<std::uint8_t> m_drawn;
    draw_order m_order;

    cached m_cache[2][cache_places + corners_each]; ///< most recent first; m_now is in use
    float m_upper[cache_places + corners_each];     ///< none of its elements scores more
    unsigned m_now = 0;
    std::size_t m_cached = 0;
    std::size_t m_done = 0;          ///< elements drawn so far
    std::size_t m_marked;            ///< fell out of the cache while elements waited; or beyond
    std::size_t m_first_undrawn = 0; ///< none is undrawn in front
    std::size_t m_flushed = 0;       ///< elements drawn before the cache was last emptied

    std::vector<std::uint8_t> m_beside_hub;               ///< per vertex; empty without hubs
    std::unordered_map<std::uint32_t, float> m_hub_reach; ///< by the scores outside the cache

    bool m_tangled = false;
    std::vector<int> m_left;             ///< elements left as they are counted, if tangled
    std::vector<std::uint32_t> m_recent; ///< the cache, most recent first, if tangled
    float m_place_score[cache_places + corners_each] = {};
    float m_base_score[known_waiting] = {};
};

} // namespace morva::osg
