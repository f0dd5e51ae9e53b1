#pragma once

// The walk once an element is drawn twice: scores can be anything from then on, and no vertex can
// be passed over. It looks at all that waits for the whole cache, as the walk on lists does
// (morva_osg_cacheopt.h), and goes on to the end.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <morva/draworder/morva_osg_walk_table.h>

namespace morva::osg {

/// Goes on where cache_walk ends.
template <typename Rules> class list_walk {
  public:
    /// table    has to outlive it
    /// flushed  elements that were drawn before the cache was last emptied: those drawn since are
    ///          what it holds
    /// marked   vertex that fell out of the cache too early, or one beyond the vertices
    list_walk(walk_table<Rules>& table, std::size_t flushed, std::size_t marked)
        : table_(table), left_(table.vertices.size()), marked_(marked) {
        for (std::size_t v = 0; v < left_.size(); ++v) {
            table_.tidy(table_.vertices[v]);
            left_[v] = static_cast<int>(table_.vertices[v].waiting);
        }
        for (std::size_t i = table_.done; i-- > flushed;) {
            const std::uint32_t* c = table_.cornersOf(table_.order.elements[i]);
            for (unsigned k = corners_each; k-- > 0;) {
                if (recent_.size() == cache_places)
                    return;
                if (std::find(recent_.begin(), recent_.end(), c[k]) == recent_.end())
                    recent_.push_back(c[k]);
            }
        }
    }

    /// Draws an element and returns the next one.
    std::uint32_t draw(std::uint32_t element) {
        table_.enter(element);
        touchCorners(element);
        float best = -2.0F;
        std::uint32_t next = 0;
        bool found = false;
        for (const std::uint32_t v : recent_)
            found = offerAll(v, best, next) || found;
        if (found)
            return next;
        if (marked_ < left_.size() && left_[marked_] > 0 &&
            offerAll(static_cast<std::uint32_t>(marked_), best, next))
            return table_.byNumber(next);
        flush();
        return table_.nextUndrawn();
    }

    /// Empties the cache.
    void flush() {
        for (const std::uint32_t v : recent_)
            table_.vertices[v].score = scoreOf(v, 0.0F);
        recent_.clear();
    }

  private:
    static constexpr unsigned corners_each = Rules::corners;

    /// Moves the corners to the front of the cache and scores all that was in it.
    void touchCorners(std::uint32_t element) {
        const std::uint32_t* c = table_.cornersOf(element);
        for (unsigned k = 0; k < corners_each; ++k) {
            unlink(table_.vertices[c[k]], element);
            --left_[c[k]];
        }
        for (unsigned k = 0; k < corners_each; ++k) {
            recent_.erase(std::remove(recent_.begin(), recent_.end(), c[k]), recent_.end());
            recent_.insert(recent_.begin(), c[k]);
        }
        for (std::size_t i = 0; i < recent_.size(); ++i) {
            const std::uint32_t v = recent_[i];
            const bool stays = i < cache_places;
            if (!stays && left_[v] > 0)
                marked_ = v;
            table_.vertices[v].score = scoreOf(v, stays ? table_.place_score[i] : 0.0F);
        }
        if (recent_.size() > cache_places)
            recent_.resize(cache_places);
    }

    float scoreOf(std::uint32_t v, float place_score) const {
        const int left = left_[v];
        if (left > 0)
            return table_.baseScore(static_cast<std::uint32_t>(left)) + place_score;
        return vertexScore<Rules>(left, -1); // -1 for none, a NaN for less
    }

    /// Offers the elements of a vertex: returns whether one was better.
    bool offerAll(std::uint32_t v, float& best, std::uint32_t& element) const {
        bool found = false;
        const std::uint32_t* const list = table_.lists.data() + table_.vertices[v].first;
        for (std::uint32_t i = 0; i < table_.vertices[v].waiting; ++i) {
            const std::uint32_t* const c = table_.cornersOf(list[i]);
            const float score =
                elementScore<Rules>([&](unsigned k) { return table_.vertices[c[k]].score; });
            if (!(score > best))
                continue; // a NaN is never better
            best = score;
            element = list[i];
            found = true;
        }
        return found;
    }

    /// Takes the element off a list that has no drawn ones.
    void unlink(walk_vertex& at, std::uint32_t element) {
        std::uint32_t* const list = table_.lists.data() + at.first;
        at.waiting =
            static_cast<std::uint32_t>(std::remove(list, list + at.waiting, element) - list);
    }

    walk_table<Rules>& table_;
    std::vector<int> left_;             ///< per vertex: elements left as they are counted
    std::vector<std::uint32_t> recent_; ///< the cache, most recent first
    std::size_t marked_;
};

} // namespace morva::osg
