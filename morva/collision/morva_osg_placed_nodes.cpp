#include <morva/collision/morva_osg_placed_nodes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <list>

#include <morva/core/morva_osg_tools.h>

namespace morva::osg {

namespace {

constexpr double rounding = 64.0 / (1 << 24);
constexpr double largest_growth = 4.0;

/// Centre and half sides of the world's box around a node's box.
void worldBox(const placed_node& node, double (&center)[3], double (&half)[3]) {
    for (::osg::UInt32 r = 0; r < 3; ++r) {
        center[r] = double{node.to_world[3][r]};
        half[r] = 0.0;
        for (::osg::UInt32 c = 0; c < 3; ++c) {
            const double low{node.low[c]}, high{node.high[c]}, factor{node.to_world[c][r]};
            center[r] += factor * (low + high) * 0.5;
            half[r] += std::abs(factor * (high - low) * 0.5);
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
    const ::osg::Real32* const values = matrix.getValues();
    return std::all_of(values, values + 16, [](float value) { return std::isfinite(value); });
}

bool invert(const ::osg::Matrix& matrix, ::osg::Matrix& inverse) {
    const double_matrix values(matrix);
    double determinant = 0.0;
    for (std::size_t c = 0; c < 4; ++c)
        determinant += values.m[0][c] * values.cofactor(0, c);
    inverse.setIdentity();
    if (std::abs(determinant) < 1e-30)
        return false;
    for (::osg::UInt32 r = 0; r < 4; ++r)
        for (::osg::UInt32 c = 0; c < 4; ++c)
            inverse[c][r] = static_cast<float>(values.cofactor(c, r) / determinant);
    return true;
}

placed_node placeNode(const ::osg::NodePtr& node) {
    placed_node placed;
    placed.node = node;
    if (node == ::osg::NullFC || node->getCore() == ::osg::NullFC)
        return placed;
    node->updateVolume();
    if (!node->getVolume().isValid() || node->getVolume().isEmpty())
        return placed;
    node->getVolume().getBounds(placed.low, placed.high);
    placed.to_world = node->getToWorld();
    placed.usable = isFinite(placed.to_world);
    return placed;
}

std::vector<placed_node> placeGeometryNodes(const ::osg::NodePtr& root) {
    std::list<::osg::NodePtr> nodes;
    collect_geo_nodes(root, nodes);
    std::vector<placed_node> placed;
    placed.reserve(nodes.size());
    for (const ::osg::NodePtr& node : nodes) {
        placed.push_back(placeNode(node));
        if (!placed.back().usable)
            placed.pop_back();
    }
    return placed;
}

placed_ball ballOf(const placed_node& b) {
    placed_ball ball{};
    double half[3];
    worldBox(b, ball.center, half);
    ball.radius = std::sqrt(half[0] * half[0] + half[1] * half[1] + half[2] * half[2]) +
                  rounding * largestOf(ball.center, half);
    return ball;
}

bool nearQueryOf(const placed_node& a, const ::osg::Matrix& from_world, near_query& query) {
    worldBox(a, query.center, query.half);
    const double more = rounding * largestOf(query.center, query.half);
    for (::osg::UInt32 r = 0; r < 3; ++r) {
        query.growth[r] = 0.0;
        for (::osg::UInt32 k = 0; k < 3; ++k) {
            const double x{from_world[0][k]}, y{from_world[1][k]}, z{from_world[2][k]};
            query.growth[r] +=
                std::abs(double{a.to_world[k][r]}) * std::sqrt(x * x + y * y + z * z);
        }
        if (!(query.growth[r] <= largest_growth))
            return false;
        query.half[r] += query.growth[r] * more;
    }
    return std::isfinite(more);
}

} // namespace morva::osg
