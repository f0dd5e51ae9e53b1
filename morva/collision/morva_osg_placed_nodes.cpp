#include <morva/collision/morva_osg_placed_nodes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include <OpenSG/OSGGeometry.h>

namespace morva::osg {

namespace {

constexpr float rounding = 64.F / (1 << 24);

/// Matrices that are a similarity but for this are taken for one; growth is more by four times
/// that.
constexpr float largest_skew = 1e-3F;

lanes columnOf(const ::osg::Matrix& matrix, ::osg::UInt32 column) {
    const ::osg::Vec4f& values = matrix[column];
    return lanes{values[0], values[1], values[2], 0.F};
}

/// Whether the lower row is that of a matrix that moves points without a division.
bool isAffine(const ::osg::Matrix& matrix) {
    return matrix[0][3] == 0.F && matrix[1][3] == 0.F && matrix[2][3] == 0.F && matrix[3][3] == 1.F;
}

/// Sets centre and half sides of the world's box around a node's box.
void setWorldBox(placed_node& node) {
    node.center = columnOf(node.to_world, 3);
    node.half = lanes{};
    for (::osg::UInt32 c = 0; c < 3; ++c) {
        const lanes column = columnOf(node.to_world, c);
        node.center += column * allLanes((node.low[c] + node.high[c]) * 0.5F);
        node.half += magnitude(column * allLanes((node.high[c] - node.low[c]) * 0.5F));
    }
}

/// The coordinates that may have been rounded on the way, by magnitude.
float largestOf(const placed_node& node) {
    const lanes most = magnitude(node.center) + node.half + magnitude(columnOf(node.to_world, 3));
    return std::max({most[0], most[1], most[2]});
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
    if (!isAffine(b.to_world))
        return {b.center, std::numeric_limits<float>::infinity()};
    const lanes squares = b.half * b.half;
    return {b.center, std::sqrt(squares[0] + squares[1] + squares[2]) + rounding * largestOf(b)};
}

near_query nearQueryOf(const placed_node& a) {
    near_query query{};
    const lanes x = columnOf(a.to_world, 0), y = columnOf(a.to_world, 1),
                z = columnOf(a.to_world, 2);
    const lanes square = sumsOf(x * x, y * y, z * z, lanes{});
    const lanes mixed = sumsOf(x * y, y * z, z * x, lanes{});
    const float mean = (square[0] + square[1] + square[2]) / 3.F, scale = std::sqrt(mean);
    const lanes skew = larger(magnitude(square - lanes{mean, mean, mean, 0.F}), magnitude(mixed));
    const float more = rounding * largestOf(a);
    query.everywhere = anyLane(skew > allLanes(largest_skew * mean)) || !(scale > 1e-9F) ||
                       !std::isfinite(more) || !std::isfinite(mean) || !isAffine(a.to_world);
    if (query.everywhere)
        return query;
    query.center = a.center;
    query.growth =
        (magnitude(x) + magnitude(y) + magnitude(z)) * allLanes((1.F + 4.F * largest_skew) / scale);
    query.half = a.half + query.growth * allLanes(more);
    return query;
}

} // namespace morva::osg
