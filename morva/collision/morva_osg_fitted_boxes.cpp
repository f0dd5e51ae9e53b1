#include <morva/collision/morva_osg_fitted_boxes.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <memory>

#include <morva/trees/ray_traversal.h>

namespace morva::osg {

namespace {

/// Of the surface, that a plane face has at least, and how many count.
constexpr double least_share = 1.0 / 2000.0;
constexpr std::size_t most_faces = 24;

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
        boxes_.face_rows.resize((boxes_.faces.size() + 3) / 4);
        for (std::size_t i = 0; i < boxes_.faces.size(); ++i) {
            lanes3& row = boxes_.face_rows[i / 4];
            row.x[i % 4] = boxes_.faces[i][0];
            row.y[i % 4] = boxes_.faces[i][1];
            row.z[i % 4] = boxes_.faces[i][2];
        }
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

} // namespace

fitted_boxes* fitBoxes(const bih_tree<float>& tree, const triangle_list& list) {
    std::unique_ptr<fitted_boxes> boxes(new fitted_boxes);
    boxes->destroy = [](bih_companion* gone) { delete static_cast<fitted_boxes*>(gone); };
    box_fitter(tree, list, *boxes).run();
    return boxes.release();
}

} // namespace morva::osg
