#pragma once

// The free rectangles of a packing, in the order in which they are tried: by size, and of one size
// the one first that is there longest.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

#include <morva/textures/texturatlas.h>

namespace morva {

/// A number as far as 32 bits hold it.
inline std::int32_t saturated(std::int64_t value) {
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(
        value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

/// A rectangle somewhere in an atlas.
struct placed_size {
    texturinfo size, place;
};

/// Corners by which rectangles find each other.
enum class corner { origin, right, below };

/// Free rectangles by number, each entered under its corners.
class corner_table {
  public:
    using number = std::uint32_t;
    static constexpr number none = std::numeric_limits<number>::max();

    /// Where a corner of a rectangle is.
    struct point {
        std::int64_t x, y;
    };
    static point point_of(const placed_size& of, corner which) {
        const std::int64_t x = of.place.width, y = of.place.height;
        return {which == corner::right ? x + of.size.width : x,
                which == corner::below ? y + of.size.height : y};
    }

    bool has_room_for(std::size_t more) const { return 2 * (entered_ + more) <= heads_.size(); }
    /// Drops all, and makes room for so many.
    void clear(std::size_t rectangles);
    void enter(number rectangle, const placed_size& of);

    /// Calls `use` with those that may have a corner at a point, others among them.
    template <typename Use> void each(corner which, const point& at, const Use& use) const {
        if (heads_.empty())
            return;
        for (number entry = heads_[slot_of(which, at)]; entry != none; entry = next_[entry]) {
            if (entry % 3 == static_cast<number>(which))
                use(entry / 3);
        }
    }

  private:
    std::size_t slot_of(corner which, const point& at) const {
        std::uint64_t hash = static_cast<std::uint64_t>(at.x) * 0x9E3779B97F4A7C15U +
                             static_cast<std::uint64_t>(at.y) * 0xC2B2AE3D27D4EB4FU +
                             static_cast<std::uint64_t>(which);
        hash ^= hash >> 32U;
        return static_cast<std::size_t>(hash * 0x9E3779B97F4A7C15U >> 20U) & (heads_.size() - 1);
    }

    std::vector<number> heads_; ///< by hash of corner and point: the first entry
    std::vector<number> next_;  ///< entry 3 * rectangle + corner: the next one of its hash
    std::size_t entered_ = 0;   ///< rectangles
};

class free_pool {
  public:
    explicit free_pool(const texturatlas::map& content);
    texturatlas::map content() const;

    std::size_t size() const { return sorted_.size(); }
    const texturinfo& size_of(std::size_t at) const { return sorted_[at].size; }
    const texturinfo& place_at(std::size_t at) const { return spaces_[sorted_[at].own].place; }

    /// Where the first one is that does not come before a size.
    std::size_t not_before(const texturinfo& size) const;
    /// Adds one behind those of its size.
    void add(std::int64_t width, std::int64_t height, std::int64_t x, std::int64_t y);
    void remove(std::size_t at);

    /// See texturatlas::combineFreeSpaces(). Costs what has changed since the last time.
    void combine();

  private:
    using number = corner_table::number;

    struct numbered {
        texturinfo size;
        number own;
    };

    void add(const placed_size& space);
    std::size_t place_of(number rectangle) const;
    bool is_before(number a, number b) const;

    void ask_fresh();
    void ask(number rectangle);
    void ask_beside(number rectangle, number youngest);
    number take();
    number partner_of(number asked) const;
    void join(number a, number b);
    void enter(const std::vector<number>& fresh);
    template <typename Use>
    void each_beside(corner theirs, const corner_table::point& at, bool by_height,
                     const placed_size& side, const Use& use) const;

    std::vector<numbered> sorted_; ///< those that there are

    // Of every rectangle that ever was, by its number, which tells its age.
    std::vector<placed_size> spaces_;
    std::vector<bool> alive_;

    std::vector<number> fresh_; ///< added since the last combine(): no others can have a partner
    std::vector<number> queue_; ///< within combine(): a heap of those that may have one, or be gone
    corner_table corners_;      ///< all but the fresh ones
};

} // namespace morva
