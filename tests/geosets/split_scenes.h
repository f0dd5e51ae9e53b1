#pragma once

// Triangle soups, and what a set of triangles is as text-free data: for the tests of the way from
// geosets back to cores.

#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_geoset_tools.h>

#include "../support/live_containers.h"
#include "flat_scenes.h"

namespace split {

using morva_test::liveContainers;

/// One triangle: three corners of numbers, the smallest corner first, winding kept.
using triangle = std::vector<std::vector<float>>;
using triangle_bag = std::multiset<triangle>;

inline triangle turned(triangle t) {
    std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    return t;
}

template <typename V> void append(std::vector<float>& out, const V& value, ::osg::UInt32 count) {
    for (::osg::UInt32 i = 0; i < count; ++i)
        out.push_back(value[i]);
}

/// All triangles of a geometry with positions, normals, colours and coordinate sets 0 and 7.
inline triangle_bag trianglesOf(const ::osg::GeometryPtr& geometry, bool with_normals = true) {
    triangle_bag bag;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); it != geometry->endTriangles();
         ++it) {
        triangle t(3);
        for (::osg::Int32 k = 0; k < 3; ++k) {
            std::vector<float>& corner = t[static_cast<std::size_t>(k)];
            append(corner, it.getPosition(k), 3);
            if (with_normals)
                append(corner, it.getNormal(k), 3);
            append(corner, it.getColor(k), 3);
            append(corner, it.getTexCoords(k), 2);
            append(corner, it.getTexCoords7(k), 1);
        }
        bag.insert(turned(t));
    }
    return bag;
}

/// All triangles below a node.
inline void collect(const ::osg::NodePtr& node, triangle_bag& bag, bool with_normals = true) {
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(node->getCore());
    if (geometry != ::osg::NullFC)
        bag.merge(trianglesOf(geometry, with_normals));
    for (::osg::UInt32 i = 0; i < node->getNChildren(); ++i) {
        collect(node->getChild(i), bag, with_normals);
    }
}

/// `count` triangles that can be kept, with every attribute that triangles carry through all
/// output levels. Corners lie on a coarse grid, so that many are equal.
inline ::osg::GeometryPtr randomSoup(std::mt19937& rng, std::size_t count) {
    std::vector<::osg::Pnt3f> positions;
    while (positions.size() < 3 * count) {
        const std::vector<::osg::Pnt3f> t = flat::gridPoints(rng, 3);
        if (morva::osg::is_rogue(t[0], t[1], t[2]))
            continue;
        positions.insert(positions.end(), t.begin(), t.end());
    }
    const std::size_t n = positions.size();
    const ::osg::GeometryPtr geometry =
        flat::geometryOf({{4, static_cast<unsigned>(n)}}, positions);
    flat::addNormals(geometry, rng, n);
    geometry->setColors(flat::someColors(rng, n));
    const ::osg::GeoTexCoords2fPtr coordinates = ::osg::GeoTexCoords2f::create();
    const ::osg::GeoTexCoords1fPtr ids = ::osg::GeoTexCoords1f::create();
    for (std::size_t i = 0; i < n; ++i) {
        coordinates->editField().push_back(::osg::Vec2f(static_cast<float>(rng() % 2), 0.5F));
        ids->editField().push_back(static_cast<float>(i / 30));
    }
    geometry->setTexCoords(coordinates);
    geometry->setTexCoords7(ids);
    return geometry;
}

} // namespace split
