#pragma once

// The primitives and triangles of a geometry by vertex number, over plain arrays.
//
//     vertex_stream vertices(geometry);          what follows each other in the primitives
//     walkTriangles(geometry, vertices, [&](UInt32 a, UInt32 b, UInt32 c) { ... });
//     vertices.index(a, slot)                    where vertex a finds a property's value
//
//     strip   0 1 2, 2 1 3, 2 3 4, 4 3 5, ...    fan    0 1 2, 0 2 3, ...
//     quads   0 1 2, 0 2 3, 4 5 6, 4 6 7, ...    quad strips as strips, polygons as fans
//
// Whole triangles come in the order of the scene graph's iterator, whose index functions this
// spares: strips pass over what has two equal position indices, save their first triangle. What
// fills no triangle or quad at the end of a primitive is left out here; the iterator still makes a
// triangle of it where the arrays go on behind the primitive, and ends where they don't. Lengths
// are input: a primitive that claims more vertices than there are ends where they end. Without
// lengths every primitive claims as many as there are, so that the first one has them all.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>

#include <OpenSG/OSGGeometry.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// Indices that each vertex has, in a geometry with indices.
inline std::size_t indicesPerVertex(const ::osg::GeometryPtr& geometry) {
    return std::max<std::size_t>(1, geometry->getMFIndexMapping()->size());
}

/// Vertices that there is data for, whatever the lengths claim.
inline std::size_t verticesOf(const ::osg::GeometryPtr& geometry) {
    if (geometry->getIndices() != ::osg::NullFC)
        return geometry->getIndices()->size() / indicesPerVertex(geometry);
    return geometry->getPositions() != ::osg::NullFC ? geometry->getPositions()->size() : 0;
}

/// How the vertices of a geometry find their values. Holds the indices as they were when it was
/// made.
class vertex_stream {
  public:
    static constexpr int absent = -1;
    static constexpr std::size_t nowhere = std::numeric_limits<std::size_t>::max();

    explicit vertex_stream(const ::osg::GeometryPtr& geometry)
        : mapping(geometry), indexed(geometry->getIndices() != ::osg::NullFC),
          block(readBlock(geometry->getIndices())), indices(block.view()),
          stride(indicesPerVertex(geometry)), count(verticesOf(geometry)) {}

    /// Vertices that there is data for.
    std::size_t size() const { return count; }

    /// Place of a property's index among those of a vertex, by its mapping bit; `absent` if the
    /// mapping does not have it.
    int slotOf(::osg::UInt16 bit) const {
        if (!indexed || mapping->getMFIndexMapping()->size() == 0)
            return 0;
        return mapping->calcMappingIndex(bit);
    }

    /// Row of a vertex's value; `nowhere` for an absent slot.
    std::size_t index(std::size_t vertex, int slot) const {
        if (slot < 0)
            return nowhere;
        return indexed ? indices[vertex * stride + static_cast<std::size_t>(slot)] : vertex;
    }

  private:
    ::osg::GeometryPtr mapping;
    bool indexed;
    property_block<::osg::UInt32> block;
    span<const ::osg::UInt32> indices;
    std::size_t stride;
    std::size_t count;
};

/// Calls `use` with type, first vertex and length of each primitive, inside `vertices`, which are
/// those that there is data for.
template <typename Use>
void forEachPrimitive(const ::osg::GeometryPtr& geometry, std::size_t vertices, const Use& use) {
    const ::osg::GeoPTypesPtr types = geometry->getTypes();
    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    if (types == ::osg::NullFC)
        return;
    const bool listed = lengths != ::osg::NullFC;
    const ::osg::UInt32 primitives =
        listed ? std::min(types->size(), lengths->size()) : types->size();
    std::size_t first = 0;
    for (::osg::UInt32 i = 0; i < primitives && first < vertices; ++i) {
        const std::size_t claimed = listed ? lengths->getValue(i) : vertices;
        use(::osg::UInt32(types->getValue(i)), first, std::min(claimed, vertices - first));
        first += claimed;
    }
}

namespace detail {

template <typename Use>
void walkStrip(std::size_t first, std::size_t length, const vertex_stream& vertices, int positions,
               const Use& use) {
    for (std::size_t i = 0; i + 2 < length; ++i) {
        const std::size_t odd = i & 1;
        const std::size_t a = first + i + odd, b = first + i + 1 - odd, c = first + i + 2;
        const std::size_t pa = vertices.index(a, positions), pb = vertices.index(b, positions),
                          pc = vertices.index(c, positions);
        if (i == 0 || (pa != pb && pb != pc && pc != pa))
            use(a, b, c);
    }
}

} // namespace detail

/// Calls `use` with the three vertex numbers of each triangle.
template <typename Use>
void walkTriangles(const ::osg::GeometryPtr& geometry, const vertex_stream& vertices,
                   const Use& use) {
    const int positions = vertices.slotOf(::osg::Geometry::MapPosition);
    const auto walk = [&](::osg::UInt32 type, std::size_t first, std::size_t length) {
        switch (type) {
        case 4: // triangles
            for (std::size_t v = 0; v + 2 < length; v += 3)
                use(first + v, first + v + 1, first + v + 2);
            break;
        case 5: // strip
        case 8: // quad strip
            detail::walkStrip(first, length, vertices, positions, use);
            break;
        case 6: // fan
        case 9: // polygon
            for (std::size_t v = 2; v < length; ++v)
                use(first, first + v - 1, first + v);
            break;
        case 7: // quads
            for (std::size_t v = 0; v + 3 < length; v += 4) {
                use(first + v, first + v + 1, first + v + 2);
                use(first + v, first + v + 2, first + v + 3);
            }
            break;
        default:
            break;
        }
    };
    forEachPrimitive(geometry, vertices.size(), walk);
}

} // namespace morva::osg
