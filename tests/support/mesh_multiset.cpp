#include "mesh_multiset.h"

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <sstream>
#include <unordered_map>

namespace morva_test {

namespace {

/// A number that orders like the float; -0.0 is 0.0 and all NaNs are one, above everything.
std::int32_t orderOf(float value) {
    if (std::isnan(value))
        return std::numeric_limits<std::int32_t>::max();
    if (value == 0.0F)
        return 0;
    std::int32_t bits;
    std::memcpy(&bits, &value, sizeof bits);
    return bits >= 0 ? bits : std::numeric_limits<std::int32_t>::min() - bits;
}

int compare(const world_corner& a, const world_corner& b) {
    for (std::size_t i = 0; i < a.values.size(); ++i) {
        const std::int32_t left = orderOf(a.values[i]), right = orderOf(b.values[i]);
        if (left != right)
            return left < right ? -1 : 1;
    }
    return 0;
}

int compare(const world_triangle& a, const world_triangle& b) {
    for (std::size_t k = 0; k < 3; ++k) {
        const int order = compare(a.corners[k], b.corners[k]);
        if (order != 0)
            return order;
    }
    return 0;
}

world_triangle turned(const world_triangle& t, std::size_t by) {
    return {{t.corners[by % 3], t.corners[(by + 1) % 3], t.corners[(by + 2) % 3]}};
}

/// The rotation that is lowest of the three.
world_triangle lowest(const world_triangle& t) {
    return std::min({turned(t, 0), turned(t, 1), turned(t, 2)});
}

template <typename Values>
void put(world_corner& corner, std::size_t at, const Values& values, ::osg::UInt32 count) {
    for (::osg::UInt32 i = 0; i < count; ++i)
        corner.values[at + i] = values[i];
}

/// From a core's space to world space.
struct world_frame {
    ::osg::Matrix points;
    ::osg::Matrix inverse;
    bool moves;

    explicit world_frame(const ::osg::NodePtr& node) : points(node->getToWorld()) {
        moves = !(points == ::osg::Matrix());
        points.inverse(inverse);
    }
    ::osg::Pnt3f point(const ::osg::Pnt3f& p) const {
        ::osg::Pnt3f out = p;
        if (moves)
            points.multMatrixPnt(p, out);
        return out;
    }
    /// By the inverse transposed, so that it stays upright on a scaled surface.
    ::osg::Vec3f normal(const ::osg::Vec3f& n) const {
        if (!moves)
            return n;
        ::osg::Vec3f out;
        for (::osg::UInt32 i = 0; i < 3; ++i)
            out[i] = inverse[i][0] * n[0] + inverse[i][1] * n[1] + inverse[i][2] * n[2];
        out.normalize();
        return out;
    }
};

void readCoordinates(const ::osg::TriangleIterator& it, ::osg::Int32 k, world_corner& corner) {
    const std::size_t at = world_corner::coordinates_at;
    put(corner, at, it.getTexCoords(k), 2);
    put(corner, at + 2, it.getTexCoords1(k), 2);
    put(corner, at + 4, it.getTexCoords2(k), 2);
    put(corner, at + 6, it.getTexCoords3(k), 2);
    put(corner, at + 8, it.getTexCoords4(k), 2);
    put(corner, at + 10, it.getTexCoords5(k), 2);
    put(corner, at + 12, it.getTexCoords6(k), 2);
}

world_corner readCorner(const ::osg::TriangleIterator& it, ::osg::Int32 k, const world_frame& frame,
                        const mesh_choice& choice) {
    world_corner corner;
    put(corner, 0, frame.point(it.getPosition(k)), 3);
    if (choice.normals)
        put(corner, world_corner::normal_at, frame.normal(it.getNormal(k)), 3);
    if (choice.colors) {
        put(corner, world_corner::color_at, it.getColor(k), 3);
        put(corner, world_corner::color_at + 3, it.getSecondaryColor(k), 3);
    }
    if (choice.coordinates)
        readCoordinates(it, k, corner);
    if (choice.ids)
        put(corner, world_corner::id_at, it.getTexCoords7(k), 1);
    return corner;
}

void collect(const ::osg::NodePtr& node, const mesh_choice& choice, world_mesh& mesh) {
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC && geometry->getPositions() != ::osg::NullFC) {
        const world_frame frame(node);
        for (::osg::TriangleIterator it = geometry->beginTriangles();
             it != geometry->endTriangles(); ++it) {
            if (choice.dropped != nullptr &&
                choice.dropped(it.getPosition(0), it.getPosition(1), it.getPosition(2)))
                continue;
            world_triangle triangle;
            for (std::size_t k = 0; k < 3; ++k) {
                triangle.corners[k] = readCorner(it, static_cast<::osg::Int32>(k), frame, choice);
            }
            mesh.push_back(lowest(triangle));
        }
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collect(node->getChild(i), choice, mesh);
}

std::string inWords(const char* headline, const world_triangle& triangle) {
    std::ostringstream text;
    text << headline;
    for (const world_corner& corner : triangle.corners) {
        text << " [";
        for (std::size_t i = 0; i < corner.values.size(); ++i)
            text << (i == 0 ? "" : " ") << corner.values[i];
        text << "]";
    }
    return text.str();
}

bool near(float a, float b, float tolerance) {
    return orderOf(a) == orderOf(b) || std::abs(a - b) <= tolerance;
}

bool near(const world_corner& a, const world_corner& b, const mesh_tolerance& tolerance) {
    for (std::size_t i = 0; i < a.values.size(); ++i) {
        const float allowed = i < world_corner::normal_at  ? tolerance.position
                              : i < world_corner::color_at ? tolerance.normal
                                                           : tolerance.other;
        if (!near(a.values[i], b.values[i], allowed))
            return false;
    }
    return true;
}

/// In any of the three rotations: the lowest corner may be another one after rounding.
bool near(const world_triangle& a, const world_triangle& b, const mesh_tolerance& tolerance) {
    for (std::size_t by = 0; by < 3; ++by) {
        const world_triangle t = turned(b, by);
        if (near(a.corners[0], t.corners[0], tolerance) &&
            near(a.corners[1], t.corners[1], tolerance) &&
            near(a.corners[2], t.corners[2], tolerance))
            return true;
    }
    return false;
}

/// Triangles by the cell of their centre. Centres of partners differ by at most the tolerance of
/// positions, so that partners stand in cells side by side.
class centre_grid {
  public:
    centre_grid(const world_mesh& all, float position_tolerance)
        : mesh(all), side(4.0 * static_cast<double>(position_tolerance)) {
        for (std::size_t i = 0; i < mesh.size(); ++i)
            cells[keyOf(cellOf(mesh[i]))].push_back(i);
    }

    /// Takes out a partner of `wanted`; false if there is none.
    bool take(const world_triangle& wanted, const mesh_tolerance& tolerance) {
        const cell centre = cellOf(wanted);
        for (int step = 0; step < 27; ++step) {
            const cell beside = {centre[0] + step % 3 - 1, centre[1] + step / 3 % 3 - 1,
                                 centre[2] + step / 9 - 1};
            const auto found = cells.find(keyOf(beside));
            if (found == cells.end())
                continue;
            std::vector<std::size_t>& here = found->second;
            for (std::size_t& candidate : here) {
                if (!near(wanted, mesh[candidate], tolerance))
                    continue;
                candidate = here.back();
                here.pop_back();
                return true;
            }
        }
        return false;
    }

    /// Some triangle that nobody took, or null.
    const world_triangle* left() const {
        for (const auto& entry : cells) {
            if (!entry.second.empty())
                return &mesh[entry.second.front()];
        }
        return nullptr;
    }

  private:
    using cell = std::array<std::int64_t, 3>;

    cell cellOf(const world_triangle& t) const {
        cell c{};
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double sum = static_cast<double>(t.corners[0].values[axis]) +
                               static_cast<double>(t.corners[1].values[axis]) +
                               static_cast<double>(t.corners[2].values[axis]);
            const double place = std::floor(sum / 3.0 / side);
            // What is not finite or far beyond every scene shares one cell.
            c[axis] = std::abs(place) < 1e15 ? static_cast<std::int64_t>(place) : 0;
        }
        return c;
    }
    /// Cells that share a key only cost comparisons.
    static std::uint64_t keyOf(const cell& c) {
        std::uint64_t key = 0;
        for (const std::int64_t at : c)
            key = (key ^ static_cast<std::uint64_t>(at)) * 0x9e3779b97f4a7c15U;
        return key;
    }

    const world_mesh& mesh;
    double side;
    std::unordered_map<std::uint64_t, std::vector<std::size_t>> cells;
};

} // namespace

bool world_triangle::operator==(const world_triangle& other) const {
    return compare(*this, other) == 0;
}
bool world_triangle::operator<(const world_triangle& other) const {
    return compare(*this, other) < 0;
}

world_mesh worldMesh(const ::osg::NodePtr& root, const mesh_choice& choice) {
    world_mesh mesh;
    if (root != ::osg::NullFC)
        collect(root, choice, mesh);
    std::sort(mesh.begin(), mesh.end());
    return mesh;
}

std::string firstDifference(const world_mesh& expected, const world_mesh& actual) {
    std::size_t i = 0;
    while (i < expected.size() && i < actual.size() && expected[i] == actual[i])
        ++i;
    if (i < expected.size() && (i == actual.size() || expected[i] < actual[i]))
        return inWords("missing:", expected[i]);
    if (i < actual.size())
        return inWords("too many:", actual[i]);
    return "";
}

std::string firstDifference(const world_mesh& expected, const world_mesh& actual,
                            const mesh_tolerance& tolerance) {
    centre_grid grid(actual, tolerance.position);
    for (const world_triangle& triangle : expected) {
        if (!grid.take(triangle, tolerance))
            return inWords("missing:", triangle);
    }
    const world_triangle* left = grid.left();
    return left != nullptr ? inWords("too many:", *left) : "";
}

mesh_summary summaryOf(const world_mesh& mesh) {
    mesh_summary summary;
    summary.triangles = mesh.size();
    for (std::size_t i = 0; i < mesh.size(); ++i) {
        double u[3], v[3];
        for (std::size_t axis = 0; axis < 3; ++axis) {
            const double a = static_cast<double>(mesh[i].corners[0].values[axis]);
            u[axis] = static_cast<double>(mesh[i].corners[1].values[axis]) - a;
            v[axis] = static_cast<double>(mesh[i].corners[2].values[axis]) - a;
            for (std::size_t k = 0; k < 3; ++k) {
                const float at = mesh[i].corners[k].values[axis];
                if (i == 0 && k == 0)
                    summary.min[axis] = summary.max[axis] = at;
                summary.min[axis] = std::min(summary.min[axis], at);
                summary.max[axis] = std::max(summary.max[axis], at);
            }
        }
        summary.area += 0.5 * std::hypot(u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2],
                                         u[0] * v[1] - u[1] * v[0]);
    }
    return summary;
}

} // namespace morva_test
