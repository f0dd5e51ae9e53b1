// Counts and tests.

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>
#include <cmath>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_node_core.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/core/morva_osg_walk_start.h>

namespace morva::osg {

namespace {

template <typename Ptr> bool isLonger(const Ptr& property, unsigned int threshold) {
    return property != ::osg::NullFC && property->size() > threshold;
}

} // namespace

double triangle_area(const ::osg::Pnt3f& a, const ::osg::Pnt3f& b, const ::osg::Pnt3f& c) {
    const ::osg::Vec3f u = b - a;
    const ::osg::Vec3f v = c - a;
    const float uv = u.dot(v);
    const float t = u.dot(u) * v.dot(v) - uv * uv;
    const double area = 0.5 * std::sqrt(static_cast<double>(t));
    return std::isfinite(area) ? area : 0.0;
}

unsigned int getVertexCountOfPrimitiveType(int primitive_class) {
    switch (primitive_class) {
    case 0:
        return 1;
    case 1:
        return 2;
    case 4:
        return 3;
    default:
        return 0;
    }
}

bool isVertexCountBelowThreshold(const ::osg::NodePtr& node, unsigned int threshold) {
    const ::osg::GeometryPtr g = geometryOf(node);
    if (g == ::osg::NullFC)
        return true;
    return !(isLonger(g->getIndices(), threshold) || isLonger(g->getPositions(), threshold) ||
             isLonger(g->getNormals(), threshold) || isLonger(g->getColors(), threshold) ||
             isLonger(g->getSecondaryColors(), threshold) ||
             isLonger(g->getTexCoords(), threshold) || isLonger(g->getTexCoords1(), threshold) ||
             isLonger(g->getTexCoords2(), threshold) || isLonger(g->getTexCoords7(), threshold));
}

unsigned int getVertexCount(std::vector<::osg::NodePtr>& nodes) {
    unsigned int sum = 0;
    for (const ::osg::NodePtr& node : nodes) {
        const ::osg::GeometryPtr geometry = geometryOf(node);
        if (geometry == ::osg::NullFC)
            continue;
        for (const ::osg::UInt32 length : readBlock(geometry->getLengths()))
            sum += length;
    }
    return sum;
}

unsigned int getVertexCount(::osg::NodePtr root) {
    const walk_start start(root);
    std::vector<::osg::NodePtr> nodes;
    getGeometryNodes(start.get(), nodes, false);
    return getVertexCount(nodes);
}

unsigned int counttriangles(const ::osg::GeometryPtr& geometry) {
    if (geometry == ::osg::NullFC)
        return 0;
    constexpr vertex_property place[] = {vertex_property::position};
    unsigned int count = 0;
    forEachPlacedTriangle(
        geometry_columns(geometry, place), [&count](const auto* a, const auto* b, const auto* c) {
            if (a != nullptr && b != nullptr && c != nullptr && !is_rogue(*a, *b, *c))
                ++count;
        });
    return count;
}

unsigned int count_triangles(const ::osg::GeometryPtr& geometry) {
    return counttriangles(geometry);
}

bool hasVertexColors(std::vector<::osg::NodePtr>& nodes) {
    return std::any_of(nodes.begin(), nodes.end(), [](const ::osg::NodePtr& node) {
        const ::osg::GeometryPtr geometry = geometryOf(node);
        return geometry != ::osg::NullFC && isLonger(geometry->getColors(), 0);
    });
}

} // namespace morva::osg
