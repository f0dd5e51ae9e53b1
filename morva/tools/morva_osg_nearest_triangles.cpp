#include <morva/tools/morva_osg_nearest_triangles.h>

#include <algorithm>
#include <cmath>

namespace morva::osg {

namespace {

std::array<::osg::Pnt3f, 3> cornersOf(const simplified_triangles& mesh, std::size_t triangle,
                                      const linear_map* space) {
    std::array<::osg::Pnt3f, 3> corners;
    for (std::size_t k = 0; k < 3; ++k) {
        const ::osg::Pnt3f& place = mesh.places[mesh.vertices[3 * triangle + k]];
        corners[k] = space != nullptr ? mapped(place, *space) : place;
    }
    return corners;
}

std::vector<wide_item> boxesOf(const simplified_triangles& mesh, const linear_map* space) {
    std::vector<wide_item> items(mesh.vertices.size() / 3);
    for (std::size_t t = 0; t < items.size(); ++t) {
        const auto corners = cornersOf(mesh, t, space);
        for (unsigned int i = 0; i < 3; ++i) {
            items[t].low[i] = std::min({corners[0][i], corners[1][i], corners[2][i]});
            items[t].high[i] = std::max({corners[0][i], corners[1][i], corners[2][i]});
        }
        items[t].number = static_cast<std::uint32_t>(t);
    }
    return items;
}

/// To the line between two points.
double squaredToLine(const point3d& p, const point3d& a, const point3d& b) {
    const point3d along = minus(b, a), from = minus(p, a);
    const double length = dot(along, along);
    const double at = length > 0 ? std::clamp(dot(from, along) / length, 0.0, 1.0) : 0.0;
    const point3d apart = at == 1.0 ? minus(p, b)
                                    : point3d{from[0] - at * along[0], from[1] - at * along[1],
                                              from[2] - at * along[2]};
    return dot(apart, apart);
}

/// To the box around a triangle.
double squaredToBox(const point3d& p, const std::array<::osg::Pnt3f, 3>& t) {
    double squared = 0;
    for (unsigned int i = 0; i < 3; ++i) {
        const double low = double{std::min({t[0][i], t[1][i], t[2][i]})};
        const double high = double{std::max({t[0][i], t[1][i], t[2][i]})};
        const double apart = std::max({low - p[i], p[i] - high, 0.0});
        squared += apart * apart;
    }
    return squared;
}

/// A child that waits, with the square of the distance to its box.
struct waiting_child {
    double squared;
    std::uint32_t child;
};

/// Squares of the distances from a point to the boxes of a node.
void boundsOf(const wide_node& node, const point3d& p, double (&squared)[wide_width]) {
    for (std::size_t lane = 0; lane < wide_width; ++lane)
        squared[lane] = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
        for (std::size_t lane = 0; lane < wide_width; ++lane) {
            const double below = double{node.planes[axis][lane]} - p[axis];
            const double above = p[axis] - double{node.planes[axis + 3][lane]};
            double apart = below > above ? below : above;
            apart = apart > 0 ? apart : 0;
            squared[lane] += apart * apart;
        }
    }
}

} // namespace

::osg::Pnt3f mapped(const ::osg::Pnt3f& p, const linear_map& space) {
    ::osg::Pnt3f q;
    for (unsigned int i = 0; i < 3; ++i)
        q[i] = space[0][i] * p[0] + space[1][i] * p[1] + space[2][i] * p[2];
    return q;
}

double squaredDistance(const point3d& p, const corners3d& t) {
    const point3d normal = cross(minus(t[1], t[0]), minus(t[2], t[0]));
    const double length = dot(normal, normal);
    bool inside = length > 0;
    for (std::size_t k = 0; k < 3 && inside; ++k)
        inside = dot(cross(minus(t[(k + 1) % 3], t[k]), minus(p, t[k])), normal) >= 0;
    if (inside) {
        const double height = dot(minus(p, t[0]), normal);
        return height * height / length;
    }
    return std::min(
        {squaredToLine(p, t[0], t[1]), squaredToLine(p, t[1], t[2]), squaredToLine(p, t[2], t[0])});
}

nearest_triangles::nearest_triangles(const simplified_triangles& mesh, const linear_map* space)
    : nearest_triangles(mesh, space, boxesOf(mesh, space)) {}

nearest_triangles::nearest_triangles(const simplified_triangles& mesh, const linear_map* space,
                                     std::vector<wide_item> items)
    : tree_(items) {
    corners_.reserve(items.size());
    numbers_.reserve(items.size());
    for (const wide_item& item : items) {
        corners_.push_back(cornersOf(mesh, item.number, space));
        numbers_.push_back(item.number);
    }
}

void nearest_triangles::searchLeaf(const wide_tree::leaf& leaf, const point3d& p,
                                   nearest_hit& hit) const {
    for (std::uint32_t i = leaf.first; i < leaf.first + leaf.count; ++i) {
        if (!(squaredToBox(p, corners_[i]) < hit.squared))
            continue;
        const double squared = squaredDistance(p, corners(i));
        if (squared < hit.squared)
            hit = {squared, i};
    }
}

void nearest_triangles::search(const point3d& p, nearest_hit& hit) const {
    if (tree_.nodes.empty())
        return;
    if (hit.squared < std::numeric_limits<double>::infinity())
        hit.squared = squaredDistance(p, corners(hit.place));
    waiting_child stack[(detail::wide_levels + 1) * wide_width];
    std::size_t depth = 0;
    stack[depth++] = {0, 0};
    while (depth != 0) {
        const waiting_child next = stack[--depth];
        if (!(next.squared < hit.squared))
            continue;
        if ((next.child & wide_tree::leaf_flag) != 0) {
            searchLeaf(tree_.leaves[next.child & ~wide_tree::leaf_flag], p, hit);
            continue;
        }
        const wide_node& node = tree_.nodes[next.child];
        double squared[wide_width];
        boundsOf(node, p, squared);
        // The nearest one last, so that it comes first.
        const std::size_t first = depth;
        for (std::size_t lane = 0; lane < wide_width; ++lane) {
            if (!(squared[lane] < hit.squared))
                continue;
            std::size_t place = depth++;
            for (; place > first && stack[place - 1].squared < squared[lane]; --place)
                stack[place] = stack[place - 1];
            stack[place] = {squared[lane], node.child[lane]};
        }
    }
}

double nearest_triangles::distance(const point3d& p, nearest_hit& hit) const {
    search(p, hit);
    return std::sqrt(hit.squared);
}

} // namespace morva::osg
