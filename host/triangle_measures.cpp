#include "triangle_measures.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include <OpenSG/OSGMatrix.h>

#include <morva/core/morva_osg_geometry_tools.h>

namespace morva::host {

namespace {

constexpr int wrap_limit = 50; ///< of the merge: coordinates beyond it keep their fraction alone

const ::osg::Pnt3f& pointAt(const geometry_view& view, const std::vector<::osg::Pnt3f>& moved,
                            std::uint32_t corner) {
    return moved[view.positions.row(corner)];
}

/// With 0 along the directions that stay as they are: the normal form keeps that.
::osg::Vec2f movingAt(const geometry_view& view, std::uint32_t corner,
                      morva::osg::repeating_directions repeats) {
    const ::osg::Vec2f& value = *view.coordinates[0].find<::osg::Vec2f>(corner);
    return {repeats.u ? value[0] : 0.F, repeats.v ? value[1] : 0.F};
}

} // namespace

placement::placement(const ::osg::NodePtr& node) {
    const ::osg::Matrix world = node->getToWorld();
    for (::osg::UInt32 column = 0; column < 4; ++column)
        for (::osg::UInt32 row = 0; row < 3; ++row)
            matrix[column][row] = world[column][row];
}

std::vector<::osg::Pnt3f> placed(const geometry_view& view, const placement* to) {
    std::vector<::osg::Pnt3f> moved(view.runs.empty() ? 0 : view.positions.rows);
    for (std::uint32_t i = 0; i < moved.size(); ++i) {
        const float* p = view.positions.at(i);
        for (::osg::UInt32 row = 0; row < 3; ++row)
            moved[i][row] = to != nullptr ? to->matrix[0][row] * p[0] + to->matrix[1][row] * p[1] +
                                                to->matrix[2][row] * p[2] + to->matrix[3][row]
                                          : p[row];
    }
    return moved;
}

bool isDegenerate(const geometry_view& view, const std::vector<::osg::Pnt3f>& moved,
                  std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    return morva::osg::is_rogue(pointAt(view, moved, a), pointAt(view, moved, b),
                                pointAt(view, moved, c));
}

bool isDegenerate(const geometry_view& view, std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    const auto point = [&view](std::uint32_t corner) {
        return *view.positions.find<::osg::Pnt3f>(corner);
    };
    return morva::osg::is_rogue(point(a), point(b), point(c));
}

measured_area triangleArea(const geometry_view& view, const std::vector<::osg::Pnt3f>& moved,
                           std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    const ::osg::Pnt3f& origin = pointAt(view, moved, a);
    double u[3], v[3], farthest = 0.0, reach = 0.0;
    for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
        u[axis] = double{pointAt(view, moved, b)[axis]} - double{origin[axis]};
        v[axis] = double{pointAt(view, moved, c)[axis]} - double{origin[axis]};
        reach += std::abs(u[axis]) + std::abs(v[axis]);
        farthest = std::max(farthest, std::abs(double{origin[axis]}));
    }
    const double x = u[1] * v[2] - u[2] * v[1];
    const double y = u[2] * v[0] - u[0] * v[2];
    const double z = u[0] * v[1] - u[1] * v[0];
    // A corner that moves by the spacing of floats moves the area by that times its other edges.
    const double spacing = (farthest + reach) * double{std::numeric_limits<float>::epsilon()};
    return {std::sqrt(x * x + y * y + z * z) / 2.0, spacing * reach};
}

bool reachesBeyond(const geometry_view& view, int limit, morva::osg::repeating_directions repeats) {
    if (!view.coordinates[0].present)
        return false;
    bool beyond = false;
    forEachTriangle(view, [&](std::uint32_t first, std::uint32_t second, std::uint32_t third) {
        if (beyond)
            return;
        ::osg::Vec2f a = movingAt(view, first, repeats);
        ::osg::Vec2f b = movingAt(view, second, repeats);
        ::osg::Vec2f c = movingAt(view, third, repeats);
        morva::osg::roundTCToInteger(a, b, c);
        morva::osg::getTCPositiv(a, b, c);
        morva::osg::getTCNearToZero(a, b, c);
        morva::osg::cutTC(a, b, c, wrap_limit);
        beyond = std::max({a[0], b[0], c[0], a[1], b[1], c[1]}) > static_cast<float>(limit);
    });
    return beyond;
}

} // namespace morva::host
