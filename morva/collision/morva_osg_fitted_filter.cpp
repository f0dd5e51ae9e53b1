#include <morva/collision/morva_osg_fitted_boxes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

namespace morva::osg {

namespace {

constexpr float half_ulp = 5.9604645e-8F; // 2^-24, the relative error of one operation
constexpr double root3 = 1.7320508075688772;

/// Of the distance of corners: a gap that leaves no doubt, unless edges lie in planes they are
/// apart from.
constexpr float clear_gap = 1.F / 256.F;

double dot(const float3& a, const float3& b) {
    return double{a[0]} * double{b[0]} + double{a[1]} * double{b[1]} + double{a[2]} * double{b[2]};
}

/// The largest coordinate of a box, by magnitude.
double largest(const float3& low, const float3& high) {
    float most = 0.F;
    for (std::size_t k = 0; k < 3; ++k)
        most = std::max({most, std::abs(low[k]), std::abs(high[k])});
    return double{most};
}

/// Whether a normal of A is parallel to one of B, turned, to within 0.005.
bool haveParallel(const fitted_boxes& a, const fitted_boxes& b, const lanes (&turned)[3]) {
    for (const float3& normal : b.faces) {
        const lanes there = turned[0] * allLanes(normal[0]) + turned[1] * allLanes(normal[1]) +
                            turned[2] * allLanes(normal[2]);
        const lanes3 same{allLanes(there[0]), allLanes(there[1]), allLanes(there[2])};
        lane_mask parallel{};
        for (const lanes3& row : a.face_rows)
            parallel |= magnitude(dot(row, same)) > allLanes(0.99998F);
        if (anyLane(parallel))
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
    lanes ball;     ///< centre and radius
    lanes axis;     ///< and the slab's low side in radii
    lanes half;     ///< sides of the box from the centre
    lanes measures; ///< the slab's high side in radii, spread, blur, reach

    explicit seen_box(const fitted_box& from) {
        using shorts = std::int16_t __attribute__((vector_size(16)));
        using bytes = std::uint8_t __attribute__((vector_size(16)));
        static_assert(offsetof(fitted_box, half) - offsetof(fitted_box, axis) == sizeof(shorts));
        shorts words;
        bytes sides{};
        std::memcpy(&ball, &from, sizeof ball);
        std::memcpy(&words, from.axis, sizeof words);
        std::memcpy(&sides, from.half, sizeof from.half);
        // To the upper halves of the lanes, where the numbers of 16 bits are those of 32.
        const auto first = reinterpret_cast<lane_mask>(
            __builtin_shufflevector(words, shorts{}, 8, 0, 8, 1, 8, 2, 8, 3));
        const auto second = reinterpret_cast<lane_mask>(
            __builtin_shufflevector(words, shorts{}, 8, 4, 8, 5, 8, 6, 8, 7));
        axis = numbersOf(first >> 16) * allLanes(axis_unit);
        const lane_mask high_lane{-1, 0, 0, 0};
        measures = where(high_lane, numbersOf(second >> 16) * allLanes(axis_unit)) +
                   where(~high_lane, reinterpret_cast<lanes>(second));
        half = numbersOf(reinterpret_cast<lane_mask>(__builtin_shufflevector(
                   sides, bytes{}, 0, 16, 16, 16, 1, 16, 16, 16, 2, 16, 16, 16, 3, 16, 16, 16))) *
               allLanes(from.radius * (1.00001F / 255.F));
    }

  private:
    static lanes numbersOf(lane_mask whole) { return __builtin_convertvector(whole, lanes); }
};

/// One component for each of the four pairs, in the order of pair_bits.
template <int k> lanes ofA(lanes right, lanes left) {
    return __builtin_shufflevector(right, left, k, k, 4 + k, 4 + k);
}
template <int k> lanes ofB(lanes left, lanes right) {
    return __builtin_shufflevector(left, right, k, 4 + k, k, 4 + k);
}
lanes3 pointsOfA(lanes right, lanes left) {
    return {ofA<0>(right, left), ofA<1>(right, left), ofA<2>(right, left)};
}
lanes3 pointsOfB(lanes left, lanes right) {
    return {ofB<0>(left, right), ofB<1>(left, right), ofB<2>(left, right)};
}

/// Values from `low` to `high`.
struct ranges {
    lanes low, high;
};

/// What lies in a slab and in a ball about its middle, along another axis: the two are `sine`
/// apart, and one goes against the other where it is not `same_way`.
ranges seenAlong(const ranges& slab, lanes radius, lane_mask same_way, lanes sine) {
    const lanes more = sine * radius;
    return {larger((same_way ? slab.low : -slab.high) - more, -radius),
            smaller((same_way ? slab.high : -slab.low) + more, radius)};
}

/// How far the other side is off a slab whose axis it lies `along` and about; negative inside.
lanes offSlab(const ranges& slab, lanes along, const ranges& other) {
    return larger(along + other.low - slab.high, slab.low - (along + other.high));
}

/// Whether corners that are `off` a slab along its axis, and at most `farthest` from a corner in
/// it, are on one side of every plane through the latter whose normal is within the cone.
lane_mask onOneSide(lanes off, lanes spread, lanes farthest, lanes margin) {
    const lanes one = allLanes(1.F), aside = spread * farthest + margin;
    return (spread < one) & (off > margin) &
           (allLanes(0.998F) * off * off * (one - spread * spread) > aside * aside);
}

} // namespace

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
    strict_ = axesAreParallel() || haveParallel(a.boxes, b.boxes, turned_);
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

unsigned fitted_filter::rejects(const next_nodes& next_a, const next_nodes& next_b) const {
    const seen_box a[2] = {seen_box(a_[next_a.right]), seen_box(a_[next_a.left])};
    const seen_box b[2] = {seen_box(b_[next_b.left]), seen_box(b_[next_b.right])};
    lanes center_b[2], axis_b[2], across_a[2], across_b[2];
    for (std::size_t i = 0; i < 2; ++i) {
        const auto turned = [](const lanes* columns, lanes v) {
            return columns[0] * allLanes(v[0]) + columns[1] * allLanes(v[1]) +
                   columns[2] * allLanes(v[2]);
        };
        center_b[i] = turned(columns_, b[i].ball) + columns_[3];
        axis_b[i] = turned(turned_, b[i].axis);
        across_b[i] = turned(spread_b_, b[i].half); // sides of the box along the other's axes
        across_a[i] = turned(spread_a_, a[i].half);
    }
    const lanes3 way = pointsOfB(center_b[0], center_b[1]) - pointsOfA(a[0].ball, a[1].ball);
    const lanes3 seen_a = pointsOfA(a[0].axis, a[1].axis), seen_b = pointsOfB(axis_b[0], axis_b[1]);
    const lanes3 against{seen_a.x + seen_b.x, seen_a.y + seen_b.y, seen_a.z + seen_b.z};
    const lanes3 with = seen_a - seen_b;
    const lanes turn = dot(with, with), back = dot(against, against);
    const lane_mask same_way = turn <= back;
    const lanes skew = allLanes(skew_);
    const lanes sine = squareRoots(smaller(turn, back)) + skew; // not less than the sine

    const lanes ball_a = ofA<3>(a[0].ball, a[1].ball), ball_b = ofB<3>(b[0].ball, b[1].ball);
    const lanes radius_a = ball_a, radius_b = ball_b * allLanes(scale_);
    const ranges slab_a{ofA<3>(a[0].axis, a[1].axis) * radius_a,
                        ofA<0>(a[0].measures, a[1].measures) * radius_a};
    const ranges slab_b{(ofB<3>(b[0].axis, b[1].axis) - skew) * radius_b,
                        (ofB<0>(b[0].measures, b[1].measures) + skew) * radius_b};
    const lanes off_a =
        offSlab(slab_a, dot(seen_a, way), seenAlong(slab_b, radius_b, same_way, sine));
    const lanes off_b =
        offSlab(slab_b, -dot(seen_b, way), seenAlong(slab_a, radius_a, same_way, sine));
    // How far the boxes are apart along the axes of one of them; negative if they are not.
    const lanes3 along_a =
        magnitude(way) - pointsOfA(a[0].half, a[1].half) - pointsOfB(across_b[0], across_b[1]);
    const lanes scale = allLanes(scale_);
    const lanes3 along_b = magnitude(turnedBack(way)) -
                           pointsOfB(b[0].half * scale, b[1].half * scale) -
                           pointsOfA(across_a[0], across_a[1]);
    const lanes apart = larger(largest(along_a), largest(along_b));

    // Of corners that matter.
    const lanes reach = ofA<3>(a[0].measures, a[1].measures) +
                        ofB<3>(b[0].measures, b[1].measures) * allLanes(reach_scale_) +
                        allLanes(reach_more_);
    const lanes both = radius_a + radius_b;
    const lanes farthest = smaller(reach, squareRoots(dot(way, way)) + both);
    const lanes margin = allLanes(rounding_) + allLanes(2e-6F) * (farthest + both);
    const lanes off = larger(off_a, off_b);
    lane_mask out = (ball_a < lanes{}) | (ball_b < lanes{}) | (larger(off, apart) > reach + margin);
    const lanes spread_a = ofA<1>(a[0].measures, a[1].measures);
    const lanes spread_b = ofB<1>(b[0].measures, b[1].measures) + skew +
                           ofB<2>(b[0].measures, b[1].measures) *
                               (allLanes(blur_scale_) + allLanes(24.F * half_ulp) * ball_b);
    if (!strict_) {
        const lanes gap = farthest * allLanes(clear_gap);
        const lanes tilt = smaller(spread_a + spread_b + sine, allLanes(1.F));
        out |= (off > margin + gap * tilt) | (apart > margin + gap);
    }
    out |=
        onOneSide(off_a, spread_a, farthest, margin) & onOneSide(off_b, spread_b, farthest, margin);
    return bitsOf(out);
}

lanes3 fitted_filter::turnedBack(const lanes3& v) const {
    const auto along = [&v](lanes axis) {
        return allLanes(axis[0]) * v.x + allLanes(axis[1]) * v.y + allLanes(axis[2]) * v.z;
    };
    return {along(turned_[0]), along(turned_[1]), along(turned_[2])};
}

} // namespace morva::osg
