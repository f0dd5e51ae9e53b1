// Cutting of triangles. Pieces are made from the corners as they are stored and from cut points
// that the triangles of one edge share, so that seams stay closed.

#include <morva/geosets/morva_osg_geoset_tools.h>

#include <cmath>
#include <cstddef>
#include <cstdio>
#include <new>
#include <string>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/geosets/morva_osg_geoset_fields.h>

namespace morva::osg {

namespace {

/// Share of an edge within which a cut is too near to its end.
constexpr double nearest_end = 1e-5;
constexpr double farthest_end = 0.99999;
/// A plane this many times nearer to one corner than to another goes through that corner.
constexpr double snap_ratio = 100000;
/// A number is finite if its difference with itself is at most this.
constexpr double finite_limit = 9.999999974752427e-7;
/// A triangle this many times longer on one axis than on another is a sliver.
constexpr float sliver_ratio = 15;

using triangle = ::osg::Pnt3f[3];

bool isFinite(const ::osg::Pnt3d& point) {
    for (::osg::UInt32 i = 0; i < 3; ++i) {
        if (!(point[i] - point[i] <= finite_limit))
            return false;
    }
    return true;
}

/// Equal to the last bit, but for the sign of zero; the points' own comparison has a tolerance.
bool same(const ::osg::Pnt3d& a, const ::osg::Pnt3d& b) {
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}

::osg::Pnt3d widened(const ::osg::Pnt3f& p) {
    return ::osg::Pnt3d(static_cast<double>(p[0]), static_cast<double>(p[1]),
                        static_cast<double>(p[2]));
}

::osg::Pnt3f rounded(const ::osg::Pnt3d& p) {
    return ::osg::Pnt3f(static_cast<float>(p[0]), static_cast<float>(p[1]),
                        static_cast<float>(p[2]));
}

bool isRogue(const triangle& t) { return is_rogue(t[0], t[1], t[2]); }

/// The point stored for an edge in this direction, or null. Keys meet number by number, with no
/// tolerance: a seam stays closed only if both sides come to the same bits.
const ::osg::Pnt3d* storedPoint(const decltype(osg_geoset::split_cache)& cache,
                                const ::osg::Pnt3d& p, const ::osg::Pnt3d& q) {
    const auto from = cache.find(p);
    if (from == cache.end())
        return nullptr;
    const auto to = from->second.find(q);
    return to == from->second.end() ? nullptr : &to->second;
}

/// The plane, moved onto a corner that is much nearer to it than another one. Of several such
/// corners the last one wins.
double snappedPlane(const triangle& t, double plane, ::osg::UInt32 axis) {
    double at[3], away[3];
    for (int k = 0; k < 3; ++k) {
        at[k] = static_cast<double>(t[k][axis]);
        away[k] = std::abs(at[k] - plane);
    }
    double snapped = plane;
    if (away[1] > away[0] * snap_ratio || away[2] > away[0] * snap_ratio)
        snapped = at[0];
    if (away[0] > away[1] * snap_ratio || away[2] > away[1] * snap_ratio)
        snapped = at[1];
    if (away[0] > away[2] * snap_ratio || away[1] > away[2] * snap_ratio)
        snapped = at[2];
    return snapped;
}

/// Squares are summed in the order of the axes, in single precision.
float edgeLength(const ::osg::Pnt3f& from, const ::osg::Pnt3f& to) { return (to - from).length(); }

/// Number of the longest edge: 3 before 2 before 1 where they are equal.
int longestEdge(const triangle& t) {
    const float ab = edgeLength(t[0], t[1]);
    const float bc = edgeLength(t[1], t[2]);
    const float ca = edgeLength(t[2], t[0]);
    if (ca >= ab && ca >= bc)
        return 3;
    return bc >= ab && bc >= ca ? 2 : 1;
}

::osg::Pnt3f middleOf(const ::osg::Pnt3f& from, const ::osg::Pnt3f& to) {
    ::osg::Pnt3f middle;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        const float half = (to[axis] - from[axis]) * 0.5F;
        middle[axis] =
            static_cast<float>(static_cast<double>(from[axis]) + static_cast<double>(half));
    }
    return middle;
}

/// Whether some extent is more than 15 times another one that is not 0.
bool isSliver(const float (&extent)[3]) {
    for (int one = 0; one < 3; ++one) {
        for (int other = 0; other < 3; ++other) {
            if (other != one && extent[one] != 0.0F && extent[one] * sliver_ratio < extent[other])
                return true;
        }
    }
    return false;
}

/// Axis of the largest extent, the higher one where they are equal.
int longestAxis(const float (&extent)[3]) {
    if (extent[2] >= extent[1] && extent[2] >= extent[0])
        return 2;
    return extent[1] >= extent[0] ? 1 : 0;
}

} // namespace

bool osg_geoset::calcSplitPoint(const ::osg::Pnt3d& p, const ::osg::Pnt3d& q, double plane,
                                int axis, ::osg::Pnt3d* result) {
    if (axis != split_axis || plane != split_plane) {
        split_cache.clear();
        split_axis = axis;
        split_plane = plane;
    } else {
        const ::osg::Pnt3d* known = storedPoint(split_cache, p, q);
        if (known == nullptr)
            known = storedPoint(split_cache, q, p);
        if (known != nullptr) {
            *result = *known;
            return true;
        }
    }

    const auto a = static_cast<::osg::UInt32>(axis);
    const double f = (p[a] - plane) / (p[a] - q[a]);
    if (nearest_end >= f || f >= farthest_end) { // false for a NaN: the point tells
        char digits[40];
        std::snprintf(digits, sizeof digits, "%.15g", f);
        say({"Morva::osg::osg_geoset::calcSplitPoint: Factor Error( ", digits, " )."});
        return false;
    }
    ::osg::Pnt3d cut;
    for (::osg::UInt32 i = 0; i < 3; ++i)
        cut[i] = (q[i] * f - p[i] * f) + p[i];
    *result = cut;
    if (!isFinite(cut)) {
        say({"Morva::osg::osg_geoset::calcSplitPoint: Math-Error occured. Splitpoint is NaN."});
        return false;
    }
    cut[a] = plane;
    *result = cut;
    try {
        split_cache[p][q] = cut;
    } catch (const std::bad_alloc&) {
        return false; // a point that the next triangle cannot find would open the seam
    }
    return true;
}

/// Whether a triangle can be cut at all.
bool osg_geoset::canCut(unsigned long element) const {
    return !resize_failed && element < size && axis_min != nullptr &&
           fields().positions.holds(element);
}

void osg_geoset::splitElement(unsigned long element, double plane, int axis, int& pieces,
                              unsigned long& first_piece) {
    pieces = 0;
    first_piece = size;
    if (axis < 0 || axis > 2 || !canCut(element))
        return;
    const positions_slot& positions = fields().positions;
    const triangle t = {positions.value(3 * element), positions.value(3 * element + 1),
                        positions.value(3 * element + 2)};
    const auto a = static_cast<::osg::UInt32>(axis);
    const double v = snappedPlane(t, plane, a);

    int on_plane = 0, below = 0;
    for (int k = 0; k < 3; ++k) {
        const auto at = static_cast<double>(t[k][a]);
        // A sum of numbers, not of bits: A and B on the plane count as C, whose cut then fails.
        on_plane += at == v ? k + 1 : 0;
        below |= at < v ? 1 << k : 0;
    }
    if (on_plane > 3) {
        say({"MORVA_OSG_GEOSET: Weird Error. More than one point is on the plane."});
    } else if (on_plane > 0) {
        cutThroughCorner(element, t, v, axis, on_plane - 1, pieces);
    } else if (below == 0 || below == 7) {
        say({"Error in SplitElement! All Points can't be on one side"});
    } else {
        const int lone[8] = {0, 0, 1, 2, 2, 1, 0, 0};
        cutThroughEdges(element, t, v, axis, lone[below], pieces);
    }
}

/// Cuts off the corner `lone`, which stands alone on its side of the plane: three pieces.
void osg_geoset::cutThroughEdges(unsigned long element, const ::osg::Pnt3f (&t)[3], double plane,
                                 int axis, int lone, int& pieces) {
    // Towards the other two corners in their order; pieces are listed in the order in which they
    // are added, the one that stays last.
    const int to1 = lone == 0 ? 1 : 0;
    const int to2 = lone == 2 ? 1 : 2;
    ::osg::Pnt3d cut1, cut2;
    const ::osg::Pnt3d from = widened(t[lone]);
    if (!calcSplitPoint(from, widened(t[to1]), plane, axis, &cut1) ||
        !calcSplitPoint(from, widened(t[to2]), plane, axis, &cut2) || same(cut1, cut2))
        return;

    const ::osg::Pnt3f &a = t[0], &b = t[1], &c = t[2];
    const ::osg::Pnt3f s1 = rounded(cut1), s2 = rounded(cut2);
    const triangle parts[3][3] = {{{s1, b, s2}, {b, c, s2}, {a, s1, s2}},
                                  {{a, s1, s2}, {a, s2, c}, {s1, b, s2}},
                                  {{s1, s2, c}, {a, b, s2}, {a, s2, s1}}};
    const triangle& first = parts[lone][0];
    const triangle& second = parts[lone][1];
    const triangle& stays = parts[lone][2];
    if (isRogue(first) || isRogue(second) || isRogue(stays))
        return;
    // The triangle keeps its shape until both are made: they read their attributes from it.
    if (!addObject(first[0], first[1], first[2], element))
        return;
    if (!addObject(second[0], second[1], second[2], element)) {
        takeLastOff();
        return;
    }
    ModifyObject(stays[0], stays[1], stays[2], static_cast<unsigned int>(element));
    pieces = 2;
}

/// Cuts from a corner on the plane through the opposite edge: two pieces.
void osg_geoset::cutThroughCorner(unsigned long element, const ::osg::Pnt3f (&t)[3], double plane,
                                  int axis, int corner, int& pieces) {
    const int from = corner == 0 ? 1 : 0;
    const int to = corner == 2 ? 1 : 2;
    ::osg::Pnt3d cut;
    if (!calcSplitPoint(widened(t[from]), widened(t[to]), plane, axis, &cut))
        return;

    const ::osg::Pnt3f &a = t[0], &b = t[1], &c = t[2];
    const ::osg::Pnt3f s = rounded(cut);
    const triangle parts[3][2] = {
        {{a, s, c}, {a, b, s}}, {{b, c, s}, {a, b, s}}, {{s, b, c}, {a, s, c}}};
    if (replaceByTwo(element, parts[corner][0], parts[corner][1]))
        pieces = 1;
}

/// Appends one piece and gives the triangle the shape of the other, unless one of them must not
/// be kept.
bool osg_geoset::replaceByTwo(unsigned long element, const ::osg::Pnt3f (&added)[3],
                              const ::osg::Pnt3f (&stays)[3]) {
    if (isRogue(added) || isRogue(stays) || !addObject(added[0], added[1], added[2], element))
        return false;
    ModifyObject(stays[0], stays[1], stays[2], static_cast<unsigned int>(element));
    return true;
}

void osg_geoset::splitElementInTwoParts(unsigned long element, int& pieces,
                                        unsigned long& first_piece, int edge, bool by_axis) {
    first_piece = size;
    pieces = 0;
    if (!canCut(element))
        return;
    float extent[3];
    for (int axis = 0; axis < 3; ++axis)
        extent[axis] = axis_max[axis][element] - axis_min[axis][element];
    if (by_axis || isSliver(extent)) {
        const int axis = longestAxis(extent);
        const double middle =
            static_cast<double>(axis_min[axis][element]) + static_cast<double>(extent[axis]) * 0.5;
        splitElement(element, middle, axis, pieces, first_piece);
        return;
    }

    const positions_slot& positions = fields().positions;
    const triangle t = {positions.value(3 * element), positions.value(3 * element + 1),
                        positions.value(3 * element + 2)};
    const ::osg::Pnt3f &a = t[0], &b = t[1], &c = t[2];
    if (edge == 0)
        edge = longestEdge(t);
    if (edge < 1 || edge > 3) {
        say({"Error in Geoset::splitElementInTwoParts(). Linevalue: ", std::to_string(edge)});
        return;
    }
    const ::osg::Pnt3f m = middleOf(t[edge - 1], t[edge % 3]);
    const triangle parts[3][2] = {
        {{m, b, c}, {a, m, c}}, {{a, m, c}, {a, b, m}}, {{b, c, m}, {a, b, m}}};
    if (replaceByTwo(element, parts[edge - 1][0], parts[edge - 1][1]))
        pieces = 1;
}

} // namespace morva::osg
