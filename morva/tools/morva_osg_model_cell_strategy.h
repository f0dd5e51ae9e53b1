#pragma once

// Where the tree of a division cuts, and where it stops. Include
// <morva/tools/morva_osg_model_cells.h>.

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>

#include <morva/tools/morva_osg_model_cell_triangles.h>
#include <morva/tools/morva_osg_model_cells.h>
#include <morva/trees/kd_tree.h>

namespace morva::osg {

/// Whether a box is within a limit of size.
template <typename Box> bool isWithin(const Box& box, double limit) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
        if (!(double{box.max[axis]} - double{box.min[axis]} <= limit))
            return false;
    }
    return true;
}

/// The middle of the longest axis, as kd_strategy_median has it, for what is above the limit and
/// can be told apart.
///
/// Where triangles are cut, and are counted, a plane that all of them cross gains nothing: the next
/// longest axis is tried.
struct cell_strategy {
    model_cell_options options;

    struct build_state {
        std::uint64_t planes = 0;
    };

    template <typename Box>
    float plane(const kd_range<cell_triangles>& range, const Box& box, int& axis,
                build_state& state) const {
        const float leaf = box.min[static_cast<std::size_t>(axis)];
        const bool counts = options.measure == cell_measure::triangles;
        if (counts ? trianglesOf(range) <= options.limit : isWithin(box, options.limit))
            return leaf;
        if (++state.planes > most_cell_planes)
            throw std::length_error("the cells ask for more than " +
                                    std::to_string(most_cell_planes) + " planes");
        if (!counts)
            return box_middle(box, axis);
        if (options.straddle == cell_straddle::centre)
            return areAlike(range) ? leaf : box_middle(box, axis);
        return gainingPlane(range, box, axis);
    }

  private:
    static double trianglesOf(const kd_range<cell_triangles>& range) {
        if (range.geoset.outlines.empty())
            return static_cast<double>(range.count);
        std::uint64_t count = 0;
        for (std::uint64_t i = 0; i < range.count; ++i)
            count += range.geoset.trianglesOf(range.elements[i]);
        return static_cast<double>(count);
    }

    /// Whether all extents are the same, so that no plane comes between two of them.
    static bool areAlike(const kd_range<cell_triangles>& range) {
        for (int axis = 0; axis < 3; ++axis) {
            const array_extents<float> extents = extents_on_axis(range.geoset, axis);
            const std::uint64_t first = range.elements[0];
            for (std::uint64_t i = 1; i < range.count; ++i) {
                const std::uint64_t e = range.elements[i];
                if (extents.low[e] != extents.low[first] || extents.high[e] != extents.high[first])
                    return false;
            }
        }
        return true;
    }

    template <typename Box>
    static float gainingPlane(const kd_range<cell_triangles>& range, const Box& box, int& axis) {
        int order[3] = {axis, (axis + 1) % 3, (axis + 2) % 3};
        const auto length = [&box](int a) { return box.extent[static_cast<std::size_t>(a)]; };
        if (length(order[1]) < length(order[2]))
            std::swap(order[1], order[2]);
        for (const int candidate : order) {
            const auto a = static_cast<std::size_t>(candidate);
            const float middle = box_middle(box, candidate);
            if (middle == box.min[a] || middle == box.max[a] || !gains(range, candidate, middle))
                continue;
            axis = candidate;
            return middle;
        }
        return box.min[static_cast<std::size_t>(axis)];
    }

    /// Whether some element is on one side alone.
    static bool gains(const kd_range<cell_triangles>& range, int axis, float plane) {
        const array_extents<float> extents = extents_on_axis(range.geoset, axis);
        for (std::uint64_t i = 0; i < range.count; ++i) {
            const std::uint64_t e = range.elements[i];
            if (extents.low[e] >= plane || extents.high[e] <= plane)
                return true;
        }
        return false;
    }
};

} // namespace morva::osg
