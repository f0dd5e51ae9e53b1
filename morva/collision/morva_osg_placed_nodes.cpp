#include <morva/collision/morva_osg_placed_nodes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGGroup.h>

namespace morva::osg {

namespace {

constexpr float rounding = 64.F / (1 << 24);

/// Matrices that are a similarity but for this are taken for one; growth is more by four times
/// that.
constexpr float largest_skew = 1e-3F;

lanes columnOf(const ::osg::Matrix& matrix, ::osg::UInt32 column) {
    lanes values;
    std::memcpy(&values, matrix[column].getValues(), sizeof values);
    return where(lane_mask{-1, -1, -1, 0}, values);
}

/// Whether the lower row is that of a matrix that moves points without a division.
bool isAffine(const ::osg::Matrix& matrix) {
    return matrix[0][3] == 0.F && matrix[1][3] == 0.F && matrix[2][3] == 0.F && matrix[3][3] == 1.F;
}

/// How near_query grows behind a matrix; 0 where that is no similarity.
lanes growthOf(const ::osg::Matrix& matrix) {
    const lanes x = columnOf(matrix, 0), y = columnOf(matrix, 1), z = columnOf(matrix, 2);
    const lanes square = sumsOf(x * x, y * y, z * z, lanes{});
    const lanes mixed = sumsOf(x * y, y * z, z * x, lanes{});
    const float mean = (square[0] + square[1] + square[2]) / 3.F, scale = std::sqrt(mean);
    const lanes skew = larger(magnitude(square - lanes{mean, mean, mean, 0.F}), magnitude(mixed));
    if (anyLane(skew > allLanes(largest_skew * mean)) || !(scale > 1e-9F) || !std::isfinite(mean) ||
        !isAffine(matrix))
        return lanes{};
    return (magnitude(x) + magnitude(y) + magnitude(z)) *
           allLanes((1.F + 4.F * largest_skew) / scale);
}

/// What the coordinates that were rounded on the way may be off by.
float roundingOf(const placed_node& node, const ::osg::Matrix& to_world) {
    const lanes most = magnitude(node.center) + node.half + magnitude(columnOf(to_world, 3));
    return rounding * std::max({most[0], most[1], most[2]});
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
    lanes columns[4];
    static_assert(sizeof columns == 16 * sizeof(::osg::Real32));
    std::memcpy(columns, matrix.getValues(), sizeof columns);
    const lanes nothing = (columns[0] * lanes{} + columns[1] * lanes{}) +
                          (columns[2] * lanes{} + columns[3] * lanes{});
    return !anyLane(nothing != lanes{});
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

std::vector<near_query> nearQueriesOf(const placed_list& a) {
    std::vector<near_query> queries;
    queries.reserve(a.nodes.size());
    std::uint32_t frame = std::numeric_limits<std::uint32_t>::max();
    lanes growth{};
    for (const placed_node& node : a.nodes) {
        if (node.frame != frame)
            growth = growthOf(a.frames[frame = node.frame]);
        const float more = roundingOf(node, a.frames[frame]);
        const bool everywhere = growth[0] == 0.F || !std::isfinite(more);
        queries.push_back({node.center, node.half + growth * allLanes(more), growth, everywhere});
    }
    return queries;
}

std::vector<placed_ball> ballsOf(const placed_list& b) {
    std::vector<placed_ball> balls;
    balls.reserve(b.nodes.size());
    for (const placed_node& node : b.nodes) {
        const ::osg::Matrix& to_world = b.toWorld(node);
        const lanes squares = node.half * node.half;
        const float radius =
            std::sqrt(squares[0] + squares[1] + squares[2]) + roundingOf(node, to_world);
        const lanes nothing = (node.center + allLanes(radius)) * lanes{};
        if (isAffine(to_world) && !anyLane(nothing != lanes{}))
            balls.push_back({node.center, radius});
        else
            balls.push_back({lanes{}, std::numeric_limits<float>::infinity()});
    }
    return balls;
}

namespace {

/// The walk of collect_geo_nodes(), with the matrix of the parent at hand.
class placing_walk {
  public:
    explicit placing_walk(placed_list& placed) : placed_(placed) {}

    /// Makes a frame and returns its place in the list's.
    std::uint32_t enter(const ::osg::Matrix& to_world) {
        placed_.frames.push_back(to_world);
        return static_cast<std::uint32_t>(placed_.frames.size()) - 1;
    }

    /// frame  of what the node hangs below
    void visit(const ::osg::NodePtr& node, std::uint32_t frame) {
        ::osg::Node& here = *node;
        const ::osg::NodeCorePtr core = here.getCore();
        if (core != ::osg::NullFC) {
            ::osg::NodeCore& content = *core;
            const ::osg::FieldContainerType& type = content.getType();
            if (type == geometry_) { // moves nothing
                place(node, frame);
            } else if (type != group_) {
                ::osg::Matrix below = placed_.frames[frame];
                content.accumulateMatrix(below);
                frame = enter(below);
            }
        }
        for (::osg::UInt32 i = 0, count = here.getNChildren(); i < count; ++i)
            visit(here.getChild(i), frame);
    }

    /// Enters a node with a core, in a frame that includes it.
    void place(const ::osg::NodePtr& node, std::uint32_t frame) {
        ::osg::Node& here = *node;
        if (!here.getVolume().isValid())
            here.updateVolume();
        const ::osg::DynamicVolume& volume = here.getVolume();
        if (!volume.isValid() || volume.isEmpty() || !readColumns(frame))
            return;
        ::osg::Pnt3f low, high;
        volume.getBounds(low, high);
        lanes center = columns_[3], half{};
        for (::osg::UInt32 c = 0; c < 3; ++c) {
            center += columns_[c] * allLanes((low[c] + high[c]) * 0.5F);
            half += magnitude(columns_[c] * allLanes((high[c] - low[c]) * 0.5F));
        }
        placed_.nodes.push_back({node, low, high, frame, center, half});
    }

  private:
    /// False for a matrix that is not finite.
    bool readColumns(std::uint32_t frame) {
        if (frame != read_) {
            const ::osg::Matrix& to_world = placed_.frames[frame];
            for (::osg::UInt32 c = 0; c < 4; ++c)
                columns_[c] = columnOf(to_world, c);
            is_finite_ = isFinite(to_world);
            read_ = frame;
        }
        return is_finite_;
    }

    placed_list& placed_;
    std::uint32_t read_ = std::numeric_limits<std::uint32_t>::max(); ///< frame of what follows
    lanes columns_[4];
    bool is_finite_ = false;
    const ::osg::FieldContainerType& geometry_ = ::osg::Geometry::getClassType();
    const ::osg::FieldContainerType& group_ = ::osg::Group::getClassType();
};

} // namespace

placed_list placeNode(const ::osg::NodePtr& node) {
    placed_list placed;
    placing_walk walk(placed);
    if (node != ::osg::NullFC && node->getCore() != ::osg::NullFC)
        walk.place(node, walk.enter(node->getToWorld()));
    return placed;
}

placed_list placeGeometryNodes(const ::osg::NodePtr& root) {
    placed_list placed;
    placed.frames.reserve(128);
    placed.nodes.reserve(128);
    const ::osg::NodePtr parent = root->getParent();
    placing_walk walk(placed);
    walk.visit(root, walk.enter(parent != ::osg::NullFC ? parent->getToWorld() : ::osg::Matrix()));
    return placed;
}

} // namespace morva::osg
