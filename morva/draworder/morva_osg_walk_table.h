#pragma once

// What each walk of the vertex-cache optimisers stands on: which elements wait at which vertex,
// what every vertex scores, and what is drawn so far.
//
//     vertices   | first 0, waiting 2 | first 2, waiting 1 | ...
//     lists      | 7 9                | 9                  | ...     ascending elements
//     order      | 3 5 ...                                           drawn ones, in pieces
//
// One walk at a time changes it. The arrays that it reads must stay as they are.

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <vector>

#include <morva/core/morva_huge_pages.h>
#include <morva/core/morva_span.h>
#include <morva/draworder/morva_osg_cache_scores.h>
#include <morva/draworder/morva_osg_draw_order.h>

namespace morva::osg {

/// A vertex that elements wait for.
struct walk_vertex {
    std::uint32_t first = 0;   ///< of its elements in walk_table::lists
    std::uint32_t listed = 0;  ///< how many are there, drawn ones included
    std::uint32_t waiting = 0; ///< how many of them are not drawn
    float score = -1.0F;       ///< at its present place
};

/// A vertex in the cache that elements wait for.
struct cached_vertex {
    std::uint32_t vertex;
    int place;
    float base;  ///< score without the place
    float reach; ///< score of its best element at the last look, less its own then; not of hubs
};

/// The best element so far.
struct walk_choice {
    std::uint32_t score = 0; ///< bits of a positive score; 0: none
    std::uint32_t element = 0;
};

/// Elements, vertices and order of one run.
template <typename Rules> struct walk_table {
    static constexpr unsigned corners_each = Rules::corners;
    static constexpr std::size_t known_waiting = 256; ///< entries of base_score
    /// More than the sum of four scores up to 12 in all can be off by rounding, twice.
    static constexpr float rounding_slack = 1e-5F;

    /// As cache_walk() is given.
    walk_table(span<const std::uint32_t> corner_vertices, std::size_t vertex_count,
               span<const std::uint32_t> element_numbers,
               const std::vector<counted_column>& columns, unsigned int limit)
        : corners(corner_vertices.data()), count(corner_vertices.size() / corners_each),
          numbers(element_numbers), counter(columns, limit),
          vertices(vector_in_huge_pages<walk_vertex>(vertex_count)),
          lists(vector_in_huge_pages<std::uint32_t>(corner_vertices.size())), drawn(count, 0) {
        for (int place = 0; place < cache_places; ++place)
            place_score[place] = placeScore<Rules>(place);
        for (std::size_t i = 0; i < known_waiting; ++i)
            base_score[i] = vertexScore<Rules>(static_cast<int>(i), -1);
        linkElements();
        order.elements = vector_in_huge_pages<std::uint32_t>(count);
        openPiece();
    }

    const std::uint32_t* cornersOf(std::uint32_t element) const {
        return corners + std::size_t(element) * corners_each;
    }

    static bool isCorner(std::uint32_t v, const std::uint32_t* c) {
        bool corner = false;
        for (unsigned k = 0; k < corners_each; ++k)
            corner |= v == c[k];
        return corner;
    }

    float baseScore(std::uint32_t waiting) const {
        return waiting < known_waiting ? base_score[waiting]
                                       : vertexScore<Rules>(static_cast<int>(waiting), -1);
    }

    /// Of an element that waits at all its vertices: their scores are above 0.
    float scoreOf(std::uint32_t element) const {
        const std::uint32_t* c = cornersOf(element);
        float sum = vertices[c[0]].score;
        for (unsigned k = 1; k < corners_each; ++k)
            sum += vertices[c[k]].score;
        return sum + Rules::bonus[corners_each];
    }

    /// Of equal ones the first offered stays.
    void offer(std::uint32_t element, walk_choice& best) const {
        const std::uint32_t score = scoreBits(scoreOf(element));
        if (score > best.score)
            best = {score, element};
    }

    /// The best element that waits for a vertex, whose list has no drawn ones.
    walk_choice bestOf(const walk_vertex& at) const {
        const std::uint32_t* const list = lists.data() + at.first;
        walk_choice best;
        for (std::uint32_t i = 0; i < at.waiting; ++i)
            offer(list[i], best);
        return best;
    }

    /// The best element of a vertex where `gone` was just drawn, which is taken off the list.
    walk_choice bestWithout(std::uint32_t gone, walk_vertex& at) {
        std::uint32_t* const list = lists.data() + at.first;
        std::uint32_t kept = 0;
        walk_choice best;
        for (std::uint32_t i = 0; i < at.listed; ++i) {
            const std::uint32_t element = list[i];
            if (element == gone)
                continue;
            list[kept++] = element;
            offer(element, best);
        }
        at.listed = kept;
        return best;
    }

    std::uint32_t bestOfAll() const {
        walk_choice best;
        for (std::size_t i = 0; i < count; ++i)
            offer(static_cast<std::uint32_t>(i), best);
        return best.element;
    }

    /// Takes the drawn elements off a list.
    void tidy(walk_vertex& at) {
        std::uint32_t* const list = lists.data() + at.first;
        const auto end = std::remove_if(list, list + at.listed,
                                        [&](std::uint32_t element) { return drawn[element] != 0; });
        at.listed = static_cast<std::uint32_t>(end - list);
    }

    void openPiece() {
        counter.openPiece();
        order.piece_first.push_back(done);
    }

    void enter(std::uint32_t element) {
        drawn[element] = 1;
        order.elements[done++] = element;
        counter.template add<corners_each>(element);
    }

    /// What stands at the place that is the number of this element.
    std::uint32_t byNumber(std::uint32_t element) {
        const std::uint32_t number = numbers.empty() ? element : numbers[element];
        return number < count ? number : nextUndrawn();
    }

    /// The first element that is not drawn; without one 0.
    std::uint32_t nextUndrawn() {
        std::size_t at = first_undrawn;
        while (at < count && drawn[at] != 0)
            ++at;
        if (at == count)
            return 0;
        first_undrawn = at;
        return static_cast<std::uint32_t>(at);
    }

    const std::uint32_t* corners;
    std::size_t count; ///< elements
    span<const std::uint32_t> numbers;
    piece_counter counter;
    std::vector<walk_vertex> vertices;
    std::vector<std::uint32_t> lists; ///< elements by vertex, ascending; an entry per corner
    std::vector<std::uint8_t> drawn;
    draw_order order;
    std::size_t done = 0;          ///< elements drawn so far
    std::size_t first_undrawn = 0; ///< none is undrawn in front
    float place_score[cache_places + corners_each] = {};
    float base_score[known_waiting] = {};

  private:
    void linkElements() {
        const std::size_t corner_count = lists.size();
        if (corner_count > 0xFFFFFFFFU)
            throw std::length_error("more corners than numbers");
        for (std::size_t i = 0; i < corner_count; ++i) {
            assert(corners[i] < vertices.size());
            ++vertices[corners[i]].waiting;
        }
        std::uint32_t end = 0;
        for (walk_vertex& v : vertices) {
            end += v.waiting;
            v.first = end;
            v.listed = v.waiting;
            v.score = baseScore(v.waiting);
        }
        for (std::size_t i = corner_count; i-- > 0;)
            lists[--vertices[corners[i]].first] = static_cast<std::uint32_t>(i / corners_each);
    }
};

} // namespace morva::osg
