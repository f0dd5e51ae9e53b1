#pragma once

// Small geosets for the tree tests, one of each kind that a tree has to serve: boxes that can be
// cut, boxes that cannot, and points without arrays per axis. `make_boxes` fills them with trouble.

#include "tests/support/test.h"

#include <morva/trees/geoset_access.h>

namespace morva_test {

using float2 = std::array<float, 2>;
using box3 = std::array<float2, 3>; ///< per axis: low, high

/// Boxes as elements; the arrays of a geoset, and nothing that cuts.
struct whole_boxes {
    using scalar_type = float;

    unsigned long size = 0;
    float* axis_min[3] = {};
    float* axis_max[3] = {};
    morva::float_box bbox;
    std::vector<float> low[3], high[3];

    explicit whole_boxes(const std::vector<box3>& boxes) {
        for (const box3& box : boxes)
            add(box);
    }
    whole_boxes(const whole_boxes&) = delete;
    whole_boxes& operator=(const whole_boxes&) = delete;

    /// Moves the arrays now and then, as a growing geoset does.
    void add(const box3& box) {
        for (std::size_t a = 0; a < 3; ++a) {
            low[a].push_back(box[a][0]);
            high[a].push_back(box[a][1]);
            axis_min[a] = low[a].data();
            axis_max[a] = high[a].data();
        }
        ++size;
    }
};

/// Boxes that a plane can cut. Every third one comes apart in three pieces, every fifth resists,
/// and which side keeps the old number changes from box to box. Some pieces get a NaN.
struct cut_boxes : whole_boxes {
    using whole_boxes::whole_boxes;

    void splitElement(unsigned long e, double plane, int axis, int& pieces,
                      unsigned long& first_piece) {
        pieces = 0;
        first_piece = size;
        const auto a = std::size_t(axis);
        const float p = float(plane);
        if (e % 5 == 4 || !(low[a][e] < p && p < high[a][e]))
            return;
        box3 keeps{{{low[0][e], high[0][e]}, {low[1][e], high[1][e]}, {low[2][e], high[2][e]}}};
        box3 goes = keeps;
        keeps[a][e % 2] = p;
        goes[a][1 - e % 2] = p;
        if (e % 3 == 0) { // a second cut across, so that pieces fall on one side too
            const std::size_t b = (a + 1) % 3;
            const float middle = (keeps[b][1] - keeps[b][0]) * 0.5f + keeps[b][0];
            box3 third = keeps;
            third[b][0] = keeps[b][1] = middle;
            add(third);
            ++pieces;
        }
        if (e % 11 == 1)
            goes[(a + 1) % 3][1] = NAN;
        add(goes);
        ++pieces;
        for (std::size_t b = 0; b < 3; ++b) {
            low[b][e] = keeps[b][0];
            high[b][e] = keeps[b][1];
        }
    }
};

/// Packed coordinates: an element's extent is read from the point itself.
struct packed_points {
    using scalar_type = float;

    unsigned long size = 0;
    std::vector<float> coordinates; ///< x, y, z of each point
    morva::float_box bbox;

    explicit packed_points(const std::vector<box3>& boxes) : size(boxes.size()) {
        for (const box3& box : boxes)
            for (const auto& range : box)
                coordinates.push_back(range[0]);
    }
};

inline morva::point_extents<float> extents_on_axis(const packed_points& points, int axis) {
    return {points.coordinates.data() + axis, 3};
}

/// What the boxes of `make_boxes` have in common.
enum class trouble { none, flat, on_grid, coincident, far_away, nan, infinite, count };

inline std::vector<box3> make_boxes(std::mt19937& random, std::size_t count, trouble kind) {
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    std::vector<box3> boxes(count);
    for (box3& box : boxes)
        for (auto& range : box) {
            range[0] = unit(random) * 10 - 4;
            range[1] = range[0] + unit(random) * (unit(random) < 0.2f ? 6.0f : 0.5f);
        }
    const std::size_t flat_axis = random() % 3;
    for (std::size_t i = 0; i < count; ++i) {
        for (std::size_t a = 0; a < 3; ++a) {
            auto& range = boxes[i][a];
            if (kind == trouble::flat && (a == flat_axis || i % 2 == 0))
                range[1] = range[0] = (a == flat_axis ? 2.5f : range[0]);
            if (kind == trouble::on_grid) // halves of the box fall on these
                range = {std::round(range[0]), std::round(range[1])};
            if (kind == trouble::on_grid && i % 3 == 0) // so thin that its centre rounds up
                range[0] = std::nextafter(range[1], -100.0f);
            if (kind == trouble::coincident && i > 0)
                range = boxes[0][a];
            if (kind == trouble::far_away)
                range = {range[0] + 1e8f, range[1] + 1e8f};
            if (kind == trouble::nan && random() % (i == 1 ? 2 : 8) == 0) // in front of parts, too
                range[i == 1 ? 0 : random() % 2] = NAN;
            if (kind == trouble::infinite && random() % 8 == 0)
                range[1] = INFINITY;
        }
    }
    return boxes;
}

} // namespace morva_test
