#include <morva/textures/texturatlas_free_pool.h>

namespace morva {

namespace {

/// The number of a rectangle tells its age.
using number = std::uint32_t;
constexpr number none = std::numeric_limits<number>::max();

/// A corner of a rectangle.
struct corner {
    enum kind : unsigned { origin, right, below };
    kind which;
    std::int64_t x, y;
};

/// Rectangles by their corners. Those of a place come in any order, dropped ones too.
class corner_table {
  public:
    explicit corner_table(std::size_t rectangles) {
        std::size_t size = 16;
        while (size < 4 * rectangles)
            size *= 2;
        heads_.assign(size, none);
        next_.reserve(3 * rectangles);
    }

    /// The next rectangle's.
    void enter(const placed_size& entered) {
        for (const corner::kind which : {corner::origin, corner::right, corner::below}) {
            number& head = heads_[slotOf(cornerOf(entered, which))];
            next_.push_back(head);
            head = static_cast<number>(next_.size() - 1);
        }
    }

    /// Calls `use` with those that may have a corner.
    template <typename Use> void each(const corner& at, const Use& use) const {
        for (number entry = heads_[slotOf(at)]; entry != none; entry = next_[entry]) {
            if (entry % 3 == at.which)
                use(entry / 3);
        }
    }

    static corner cornerOf(const placed_size& of, corner::kind which) {
        const std::int64_t x = of.place.width, y = of.place.height;
        return {which, which == corner::right ? x + of.size.width : x,
                which == corner::below ? y + of.size.height : y};
    }

  private:
    std::size_t slotOf(const corner& at) const {
        std::uint64_t hash = static_cast<std::uint64_t>(at.x) * 0x9E3779B97F4A7C15U +
                             static_cast<std::uint64_t>(at.y) * 0xC2B2AE3D27D4EB4FU + at.which;
        hash ^= hash >> 32U;
        return static_cast<std::size_t>(hash * 0x9E3779B97F4A7C15U >> 20U) & (heads_.size() - 1);
    }

    std::vector<number> heads_, next_; ///< three entries per rectangle, in the order of corners
};

/// Joins rectangles. A queue holds those that may have a partner, the first in order on top: who
/// was asked and had none gets one by a new rectangle alone, whose neighbours come in once more.
class joining {
  public:
    explicit joining(std::vector<placed_size> sorted)
        : spaces_(std::move(sorted)), alive_(spaces_.size(), true), corners_(2 * spaces_.size()) {
        spaces_.reserve(2 * spaces_.size());
        alive_.reserve(2 * spaces_.size());
        queue_.reserve(spaces_.size());
        for (number i = 0; i < spaces_.size(); ++i) {
            corners_.enter(spaces_[i]);
            queue_.push_back(i); // a heap, since it is sorted
        }
    }

    std::vector<placed_size> run() {
        while (!queue_.empty()) {
            const number asked = take();
            const number partner = alive_[asked] ? partnerOf(asked) : none;
            if (partner != none)
                join(asked, partner);
        }
        return rest();
    }

  private:
    bool isBefore(number a, number b) const {
        const texturinfo &left = spaces_[a].size, &right = spaces_[b].size;
        return left == right ? a < b : left < right;
    }
    auto order() const {
        return [this](number a, number b) { return isBefore(b, a); };
    }

    void ask(number space) {
        queue_.push_back(space);
        std::push_heap(queue_.begin(), queue_.end(), order());
    }
    number take() {
        std::pop_heap(queue_.begin(), queue_.end(), order());
        const number taken = queue_.back();
        queue_.pop_back();
        return taken;
    }

    bool isAt(const placed_size& space, corner::kind which, const corner& at) const {
        const corner own = corner_table::cornerOf(space, which);
        return own.x == at.x && own.y == at.y;
    }
    /// Calls `use` with those that have a corner where `at` is, and share that side with `side`.
    template <typename Use>
    void eachBeside(const corner& at, bool by_height, const placed_size& side,
                    const Use& use) const {
        corners_.each(at, [&](number other) {
            const placed_size& space = spaces_[other];
            const bool fits = by_height ? space.size.height == side.size.height
                                        : space.size.width == side.size.width;
            if (alive_[other] && fits && isAt(space, at.which, at))
                use(other);
        });
    }

    /// The first in order that lies right of or below one; none if there is none.
    number partnerOf(number asked) const {
        const placed_size& space = spaces_[asked];
        number first = none;
        const auto take_first = [&](number other) {
            if (other != asked && (first == none || isBefore(other, first)))
                first = other;
        };
        for (const corner::kind side : {corner::right, corner::below}) {
            corner at = corner_table::cornerOf(space, side);
            at.which = corner::origin;
            eachBeside(at, side == corner::right, space, take_first);
        }
        return first;
    }

    void join(number a, number b) {
        placed_size both = spaces_[a];
        const placed_size& other = spaces_[b];
        if (other.place.height == both.place.height) // right of it: none is without height
            both.size.width = saturated(std::int64_t{both.size.width} + other.size.width);
        else
            both.size.height = saturated(std::int64_t{both.size.height} + other.size.height);
        alive_[a] = alive_[b] = false;
        if (both.size.width == 0 || both.size.height == 0)
            return;
        const auto made = static_cast<number>(spaces_.size());
        spaces_.push_back(both);
        alive_.push_back(true);
        corners_.enter(both);
        ask(made);
        for (const corner::kind side : {corner::right, corner::below}) {
            const corner at{side, both.place.width, both.place.height};
            eachBeside(at, side == corner::right, both, [this](number beside) { ask(beside); });
        }
    }

    std::vector<placed_size> rest() const {
        std::vector<number> left;
        for (number i = 0; i < spaces_.size(); ++i) {
            if (alive_[i])
                left.push_back(i);
        }
        std::sort(left.begin(), left.end(), [this](number a, number b) { return isBefore(a, b); });
        std::vector<placed_size> sorted;
        for (const number i : left)
            sorted.push_back(spaces_[i]);
        return sorted;
    }

    std::vector<placed_size> spaces_;
    std::vector<bool> alive_;
    std::vector<number> queue_; ///< a heap; may name one twice, or one that is gone
    corner_table corners_;
};

} // namespace

free_pool::free_pool(const texturatlas::map& content) {
    for (const auto& [size, place] : content)
        spaces_.push_back({size, place});
}

texturatlas::map free_pool::content() const {
    texturatlas::map made;
    for (const placed_size& space : spaces_)
        made.emplace_hint(made.end(), space.size, space.place);
    return made;
}

std::size_t free_pool::notBefore(const texturinfo& size) const {
    const auto found = std::partition_point(spaces_.begin(), spaces_.end(),
                                            [&](const placed_size& s) { return s.size < size; });
    return static_cast<std::size_t>(found - spaces_.begin());
}

void free_pool::add(std::int64_t width, std::int64_t height, std::int64_t x, std::int64_t y) {
    const placed_size added{{saturated(width), saturated(height)}, {saturated(x), saturated(y)}};
    const auto behind =
        std::partition_point(spaces_.begin(), spaces_.end(),
                             [&](const placed_size& s) { return !(added.size < s.size); });
    spaces_.insert(behind, added);
}

void free_pool::remove(std::size_t at) {
    spaces_.erase(spaces_.begin() + static_cast<std::ptrdiff_t>(at));
}

void free_pool::combine() {
    spaces_.erase(std::remove_if(spaces_.begin(), spaces_.end(),
                                 [](const placed_size& space) {
                                     return space.size.width == 0 || space.size.height == 0;
                                 }),
                  spaces_.end());
    spaces_ = joining(spaces_).run();
}

} // namespace morva
