#pragma once

// Line and point geometry for the tests of the flat geosets, in every index layout.

#include <random>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGSimpleAttachments.h>

namespace flat {

/// How a geometry finds its values.
enum class layout { plain, one_index, index_per_property };

inline ::osg::NodePtr nodeOf(const ::osg::GeometryPtr& geometry, const char* name = nullptr) {
    const ::osg::NodePtr node = ::osg::Node::create();
    node->setCore(geometry);
    if (name != nullptr)
        ::osg::setName(node, name);
    return node;
}

/// A geometry of primitives over the given positions, unindexed.
inline ::osg::GeometryPtr geometryOf(const std::vector<std::pair<int, unsigned>>& primitives,
                                     const std::vector<::osg::Pnt3f>& positions) {
    const ::osg::GeometryPtr geometry = ::osg::Geometry::create();
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    for (const auto& [type, length] : primitives) {
        types->editField().push_back(static_cast<::osg::UInt8>(type));
        lengths->editField().push_back(length);
    }
    const ::osg::GeoPositions3fPtr points = ::osg::GeoPositions3f::create();
    for (const ::osg::Pnt3f& p : positions)
        points->editField().push_back(p);
    geometry->setTypes(types);
    geometry->setLengths(lengths);
    geometry->setPositions(points);
    return geometry;
}

/// `count` positions on a coarse grid.
inline std::vector<::osg::Pnt3f> gridPoints(std::mt19937& rng, std::size_t count) {
    std::vector<::osg::Pnt3f> points(count);
    for (::osg::Pnt3f& p : points) {
        for (::osg::UInt32 axis = 0; axis < 3; ++axis) {
            p[axis] = static_cast<float>(rng() % 9) * 0.25F - 1.0F;
        }
    }
    return points;
}

inline void addNormals(const ::osg::GeometryPtr& geometry, std::mt19937& rng, std::size_t count) {
    const ::osg::GeoNormals3fPtr normals = ::osg::GeoNormals3f::create();
    for (std::size_t i = 0; i < count; ++i) {
        normals->editField().push_back(rng() % 2 == 0 ? ::osg::Vec3f(0, 0, 1)
                                                      : ::osg::Vec3f(1, 0, 0));
    }
    geometry->setNormals(normals);
}

inline ::osg::GeoColors3fPtr someColors(std::mt19937& rng, std::size_t count) {
    const ::osg::GeoColors3fPtr colors = ::osg::GeoColors3f::create();
    for (std::size_t i = 0; i < count; ++i) {
        colors->editField().push_back(
            ::osg::Color3f(static_cast<float>(rng() % 5) * 0.25F, 0.5F, 1.0F));
    }
    return colors;
}

inline void addIndex(const ::osg::GeometryPtr& geometry, std::mt19937& rng, layout form,
                     std::size_t vertices, std::size_t rows) {
    if (form == layout::plain)
        return;
    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    std::size_t per_vertex = 1;
    if (form == layout::index_per_property) {
        ::osg::MFUInt16& mapping = *geometry->editMFIndexMapping();
        mapping.push_back(
            static_cast<::osg::UInt16>(::osg::Geometry::MapPosition | ::osg::Geometry::MapColor));
        mapping.push_back(static_cast<::osg::UInt16>(::osg::Geometry::MapNormal |
                                                     ::osg::Geometry::MapSecondaryColor));
        per_vertex = 2;
    }
    for (std::size_t i = 0; i < vertices * per_vertex; ++i) {
        indices->editField().push_back(static_cast<::osg::UInt32>(rng() % rows));
    }
    geometry->setIndices(indices);
}

/// Random primitives of all types that hold lines, and one of triangles among them.
inline ::osg::GeometryPtr randomLines(std::mt19937& rng, layout form) {
    std::vector<std::pair<int, unsigned>> primitives;
    std::size_t vertices = 0;
    for (int i = 0; i < 5; ++i) {
        const int types[] = {1, 2, 3, 4, 0};
        unsigned length = static_cast<unsigned>(rng() % 4) * 2;
        const int type = types[rng() % 5];
        if (type == 3 && length > 0)
            length -= 1;
        if (type == 2 || type == 3)
            length += 2; // a strip of none wraps the count of lines
        primitives.emplace_back(type, length);
        vertices += length;
    }
    primitives.emplace_back(1, 2);
    vertices += 2;
    const std::size_t rows = form == layout::plain ? vertices : 5 + rng() % 9;
    const ::osg::GeometryPtr geometry = geometryOf(primitives, gridPoints(rng, rows));
    if (rng() % 2 == 0)
        addNormals(geometry, rng, rows);
    if (rng() % 2 == 0)
        geometry->setColors(someColors(rng, rows));
    if (rng() % 3 == 0)
        geometry->setSecondaryColors(someColors(rng, rows));
    addIndex(geometry, rng, form, vertices, rows);
    return geometry;
}

} // namespace flat
