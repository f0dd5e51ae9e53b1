#include <morva/collision/morva_osg_fitted_boxes.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>

#include <morva/trees/ray_traversal.h>

namespace morva::osg {

namespace {

constexpr float half_ulp = 5.9604645e-8F; // 2^-24, the relative error of one operation
constexpr double root3 = 1.7320508075688772;
constexpr float unlimited = 1e30F;
constexpr float axis_unit = 1.F / 32767.F;

/// Of the surface, that a plane face has at least, and how many count.
constexpr double least_share = 1.0 / 2000.0;
constexpr std::size_t most_faces = 24;

/// Of the distance of corners: a gap that leaves no doubt, unless edges lie in planes they are
/// apart from.
constexpr float clear_gap = 1.F / 256.F;

double dot(const float3& a, const float3& b) {
    return double{a[0]} * double{b[0]} + double{a[1]} * double{b[1]} + double{a[2]} * double{b[2]};
}
double length(const float3& v) { return std::sqrt(dot(v, v)); }

/// A value that is not below `value`.
float upwards(double value) {
    return std::nextafter(static_cast<float>(value), std::numeric_limits<float>::infinity());
}

/// A triangle as the tree sorts it, and how it faces.
struct faced_triangle {
    const float_triangle* corners;
    float3 normal; ///< of length 1; 0 if `faces` is not `known`
    enum { known, nowhere, unclear } faces;
    double area = 0.0; ///< twice the area
};

/// Boxes and sums of what lies below a node, on the way up.
struct node_sums {
    std::uint64_t first = 0, count = 0; ///< triangles, in the order of the tree
    float3 low, high;                   ///< meaningless without triangles
    double normals[3] = {};             ///< sum of normals times areas
    bool clear = true;                  ///< no triangle faces in an unclear direction
    float blur = 0.F, reach = -1.F;
};

class box_fitter {
  public:
    box_fitter(const bih_tree<float>& tree, const triangle_list& list, fitted_boxes& boxes)
        : tree_(tree), list_(list), boxes_(boxes) {
        boxes_.nodes.resize(tree.node_count + 1);
        boxes_.depth = tree.max_depth_reached;
        sorted_.reserve(tree.index_count);
    }

    void run() {
        boxes_.low = boxes_.high = list_.triangles[tree_.indices[0]].a;
        for (std::uint64_t i = 0; i < list_.count; ++i)
            extend(boxes_.low, boxes_.high, list_.triangles[i]);
        fit(0, boxes_.low, boxes_.high);
        findFaces();
    }

  private:
    /// The normals that the most of the surface has, if it is a share worth the name.
    void findFaces() {
        struct face {
            double area = 0.0;
            float3 normal;
        };
        std::map<std::array<int, 3>, face> faces;
        double all = 0.0;
        for (const faced_triangle& triangle : sorted_) {
            if (triangle.faces != faced_triangle::known)
                continue;
            const float3& n = triangle.normal;
            const std::size_t sign = n[2] != 0.F ? 2 : n[1] != 0.F ? 1 : 0;
            std::array<int, 3> cell;
            for (std::size_t k = 0; k < 3; ++k)
                cell[k] = static_cast<int>(std::lround((n[sign] < 0.F ? -n[k] : n[k]) * 512.F));
            face& here = faces[cell];
            here.area += triangle.area;
            here.normal = n;
            all += triangle.area;
        }
        std::vector<face> large;
        for (const auto& [cell, one] : faces)
            if (one.area > all * least_share)
                large.push_back(one);
        std::stable_sort(large.begin(), large.end(),
                         [](const face& a, const face& b) { return a.area > b.area; });
        for (std::size_t i = 0; i < std::min(large.size(), most_faces); ++i)
            boxes_.faces.push_back(large[i].normal);
    }

    static void extend(float3& low, float3& high, const float_triangle& triangle) {
        for (const float3* corner : {&triangle.a, &triangle.b, &triangle.c}) {
            for (std::size_t k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], (*corner)[k]);
                high[k] = std::max(high[k], (*corner)[k]);
            }
        }
    }

    /// The box of a node from the planes above it is `low` to `high`.
    node_sums fit(std::uint64_t node, const float3& low, const float3& high) {
        const bih_node<float>& here = tree_.nodes[node];
        node_sums sums;
        if (here.is_leaf()) {
            sums = sumsOfLeaf(here, low, high);
        } else {
            const auto axis = static_cast<std::size_t>(here.axis);
            float3 cut = high;
            cut[axis] = here.left_plane;
            sums = fit(node + 1, low, cut);
            cut = low;
            cut[axis] = here.right_plane;
            join(sums, fit(static_cast<std::uint64_t>(here.right), cut, high));
        }
        boxes_.nodes[node] = boxOf(sums);
        return sums;
    }

    node_sums sumsOfLeaf(const bih_node<float>& leaf, const float3& low, const float3& high) {
        node_sums sums;
        sums.first = sorted_.size();
        for (std::uint32_t i = 0; i < leaf.count; ++i)
            add(sums, list_.triangles[tree_.indices[std::uint64_t{leaf.first} + i]]);
        if (sums.count != 0)
            sums.reach = upwards(length(detail::difference<float3>(high, low)));
        return sums;
    }

    void add(node_sums& sums, const float_triangle& triangle) {
        const float3 ab = detail::difference<float3>(triangle.b, triangle.a);
        const float3 ac = detail::difference<float3>(triangle.c, triangle.a);
        float3 normal = detail::cross(ab, ac); // as the test of triangles computes it
        const double size = length(normal);
        faced_triangle faced{&triangle, {}, faced_triangle::known};
        if (size == 0.0) {
            faced.faces = faced_triangle::nowhere;
            sums.blur = unlimited;
        } else if (!(size > 1e-16 && size < 1e30)) {
            faced.faces = faced_triangle::unclear;
            sums.blur = unlimited;
            sums.clear = false;
        } else {
            sums.blur = std::max(sums.blur, upwards(std::max(length(ab), length(ac)) / size));
            faced.area = size;
            for (std::size_t k = 0; k < 3; ++k) {
                sums.normals[k] += double{normal[k]};
                faced.normal[k] = static_cast<float>(double{normal[k]} / size);
            }
        }
        if (sums.count == 0)
            sums.low = sums.high = triangle.a;
        extend(sums.low, sums.high, triangle);
        ++sums.count;
        sorted_.push_back(faced);
    }

    static void join(node_sums& sums, const node_sums& other) {
        if (other.count == 0)
            return;
        if (sums.count == 0) {
            sums = other;
            return;
        }
        sums.count += other.count;
        for (std::size_t k = 0; k < 3; ++k) {
            sums.low[k] = std::min(sums.low[k], other.low[k]);
            sums.high[k] = std::max(sums.high[k], other.high[k]);
            sums.normals[k] += other.normals[k];
        }
        sums.clear = sums.clear && other.clear;
        sums.blur = std::max(sums.blur, other.blur);
        sums.reach = std::max(sums.reach, other.reach);
    }

    fitted_box boxOf(const node_sums& sums) const {
        fitted_box box;
        if (sums.count == 0)
            return box;
        double side[3], square = 0.0;
        for (std::size_t k = 0; k < 3; ++k) {
            box.center[k] = (sums.low[k] + sums.high[k]) * 0.5F;
            side[k] = std::max(double{sums.high[k]} - double{box.center[k]},
                               double{box.center[k]} - double{sums.low[k]});
            square += side[k] * side[k];
        }
        box.radius = upwards(std::sqrt(square) * 1.0002); // also along an axis a little too long
        for (std::size_t k = 0; k < 3 && square > 0.0; ++k)
            box.half[k] = static_cast<std::uint8_t>(
                std::min(255.0, std::ceil(side[k] / double{box.radius} * 255.0 + 1e-3)));
        box.reach = upper_float(sums.reach);
        box.blur = upper_float(sums.blur);
        box.spread = upper_float(spreadOf(sums, box.axis));
        slabOf(sums, box);
        return box;
    }

    /// The sine of the cone about the mean normal, which goes to `axis`.
    float spreadOf(const node_sums& sums, std::int16_t (&axis)[3]) const {
        const double* n = sums.normals;
        const double size = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        if (!(size > 0.0))
            return sums.clear && allOf(sums, faced_triangle::nowhere) ? 0.F : 1.F;
        float3 mean;
        for (std::size_t k = 0; k < 3; ++k) {
            axis[k] = static_cast<std::int16_t>(std::lround(n[k] / size * 32767.0));
            mean[k] = axis[k] * axis_unit;
        }
        if (!sums.clear)
            return 1.F;
        double square = 0.0;
        for (std::uint64_t i = sums.first; i < sums.first + sums.count; ++i) {
            if (sorted_[i].faces != faced_triangle::known)
                continue;
            if (!(dot(mean, sorted_[i].normal) > 0.3))
                return 1.F;
            square = std::max(square, squareOfSine(mean, sorted_[i].normal));
        }
        return upwards(std::min(1.0, std::sqrt(square) * 1.0002 + 1e-6));
    }

    static double squareOfSine(const float3& a, const float3& b) {
        double square = 0.0;
        for (std::size_t k = 0; k < 3; ++k) {
            const std::size_t i = (k + 1) % 3, j = (k + 2) % 3;
            const double c = double{a[i]} * double{b[j]} - double{a[j]} * double{b[i]};
            square += c * c;
        }
        return square;
    }

    bool allOf(const node_sums& sums, int faces) const {
        return std::all_of(sorted_.begin() + static_cast<std::ptrdiff_t>(sums.first),
                           sorted_.begin() + static_cast<std::ptrdiff_t>(sums.first + sums.count),
                           [faces](const faced_triangle& t) { return t.faces == faces; });
    }

    /// The corners along the axis; where normals go everywhere the ball around the box will do.
    void slabOf(const node_sums& sums, fitted_box& box) const {
        double low = std::numeric_limits<double>::max(), high = -low;
        for (std::uint64_t i = sums.first; box.spread.value() < 1.F && i < sums.first + sums.count;
             ++i) {
            const float_triangle& triangle = *sorted_[i].corners;
            for (const float3* corner : {&triangle.a, &triangle.b, &triangle.c}) {
                double along = 0.0;
                for (std::size_t k = 0; k < 3; ++k)
                    along += double{box.axis[k] * axis_unit} *
                             (double{(*corner)[k]} - double{box.center[k]});
                low = std::min(low, along);
                high = std::max(high, along);
            }
        }
        const double unit = 32767.0 / double{box.radius};
        const bool flat = !(box.radius > 0.F), open = low > high;
        box.low = static_cast<std::int16_t>(flat || open ? -32767 : std::floor(low * unit));
        box.high = static_cast<std::int16_t>(flat || open ? 32767 : std::ceil(high * unit));
    }

    const bih_tree<float>& tree_;
    const triangle_list& list_;
    fitted_boxes& boxes_;
    std::vector<faced_triangle> sorted_; ///< triangles in the order of the leaves
};

/// The largest coordinate of a box, by magnitude.
double largest(const float3& low, const float3& high) {
    float most = 0.F;
    for (std::size_t k = 0; k < 3; ++k)
        most = std::max({most, std::abs(low[k]), std::abs(high[k])});
    return double{most};
}

/// Whether a normal of A is parallel to one of B, turned, to within 0.005.
bool haveParallel(const std::vector<float3>& a, const std::vector<float3>& b,
                  const lanes (&turned)[3]) {
    for (const float3& normal : b) {
        const lanes there = turned[0] * allLanes(normal[0]) + turned[1] * allLanes(normal[1]) +
                            turned[2] * allLanes(normal[2]);
        for (const float3& here : a)
            if (std::abs(here[0] * there[0] + here[1] * there[1] + here[2] * there[2]) > 0.99998F)
                return true;
    }
    return false;
}

/// How much longer boxes get that begin with the box of a side; `unlimited` where that box does not
/// hold the triangles.
double excessOf(const fitted_filter::side& side) {
    double square = 0.0;
    for (std::size_t k = 0; k < 3; ++k) {
        const double below = double{side.boxes.low[k]} - double{side.low[k]};
        const double above = double{side.high[k]} - double{side.boxes.high[k]};
        if (!(below >= 0.0 && above >= 0.0))
            return double{unlimited};
        square += (below + above) * (below + above);
    }
    return std::sqrt(square);
}

/// A fitted box in registers.
struct seen_box {
    explicit seen_box(const fitted_box& from) : box(from) {
        using shorts = std::int16_t __attribute__((vector_size(8)));
        shorts packed;
        std::memcpy(&ball, &from, sizeof ball);
        std::memcpy(&packed, from.axis, sizeof packed); // the low side as well
        axis = __builtin_convertvector(__builtin_convertvector(packed, lane_mask), lanes) *
               allLanes(axis_unit);
    }
    float radius() const { return ball[3]; }
    float high() const { return static_cast<float>(box.high) * axis_unit; }
    lanes half() const {
        using bytes = std::uint8_t __attribute__((vector_size(4)));
        bytes packed;
        std::memcpy(&packed, box.half, sizeof packed);
        return __builtin_convertvector(__builtin_convertvector(packed, lane_mask), lanes) *
               allLanes(radius() * (1.00001F / 255.F));
    }

    const fitted_box& box;
    lanes ball; ///< centre and radius
    lanes axis; ///< and the slab's low side in radii
};

/// Values from `low` to `high`.
struct range {
    float low, high;
};

/// What lies in a slab and in a ball about its middle, along another axis: the two are `sine`
/// apart, and one goes against the other where `cosine` is negative.
range seenAlong(const range& slab, float radius, bool same_way, float sine) {
    const float more = sine * radius;
    const range seen = same_way ? range{slab.low - more, slab.high + more}
                                : range{-slab.high - more, more - slab.low};
    return {std::max(seen.low, -radius), std::min(seen.high, radius)};
}

/// How far the other side is off a slab whose axis it lies `along` and about; negative inside.
float offSlab(const range& slab, float along, const range& other) {
    return std::max(along + other.low - slab.high, slab.low - (along + other.high));
}

/// Whether corners that are `off` a slab along its axis, and at most `farthest` from a corner in
/// it, are on one side of every plane through the latter whose normal is within the cone.
bool onOneSide(float off, float spread, float farthest, float margin) {
    const float aside = spread * farthest + margin;
    return spread < 1.F && off > margin &&
           0.998F * off * off * (1.F - spread * spread) > aside * aside;
}

} // namespace

fitted_boxes* fitBoxes(const bih_tree<float>& tree, const triangle_list& list) {
    std::unique_ptr<fitted_boxes> boxes(new fitted_boxes);
    boxes->destroy = [](bih_companion* gone) { delete static_cast<fitted_boxes*>(gone); };
    box_fitter(tree, list, *boxes).run();
    return boxes.release();
}

fitted_filter::fitted_filter(const side& a, const side& b,
                             const math::transformation_matrix<float>& b_to_a)
    : a_(a.boxes.nodes.data()), b_(b.boxes.nodes.data()) {
    for (std::size_t c = 0; c < 4; ++c)
        columns_[c] = lanes{b_to_a[4 * c], b_to_a[4 * c + 1], b_to_a[4 * c + 2], 0.F};
    double square[3], skew = 0.0;
    float3 column[3];
    for (std::size_t c = 0; c < 3; ++c) {
        column[c] = {b_to_a[4 * c], b_to_a[4 * c + 1], b_to_a[4 * c + 2]};
        square[c] = dot(column[c], column[c]);
    }
    const double mean = (square[0] + square[1] + square[2]) / 3.0;
    for (std::size_t c = 0; c < 3; ++c) {
        skew = std::max(skew, std::abs(square[c] / mean - 1.0));
        skew = std::max(skew, std::abs(dot(column[c], column[(c + 1) % 3]) / mean));
    }
    const double scale = std::sqrt(mean) * (1.0 + 2.0 * skew + 1e-6);
    const double farthest_b = largest(b.boxes.low, b.boxes.high) * root3 * scale +
                              std::max({std::abs(double{b_to_a[12]}), std::abs(double{b_to_a[13]}),
                                        std::abs(double{b_to_a[14]})});
    const double farthest = std::max(farthest_b, largest(a.boxes.low, a.boxes.high));
    suits_ = skew < 1e-4 && scale > 1e-3 && scale < 1e3 && farthest < 1e12;
    const double rho = 8.0 * double{half_ulp} * farthest_b;
    scale_ = static_cast<float>(scale);
    for (std::size_t c = 0; c < 3; ++c) {
        turned_[c] = columns_[c] * allLanes(1.F / scale_);
        spread_b_[c] = magnitude(columns_[c]);
        for (std::size_t r = 0; r < 3; ++r)
            spread_a_[r][c] = magnitude(turned_[c])[r];
    }
    strict_ = axesAreParallel() || haveParallel(a.boxes.faces, b.boxes.faces, turned_);
    reach_scale_ = static_cast<float>(root3 * scale);
    const double drift =
        8.0 * double{half_ulp} * farthest * static_cast<double>(a.boxes.depth + b.boxes.depth + 4);
    reach_more_ = static_cast<float>(
        std::min(excessOf(a) + excessOf(b) * root3 * scale + drift, double{unlimited}));
    rounding_ = static_cast<float>(16.0 * double{half_ulp} * farthest + 1e-12);
    blur_scale_ = static_cast<float>(10.0 * rho / scale);
    skew_ = static_cast<float>(8.0 * skew + 4e-6);
}

bool fitted_filter::axesAreParallel() const {
    for (const lanes& row : spread_a_)
        for (std::size_t c = 0; c < 3; ++c)
            if (row[c] > 1e-3F && row[c] < 0.999F)
                return false;
    return true;
}

bool fitted_filter::rejects(std::uint64_t node_a, std::uint64_t node_b) const {
    const seen_box a(a_[node_a]), b(b_[node_b]);
    if (a.radius() < 0.F || b.radius() < 0.F)
        return true;
    const lanes way = columns_[0] * allLanes(b.ball[0]) + columns_[1] * allLanes(b.ball[1]) +
                      columns_[2] * allLanes(b.ball[2]) + columns_[3] - a.ball;
    const lanes axis_b = turned_[0] * allLanes(b.axis[0]) + turned_[1] * allLanes(b.axis[1]) +
                         turned_[2] * allLanes(b.axis[2]);
    const lanes with = a.axis - axis_b, against = a.axis + axis_b;
    const lanes sums = sumsOf(a.axis * way, axis_b * way, with * with, against * against);
    const lanes squares = way * way;
    const bool same_way = sums[2] <= sums[3];
    const float sine = std::sqrt(same_way ? sums[2] : sums[3]) + skew_; // not less than the sine

    const float radius_a = a.radius(), radius_b = b.radius() * scale_;
    const range slab_a{a.axis[3] * radius_a, a.high() * radius_a};
    const range slab_b{(b.axis[3] - skew_) * radius_b, (b.high() + skew_) * radius_b};
    const float off_a = offSlab(slab_a, sums[0], seenAlong(slab_b, radius_b, same_way, sine));
    const float off_b = offSlab(slab_b, -sums[1], seenAlong(slab_a, radius_a, same_way, sine));

    // Of corners that matter.
    const float reach = a.box.reach.value() + b.box.reach.value() * reach_scale_ + reach_more_;
    const float farthest =
        std::min(reach, std::sqrt(squares[0] + squares[1] + squares[2]) + radius_a + radius_b);
    const float margin = rounding_ + 2e-6F * (farthest + radius_a + radius_b);
    const float off = std::max(off_a, off_b);
    const float apart = boxGap(a.half(), b.half(), way);
    if (std::max(off, apart) > reach + margin)
        return true;
    const float spread_a = a.box.spread.value();
    const float spread_b = b.box.spread.value() + skew_ +
                           b.box.blur.value() * (blur_scale_ + 24.F * half_ulp * b.radius());
    if (!strict_) {
        const float tilt = std::min(1.F, spread_a + spread_b + sine);
        if (off > margin + farthest * tilt * clear_gap || apart > margin + farthest * clear_gap)
            return true;
    }
    return onOneSide(off_a, spread_a, farthest, margin) &&
           onOneSide(off_b, spread_b, farthest, margin);
}

float fitted_filter::boxGap(lanes half_a, lanes half_b, lanes way) const {
    const lanes along_a = magnitude(way) - half_a - spread_b_[0] * allLanes(half_b[0]) -
                          spread_b_[1] * allLanes(half_b[1]) - spread_b_[2] * allLanes(half_b[2]);
    const lanes seen = sumsOf(turned_[0] * way, turned_[1] * way, turned_[2] * way, lanes{});
    const lanes along_b = magnitude(seen) - allLanes(scale_) * half_b -
                          spread_a_[0] * allLanes(half_a[0]) - spread_a_[1] * allLanes(half_a[1]) -
                          spread_a_[2] * allLanes(half_a[2]);
    const lanes most = larger(along_a, along_b);
    return std::max({most[0], most[1], most[2]});
}

} // namespace morva::osg
