#pragma once

// Where a kd node is cut. A strategy is an empty tag handed to the build:
//
//     kd_strategy_median      the middle of the node's box, on its longest axis
//     kd_strategy_ObjMedian   the same, and a word on standard output on every NaN it sees
//     kd_strategy_SAH         the cheapest element bound by surface area, or "make a leaf"
//
// Any type of this form is one:
//
//     struct build_state {};       what it remembers from node to node of one build
//     float plane(const kd_range<Geoset>& range, const Box& box, int& axis, build_state&) const;
//
// `axis` comes in as the longest one of the box and goes out as that of the plane. A plane on a
// side of the box makes the node a leaf.
//
// Both calcPlane functions stand for a sweep over the sorted bounds of the elements in which the
// number of elements left of and across a bound counts as 0 and the number right of it as all of
// them. That is settled behaviour: the meshes of the whole system depend on the planes that come
// out. It also means that no sorting is needed. The object median never finds a plane of its own
// and falls back to the box middle; the cost of a bound depends on the bound alone, so that one
// pass over the elements in any order finds the bound that the sweep would keep.
//
// Elements are only read. No state, any thread.
// Method: surface area heuristic, "Heuristics for Ray Tracing Using Space Subdivision",
// MacDonald and Booth, 1990.

#include <morva/core/morva_osg_sink.h>
#include <morva/trees/geoset_access.h>
#include <morva/trees/kd_records.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <sstream>

namespace morva {

/// The elements of one node, as a strategy sees them.
template <typename Geoset> struct kd_range {
    const Geoset& geoset;
    const kd_build_setup& setup;
    const std::uint64_t* elements; ///< `count` numbers, in tree order
    std::uint64_t count;
};

/// The middle of a box on one axis, where every median strategy cuts.
template <typename Box> auto box_middle(const Box& box, int axis) {
    const auto a = static_cast<std::size_t>(axis);
    return box.extent[a] * 0.5f + box.min[a];
}

/// The middle of the box on its longest axis.
struct kd_strategy_median {
    struct build_state {};
    template <typename Geoset, typename Box>
    float plane(const kd_range<Geoset>&, const Box& box, int& axis, build_state&) const {
        return box_middle(box, axis);
    }
};

namespace detail {

/// Whether some extent of the range is a NaN.
template <typename Geoset> bool holds_nan(const kd_range<Geoset>& range) {
    for (int axis = 0; axis < 3; ++axis) {
        const auto extents = extents_on_axis(range.geoset, axis);
        float lo{}, hi{};
        bool found = false;
        for (std::uint64_t p = 0; p < range.count; ++p) {
            extents.read(range.elements[p], lo, hi);
            found |= std::isunordered(lo, hi);
        }
        if (found)
            return true;
    }
    return false;
}

/// Out of line: rare, in a loop over all elements of every node that is cut.
[[gnu::noinline]] inline void say_nan(int axis, std::uint64_t element, float low, float high) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << "Found NAN in kd_strategy_ObjMedian!\nAXIS: " << axis << " Index: " << element
         << " MIN: " << low << " MAX: " << high;
    say({text.str()}, flush::no);
}

} // namespace detail

/// The box middle, with a report of NaN extents.
struct kd_strategy_ObjMedian {
    /// The first range is the whole one, and what is found there holds for all within, unless cuts
    /// make new extents.
    struct build_state {
        bool known = false;
        bool may_be_nan = false;
    };
    template <typename Geoset, typename Box>
    float plane(const kd_range<Geoset>& range, const Box& box, int& axis,
                build_state& state) const {
        const bool cuts = range.setup.straddle_mode == 1 && detail::cuts_elements<Geoset>::value;
        if (!state.known)
            state = {true, cuts || detail::holds_nan(range)};
        if (!state.may_be_nan)
            return box_middle(box, axis);
        return calcPlane(range.geoset, range.setup, 0, range.count, box, axis, range.elements);
    }

    /// geoset, indices  elements `indices[first]` to `indices[first + count - 1]`, in tree order
    /// setup            not read
    /// box              the node's box, `extent` valid
    /// axis             the longest axis; stays as it is
    /// returns          the middle of the box on `axis`
    ///
    /// Every extent with a NaN gets two lines on standard output, axis by axis, elements in order.
    /// O(count).
    template <typename Geoset, typename Setup, typename Box>
    static float calcPlane(const Geoset& geoset, const Setup& /*setup*/, unsigned long first,
                           unsigned long count, const Box& box, int& axis,
                           const std::uint64_t* indices) {
        for (int a = 0; a < 3; ++a) {
            const auto extents = extents_on_axis(geoset, a);
            float lo{}, hi{};
            for (unsigned long p = first; p < first + count; ++p) {
                extents.read(indices[p], lo, hi);
                if (!std::isnan(lo) && !std::isnan(hi))
                    continue;
                detail::say_nan(a, indices[p], lo, hi);
            }
        }
        return static_cast<float>(box_middle(box, axis));
    }
};

namespace detail {

/// The cost of a cut at `c` on one axis of a box, everything counted as right of the cut. The
/// terms of the left side are kept although their counts are 0: with an empty area they turn the
/// cost into a NaN, which no comparison takes.
struct sah_axis_cost {
    float u, w;                  ///< extents on the two other axes
    float left_base, right_base; ///< the parts of the two half areas that do not depend on c
    float area;                  ///< of the whole box
    float right;                 ///< elements

    template <typename Box>
    sah_axis_cost(const Box& box, std::size_t axis, float whole_area, float elements)
        : u(box.extent[(axis + 1) % 3]), w(box.extent[(axis + 2) % 3]),
          left_base(w * u - u * box.min[axis] - box.min[axis] * w),
          right_base(w * u + u * box.max[axis] + box.max[axis] * w), area(whole_area),
          right(elements) {}

    template <typename Setup> float at(float c, const Setup& setup) const {
        const float p_left = 2.0f * (left_base + u * c + w * c) / area;
        const float p_right = 2.0f * (right_base - u * c - w * c) / area;
        const float side = (0.0f * p_left + right * p_right) * setup.cost_intersect;
        return side * setup.cost_factor + setup.cost_traversal;
    }
};

/// The cheapest bound so far: lower cost first, then the lower bound within one axis.
struct sah_best {
    float cost;
    float plane;
    int axis;
    bool is_bound = false; ///< false while it stands for "stay a leaf"

    void offer(float c, float c_cost, int c_axis) {
        const bool lower = is_bound && axis == c_axis && c_cost == cost && c < plane;
        if (cost > c_cost || lower)
            *this = {c_cost, c, c_axis, true};
    }
};

} // namespace detail

/// The bound of least cost by surface area.
struct kd_strategy_SAH {
    struct build_state {};
    template <typename Geoset, typename Box>
    float plane(const kd_range<Geoset>& range, const Box& box, int& axis, build_state&) const {
        return calcPlane(range.geoset, range.setup, 0, range.count, box, axis, range.elements);
    }

    /// geoset, indices  elements `indices[first]` to `indices[first + count - 1]`
    /// setup            reads `cost_intersect`, `cost_traversal`, `cost_factor`
    /// box              the node's box, `extent` valid
    /// axis             in: the longest axis; out: the axis of the plane
    /// returns          the plane, or `box.min[axis]` with `axis` unchanged if no bound is
    ///                  cheaper than a leaf
    ///
    /// Equal costs: the lower axis, then the lower bound. In a tight box the cheapest bound is as
    /// a rule the upper side of the box, which the build takes for "make a leaf"; where rounding
    /// gives a lower bound the same cost, that one wins and the node is cut. O(count).
    template <typename Geoset, typename Setup, typename Box>
    static float calcPlane(const Geoset& geoset, const Setup& setup, unsigned long first,
                           unsigned long count, const Box& box, int& axis,
                           const std::uint64_t* indices) {
        const float ex = box.extent[0], ey = box.extent[1], ez = box.extent[2];
        const float area = 2.0f * (ex * ez + (ey * ez + ex * ey));
        const float elements = static_cast<float>(count);
        detail::sah_best best{elements * setup.cost_intersect,
                              box.min[static_cast<std::size_t>(axis)], axis};
        for (int a = 0; a < 3; ++a) {
            const detail::sah_axis_cost cost(box, static_cast<std::size_t>(a), area, elements);
            const auto extents = extents_on_axis(geoset, a);
            float lo{}, hi{};
            for (unsigned long p = first; p < first + count; ++p) {
                extents.read(indices[p], lo, hi);
                // A NaN in front spoils the order of all bounds of the axis: none is offered. Any
                // later one finds no place among them.
                if (p == first && std::isnan(lo))
                    break;
                if (!std::isnan(lo))
                    best.offer(lo, cost.at(lo, setup), a);
                if (!(lo == hi) && !std::isnan(hi))
                    best.offer(hi, cost.at(hi, setup), a);
            }
        }
        axis = best.axis;
        return best.plane;
    }
};

} // namespace morva
