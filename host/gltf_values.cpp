#include "gltf_values.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <utility>

#include "text.h"

namespace morva::host {

namespace {

/// How far a length may be from 1: what the format's validator allows for normals that were stored
/// in bytes, a little less.
constexpr float length_tolerance = .006f;

bool isFinite(const float* values, std::size_t count) {
    for (std::size_t k = 0; k < count; ++k) {
        if (!std::isfinite(values[k]))
            return false;
    }
    return true;
}

/// False for what is no number, too.
bool hasUnitLength(const float* v) {
    constexpr float low = (1 - length_tolerance) * (1 - length_tolerance);
    constexpr float high = (1 + length_tolerance) * (1 + length_tolerance);
    const float square = v[0] * v[0] + v[1] * v[1] + v[2] * v[2];
    return square >= low && square <= high;
}

/// Scales to length 1; false for a vector without a direction.
bool toUnitLength(const double* from, float* to) {
    const double length = std::hypot(from[0], from[1], from[2]);
    if (!(length > 0.0) || !std::isfinite(length))
        return false;
    for (int k = 0; k < 3; ++k)
        to[k] = static_cast<float>(from[k] / length);
    return true;
}

/// Twice the area of a triangle along its normal.
std::array<double, 3> crossOf(const float* a, const float* b, const float* c) {
    double u[3], v[3];
    for (int k = 0; k < 3; ++k) {
        u[k] = static_cast<double>(b[k]) - static_cast<double>(a[k]);
        v[k] = static_cast<double>(c[k]) - static_cast<double>(a[k]);
    }
    return {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
}

float inUnitRange(float value) {
    return value < 0.f ? 0.f : value <= 1.f ? value : 1.f; // 1 for what is no number
}

/// Keeps the groups of `corners` indices that `keep` says; returns how many went.
template <typename Keep>
std::size_t dropGroups(std::vector<std::uint32_t>& indices, std::size_t corners, Keep keep) {
    std::size_t kept = 0;
    for (std::size_t first = 0; first + corners <= indices.size(); first += corners) {
        if (!std::all_of(indices.begin() + static_cast<std::ptrdiff_t>(first),
                         indices.begin() + static_cast<std::ptrdiff_t>(first + corners), keep))
            continue;
        std::copy_n(indices.begin() + static_cast<std::ptrdiff_t>(first), corners,
                    indices.begin() + static_cast<std::ptrdiff_t>(kept));
        kept += corners;
    }
    const std::size_t gone = (indices.size() - kept) / corners;
    indices.resize(kept);
    return gone;
}

} // namespace

void value_changes::add(const value_changes& more) {
    positions += more.positions;
    lost_triangles += more.lost_triangles;
    lost_lines += more.lost_lines;
    lost_points += more.lost_points;
    bare_normals += more.bare_normals;
    scaled_normals += more.scaled_normals;
    colors += more.colors;
    coordinates += more.coordinates;
}

std::string value_changes::text() const {
    const std::pair<std::size_t, const char*> kinds[] = {
        {positions, "positions that are not finite moved"},
        {lost_triangles, "triangles with such a position left out"},
        {lost_lines, "lines with such a position left out"},
        {lost_points, "points with such a position left out"},
        {bare_normals, "normals without a direction made anew from their triangles"},
        {scaled_normals, "normals scaled to length 1"},
        {colors, "values of colours brought between 0 and 1"},
        {coordinates, "texture coordinates that are not finite set to 0"}};
    std::string list;
    for (const auto& [count, what] : kinds) {
        if (count != 0)
            list += (list.empty() ? "" : ", ") + withCommas(count) + " " + what;
    }
    return list.empty() ? list : "as the format wants it: " + list;
}

gltf_values::gltf_values(flat_mesh& mesh)
    : positions_(mesh.positions.values), normals_(mesh.normals.values), colors_(mesh.colors.values),
      count_(mesh.vertex_count) {
    measure();
    if (!finite_)
        mendPositions(mesh);
    if (mesh.normals.components == 3)
        mendNormals(mesh);
    mendColors(mesh);
    turnCoordinates(mesh);
}

/// The bounds of the finite positions, and whether there are others.
void gltf_values::measure() {
    std::array<float, 3> low, high, rest = {0.f, 0.f, 0.f};
    low.fill(std::numeric_limits<float>::max());
    high.fill(std::numeric_limits<float>::lowest());
    for (std::size_t i = 0; i < count_; ++i) {
        for (std::size_t k = 0; k < 3; ++k) {
            const float value = positions_[3 * i + k];
            rest[k] += value - value; // not 0 once it was not finite
            low[k] = value < low[k] ? value : low[k];
            high[k] = value > high[k] ? value : high[k];
        }
    }
    finite_ = rest[0] == 0.f && rest[1] == 0.f && rest[2] == 0.f;
    low_ = low;
    high_ = high;
}

void gltf_values::mendPositions(flat_mesh& mesh) {
    std::vector<bool> good(count_);
    std::size_t first = count_;
    for (std::size_t i = count_; i-- > 0;) {
        good[i] = isFinite(positions_ + 3 * i, 3);
        first = good[i] ? i : first;
    }
    new_positions_.assign(positions_, positions_ + 3 * count_);
    for (std::size_t i = 0; i < count_; ++i) {
        if (good[i]) {
            first = i;
            continue;
        }
        ++changes_.positions;
        for (std::size_t k = 0; k < 3; ++k)
            new_positions_[3 * i + k] = first < count_ ? new_positions_[3 * first + k] : 0.f;
    }
    positions_ = new_positions_.data();
    measure();

    if (mesh.running) {
        mesh.running = false;
        mesh.triangles.resize(count_);
        std::iota(mesh.triangles.begin(), mesh.triangles.end(), 0u);
    }
    const auto keep = [&](std::uint32_t vertex) { return good[vertex]; };
    changes_.lost_triangles = dropGroups(mesh.triangles, 3, keep);
    changes_.lost_lines = dropGroups(mesh.lines, 2, keep);
    changes_.lost_points = dropGroups(mesh.points, 1, keep);
}

void gltf_values::mendNormals(const flat_mesh& mesh) {
    std::size_t bad = 0;
    for (std::size_t i = 0; i < count_; ++i)
        bad += hasUnitLength(normals_ + 3 * i) ? 0 : 1;
    if (bad == 0)
        return;
    new_normals_.assign(normals_, normals_ + 3 * count_);
    normals_ = new_normals_.data();
    std::vector<std::uint32_t> bare;
    for (std::size_t i = 0; i < count_; ++i) {
        float* normal = new_normals_.data() + 3 * i;
        if (hasUnitLength(normal))
            continue;
        const double wide[3] = {normal[0], normal[1], normal[2]};
        if (toUnitLength(wide, normal))
            ++changes_.scaled_normals;
        else
            bare.push_back(static_cast<std::uint32_t>(i));
    }
    changes_.bare_normals = bare.size();
    if (bare.empty())
        return;

    std::vector<std::array<double, 3>> sums(bare.size(), {0.0, 0.0, 0.0});
    std::vector<std::uint32_t> place(count_, std::numeric_limits<std::uint32_t>::max());
    for (std::uint32_t i = 0; i < bare.size(); ++i)
        place[bare[i]] = i;
    const std::size_t corners = mesh.running ? count_ : mesh.triangles.size();
    const auto vertex = [&](std::size_t corner) {
        return mesh.running ? corner : mesh.triangles[corner];
    };
    for (std::size_t first = 0; first + 3 <= corners; first += 3) {
        const std::size_t triangle[3] = {vertex(first), vertex(first + 1), vertex(first + 2)};
        for (const std::size_t own : triangle) {
            if (place[own] >= bare.size())
                continue;
            const auto cross = crossOf(positions_ + 3 * triangle[0], positions_ + 3 * triangle[1],
                                       positions_ + 3 * triangle[2]);
            for (std::size_t k = 0; k < 3; ++k)
                sums[place[own]][k] += cross[k];
        }
    }
    for (std::size_t i = 0; i < bare.size(); ++i) {
        float* normal = new_normals_.data() + std::size_t{3} * bare[i];
        if (!toUnitLength(sums[i].data(), normal)) {
            normal[0] = normal[1] = 0.f;
            normal[2] = 1.f;
        }
    }
}

void gltf_values::mendColors(const flat_mesh& mesh) {
    const std::size_t values = count_ * static_cast<std::size_t>(mesh.colors.components);
    std::size_t bad = 0;
    for (std::size_t i = 0; i < values; ++i)
        bad += colors_[i] >= 0.f && colors_[i] <= 1.f ? 0 : 1;
    if (bad == 0)
        return;
    changes_.colors = bad;
    new_colors_.resize(values);
    std::transform(colors_, colors_ + values, new_colors_.begin(), inUnitRange);
    colors_ = new_colors_.data();
}

void gltf_values::turnCoordinates(const flat_mesh& mesh) {
    for (std::size_t set = 0; set < flat_mesh::written_sets; ++set) {
        const flat_attribute& from = mesh.coordinates[set];
        if (from.components != 2)
            continue;
        std::vector<float>& to = coordinates_[set];
        to.resize(2 * count_);
        float rest = 0.f;
        for (std::size_t i = 0; i < 2 * count_; i += 2) {
            to[i] = from.values[i];
            to[i + 1] = 1.f - from.values[i + 1];
            rest += (to[i] - to[i]) + (to[i + 1] - to[i + 1]);
        }
        for (std::size_t i = 0; rest != 0.f && i < 2 * count_; i += 2) {
            if (isFinite(&to[i], 2))
                continue;
            ++changes_.coordinates;
            for (std::size_t k = i; k < i + 2; ++k)
                to[k] = std::isfinite(to[k]) ? to[k] : 0.f;
        }
    }
}

} // namespace morva::host
