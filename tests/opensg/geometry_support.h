#pragma once

// Small geometries for the tests of geometry, and what they hold as plain vectors.

#include "tests/support/test.h"

namespace geometry_test {

using namespace osg;

using numbers = std::vector<UInt32>;
using points = std::vector<Pnt3f>;
using primitives = std::vector<std::pair<UInt32, UInt32>>; ///< GL mode, length
using corners = std::array<Int32, 3>;                      ///< position indices of a triangle

/// Without a list of its own there is no property.
inline GeometryRefPtr makeCore(const points& positions, const primitives& all,
                               const numbers& indices = {},
                               const std::vector<UInt16>& mapping = {}) {
    return GeometryRefPtr(geometryOf({all, positions, {}, {}, {}, {}, {}, indices, mapping}));
}

/// One run of triangles without indices.
inline GeometryRefPtr makeTriangles(const points& positions) {
    return makeCore(positions, {{GL_TRIANGLES, UInt32(positions.size())}});
}

template <class PropertyPtr> numbers numbersOf(const PropertyPtr& property) {
    numbers values;
    for (UInt32 i = 0; property != NullFC && i < property->getSize(); ++i)
        values.push_back(property->getValue(i));
    return values;
}
inline numbers indicesOf(const GeometryRefPtr& core) { return numbersOf(core->getIndices()); }
inline std::vector<UInt16> mappingOf(const GeometryRefPtr& core) {
    return core->getMFIndexMapping()->getValues();
}

/// Positions of all triangles, which must count up.
inline std::vector<corners> trianglesOf(const GeometryRefPtr& core) {
    std::vector<corners> triangles;
    for (TriangleIterator it = core->beginTriangles(); it != core->endTriangles(); ++it) {
        EXPECT_EQ(it.getIndex(), Int32(triangles.size()));
        triangles.push_back(
            {it.getPositionIndex(0), it.getPositionIndex(1), it.getPositionIndex(2)});
    }
    return triangles;
}

/// Calls `visit` with the iterator and the number of each corner of all triangles.
template <class Visit> void forEachCorner(const GeometryRefPtr& core, const Visit& visit) {
    for (TriangleIterator it = core->beginTriangles(); !it.isAtEnd(); ++it) {
        for (Int32 k = 0; k < 3; ++k)
            visit(it, k);
    }
}

/// Comparable whatever the order of the triangles and their first corners; winding counts.
inline std::vector<corners> sorted(std::vector<corners> triangles) {
    for (corners& t : triangles)
        std::rotate(t.begin(), std::min_element(t.begin(), t.end()), t.end());
    std::sort(triangles.begin(), triangles.end());
    return triangles;
}

/// The quad and the roof: two triangles each that share an edge, flat and at a right angle.
inline points quadPoints() {
    return {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
}
inline points roofPoints() {
    return {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {0, 0, 0}, {0, 0, 1}};
}
/// Cells of a grid, a lower and an upper triangle each, every corner on its own.
inline points gridPoints(int cells) {
    points all;
    for (int i = 0; i < cells * cells; ++i) {
        for (const Pnt3f& p : quadPoints())
            all.push_back(p + Vec3f(Real32(i / cells), Real32(i % cells), 0.f));
    }
    return all;
}

} // namespace geometry_test
