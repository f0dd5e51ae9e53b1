#include "cell_neighbours.h"

#include <algorithm>
#include <numeric>

#include <OpenSG/OSGVector.h>

namespace morva::host {

namespace {

using morva::osg::cell_box;
using morva::osg::model_cell;

bool touch(const cell_box& a, const cell_box& b) {
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        if (a.low[axis] > b.high[axis] || b.low[axis] > a.high[axis])
            return false;
    }
    return true;
}

/// The axis on which boxes overlap least: that of the smallest sum of edges to the whole's.
::osg::UInt32 sweepAxis(const std::vector<model_cell>& cells) {
    ::osg::UInt32 best = 0;
    double least = 0.0;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        double sum = 0.0, low = 0.0, high = 0.0;
        for (const model_cell& cell : cells) {
            const double from = double{cell.box.low[axis]}, to = double{cell.box.high[axis]};
            sum += to - from;
            low = &cell == cells.data() ? from : std::min(low, from);
            high = &cell == cells.data() ? to : std::max(high, to);
        }
        const double share = high > low ? sum / (high - low) : static_cast<double>(cells.size());
        if (axis == 0 || share < least) {
            best = axis;
            least = share;
        }
    }
    return best;
}

} // namespace

std::vector<std::vector<std::size_t>> neighboursOf(const std::vector<model_cell>& cells) {
    const ::osg::UInt32 axis = sweepAxis(cells);
    std::vector<std::size_t> order(cells.size()), open;
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return cells[a].box.low[axis] < cells[b].box.low[axis];
    });
    std::vector<std::vector<std::size_t>> found(cells.size());
    for (const std::size_t cell : order) {
        const cell_box& box = cells[cell].box;
        std::size_t kept = 0;
        for (const std::size_t other : open) {
            if (cells[other].box.high[axis] < box.low[axis])
                continue; // behind the sweep
            open[kept++] = other;
            if (touch(box, cells[other].box)) {
                found[cell].push_back(other);
                found[other].push_back(cell);
            }
        }
        open.resize(kept);
        open.push_back(cell);
    }
    for (std::vector<std::size_t>& neighbours : found)
        std::sort(neighbours.begin(), neighbours.end());
    return found;
}

} // namespace morva::host
