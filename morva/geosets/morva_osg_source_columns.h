#pragma once

// What extraction reads of a node's geometry: its properties as plain values, found by vertex
// number, and the way to the world.
//
//     source_columns from(core);
//     from.normals.at(vertex)                 the value, zero where the index leads nowhere
//     from.ids.hasIndex(vertex)               no mapping entry and -1 are no index
//
// Holds the properties as they are when it is made. One thread each; any number side by side.

#include <cstddef>
#include <limits>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGQuaternion.h>

#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_span.h>
#include <morva/geosets/morva_osg_triangle_walk.h>

namespace morva::osg {

/// The way from a node's space to the world.
class to_world_move {
  public:
    explicit to_world_move(const ::osg::NodePtr& node) {
        const ::osg::Matrix matrix = node->getToWorld();
        for (::osg::UInt32 column = 0; column < 4; ++column) {
            for (::osg::UInt32 row = 0; row < 3; ++row)
                m[column][row] = matrix[column][row];
        }
        ::osg::Vec3f translation, scale;
        ::osg::Quaternion scale_orientation;
        matrix.getTransform(translation, rotation, scale, scale_orientation);
    }

    ::osg::Pnt3f operator()(const ::osg::Pnt3f& p) const {
        ::osg::Pnt3f moved;
        for (::osg::UInt32 row = 0; row < 3; ++row)
            moved[row] = m[0][row] * p[0] + m[1][row] * p[1] + m[2][row] * p[2] + m[3][row];
        return moved;
    }
    /// Normals are turned, not scaled.
    ::osg::Vec3f operator()(const ::osg::Vec3f& n) const {
        ::osg::Vec3f turned;
        rotation.multVec(n, turned);
        const float length = turned.length();
        return length < shortest_normal ? turned : turned * (1.0F / length);
    }

  private:
    /// Vectors shorter than this are not scaled to length 1.
    static constexpr float shortest_normal = 1e-6F;

    float m[4][3];
    ::osg::Quaternion rotation;
};

/// One property of the source as plain values.
template <typename Value> class source_column {
  public:
    template <typename Role>
    source_column(const Role& property, const vertex_stream& stream, ::osg::UInt16 bit)
        : vertices(stream), has(property != ::osg::NullFC), slot(stream.slotOf(bit)),
          block(readBlock(property)), values(block.view()) {}
    source_column(const source_column&) = delete;
    source_column& operator=(const source_column&) = delete;

    bool present() const { return has; }
    std::size_t size() const { return values.size(); }
    /// Whether a vertex has an index here at all, be it one that leads nowhere.
    bool hasIndex(std::size_t vertex) const {
        const std::size_t row = vertices.index(vertex, slot);
        return row != vertex_stream::nowhere && row != no_index;
    }

    /// Replaces all values by what `change` makes of them.
    template <typename Change> void changeAll(const Change& change) {
        changed.reserve(values.size());
        for (const Value& value : values)
            changed.push_back(change(value));
        values = changed;
    }
    /// Value of a vertex, or null where its index leads nowhere.
    const Value* find(std::size_t vertex) const {
        const std::size_t row = vertices.index(vertex, slot);
        return row < values.size() ? values.data() + row : nullptr;
    }
    /// The same, zero for nowhere.
    Value at(std::size_t vertex) const {
        const Value* value = find(vertex);
        return value != nullptr ? *value : Value();
    }

  private:
    /// -1, as indices are stored.
    static constexpr std::size_t no_index = std::numeric_limits<::osg::UInt32>::max();

    const vertex_stream& vertices;
    bool has;
    int slot;
    property_block<Value> block;
    std::vector<Value> changed; ///< empty until changeAll()
    span<const Value> values;
};

/// A property, or null for one without values: those are as good as none.
template <typename Role> Role filled(const Role& property) {
    return property != ::osg::NullFC && property->size() == 0 ? Role() : property;
}

/// All that is read of a source.
struct source_columns {
    explicit source_columns(const ::osg::GeometryPtr& core)
        : vertices(core), positions(core->getPositions(), vertices, ::osg::Geometry::MapPosition),
          normals(filled(core->getNormals()), vertices, ::osg::Geometry::MapNormal),
          colors(filled(core->getColors()), vertices, ::osg::Geometry::MapColor),
          secondary(filled(core->getSecondaryColors()), vertices,
                    ::osg::Geometry::MapSecondaryColor),
          texcoords{{filled(core->getTexCoords()), vertices, ::osg::Geometry::MapTexCoords},
                    {filled(core->getTexCoords1()), vertices, ::osg::Geometry::MapTexCoords1},
                    {filled(core->getTexCoords2()), vertices, ::osg::Geometry::MapTexCoords2},
                    {filled(core->getTexCoords3()), vertices, ::osg::Geometry::MapTexCoords3}},
          ids(core->getTexCoords7(), vertices, ::osg::Geometry::MapTexCoords7) {}
    source_columns(const source_columns&) = delete;
    source_columns& operator=(const source_columns&) = delete;

    vertex_stream vertices;
    source_column<::osg::Pnt3f> positions;
    source_column<::osg::Vec3f> normals;
    source_column<::osg::Color3f> colors, secondary;
    source_column<::osg::Vec2f> texcoords[4];
    source_column<::osg::Vec2f> ids;
};

} // namespace morva::osg
