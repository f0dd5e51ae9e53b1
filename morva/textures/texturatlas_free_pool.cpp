#include <morva/textures/texturatlas_free_pool.h>

namespace morva {

namespace {

bool has_area(const texturinfo& size) { return size.width != 0 && size.height != 0; }

} // namespace

void corner_table::clear(std::size_t rectangles) {
    std::size_t size = 64;
    while (size < 4 * rectangles)
        size *= 2;
    heads_.assign(size, none);
    entered_ = 0;
}

void corner_table::enter(number rectangle, const placed_size& of) {
    if (next_.size() < 3 * (std::size_t{rectangle} + 1))
        next_.resize(std::max(2 * next_.size(), 3 * (std::size_t{rectangle} + 1)));
    for (const corner which : {corner::origin, corner::right, corner::below}) {
        const number entry = 3 * rectangle + static_cast<number>(which);
        number& head = heads_[slot_of(which, point_of(of, which))];
        next_[entry] = head;
        head = entry;
    }
    ++entered_;
}

free_pool::free_pool(const texturatlas::map& content) {
    for (const auto& [size, place] : content)
        add({size, place});
}

texturatlas::map free_pool::content() const {
    texturatlas::map made;
    for (const numbered& one : sorted_)
        made.emplace_hint(made.end(), one.size, spaces_[one.own].place);
    return made;
}

std::size_t free_pool::not_before(const texturinfo& size) const {
    const auto found = std::partition_point(sorted_.begin(), sorted_.end(),
                                            [&](const numbered& one) { return one.size < size; });
    return static_cast<std::size_t>(found - sorted_.begin());
}

void free_pool::add(std::int64_t width, std::int64_t height, std::int64_t x, std::int64_t y) {
    add({{saturated(width), saturated(height)}, {saturated(x), saturated(y)}});
}

void free_pool::add(const placed_size& space) {
    const auto behind =
        std::partition_point(sorted_.begin(), sorted_.end(),
                             [&](const numbered& one) { return !(space.size < one.size); });
    const auto own = static_cast<number>(spaces_.size());
    sorted_.insert(behind, {space.size, own});
    spaces_.push_back(space);
    alive_.push_back(true);
    fresh_.push_back(own);
}

void free_pool::remove(std::size_t at) {
    alive_[sorted_[at].own] = false;
    sorted_.erase(sorted_.begin() + static_cast<std::ptrdiff_t>(at));
}

std::size_t free_pool::place_of(number rectangle) const {
    const texturinfo& size = spaces_[rectangle].size;
    const auto found =
        std::partition_point(sorted_.begin(), sorted_.end(), [&](const numbered& one) {
            return one.size == size ? one.own < rectangle : one.size < size;
        });
    return static_cast<std::size_t>(found - sorted_.begin());
}

bool free_pool::is_before(number a, number b) const {
    const texturinfo &left = spaces_[a].size, &right = spaces_[b].size;
    return left == right ? a < b : left < right;
}

void free_pool::ask(number rectangle) {
    queue_.push_back(rectangle);
    std::push_heap(queue_.begin(), queue_.end(),
                   [this](number a, number b) { return is_before(b, a); });
}

free_pool::number free_pool::take() {
    std::pop_heap(queue_.begin(), queue_.end(),
                  [this](number a, number b) { return is_before(b, a); });
    const number taken = queue_.back();
    queue_.pop_back();
    return taken;
}

/// Calls `use` with those that have a corner at a point, and share that side with `side`.
template <typename Use>
void free_pool::each_beside(corner theirs, const corner_table::point& at, bool by_height,
                            const placed_size& side, const Use& use) const {
    corners_.each(theirs, at, [&](number other) {
        const placed_size& space = spaces_[other];
        const bool fits =
            by_height ? space.size.height == side.size.height : space.size.width == side.size.width;
        const corner_table::point own = corner_table::point_of(space, theirs);
        if (fits && alive_[other] && own.x == at.x && own.y == at.y)
            use(other);
    });
}

/// The first in order that lies right of or below one; none if there is none.
free_pool::number free_pool::partner_of(number asked) const {
    const placed_size& space = spaces_[asked];
    number first = corner_table::none;
    const auto take_first = [&](number other) {
        if (first == corner_table::none || is_before(other, first))
            first = other;
    };
    for (const corner side : {corner::right, corner::below})
        each_beside(corner::origin, corner_table::point_of(space, side), side == corner::right,
                    space, take_first);
    return first;
}

/// Asks those older than `youngest` that a rectangle lies right of or below.
void free_pool::ask_beside(number rectangle, number youngest) {
    const placed_size space = spaces_[rectangle];
    for (const corner side : {corner::right, corner::below})
        each_beside(side, corner_table::point_of(space, corner::origin), side == corner::right,
                    space, [&](number beside) {
                        if (beside < youngest)
                            ask(beside);
                    });
}

void free_pool::enter(const std::vector<number>& fresh) {
    if (corners_.has_room_for(fresh.size())) {
        for (const number one : fresh) {
            if (alive_[one])
                corners_.enter(one, spaces_[one]);
        }
        return;
    }
    corners_.clear(2 * sorted_.size());
    for (const numbered& one : sorted_)
        corners_.enter(one.own, spaces_[one.own]);
}

void free_pool::join(number a, number b) {
    placed_size both = spaces_[a];
    const placed_size other = spaces_[b];
    if (other.place.height == both.place.height) // right of it: none is without height
        both.size.width = saturated(std::int64_t{both.size.width} + other.size.width);
    else
        both.size.height = saturated(std::int64_t{both.size.height} + other.size.height);
    remove(place_of(b));
    remove(place_of(a));
    add(both);
}

/// Takes the fresh ones in: drops those without area, and asks the others and who is beside them.
void free_pool::ask_fresh() {
    const std::vector<number> fresh = std::move(fresh_);
    fresh_.clear();
    for (const number one : fresh) {
        if (alive_[one] && !has_area(spaces_[one].size))
            remove(place_of(one));
    }
    enter(fresh);
    for (const number one : fresh) {
        if (!alive_[one])
            continue;
        if (partner_of(one) != corner_table::none)
            ask(one);
        ask_beside(one, fresh.front()); // which come one after the other, and are asked themselves
    }
}

void free_pool::combine() {
    for (ask_fresh(); !queue_.empty(); ask_fresh()) {
        const number asked = take();
        const number partner = alive_[asked] ? partner_of(asked) : corner_table::none;
        if (partner != corner_table::none)
            join(asked, partner);
    }
}

} // namespace morva
