#include "test.h"

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

int compare(const world_triangle& a, const world_triangle& b) {
    for (std::size_t k = 0; k < 3; ++k) {
        for (std::size_t i = 0; i < a.corners[k].values.size(); ++i) {
            const std::int32_t left = orderOf(a.corners[k].values[i]);
            const std::int32_t right = orderOf(b.corners[k].values[i]);
            if (left != right)
                return left < right ? -1 : 1;
        }
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
    if (choice.coordinates) {
        const std::size_t at = world_corner::coordinates_at;
        put(corner, at, it.getTexCoords(k), 2);
        put(corner, at + 2, it.getTexCoords1(k), 2);
        put(corner, at + 4, it.getTexCoords2(k), 2);
        put(corner, at + 6, it.getTexCoords3(k), 2);
        put(corner, at + 8, it.getTexCoords4(k), 2);
        put(corner, at + 10, it.getTexCoords5(k), 2);
        put(corner, at + 12, it.getTexCoords6(k), 2);
    }
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
            for (std::size_t k = 0; k < 3; ++k)
                triangle.corners[k] = readCorner(it, ::osg::Int32(k), frame, choice);
            mesh.push_back(lowest(triangle));
        }
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        collect(node->getChild(i), choice, mesh);
}

std::string inWords(const char* headline, const world_triangle& triangle) {
    std::string text = headline;
    for (const world_corner& corner : triangle.corners)
        text += " " + testing::PrintToString(corner.values);
    return text;
}

bool near(const world_corner& a, const world_corner& b, const mesh_tolerance& tolerance) {
    for (std::size_t i = 0; i < a.values.size(); ++i) {
        const float allowed = i < world_corner::normal_at  ? tolerance.position
                              : i < world_corner::color_at ? tolerance.normal
                                                           : tolerance.other;
        if (orderOf(a.values[i]) != orderOf(b.values[i]) &&
            !(std::abs(a.values[i] - b.values[i]) <= allowed))
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

/// Where a triangle's centre lies along a slanting line: partners lie close together there.
double placeOf(const world_triangle& t) {
    const double slant[3] = {0.83, 1.0, 0.71};
    double place = 0.0;
    for (const world_corner& corner : t.corners) {
        for (std::size_t axis = 0; axis < 3; ++axis)
            place += slant[axis] * double(corner.values[axis]) / 3.0;
    }
    // What is not finite or far beyond every scene shares one place.
    return std::abs(place) < 1e15 ? place : 0.0;
}

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

std::string firstDifference(const world_mesh& expected, const world_mesh& actual,
                            const mesh_tolerance& tolerance) {
    std::multimap<double, const world_triangle*> left;
    for (const world_triangle& triangle : actual)
        left.emplace(placeOf(triangle), &triangle);
    const double reach = 4.0 * double(tolerance.position);
    for (const world_triangle& wanted : expected) {
        auto partner = left.lower_bound(placeOf(wanted) - reach);
        const auto end = left.upper_bound(placeOf(wanted) + reach);
        while (partner != end && !near(wanted, *partner->second, tolerance))
            ++partner;
        if (partner == end)
            return inWords("missing:", wanted);
        left.erase(partner);
    }
    return left.empty() ? "" : inWords("too many:", *left.begin()->second);
}

mesh_summary summaryOf(const world_mesh& mesh) {
    mesh_summary summary;
    summary.triangles = mesh.size();
    for (const world_triangle& triangle : mesh) {
        ::osg::Pnt3d p[3];
        for (std::size_t k = 0; k < 3; ++k) {
            for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
                const float at = triangle.corners[k].values[axis];
                if (&triangle == mesh.data() && k == 0)
                    summary.min[axis] = summary.max[axis] = at;
                summary.min[axis] = std::min(summary.min[axis], at);
                summary.max[axis] = std::max(summary.max[axis], at);
                p[k][axis] = double(at);
            }
        }
        summary.area += 0.5 * (p[1] - p[0]).cross(p[2] - p[0]).length();
    }
    return summary;
}

} // namespace morva_test
