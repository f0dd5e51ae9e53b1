#include <morva/textures/texturatlas_packing.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include <morva/textures/texturatlas_free_pool.h>
#include <morva/textures/texturatlas_rows.h>

namespace morva {

namespace {

constexpr std::uint32_t widest_limit = 8192; ///< a maximum above it is none

/// Sizes with their borders.
class bordered {
  public:
    explicit bordered(unsigned int padding) : texels_(padding) {
        while (step_ < texels_)
            step_ *= 2;
    }
    texturinfo operator()(const texturinfo& size) const {
        return texels_ == 0 ? size : texturinfo{side(size.width), side(size.height)};
    }
    /// Where an item lies in its place.
    texturinfo inside(const texturinfo& place) const {
        return {saturated(place.width + texels_), saturated(place.height + texels_)};
    }

  private:
    std::int32_t side(std::int64_t own) const {
        return own <= 0 ? 0 : saturated((own + 2 * texels_ + step_ - 1) / step_ * step_);
    }

    std::int64_t texels_;
    std::int64_t step_ = 1;
};

/// One run: from groups to places. Sums have 64 bits.
class packing {
  public:
    /// groups  counts and sizes, the largest first; not empty
    packing(const texturatlas& groups, free_pool& pool, bool apart)
        : groups_(groups), pool_(pool), rows_(apart ? tallestOf(groups) : 0) {}

    /// All of one size, in rows.
    void grid() {
        const texturinfo size = groups_.groupSizes[0];
        const int columns = columnsFor(groups_.groupCounts[0]);
        std::int64_t x = 0, y = 0;
        for (int i = 0, column = 0; i < groups_.groupCounts[0]; ++i, ++column) {
            if (column == columns) {
                column = 0;
                x = 0;
                y += size.height;
            }
            put(size, x, y);
            x += size.width;
        }
        width = std::int64_t{columns} * size.width;
        height = y + size.height;
    }

    /// Group after group, in shelves.
    void shelves(std::int64_t widest, unsigned int maximumWidth) {
        chooseWidth(widest, maximumWidth);
        height = groups_.groupSizes[0].height;
        for (std::size_t i = 0; i < groups_.groupSizes.size(); ++i)
            placeGroup(groups_.groupSizes[i], groups_.groupCounts[i]);
    }

    std::vector<placed_size> places; ///< in the order of placing
    std::int64_t width = 0;          ///< of the grid; of shelves, the width in which they are kept
    std::int64_t height = 0;         ///< lower end of the last shelf

  private:
    static std::int32_t tallestOf(const texturatlas& groups) {
        std::int32_t tallest = 0;
        for (const texturinfo& size : groups.groupSizes)
            tallest = std::max(tallest, size.height);
        return tallest;
    }

    int columnsFor(std::int64_t count) const { return groups_.calcItemsInRow(saturated(count)); }

    /// How many rectangles of the largest size a group is worth; 0 where a side of 0 leaves that
    /// open.
    double worthOf(std::size_t group) const {
        const texturinfo largest = groups_.groupSizes[0], size = groups_.groupSizes[group];
        const auto ratio = [](std::int32_t a, std::int32_t b) {
            return static_cast<double>(a) / static_cast<double>(b);
        };
        const double worth = groups_.groupCounts[group] / (ratio(largest.width, size.width) *
                                                           ratio(largest.height, size.height));
        return std::isfinite(worth) ? worth : 0.0;
    }

    /// What all groups are worth in rectangles of the largest size, in about a square of those.
    void chooseWidth(std::int64_t widest, unsigned int maximumWidth) {
        double worth = 0.0;
        for (std::size_t i = 1; i < groups_.groupSizes.size(); ++i)
            worth += worthOf(i);
        constexpr double most = 1e18;
        const auto whole = static_cast<std::int64_t>(std::clamp(worth + 0.5, -most, most));
        const std::int64_t columns = columnsFor(whole + groups_.groupCounts[0]);
        width = std::max(columns * groups_.groupSizes[0].width, widest);
        if (maximumWidth >= 1 && maximumWidth <= widest_limit)
            width = std::min<std::int64_t>(width, maximumWidth);
    }

    void put(const texturinfo& size, std::int64_t x, std::int64_t y) {
        places.push_back({size, {saturated(x), saturated(y)}});
        rows_.add(places.back());
    }
    bool isFree(const texturinfo& size, std::int64_t x, std::int64_t y) const {
        return !rows_.meets({size, {saturated(x), saturated(y)}});
    }

    void placeGroup(const texturinfo& size, int count) {
        start_x_ = x_;
        y_ = row_y_;
        stacked_ = new_shelf_ = false;
        for (int left = count - placeInPool(size, count); left > 0; --left)
            placeOnShelf(size);
        if (!new_shelf_ && start_x_ != 0)
            freeBelowLine(size);
        row_y_ = y_;
    }

    /// Returns how many were placed.
    int placeInPool(const texturinfo& size, int count) {
        int done = 0;
        while (done < count) {
            const std::size_t found = freePlaceFor(size);
            if (found == pool_.size())
                break;
            const placed_size space = pool_[found];
            pool_.remove(found);
            cutOff(space, size);
            put(size, space.place.width, space.place.height);
            ++done;
        }
        return done;
    }

    /// The first of a size itself, or else the first with room for it; the end if there is none.
    /// What holds an item already goes.
    std::size_t freePlaceFor(const texturinfo& size) {
        // All of a size itself stand in front of those that are only large enough, and those that
        // stand before are too low.
        std::size_t at = pool_.notBefore(size);
        while (at < pool_.size()) {
            const placed_size& space = pool_[at];
            if (space.size.width < size.width || space.size.height < size.height)
                ++at;
            else if (isFree(size, space.place.width, space.place.height))
                break;
            else
                pool_.remove(at);
        }
        return at;
    }

    /// Keeps what an item leaves of a free rectangle: below it, and all of the height beside it.
    void cutOff(const placed_size& space, const texturinfo& size) {
        const std::int64_t x = space.place.width, y = space.place.height;
        const std::int64_t wide = space.size.width, high = space.size.height;
        if (size.height < high)
            pool_.add(size.width, high - size.height, x, y + size.height);
        if (size.width < wide)
            pool_.add(wide - size.width, high, x + size.width, y);
    }

    void placeOnShelf(const texturinfo& size) {
        const std::int64_t w = size.width, h = size.height;
        if (x_ + w > width || !isFree(size, x_, y_)) {
            if (width - x_ > 0)
                pool_.add(width - x_, h, x_, y_);
            // A line that would fit exactly is not taken.
            if (y_ + 2 * h < height && start_x_ + w < width && isFree(size, start_x_, y_ + h)) {
                y_ += h;
                x_ = start_x_;
                stacked_ = true;
            } else {
                openShelf(h);
            }
        }
        put(size, x_, y_);
        x_ += w;
    }

    void openShelf(std::int64_t h) {
        if (y_ + h < height)
            pool_.add(width - start_x_, height - h - y_, start_x_, y_ + h);
        pool_.combine();
        new_shelf_ = true;
        y_ = height;
        height += h;
        x_ = 0;
    }

    /// Keeps what a group leaves free under its line.
    void freeBelowLine(const texturinfo& size) {
        const std::int64_t h = size.height, rest = height - h - row_y_;
        if (rest < 1 || y_ >= height)
            return;
        if (!stacked_)
            pool_.add(x_ - start_x_, rest, start_x_, row_y_ + h);
        else if (y_ + h < height &&
                 width - x_ > 0) // wide from x on, but from the start: on purpose
            pool_.add(width - x_, height - y_ - h, start_x_, y_ + h);
    }

    const texturatlas& groups_;
    free_pool& pool_;
    placed_rows rows_; ///< empty where items may overlap

    std::int64_t x_ = 0, y_ = 0; ///< where the next item of a line goes
    std::int64_t row_y_ = 0;     ///< the line in which a group begins
    std::int64_t start_x_ = 0;   ///< where it begins there, also after it went to another shelf
    bool stacked_ = false;       ///< it has lines below the first
    bool new_shelf_ = false;     ///< it has opened a shelf
};

/// Items, the largest first: of each, its size as packed, and its own in the place of its place.
std::vector<placed_size> sortedItems(const texturatlas& atlas, const bordered& border) {
    std::vector<placed_size> sorted;
    sorted.reserve(atlas.items.size());
    for (auto item = atlas.items.rbegin(); item != atlas.items.rend(); ++item)
        sorted.push_back({border(*item), *item});
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const placed_size& a, const placed_size& b) { return b.size < a.size; });
    return sorted;
}

void addGroups(const std::vector<placed_size>& items, texturatlas& groups) {
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i != 0 && items[i].size == items[i - 1].size) {
            ++groups.groupCounts.back();
        } else {
            groups.groupCounts.push_back(1);
            groups.groupSizes.push_back(items[i].size);
        }
    }
}

std::int64_t widestOf(const std::vector<placed_size>& items) {
    std::int64_t widest = items[0].size.width;
    for (const placed_size& item : items)
        widest = std::max<std::int64_t>(widest, item.size.width);
    return widest;
}

/// The right end of all that is placed.
std::int64_t extentOf(const texturatlas::map& before, const std::vector<placed_size>& places) {
    std::int64_t extent = 0;
    const auto reach = [&extent](const texturinfo& size, const texturinfo& place) {
        extent = std::max(extent, std::int64_t{place.width} + size.width);
    };
    for (const auto& [size, place] : before)
        reach(size, place);
    for (const placed_size& item : places)
        reach(item.size, item.place);
    return extent;
}

/// Items by their own sizes, behind what else was placed.
texturatlas::map byOwnSizes(const std::vector<placed_size>& places,
                            const std::vector<placed_size>& items, const bordered& border) {
    texturatlas::map placed;
    const std::size_t others = places.size() - items.size();
    for (std::size_t i = 0; i < places.size(); ++i) {
        const texturinfo& size = i < others ? places[i].size : items[i - others].place;
        placed.emplace(size, border.inside(places[i].place));
    }
    return placed;
}

} // namespace

void pack(texturatlas& atlas, unsigned int maximumWidth, const packing_rules& rules) {
    if (atlas.items.empty())
        return;
    atlas.items.sort();
    const bordered border(rules.padding);
    const std::vector<placed_size> items = sortedItems(atlas, border);
    texturatlas groups; // with those of runs before
    groups.groupCounts = atlas.groupCounts;
    groups.groupSizes = atlas.groupSizes;
    groups.groupCounts.resize(groups.groupSizes.size());
    addGroups(items, groups);

    free_pool pool(atlas.freeSpaces);
    packing run(groups, pool, rules.apart);
    if (groups.groupSizes.size() == 1) {
        run.grid();
    } else {
        run.shelves(widestOf(items), maximumWidth);
        run.width = extentOf(atlas.placed, run.places);
    }
    texturatlas::map placed = byOwnSizes(run.places, items, border);
    texturatlas::map free_spaces = pool.content();

    // Nothing fails from here on.
    atlas.placed.merge(placed);
    atlas.freeSpaces.swap(free_spaces);
    atlas.groupCounts.swap(groups.groupCounts);
    atlas.groupSizes.swap(groups.groupSizes);
    atlas.width = saturated(run.width);
    atlas.height = saturated(run.height);
}

} // namespace morva
