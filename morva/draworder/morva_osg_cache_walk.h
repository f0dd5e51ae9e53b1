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
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

#include <morva/core/morva_span.h>

namespace morva::osg {

/// What differs between the two kinds of elements.
struct triangle_rules {
    static constexpr unsigned corners = 3;
    static constexpr int recent = 3;               ///< first places, which score alike
    static constexpr float slope = 0.03448276F;    ///< 1/29
    static constexpr bool revisits_evicted = true; ///< looks at what fell out too early
};
struct line_rules {
    static constexpr unsigned corners = 2;
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

/// One index per corner: those of a property, or numbers of whole corners.
struct counted_column {
    const std::uint32_t* cells = nullptr; ///< of corner i: cells[i * stride]
    std::size_t stride = 1;
    std::size_t ids = 0; ///< all cells are below
};

/// Elements in draw order, in pieces.
struct draw_order {
    std::vector<std::uint32_t> elements;  ///< places; one can stand twice, see cache_walk
    std::vector<std::size_t> piece_first; ///< per piece its start in `elements`; at least one

    std::size_t pieceEnd(std::size_t piece) const {
        return piece + 1 < piece_first.size() ? piece_first[piece + 1] : elements.size();
    }
};

/// Counts the distinct ids that the elements of a piece use in each column.
class piece_counter {
  public:
    piece_counter(const std::vector<counted_column>& columns, std::size_t limit)
        : m_limit(limit), m_full(limit == 0) {
        for (const counted_column& column : columns)
            m_columns.push_back({column, std::vector<std::uint32_t>(column.ids, 0), 0});
    }

    /// Whether some column has as many ids as the limit allows.
    bool full() const { return m_full; }

    void openPiece() {
        ++m_piece;
        m_full = m_limit == 0;
        for (counting& column : m_columns)
            column.count = 0;
    }

    template <unsigned Corners> void add(std::size_t element) {
        for (counting& column : m_columns) {
            const std::uint32_t* cell = column.of.cells + element * Corners * column.of.stride;
            for (unsigned k = 0; k < Corners; ++k, cell += column.of.stride) {
                column.count += column.piece_of[*cell] == m_piece ? 0 : 1;
                column.piece_of[*cell] = m_piece;
            }
            m_full = m_full || column.count >= m_limit;
        }
    }

  private:
    struct counting {
        counted_column of;
        std::vector<std::uint32_t> piece_of; ///< per id: the last piece that used it
        std::size_t count;                   ///< ids that the open piece uses
    };
    std::vector<counting> m_columns;
    std::size_t m_limit;
    bool m_full;
    std::uint32_t m_piece = 0; ///< 0: none opened yet
};

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
template <typename Rules> class cache_walk {
  public:
    /// corners   one vertex per corner, all below `vertices`; an element has Rules::corners
    /// numbers   of the elements in the source; empty if they are their places
    /// columns   what fills a piece
    cache_walk(span<const std::uint32_t> corners, std::size_t vertices,
               span<const std::uint32_t> numbers, const std::vector<counted_column>& columns,
               unsigned int limit)
        : m_corners(corners.data()), m_count(corners.size() / Rules::corners), m_numbers(numbers),
          m_counter(columns, limit), m_vertices(vertices), m_waiting(corners.size()),
          m_drawn(m_count, 0), m_marked(vertices) {
        for (int place = 0; place < cache_places; ++place)
            m_place_score[place] = placeScore<Rules>(place);
        for (std::size_t i = 0; i < known_waiting; ++i)
            m_base_score[i] = vertexScore<Rules>(static_cast<int>(i), -1);
        linkElements();
    }

    draw_order run() {
        m_counter.openPiece();
        m_order.piece_first.push_back(0);
        m_order.elements.reserve(m_count);
        std::uint32_t element = m_count > 0 ? firstElement() : 0;
        for (std::size_t i = 0; i < m_count; ++i) {
            if (m_counter.full()) {
                m_counter.openPiece();
                m_order.piece_first.push_back(m_order.elements.size());
                flush();
                element = nextUndrawn();
            }
            if (m_drawn[element] != 0 && !m_tangled)
                tangle();
            element = m_tangled ? drawTangled(element) : draw(element);
        }
        return std::move(m_order);
    }

  private:
    static constexpr unsigned corners_each = Rules::corners;
    static constexpr std::size_t known_waiting = 256; ///< entries of m_base_score
    /// More than the sum of four scores up to 12 in all can be off by rounding, twice.
    static constexpr float rounding_slack = 1e-5F;

    struct vertex {
        std::uint32_t first = 0; ///< of its elements in m_waiting
        std::uint32_t waiting = 0;
        float score = -1.0F; ///< at its present place
    };
    /// A vertex in the cache that elements wait for.
    struct cached {
        std::uint32_t vertex;
        int place;
        float base;  ///< score without the place
        float reach; ///< score of its best element at the last look, less its own then
    };
    /// The best element so far. Scores are compared as the bits of positive floats.
    struct choice {
        std::uint32_t score = 0; ///< 0: none
        std::uint32_t element = 0;
    };

    static std::uint32_t bitsOf(float score) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &score, sizeof(bits));
        return bits;
    }
    static float scoreOf(std::uint32_t bits) {
        float score = 0.0F;
        std::memcpy(&score, &bits, sizeof(score));
        return score;
    }

    /// Lists the elements of each vertex in m_waiting, ascending.
    void linkElements() {
        const std::size_t corner_count = m_waiting.size();
        for (std::size_t i = 0; i < corner_count; ++i)
            ++m_vertices[m_corners[i]].waiting;
        std::uint32_t end = 0;
        for (vertex& v : m_vertices) {
            end += v.waiting;
            v.first = end;
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

    /// Sum of the vertex scores in corner order, and the bonus for all of them being above 0, as
    /// they are while every element waits at its vertices.
    float elementScore(std::uint32_t element) const {
        const std::uint32_t* c = m_corners + std::size_t(element) * corners_each;
        float sum = m_vertices[c[0]].score;
        for (unsigned k = 1; k < corners_each; ++k)
            sum += m_vertices[c[k]].score;
        return sum + 3.0F;
    }

    std::uint32_t firstElement() const {
        choice best;
        for (std::size_t i = 0; i < m_count; ++i)
            offer(static_cast<std::uint32_t>(i), best);
        return best.element;
    }

    void offer(std::uint32_t element, choice& best) const {
        const std::uint32_t score = bitsOf(elementScore(element));
        if (score > best.score)
            best = {score, element};
    }

    /// The best element that waits for a vertex; of equal ones the first.
    choice bestOf(std::uint32_t v) const {
        const std::uint32_t* const list = m_waiting.data() + m_vertices[v].first;
        choice best;
        for (std::uint32_t i = 0; i < m_vertices[v].waiting; ++i)
            offer(list[i], best);
        return best;
    }

    /// Takes one entry of the element off a vertex.
    void unlink(std::uint32_t v, std::uint32_t element) {
        vertex& at = m_vertices[v];
        std::uint32_t* const list = m_waiting.data() + at.first;
        std::uint32_t* const end = list + at.waiting;
        std::uint32_t* const found = std::find(list, end, element);
        if (found == end)
            return;
        std::copy(found + 1, end, found);
        --at.waiting;
    }

    void enter(std::uint32_t element) {
        m_drawn[element] = 1;
        m_order.elements.push_back(element);
        m_counter.template add<corners_each>(element);
    }

    /// Draws an element, moves its vertices to the front of the cache, and returns the next one.
    std::uint32_t draw(std::uint32_t element) {
        enter(element);
        const std::uint32_t* c = m_corners + std::size_t(element) * corners_each;
        for (unsigned k = 0; k < corners_each; ++k)
            unlink(c[k], element);

        cached* to = m_cache[1 - m_now];
        int moved_in = 0;
        for (unsigned k = corners_each; k-- > 0;) {
            if (std::find(c + k + 1, c + corners_each, c[k]) != c + corners_each)
                continue; // both ends of a line are one vertex
            const std::uint32_t waiting = m_vertices[c[k]].waiting;
            if (waiting > 0)
                *to++ = {c[k], moved_in, baseScore(waiting), 0.0F};
            ++moved_in;
        }
        // A vertex goes back by those that overtake it.
        std::size_t sure = 0; // entries that may have gained
        int overtaken = moved_in;
        for (const cached* from = m_cache[m_now]; from != m_cache[m_now] + m_cached; ++from) {
            if (std::find(c, c + corners_each, from->vertex) != c + corners_each) {
                --overtaken;
                continue;
            }
            const int place = from->place + overtaken;
            if (place >= cache_places) {
                m_vertices[from->vertex].score = from->base;
                m_marked = from->vertex;
                continue;
            }
            *to++ = {from->vertex, place, from->base, from->reach};
            if (from->place < Rules::recent)
                sure = static_cast<std::size_t>(to - m_cache[1 - m_now]);
        }
        m_now = 1 - m_now;
        m_cached = static_cast<std::size_t>(to - m_cache[m_now]);
        for (std::size_t i = 0; i < m_cached; ++i) {
            const cached& entry = m_cache[m_now][i];
            m_vertices[entry.vertex].score = entry.base + m_place_score[entry.place];
            if (entry.place < Rules::recent)
                sure = std::max(sure, i + 1);
        }
        return search(sure);
    }

    /// The element to draw next. The first `sure` entries of the cache are looked at in any case.
    std::uint32_t search(std::size_t sure) {
        choice best;
        for (std::size_t i = 0; i < m_cached; ++i) {
            cached& entry = m_cache[m_now][i];
            const float own = m_vertices[entry.vertex].score;
            // An element of an older vertex with a newer one was found there, at equal scores as
            // well; so only what is strictly better counts.
            if (i >= sure && own + entry.reach + rounding_slack < scoreOf(best.score))
                continue;
            const choice found = bestOf(entry.vertex);
            entry.reach = scoreOf(found.score) - own;
            if (found.score > best.score)
                best = found;
        }
        if (best.score != 0)
            return best.element;
        if (Rules::revisits_evicted && m_marked < m_vertices.size())
            best = bestOf(static_cast<std::uint32_t>(m_marked));
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
        m_flushed = m_order.elements.size();
        for (std::size_t i = 0; i < m_cached; ++i)
            m_vertices[m_cache[m_now][i].vertex].score = m_cache[m_now][i].base;
        m_cached = 0;
        for (const std::uint32_t v : m_recent)
            m_vertices[v].score = tangledVertexScore(v, 0.0F);
        m_recent.clear();
    }

    // From the first element that is drawn twice on scores can be anything, and no vertex can be
    // passed over: the rest is drawn as on lists.

    /// Goes over to counts that are apart from the lists, and to the whole cache.
    void tangle() {
        m_tangled = true;
        m_left.resize(m_vertices.size());
        for (std::size_t v = 0; v < m_left.size(); ++v)
            m_left[v] = static_cast<int>(m_vertices[v].waiting);
        // What was drawn last, back to the last flush, is what the cache holds.
        for (std::size_t i = m_order.elements.size(); i-- > m_flushed;) {
            const std::uint32_t* c = m_corners + std::size_t(m_order.elements[i]) * corners_each;
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
        const std::uint32_t* c = m_corners + std::size_t(element) * corners_each;
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

    std::uint32_t drawTangled(std::uint32_t element) {
        enter(element);
        const std::uint32_t* c = m_corners + std::size_t(element) * corners_each;
        for (unsigned k = 0; k < corners_each; ++k) {
            unlink(c[k], element);
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
    std::vector<std::uint32_t> m_waiting; ///< elements by vertex; corners_each * m_count entries
    std::vector<std::uint8_t> m_drawn;
    draw_order m_order;

    cached m_cache[2][cache_places + corners_each]; ///< most recent first; m_now is in use
    unsigned m_now = 0;
    std::size_t m_cached = 0;
    std::size_t m_marked;            ///< fell out of the cache while elements waited; or beyond
    std::size_t m_first_undrawn = 0; ///< none is undrawn in front
    std::size_t m_flushed = 0;       ///< elements drawn before the cache was last emptied

    bool m_tangled = false;
    std::vector<int> m_left;             ///< elements left as they are counted, if tangled
    std::vector<std::uint32_t> m_recent; ///< the cache, most recent first, if tangled
    float m_place_score[cache_places] = {};
    float m_base_score[known_waiting] = {};
};

} // namespace morva::osg
