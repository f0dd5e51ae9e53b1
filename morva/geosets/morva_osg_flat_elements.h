#pragma once

// What the line and the point geoset have in common: flat elements of a fixed number of vertices,
// held unindexed in the fields of one private geometry.
//
//     source geometry --walk--> vertex_indices per corner --source_fields--> values
//                                       values --target_fields--> fields of the private geometry
//
// A geoset that uses these templates has the members geometry, size, wished_size,
// vertex_capacity, vertex_count, names, resize_failed and bbox, the constant `corners`, and the
// operations resizeFieldContainers() and setup(). Five properties are carried: positions,
// normals, colours, secondary colours and texture coordinates 7, which hold the ID.
//
// One owner at a time. Source blocks are read once, so that the loops run on plain values.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <iostream>
#include <limits>
#include <new>
#include <string>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGPrimitiveIterator.h>
#include <OpenSG/OSGQuaternion.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

/// Where one vertex finds its values in the source's properties; -1 where there is none.
struct vertex_indices {
    ::osg::Int32 position = -1;
    ::osg::Int32 normal = -1;
    ::osg::Int32 color = -1;
    ::osg::Int32 secondary = -1;
    ::osg::Int32 id = -1;
};

/// Reads the indices of a geometry's vertices; -1 for what its mapping does not name.
class index_reader {
  public:
    explicit index_reader(const ::osg::GeometryPtr& geometry);

    /// Those of vertex `which` of the primitive that the iterator stands at.
    vertex_indices operator()(const ::osg::PrimitiveIterator& it, ::osg::UInt32 which) const;

  private:
    bool position, normal, color, secondary, id; ///< whether there is an index
};

/// Keeps a walk over primitives inside what the geometry really has: lengths are input and may
/// promise more vertices than there are indices, or positions where nothing is indexed.
class vertex_budget {
  public:
    explicit vertex_budget(const ::osg::GeometryPtr& geometry);

    /// Takes the vertices of the next primitive, and returns how many of them are there.
    ::osg::UInt32 take(::osg::UInt32 length) {
        const auto there = static_cast<::osg::UInt32>(std::min<std::uint64_t>(length, left));
        left -= there;
        return there;
    }

  private:
    std::uint64_t left = 0;
};

/// Values of the five properties of a source geometry, as blocks.
struct source_fields {
    explicit source_fields(const ::osg::GeometryPtr& geometry);

    property_block<::osg::Pnt3f> positions;
    property_block<::osg::Vec3f> normals;
    property_block<::osg::Color3f> colors;
    property_block<::osg::Color3f> secondary;
    property_block<::osg::Vec2f> ids;
    bool has_normals, has_colors, has_secondary, has_ids;
};

/// Rows of one property that is being filled: plain memory where the stored form is the usual
/// one, the property's own interface otherwise.
template <typename Value, typename Ptr> struct field_rows {
    ::osg::RefPtr<Ptr> property; ///< null: the geoset has no such property
    Value* rows = nullptr;

    bool present() const { return property != ::osg::NullFC; }
    void put(std::size_t row, const Value& value) {
        if (rows != nullptr) {
            rows[row] = value;
        } else {
            property->setValue(value, static_cast<::osg::UInt32>(row));
        }
    }
};

/// The properties of a geoset's geometry while elements are appended. New ones belong to the
/// geometry only once store() has run.
struct target_fields {
    /// Takes the properties that `target` has, and makes those that `source` has and it lacks, or
    /// that IDs need, with `vertices` rows of the default: white, (0, 1, 0), ID 0.
    target_fields(const ::osg::GeometryPtr& target, const ::osg::GeometryPtr& source,
                  bool write_ids, std::size_t vertices);

    /// Rows that every property has.
    std::size_t room() const;

    /// Hands all properties to the geometry; the IDs only `with_ids`.
    void store(const ::osg::GeometryPtr& target, bool with_ids) const;

    ::osg::RefPtr<::osg::GeoPTypesPtr> types;
    ::osg::RefPtr<::osg::GeoPLengthsPtr> lengths;
    field_rows<::osg::Pnt3f, ::osg::GeoPositionsPtr> positions;
    field_rows<::osg::Vec3f, ::osg::GeoNormalsPtr> normals;
    field_rows<::osg::Color3f, ::osg::GeoColorsPtr> colors;
    field_rows<::osg::Color3f, ::osg::GeoColorsPtr> secondary;
    ::osg::RefPtr<::osg::GeoTexCoordsPtr> ids;
    ::osg::Real32* id_rows = nullptr; ///< null: not stored as one component

    void putId(std::size_t row, const ::osg::Vec2f& value);
};

/// Moves vertices to world coordinates, or leaves them as they are.
class world_mover {
  public:
    world_mover(const ::osg::NodePtr& node, bool to_world);
    ::osg::Pnt3f point(const ::osg::Pnt3f& p) const;
    ::osg::Vec3f normal(const ::osg::Vec3f& n) const;

  private:
    bool moves;
    ::osg::Matrix matrix;
    ::osg::Quaternion rotation;
};

/// Appends one element whose vertices have the given source indices at row `first`.
/// corners   of the element
/// write_ids the source's own ID if its first corner has one, else `id` for all corners
void appendElement(target_fields& target, const source_fields& source, const world_mover& mover,
                   const vertex_indices* vertices, unsigned int corners, std::size_t first,
                   bool write_ids, int id);

/// Name under which the ID map knows a node: its own, or else its core's unless that is empty. Null
/// for none.
const ::osg::Char8* mapName(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry);

/// Enters a node in the ID map with its box, in the world or its own, and returns its ID.
int enterInMap(const ::osg::NodePtr& node, const std::string& name, bool to_world);

/// The ID of a node's vertices: 0 when none is wanted or registration is off. A node without a
/// name gets none: one line on standard output, and `write_ids` becomes false.
int vertexId(const ::osg::NodePtr& node, const ::osg::GeometryPtr& geometry, bool to_world,
             bool& write_ids);

/// Gives the geoset's core a material if it has none: the source's own, or with `search` that of
/// the outermost material group above the node.
void adoptMaterial(const ::osg::GeometryPtr& target, const ::osg::NodePtr& node,
                   const ::osg::GeometryPtr& source, bool search);

/// Resizes the five properties, those that are present, to `vertices` rows.
void resizeFields(const ::osg::GeometryPtr& geometry, std::size_t vertices);

/// Whether each of the five properties has so many rows or is not there at all.
bool fieldsHold(const ::osg::GeometryPtr& geometry, std::size_t vertices);

/// Box of the first `vertices` positions, by strict comparisons from vertex 0 on; flat axes stay
/// flat. Zero without any, and for a null geometry.
float_box boxOfVertices(const ::osg::GeometryPtr& geometry, std::size_t vertices);

/// Resizes the fields of a geoset to `vertices` rows, and returns true. If that fails the old
/// length comes back, as far as possible, and the geoset never resizes again: false from then on.
template <typename Geoset> bool resizeOrMark(Geoset& geoset, std::size_t vertices) {
    if (geoset.resize_failed)
        return false;
    const ::osg::GeometryPtr geometry = geoset.geometry.get();
    if (geometry == ::osg::NullFC)
        return true;
    std::size_t present = 0;
    try {
        if (geometry->getPositions() != ::osg::NullFC) {
            present = geometry->getPositions()->size() / Geoset::corners * Geoset::corners;
        }
        resizeFields(geometry, vertices);
        return true;
    } catch (...) {
        std::cout << "Error while resizing FieldContainers." << std::endl;
        geoset.resize_failed = true;
    }
    try {
        resizeFields(geometry, present);
    } catch (...) {
        std::cout << "Error while resizing FieldContainers." << std::endl;
    }
    return false;
}

/// Back to a geoset without elements and with a fresh core; `vertex_capacity` is then 500000.
template <typename Geoset> void clearElements(Geoset& geoset) {
    geoset.names.clear();
    geoset.geometry = ::osg::Geometry::create();
    geoset.size = 0;
    geoset.wished_size = 0;
    geoset.resize_failed = false;
    geoset.vertex_capacity = 500000;
    geoset.vertex_count = 0;
}

/// One kind of extraction: its name in messages, its count and its walk.
template <typename Walk> struct extraction {
    const char* messages;  ///< start of the messages, as "Morva_osg_line_geoset_tools"
    unsigned int elements; ///< how many the source offers
    Walk walk;             ///< calls its argument with the vertex indices of each element
};

/// The geometry of a node that elements can be read from, or null after a message.
::osg::GeometryPtr extractable(const ::osg::NodePtr& node, const char* messages);

/// Room for `vertices` more rows; false after a line of output if there is none. The budget says
/// how long fields are to be; they may be shorter where it was set from outside or setup() has run.
template <typename Geoset> bool reserveRows(Geoset& geoset, std::uint64_t vertices) {
    const std::uint64_t needed = geoset.vertex_count + vertices;
    if (needed > std::numeric_limits<unsigned int>::max())
        throw std::bad_alloc();
    if (geoset.vertex_capacity >= needed && fieldsHold(geoset.geometry.get(), needed))
        return true;
    geoset.vertex_capacity = std::max(geoset.vertex_capacity, needed);
    if (!geoset.resizeFieldContainers(static_cast<unsigned int>(needed)))
        return false;
    geoset.vertex_count = std::min(geoset.vertex_count, geoset.vertex_capacity);
    return true;
}

/// Appends all elements that `kind` walks over; exceptions leave the geoset's elements as before.
template <typename Geoset, typename Walk>
void appendElements(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source, Geoset& geoset,
                    const extraction<Walk>& kind, bool to_world, bool search, bool write_ids) {
    constexpr unsigned int corners = Geoset::corners;
    const ::osg::GeometryPtr core = geoset.geometry.get();
    const std::uint64_t offered = std::uint64_t(corners) * kind.elements;
    if (!reserveRows(geoset, offered))
        return;

    const open_edit edit(core);
    target_fields target(core, source, write_ids, geoset.vertex_capacity);
    adoptMaterial(core, node, source, search);
    write_ids = write_ids || target.ids != ::osg::NullFC;
    std::uint64_t row = geoset.vertex_count;
    // Both kinds are stored as GL_LINES.
    if (target.types != ::osg::NullFC && target.types->size() == 0)
        target.types->addValue(1);
    if (target.lengths != ::osg::NullFC) {
        if (target.lengths->size() == 0)
            target.lengths->addValue(0);
        const int id = vertexId(node, source, to_world, write_ids);
        const source_fields values(source);
        const world_mover mover(node, to_world);
        const std::size_t room = target.room();
        kind.walk(source, [&](const vertex_indices* vertices) {
            if (row + corners > room)
                return false;
            appendElement(target, values, mover, vertices, corners, row, write_ids, id);
            row += corners;
            return true;
        });
    }
    target.store(core, write_ids);
    if (target.lengths != ::osg::NullFC)
        target.lengths->setValue(target.lengths->getValue(0) + static_cast<::osg::UInt32>(offered),
                                 0);
    geoset.vertex_count = row; // all of it, or nothing
}

/// The frame of both extractions: checks, handlers, set-up. Returns 0 always.
template <typename Geoset, typename Count, typename Walk>
unsigned int extractElements(const ::osg::NodePtr& node, Geoset& geoset, const char* messages,
                             Count count, Walk walk, bool to_world, bool search, bool write_ids,
                             bool run_setup) {
    const ::osg::GeometryPtr source = extractable(node, messages);
    if (source == ::osg::NullFC)
        return 0;
    if (geoset.geometry == ::osg::NullFC) {
        std::cout << "Morva_osg_geoset_tools::Extract: No Geometry in geoset!" << std::endl;
        return 0;
    }
    const extraction<Walk> kind{messages, count(source), walk};
    if (kind.elements == 0)
        return 0;
    try {
        appendElements(node, source, geoset, kind, to_world, search, write_ids);
    } catch (const std::bad_alloc& error) {
        std::cerr << "bad_alloc caught in Extract geometry in morva::osg_line_geoset: "
                  << error.what() << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "Standard exception in Extract geometry in morva::osg_line_geoset: "
                  << error.what() << std::endl;
    } catch (...) {
        std::cerr << "Error occured in Extract geometry in morva::osg_line_geoset." << std::endl;
    }
    if (run_setup)
        geoset.setup();
    return 0;
}

} // namespace morva::osg
