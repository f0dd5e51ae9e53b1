#include <morva/collision/morva_osg_containment.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <list>
#include <numeric>
#include <random>
#include <utility>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/trees/ray_triangle.h>

namespace morva::osg {

namespace {

using point = std::array<double, 3>;
using triangle = std::array<point, 3>;
using surface = std::vector<triangle>;

point operator-(const point& a, const point& b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
using detail::cross;
double dot(const point& a, const point& b) { return detail::dot<double>(a, b); }

point transformed(const ::osg::Matrix& matrix, const ::osg::Pnt3f& p) {
    point result;
    for (::osg::UInt32 r = 0; r < 3; ++r)
        result[r] = double{matrix[0][r]} * double{p[0]} + double{matrix[1][r]} * double{p[1]} +
                    double{matrix[2][r]} * double{p[2]} + double{matrix[3][r]};
    return result;
}

bool isFinite(const triangle& t) {
    return std::all_of(t.begin(), t.end(), [](const point& p) {
        return std::isfinite(p[0]) && std::isfinite(p[1]) && std::isfinite(p[2]);
    });
}

/// The triangles of a node's core in the world, those of no size included.
surface surfaceOf(const ::osg::NodePtr& node) {
    constexpr vertex_property place[] = {vertex_property::position};
    const geometry_columns columns(::osg::GeometryPtr::dcast(node->getCore()), place);
    const ::osg::Matrix matrix = node->getToWorld();
    surface triangles;
    forEachPlacedTriangle(columns, [&](const auto* a, const auto* b, const auto* c) {
        if (a == nullptr || b == nullptr || c == nullptr)
            return;
        triangles.push_back(
            {transformed(matrix, *a), transformed(matrix, *b), transformed(matrix, *c)});
        if (!isFinite(triangles.back()))
            triangles.pop_back();
    });
    return triangles;
}

/// One surface for each geometry node that has triangles.
std::vector<surface> surfacesBelow(const ::osg::NodePtr& root) {
    std::vector<surface> surfaces;
    if (root == ::osg::NullFC)
        return surfaces;
    std::list<::osg::NodePtr> nodes;
    collect_geo_nodes(root, nodes);
    for (const ::osg::NodePtr& node : nodes) {
        surface triangles = surfaceOf(node);
        if (!triangles.empty())
            surfaces.push_back(std::move(triangles));
    }
    return surfaces;
}

surface joined(const std::vector<surface>& surfaces) {
    surface all;
    for (const surface& one : surfaces)
        all.insert(all.end(), one.begin(), one.end());
    return all;
}

/// Lowest and highest corner.
struct bounds {
    point low, high;

    explicit bounds(const surface& triangles) : low(triangles[0][0]), high(low) {
        for (const triangle& t : triangles) {
            for (const point& p : t) {
                for (std::size_t k = 0; k < 3; ++k) {
                    low[k] = std::min(low[k], p[k]);
                    high[k] = std::max(high[k], p[k]);
                }
            }
        }
    }
    double diagonal() const { return std::sqrt(dot(high - low, high - low)); }
    bool holds(const point& p) const {
        for (std::size_t k = 0; k < 3; ++k)
            if (p[k] < low[k] || p[k] > high[k])
                return false;
        return true;
    }
};

/// A number for each point; points within `tolerance` on each axis share one, and so do those that
/// a chain of such points leads to.
///
/// method  axis by axis: numbers are runs of sorted coordinates without a gap, within equal numbers
///         of the axis before
std::vector<std::uint32_t> weldedPoints(const std::vector<point>& points, double tolerance) {
    std::vector<std::uint32_t> number(points.size(), 0), order(points.size());
    std::iota(order.begin(), order.end(), 0U);
    for (std::size_t k = 0; k < 3 && !order.empty(); ++k) {
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
            return number[a] != number[b] ? number[a] < number[b] : points[a][k] < points[b][k];
        });
        std::uint32_t next = 0, before = number[order[0]];
        for (std::size_t i = 0; i < order.size(); ++i) {
            const std::uint32_t old = number[order[i]];
            if (i != 0 &&
                (old != before || points[order[i]][k] - points[order[i - 1]][k] > tolerance))
                ++next;
            before = old;
            number[order[i]] = next;
        }
    }
    return number;
}

/// From one corner to another.
struct edge {
    point from, to;
};

/// The edges that don't go as often one way as the other, once corners within the tolerance are
/// one.
std::vector<edge> openEdges(const std::vector<edge>& edges, double tolerance) {
    std::vector<point> ends;
    for (const edge& one : edges)
        ends.insert(ends.end(), {one.from, one.to});
    const std::vector<std::uint32_t> number = weldedPoints(ends, tolerance);
    struct way {
        std::uint32_t low, high; ///< numbers of its ends
        std::size_t index;       ///< of the edge
    };
    std::vector<way> ways;
    for (std::size_t i = 0; i < edges.size(); ++i)
        if (number[2 * i] != number[2 * i + 1])
            ways.push_back({std::min(number[2 * i], number[2 * i + 1]),
                            std::max(number[2 * i], number[2 * i + 1]), i});
    const auto less = [](const way& a, const way& b) {
        return a.low != b.low ? a.low < b.low : a.high < b.high;
    };
    std::sort(ways.begin(), ways.end(), less);
    std::vector<edge> open;
    for (auto first = ways.begin(); first != ways.end();) {
        const auto last = std::upper_bound(first, ways.end(), *first, less);
        std::ptrdiff_t balance = 0;
        for (auto i = first; i != last; ++i)
            balance += number[2 * i->index] == i->low ? 1 : -1;
        for (auto i = first; balance != 0 && i != last; ++i)
            open.push_back(edges[i->index]);
        first = last;
    }
    return open;
}

/// Whether every edge goes as often one way as the other. Corners that are equal are one first, so
/// that only seams are left for the tolerance.
bool isClosed(const surface& triangles) {
    std::vector<edge> edges;
    for (const triangle& t : triangles)
        for (std::size_t k = 0; k < 3; ++k)
            if (t[k] != t[(k + 1) % 3])
                edges.push_back({t[k], t[(k + 1) % 3]});
    if (edges.empty())
        return false;
    const double tolerance = 1e-6 * bounds(triangles).diagonal();
    edges = openEdges(edges, 0.0);
    // A seam of edges no longer than the tolerance would close by itself.
    const bool fine = std::any_of(edges.begin(), edges.end(), [tolerance](const edge& one) {
        return dot(one.to - one.from, one.to - one.from) <= 100.0 * tolerance * tolerance;
    });
    return edges.empty() || (!fine && openEdges(edges, tolerance).empty());
}

/// What a ray has to do with a triangle.
enum class crossing { none, through, unclear };

/// Signed volumes say on which side of each edge the ray passes; near an edge they say nothing.
crossing crossingOf(const triangle& t, const point& from, const point& direction) {
    const point a = t[0] - from, b = t[1] - from, c = t[2] - from;
    const double far = std::max({dot(a, a), dot(b, b), dot(c, c)});
    const double u = dot(direction, cross(b, c)), v = dot(direction, cross(c, a)),
                 w = dot(direction, cross(a, b));
    const double doubt = 1e-12 * far; // of areas; the direction has length 1
    if ((u < -doubt || v < -doubt || w < -doubt) && (u > doubt || v > doubt || w > doubt))
        return crossing::none;
    if (std::abs(u) <= doubt || std::abs(v) <= doubt || std::abs(w) <= doubt)
        return crossing::unclear;
    // All of one sign: the line passes. The corners' mean by these weights is on it.
    return (u * dot(a, direction) + v * dot(b, direction) + w * dot(c, direction)) / (u + v + w) >
                   0.0
               ? crossing::through
               : crossing::none;
}

/// Whether a point is inside of a closed surface; false where no direction is clear.
bool isInside(const point& p, const surface& triangles) {
    constexpr int attempts = 16;
    std::minstd_rand rng(1);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    for (int i = 0; i < attempts; ++i) {
        point direction{unit(rng), unit(rng), unit(rng)};
        const double size = std::sqrt(dot(direction, direction));
        if (size < 0.1)
            continue;
        for (double& part : direction)
            part /= size;
        bool inside = false, clear = true;
        for (std::size_t t = 0; t < triangles.size() && clear; ++t) {
            const crossing found = crossingOf(triangles[t], p, direction);
            inside ^= found == crossing::through;
            clear = found != crossing::unclear;
        }
        if (clear)
            return inside;
    }
    return false;
}

/// A surface that has an inside.
struct closed_part {
    surface triangles;
    bounds box;

    bool holds(const point& p) const { return box.holds(p) && isInside(p, triangles); }
};

std::vector<closed_part> closedPartsOf(std::vector<surface> surfaces) {
    std::vector<closed_part> parts;
    const auto rest = std::stable_partition(surfaces.begin(), surfaces.end(), isClosed);
    const surface open = joined({rest, surfaces.end()});
    surfaces.erase(rest, surfaces.end());
    if (isClosed(open))
        surfaces.push_back(open);
    for (surface& closed : surfaces) {
        const bounds box(closed);
        parts.push_back({std::move(closed), box});
    }
    return parts;
}

} // namespace

bool is_closed(const ::osg::NodePtr& node) { return isClosed(joined(surfacesBelow(node))); }

bool contains(const ::osg::NodePtr& outer, const ::osg::NodePtr& inner) {
    const std::vector<surface> inside = surfacesBelow(inner);
    if (inside.empty())
        return false;
    const std::vector<closed_part> parts = closedPartsOf(surfacesBelow(outer));
    return std::all_of(inside.begin(), inside.end(), [&parts](const surface& one) {
        return std::any_of(parts.begin(), parts.end(),
                           [&one](const closed_part& part) { return part.holds(one[0][0]); });
    });
}

} // namespace morva::osg
