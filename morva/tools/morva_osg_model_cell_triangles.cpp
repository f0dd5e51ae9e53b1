#include <morva/tools/morva_osg_model_cell_triangles.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// Corners that cut triangles may have without regard to their number, and for each of them.
constexpr std::uint64_t corners_at_least = 4000000, corners_per_triangle = 8;

/// Where a plane cuts an edge. The ends are taken in one order, whichever way the edge runs.
piece_corner cutPoint(const piece_corner* p, const piece_corner* q, double plane, UInt32 axis) {
    const auto world = [](const piece_corner* c) { return c->world.getValues(); };
    if (std::lexicographical_compare(world(q), world(q) + 3, world(p), world(p) + 3))
        std::swap(p, q);
    const double from = double{p->world[axis]},
                 share = (plane - from) / (double{q->world[axis]} - from);
    const auto between = [share](float a, float b) {
        return static_cast<float>(double{a} + share * (double{b} - double{a}));
    };
    piece_corner cut;
    for (UInt32 k = 0; k < 3; ++k) {
        cut.world[k] = between(p->world[k], q->world[k]);
        cut.local[k] = between(p->local[k], q->local[k]);
        cut.weight[k] = between(p->weight[k], q->weight[k]);
    }
    cut.world[axis] = static_cast<float>(plane);
    return cut;
}

} // namespace

/// Cuts a polygon into what is below a plane and what is above it, in the order of its corners.
void cell_triangles::cutAt(double plane, UInt32 axis, const polygon& shape, polygon (&sides)[2]) {
    const auto add = [&sides](int side, const piece_corner& corner) {
        sides[side].corners[sides[side].count++] = corner;
    };
    for (std::size_t k = 0; k < shape.count; ++k) {
        const piece_corner& here = shape.corners[k];
        const piece_corner& next = shape.corners[(k + 1) % shape.count];
        const double a = double{here.world[axis]} - plane, b = double{next.world[axis]} - plane;
        if (a <= 0)
            add(0, here);
        if (a >= 0)
            add(1, here);
        if ((a < 0 && b > 0) || (a > 0 && b < 0)) {
            const piece_corner cut = cutPoint(&here, &next, plane, axis);
            add(0, cut);
            add(1, cut);
        }
    }
}

/// Whether a polygon has no corner twice in a row.
bool cell_triangles::hasShape(const polygon& shape) {
    for (std::size_t k = 0; k < shape.count; ++k) {
        const float* const here = shape.corners[k].local.getValues();
        if (std::equal(here, here + 3, shape.corners[(k + 1) % shape.count].local.getValues()))
            return false;
    }
    return shape.count >= 3;
}

cell_triangles::cell_triangles(const std::vector<cell_part>& all_parts, bool cuts)
    : parts(all_parts) {
    for (const cell_part& part : parts)
        whole += part.kept[cell_triangle].size();
    size = whole;
    most_corners = corners_at_least + corners_per_triangle * whole;
    const auto elements = static_cast<std::size_t>(whole);
    for (std::size_t axis = 0; axis < 3; ++axis) {
        low[axis].resize(elements);
        high[axis].resize(elements);
    }
    for (std::uint64_t element = 0; element < whole; ++element)
        setExtent(element, shapeOf(element));
    if (cuts)
        outlines.resize(elements);
}

void cell_triangles::setExtent(std::uint64_t element, const polygon& shape) {
    const auto at = static_cast<std::size_t>(element);
    for (UInt32 axis = 0; axis < 3; ++axis) {
        float lowest = shape.corners[0].world[axis], highest = lowest;
        for (std::size_t k = 1; k < shape.count; ++k) {
            lowest = std::min(lowest, shape.corners[k].world[axis]);
            highest = std::max(highest, shape.corners[k].world[axis]);
        }
        low[axis][at] = lowest;
        high[axis][at] = highest;
    }
}

/// Takes the place of an outline that is as long, or a new one.
void cell_triangles::setOutline(std::uint64_t element, const polygon& shape) {
    corner_range& range = outlines[static_cast<std::size_t>(element)];
    if (range.count < shape.count) {
        if (corners.size() + shape.count > most_corners)
            throw std::length_error("the cells ask for triangles in more than " +
                                    std::to_string(most_corners) + " corners");
        range.first = static_cast<std::uint32_t>(corners.size());
        corners.resize(corners.size() + shape.count);
    }
    range.count = static_cast<std::uint32_t>(shape.count);
    std::copy_n(shape.corners, shape.count, corners.begin() + range.first);
}

cell_triangles::polygon cell_triangles::shapeOf(std::uint64_t element) const {
    polygon shape;
    const span<const piece_corner> known = outlineOf(element);
    if (!known.empty()) {
        shape.count = known.size();
        std::copy(known.begin(), known.end(), shape.corners);
        return shape;
    }
    const cell_part& part = parts[partOf(parts, cell_triangle, element)];
    const UInt32* const vertices = part.verticesOf(cell_triangle, element);
    shape.count = 3;
    for (int k = 0; k < 3; ++k)
        shape.corners[k] = {part.worldOf(vertices[k]),
                            part.source->place(vertices[k]),
                            {k == 0 ? 1.0F : 0.0F, k == 1 ? 1.0F : 0.0F, k == 2 ? 1.0F : 0.0F},
                            k};
    return shape;
}

void cell_triangles::splitElement(unsigned long element, double plane, int axis, int& added,
                                  unsigned long& first_added) {
    added = 0;
    first_added = size;
    const polygon shape = shapeOf(element);
    polygon sides[2];
    if (shape.count + 2 > std::size(shape.corners))
        return;
    cutAt(plane, static_cast<UInt32>(axis), shape, sides);
    if (!hasShape(sides[0]) || !hasShape(sides[1]))
        return;
    outlines.emplace_back();
    origin.push_back(originOf(element));
    for (std::size_t a = 0; a < 3; ++a) {
        low[a].emplace_back();
        high[a].emplace_back();
    }
    // The sort puts what is new where its bounds are, and the rest by its centre, which rounding
    // lifts onto the plane if it is thin: this is right above it alone.
    setOutline(element, sides[1]);
    setExtent(element, sides[1]);
    setOutline(size, sides[0]);
    setExtent(size, sides[0]);
    ++size;
    added = 1;
}

} // namespace morva::osg
