#pragma once

// Boxes sorted into a tree whose nodes have eight children each, for rays that want any of them
// soon. Walk it by <morva/trees/wide_walk.h>.
//
//     wide_tree tree(items);        // sorts the items: a leaf is a run of at most eight
//
// Method: binned surface area heuristic, "On fast Construction of SAH-based Bounding Volume
// Hierarchies", 2007; the child with the largest surface is divided until there are eight.
// One owner while building, any number of readers afterwards.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace morva {

constexpr std::size_t wide_width = 8;

/// A box with finite corners.
struct wide_item {
    float low[3], high[3];
    std::uint32_t owner = 0;  ///< a leaf holds items of one owner
    std::uint32_t number = 0; ///< the caller's
};

/// Children side by side, from low to high along an axis. Places that are left over hold an
/// inverted box, which no ray meets.
struct alignas(64) wide_node {
    float planes[6][wide_width];     ///< low x, y, z, then high
    std::uint32_t child[wide_width]; ///< a node, or with the leaf flag a leaf
    std::uint32_t axis;              ///< that they are sorted along
};
static_assert(sizeof(wide_node) == 256, "a node is four lines of the cache");

/// The tree; without items it has no nodes.
struct wide_tree {
    static constexpr std::uint32_t leaf_flag = 1U << 31;

    /// Items of a leaf: `items[first]` and on, as sorted.
    struct leaf {
        std::uint32_t first, count; ///< count: 1 to 8
    };

    /// items   out: in the order of the leaves; fewer than 2^31
    /// errors  std::bad_alloc
    explicit wide_tree(std::vector<wide_item>& items);

    std::vector<wide_node> nodes; ///< the root is the first
    std::vector<leaf> leaves;
};

namespace detail {

/// Levels on which surfaces decide; below, halves.
constexpr unsigned wide_sah_levels = 40;
/// Levels there are at most: those, halves of fewer than 2^31 items, and owners apart.
constexpr unsigned wide_levels = wide_sah_levels + 32;

template <typename Box> float centre(const Box& box, std::size_t axis) {
    return box.low[axis] * 0.5F + box.high[axis] * 0.5F;
}

struct wide_box {
    float low[3], high[3];

    wide_box() {
        std::fill_n(low, 3, HUGE_VALF);
        std::fill_n(high, 3, -HUGE_VALF);
    }
    template <typename Box> void grow(const Box& other) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], other.low[axis]);
            high[axis] = std::max(high[axis], other.high[axis]);
        }
    }
    /// Grows to hold the centre of another box.
    template <typename Box> void growToCentre(const Box& other) {
        for (std::size_t axis = 0; axis < 3; ++axis) {
            low[axis] = std::min(low[axis], centre(other, axis));
            high[axis] = std::max(high[axis], centre(other, axis));
        }
    }
    /// Half the surface; 0 without a point.
    float area() const {
        if (low[0] > high[0])
            return 0;
        const float x = high[0] - low[0], y = high[1] - low[1], z = high[2] - low[2];
        return x * y + y * z + z * x;
    }
};

/// Builds a wide_tree.
class wide_tree_builder {
  public:
    wide_tree_builder(std::vector<wide_item>& items, wide_tree& tree)
        : items_(items), tree_(tree) {}

    void run() {
        if (!items_.empty())
            node({0, items_.size()}, 0);
    }

  private:
    /// Some items end to end.
    struct part {
        std::size_t first, count;
        wide_box box{};
    };

    std::uint32_t node(part whole, unsigned level) {
        const auto index = static_cast<std::uint32_t>(tree_.nodes.size());
        tree_.nodes.emplace_back();
        std::array<part, wide_width> parts{};
        parts[0] = whole;
        const std::size_t count = divideAll(parts, level);
        tree_.nodes[index].axis = sortParts(parts, count);
        for (std::size_t lane = 0; lane < wide_width; ++lane)
            place(index, lane, lane < count ? parts[lane].box : wide_box());
        for (std::size_t lane = 0; lane < count; ++lane) {
            const std::uint32_t child =
                isLeaf(parts[lane]) ? leaf(parts[lane]) : node(parts[lane], level + 1);
            tree_.nodes[index].child[lane] = child;
        }
        return index;
    }

    /// Sorts parts along the axis on which they lie farthest apart, and gives it.
    static std::uint32_t sortParts(std::array<part, wide_width>& parts, std::size_t count) {
        wide_box centres;
        for (std::size_t i = 0; i < count; ++i)
            centres.growToCentre(parts[i].box);
        std::uint32_t widest = 0;
        for (std::uint32_t axis = 1; axis < 3; ++axis) {
            if (centres.high[axis] - centres.low[axis] > centres.high[widest] - centres.low[widest])
                widest = axis;
        }
        std::sort(parts.begin(), parts.begin() + static_cast<std::ptrdiff_t>(count),
                  [=](const part& a, const part& b) {
                      return centre(a.box, widest) < centre(b.box, widest);
                  });
        return widest;
    }

    void place(std::uint32_t index, std::size_t lane, const wide_box& box) {
        wide_node& here = tree_.nodes[index];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            here.planes[axis][lane] = box.low[axis];
            here.planes[axis + 3][lane] = box.high[axis];
        }
    }

    std::uint32_t leaf(const part& items) {
        tree_.leaves.push_back(
            {static_cast<std::uint32_t>(items.first), static_cast<std::uint32_t>(items.count)});
        return wide_tree::leaf_flag | static_cast<std::uint32_t>(tree_.leaves.size() - 1);
    }

    /// Divides the first part into at most eight, and tells into how many.
    std::size_t divideAll(std::array<part, wide_width>& parts, unsigned level) {
        parts[0].box = boxOf(parts[0]);
        std::size_t count = 1;
        while (count < wide_width) {
            std::size_t widest = count;
            for (std::size_t i = 0; i < count; ++i) {
                if (!isLeaf(parts[i]) &&
                    (widest == count || parts[i].box.area() > parts[widest].box.area()))
                    widest = i;
            }
            if (widest == count)
                break;
            part& left = parts[widest];
            const std::size_t middle = divide(left, level);
            parts[count] = {middle, left.first + left.count - middle};
            left.count = middle - left.first;
            left.box = boxOf(left);
            parts[count].box = boxOf(parts[count]);
            ++count;
        }
        return count;
    }

    bool isLeaf(const part& items) const {
        if (items.count > wide_width)
            return false;
        const wide_item* const first = items_.data() + items.first;
        return std::all_of(first, first + items.count,
                           [&](const wide_item& item) { return item.owner == first->owner; });
    }

    wide_box boxOf(const part& items) const {
        wide_box box;
        for (std::size_t i = items.first; i < items.first + items.count; ++i)
            box.grow(items_[i]);
        return box;
    }

    /// Sorts the items into two sides, neither of them empty, and gives the first of the second.
    std::size_t divide(const part& items, unsigned level) {
        const auto begin = items_.begin() + static_cast<std::ptrdiff_t>(items.first);
        const auto end = begin + static_cast<std::ptrdiff_t>(items.count);
        auto middle = begin;
        if (items.count <= wide_width) {
            const std::uint32_t owner = begin->owner;
            middle = std::partition(begin, end,
                                    [=](const wide_item& item) { return item.owner == owner; });
        } else if (level < wide_sah_levels) {
            const cut best = bestCut(items);
            middle = std::partition(
                begin, end, [&](const wide_item& item) { return best.bin(item) <= best.last; });
        }
        if (middle == begin || middle == end)
            return items.first + items.count / 2;
        return static_cast<std::size_t>(middle - items_.begin());
    }

    static constexpr std::size_t bins = 16;

    /// Where to cut: behind a bin of one axis.
    struct cut {
        std::size_t axis = 0;
        float low = 0, scale = 0; ///< a place's bin is (place - low) * scale; 0: one bin for all
        std::size_t last = 0;     ///< bin on the first side
        float cost = HUGE_VALF;

        std::size_t bin(const wide_item& item) const {
            return std::min(bins - 1, static_cast<std::size_t>((centre(item, axis) - low) * scale));
        }
    };

    cut bestCut(const part& items) const {
        wide_box centres;
        for (std::size_t i = items.first; i < items.first + items.count; ++i)
            centres.growToCentre(items_[i]);
        cut best;
        for (std::size_t axis = 0; axis < 3; ++axis) {
            cut tried;
            tried.axis = axis;
            tried.low = centres.low[axis];
            tried.scale = static_cast<float>(bins) / (centres.high[axis] - tried.low);
            if (std::isfinite(tried.scale))
                findCut(items, tried, best);
        }
        return best;
    }

    /// Tries all cuts of an axis; `best` becomes what is better.
    void findCut(const part& items, cut tried, cut& best) const {
        std::array<wide_box, bins> boxes;
        std::array<std::size_t, bins> counts{};
        for (std::size_t i = items.first; i < items.first + items.count; ++i) {
            const std::size_t bin = tried.bin(items_[i]);
            boxes[bin].grow(items_[i]);
            ++counts[bin];
        }
        std::array<float, bins> behind{}; // cost of what lies above a bin
        wide_box box;
        std::size_t count = 0;
        for (std::size_t bin = bins - 1; bin > 0; --bin) {
            box.grow(boxes[bin]);
            count += counts[bin];
            behind[bin - 1] = costOf(box, count);
        }
        box = {};
        count = 0;
        for (tried.last = 0; tried.last + 1 < bins; ++tried.last) {
            box.grow(boxes[tried.last]);
            count += counts[tried.last];
            tried.cost = costOf(box, count) + behind[tried.last];
            if (tried.cost < best.cost && count != 0 && count != items.count)
                best = tried;
        }
    }

    /// Leaves that a ray has to test, were its chance to meet the box its surface.
    static float costOf(const wide_box& box, std::size_t count) {
        const std::size_t leaves = (count + wide_width - 1) / wide_width;
        return box.area() * static_cast<float>(leaves);
    }

    std::vector<wide_item>& items_;
    wide_tree& tree_;
};

} // namespace detail

inline wide_tree::wide_tree(std::vector<wide_item>& items) {
    detail::wide_tree_builder(items, *this).run();
}

} // namespace morva
