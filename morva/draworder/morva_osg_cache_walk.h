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
// A vertex remembers its `reach`, the most that the others of one of its elements add to its
// own score. A vertex in the cache only loses while it isn't touched, but for the step out of the
// first places. So a vertex older than that whose score and reach don't come up to the best element
// so far has nothing to offer, and its elements aren't looked at.
//
// One thread per walk; the arrays that it reads must stay as they are.

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include <morva/core/morva_span.h>
#include <morva/draworder/morva_osg_cache_scores.h>
#include <morva/draworder/morva_osg_draw_order.h>
#include <morva/draworder/morva_osg_hub_bounds.h>
#include <morva/draworder/morva_osg_list_walk.h>
#include <morva/draworder/morva_osg_walk_table.h>

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
/// Vertices of very many elements are up to hub_bounds; from the first element drawn twice on
/// list_walk goes on.
template <typename Rules> class cache_walk {
  public:
    /// corners   one vertex per corner, all below `vertices`; an element has Rules::corners
    /// numbers   of the elements in the source; empty if they are their places
    /// columns   what fills a piece
    /// errors    std::bad_alloc; std::length_error for 2^32 corners or more
    cache_walk(span<const std::uint32_t> corners, std::size_t vertices,
               span<const std::uint32_t> numbers, const std::vector<counted_column>& columns,
               unsigned int limit)
        : table_(corners, vertices, numbers, columns, limit), hubs_(table_), marked_(vertices) {}
    cache_walk(const cache_walk&) = delete;
    cache_walk& operator=(const cache_walk&) = delete;

    /// Out of line: inlined into a large caller it takes 10 % more instructions.
    [[gnu::noinline]] draw_order run() {
        std::uint32_t element = table_.count > 0 ? table_.bestOfAll() : 0;
        for (std::size_t i = 0; i < table_.count; ++i) {
            if (table_.counter.full()) {
                table_.openPiece();
                flush();
                element = table_.nextUndrawn();
            }
            if (table_.drawn[element] != 0 && !lists_)
                lists_.emplace(table_, flushed_, marked_);
            if (lists_)
                element = lists_->draw(element);
            else
                element = hubs_.empty() ? draw<false>(element) : draw<true>(element);
        }
        assert(table_.order.elements.size() == table_.count);
        return std::move(table_.order);
    }

  private:
    static constexpr unsigned corners_each = Rules::corners;

    /// Draws an element, moves its vertices to the front of the cache, and returns the next one.
    template <bool Hubs> std::uint32_t draw(std::uint32_t element) {
        table_.enter(element);
        int moved_in = 0;
        const std::size_t touched = touchCorners(element, moved_in);
        const std::size_t sure = ageCache(table_.cornersOf(element), touched, moved_in);
        return search<Hubs>(element, touched, sure);
    }

    /// Begins the next cache with those corners of a drawn element that still wait, and returns
    /// how many they are. `moved_in` receives how many places the corners take.
    std::size_t touchCorners(std::uint32_t element, int& moved_in) {
        const std::uint32_t* const c = table_.cornersOf(element);
        cached_vertex* const made = cache_[1 - now_];
        std::size_t touched = 0;
        for (unsigned k = corners_each; k-- > 0;) {
            walk_vertex& at = table_.vertices[c[k]];
            assert(at.waiting > 0 && at.waiting <= at.listed);
            --at.waiting;
            if (corners_each == 2 && k == 1 && c[0] == c[1]) {
                --at.waiting; // both ends of a line are one vertex
                k = 0;
            }
            if (at.waiting > 0)
                made[touched++] = {c[k], moved_in, table_.baseScore(at.waiting), 0.0F};
            else
                at.listed = 0;
            ++moved_in;
        }
        return touched;
    }

    /// Moves the rest of the cache back behind the corners just drawn, and scores all. Returns how
    /// many vertices, from the first on, may have gained.
    std::size_t ageCache(const std::uint32_t* corners, std::size_t touched, int moved_in) {
        cached_vertex* const made = cache_[1 - now_];
        std::size_t count = touched;
        std::size_t sure = touched;
        int overtaken = moved_in; // a vertex goes back by those that come from behind it
        const cached_vertex* const end = cache_[now_] + cached_;
        for (const cached_vertex* from = cache_[now_]; from != end; ++from) {
            const bool corner = table_.isCorner(from->vertex, corners);
            overtaken -= corner ? 1 : 0;
            const int place = from->place + overtaken;
            if (place >= cache_places && !corner) {
                leaveCache(*from);
                marked_ = from->vertex;
                continue;
            }
            // A corner is written as well and overwritten by the next; its score comes below.
            made[count] = {from->vertex, place, from->base, from->reach};
            const float score = from->base + table_.place_score[place];
            table_.vertices[from->vertex].score = score;
            upper_[count] = score + from->reach + table_.rounding_slack;
            sure += !corner && from->place < Rules::recent ? 1 : 0; // comes out of a flat place
            count += corner ? 0 : 1;
        }
        for (std::size_t i = 0; i < touched; ++i)
            table_.vertices[made[i].vertex].score =
                made[i].base + table_.place_score[made[i].place];
        now_ = 1 - now_;
        cached_ = count;
        return sure;
    }

    /// Rare: out of line it takes 2 % of all instructions off a shuffled sheet.
    [[gnu::noinline]] void leaveCache(const cached_vertex& entry) {
        table_.vertices[entry.vertex].score = entry.base;
        if (hubs_.isBeside(entry.vertex))
            hubs_.raiseBeside(entry.vertex);
    }

    /// The element to draw next. The first `touched` vertices of the cache still list `drawn`;
    /// the first `sure` ones may offer more than their reach.
    template <bool Hubs>
    std::uint32_t search(std::uint32_t drawn, std::size_t touched, std::size_t sure) {
        walk_choice best;
        cached_vertex* const cache = cache_[now_];
        for (std::size_t i = 0; i < cached_; ++i) {
            if (Hubs && hubs_.isBeside(cache[i].vertex)) {
                hubs_.search({cache, cached_}, i, i < sure, best);
                continue;
            }
            // An element of an older vertex with a newer one was found there, at equal scores as
            // well; so only what is strictly better counts.
            if (i >= sure && upper_[i] < scoreOfBits(best.score))
                continue;
            walk_vertex& at = table_.vertices[cache[i].vertex];
            const walk_choice found =
                i < touched ? table_.bestWithout(drawn, at) : table_.bestOf(at);
            cache[i].reach = scoreOfBits(found.score) - at.score;
            if (found.score > best.score)
                best = found;
        }
        if (best.score == 0)
            return nextOutside();
        // Looked at next. Takes 4 to 8 % off the median on a shuffled sheet of 1M triangles.
        for (unsigned k = 0; k < corners_each; ++k)
            __builtin_prefetch(
                &table_.lists[table_.vertices[table_.cornersOf(best.element)[k]].first]);
        return best.element;
    }

    /// The element to draw next if nothing in the cache waits.
    std::uint32_t nextOutside() {
        walk_choice best;
        if (Rules::revisits_evicted && marked_ < table_.vertices.size()) {
            const auto v = static_cast<std::uint32_t>(marked_);
            if (hubs_.isBeside(v))
                table_.tidy(table_.vertices[v]);
            best = table_.bestOf(table_.vertices[v]);
        }
        if (best.score != 0)
            return table_.byNumber(best.element);
        flush();
        return table_.nextUndrawn();
    }

    /// Empties the cache.
    void flush() {
        if (lists_)
            return lists_->flush();
        flushed_ = table_.done;
        for (std::size_t i = 0; i < cached_; ++i)
            leaveCache(cache_[now_][i]);
        cached_ = 0;
    }

    walk_table<Rules> table_;
    hub_bounds<Rules> hubs_;
    std::optional<list_walk<Rules>> lists_; ///< from the first element drawn twice on

    cached_vertex cache_[2][cache_places + corners_each]; ///< most recent first; now_ is in use
    float upper_[cache_places + corners_each];            ///< none of its elements scores more
    unsigned now_ = 0;
    std::size_t cached_ = 0;
    std::size_t marked_;      ///< fell out of the cache while elements waited; or beyond
    std::size_t flushed_ = 0; ///< elements drawn before the cache was last emptied
};

} // namespace morva::osg
