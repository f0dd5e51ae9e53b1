#include <morva/collision/morva_osg_placed_nodes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

namespace {

constexpr double rounding = 64.0 / (1 << 24);
/// Matrices that are a similarity but for this are taken for one; growth is more by twice as much.
constexpr double largest_skew = 1e-3;

/// Sets centre and half sides of the world's box around a node's box.
void setWorldBox(placed_node& node) {
    for (::osg::UInt32 r = 0; r < 3; ++r) {
        node.center[r] = double{node.to_world[3][r]};
        node.half[r] = 0.0;
        for (::osg::UInt32 c = 0; c < 3; ++c) {
            const double low{node.low[c]}, high{node.high[c]}, factor{node.to_world[c][r]};
            node.center[r] += factor * (low + high) * 0.5;
            node.half[r] += std::abs(factor * (high - low) * 0.5);
        }
    }
}

/// The largest coordinate, by magnitude.
double largestOf(const double (&center)[3], const double (&half)[3]) {
    double most = 0.0;
    for (std::size_t k = 0; k < 3; ++k)
        most = std::max(most, std::abs(center[k]) + half[k]);
    return most;
}

/// 4x4 numbers, [row][column].
struct double_matrix {
    double m[4][4];

    explicit double_matrix(const ::osg::Matrix& matrix) {
        for (::osg::UInt32 r = 0; r < 4; ++r)
            for (::osg::UInt32 c = 0; c < 4; ++c)
                m[r][c] = double{matrix[c][r]};
    }

    /// The determinant without a row and a column, with the sign of the place.
    double cofactor(std::size_t row, std::size_t column) const {
        std::size_t r[3], c[3];
        for (std::size_t k = 0; k < 3; ++k) {
            r[k] = k < row ? k : k + 1;
            c[k] = k < column ? k : k + 1;
        }
        const double minor =
            m[r[0]][c[0]] * (m[r[1]][c[1]] * m[r[2]][c[2]] - m[r[1]][c[2]] * m[r[2]][c[1]]) -
            m[r[0]][c[1]] * (m[r[1]][c[0]] * m[r[2]][c[2]] - m[r[1]][c[2]] * m[r[2]][c[0]]) +
            m[r[0]][c[2]] * (m[r[1]][c[0]] * m[r[2]][c[1]] - m[r[1]][c[1]] * m[r[2]][c[0]]);
        return (row + column) % 2 == 0 ? minor : -minor;
    }
};

} // namespace

bool isFinite(const ::osg::Matrix& matrix) {
    std::uint32_t bits[16], infinite = 0;
    static_assert(sizeof bits == 16 * sizeof(::osg::Real32));
    std::memcpy(bits, matrix.getValues(), sizeof bits);
    for (const std::uint32_t word : bits) // all ones in the exponent: infinite or not a number
        infinite |= (word & 0x7F800000U) == 0x7F800000U ? 1U : 0U;
    return infinite == 0;
}

::osg::Matrix inverseOrIdentity(const ::osg::Matrix& matrix) {
    const double_matrix values(matrix);
    double determinant = 0.0;
    for (std::size_t c = 0; c < 4; ++c)
        determinant += values.m[0][c] * values.cofactor(0, c);
    ::osg::Matrix inverse;
    if (std::abs(determinant) < 1e-30)
        return inverse;
    for (::osg::UInt32 r = 0; r < 4; ++r)
        for (::osg::UInt32 c = 0; c < 4; ++c)
            inverse[c][r] = static_cast<float>(values.cofactor(c, r) / determinant);
    return inverse;
}

namespace {

/// Reads a node whose matrix is known.
void placeBehind(const ::osg::NodePtr& node, const ::osg::Matrix& to_world, placed_node& placed) {
    placed.node = node;
    node->updateVolume();
    const ::osg::DynamicVolume& volume = node->getVolume();
    if (!volume.isValid() || volume.isEmpty())
        return;
    volume.getBounds(placed.low, placed.high);
    placed.to_world = to_world;
    placed.usable = isFinite(to_world);
    setWorldBox(placed);
}

/// The walk of collect_geo_nodes(), with the matrix of the parent at hand.
void placeBelow(const ::osg::NodePtr& node, ::osg::Matrix to_world,
                std::vector<placed_node>& placed) {
    const ::osg::NodeCorePtr core = node->getCore();
    if (core != ::osg::NullFC) {
        core->accumulateMatrix(to_world);
        if (core->getType() == ::osg::Geometry::getClassType()) {
            placed.emplace_back();
            placeBehind(node, to_world, placed.back());
            if (!placed.back().usable)
                placed.pop_back();
        }
    }
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i)
        placeBelow(node->getChild(i), to_world, placed);
}

} // namespace

placed_node placeNode(const ::osg::NodePtr& node) {
    placed_node placed;
    if (node != ::osg::NullFC && node->getCore() != ::osg::NullFC)
        placeBehind(node, node->getToWorld(), placed);
    return placed;
}

std::vector<placed_node> placeGeometryNodes(const ::osg::NodePtr& root) {
    std::vector<placed_node> placed;
    placed.reserve(64);
    const ::osg::NodePtr parent = root->getParent();
    placeBelow(root, parent != ::osg::NullFC ? parent->getToWorld() : ::osg::Matrix(), placed);
    return placed;
}

placed_ball ballOf(const placed_node& b) {
    placed_ball ball{};
    std::copy_n(b.center, 3, ball.center);
    ball.radius = std::sqrt(b.half[0] * b.half[0] + b.half[1] * b.half[1] + b.half[2] * b.half[2]) +
                  rounding * largestOf(b.center, b.half);
    return ball;
}

near_query nearQueryOf(const placed_node& a) {
    near_query query{};
    double square[3], mixed[3];
    for (::osg::UInt32 c = 0; c < 3; ++c) {
        const ::osg::Vec4f &u = a.to_world[c], &v = a.to_world[(c + 1) % 3];
        square[c] = mixed[c] = 0.0;
        for (::osg::UInt32 r = 0; r < 3; ++r) {
            square[c] += double{u[r]} * double{u[r]};
            mixed[c] += double{u[r]} * double{v[r]};
        }
    }
    const double mean = (square[0] + square[1] + square[2]) / 3.0, limit = largest_skew * mean;
    const double scale = std::sqrt(mean), more = rounding * largestOf(a.center, a.half);
    bool similar = scale > 1e-9 && std::isfinite(more);
    for (std::size_t c = 0; c < 3; ++c)
        similar = similar && std::abs(square[c] - mean) < limit && std::abs(mixed[c]) < limit;
    query.everywhere = !similar;
    for (::osg::UInt32 r = 0; r < 3 && similar; ++r) {
        double sum = 0.0;
        for (::osg::UInt32 k = 0; k < 3; ++k)
            sum += std::abs(double{a.to_world[k][r]});
        query.center[r] = a.center[r];
        query.growth[r] = sum / scale * (1.0 + 4.0 * largest_skew);
        query.half[r] = a.half[r] + query.growth[r] * more;
    }
    return query;
}

} // namespace morva::osg
