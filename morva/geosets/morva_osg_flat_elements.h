#pragma once

// What the line and the point geoset have in common: flat elements of a fixed number of vertices,
// held unindexed in the fields of one private geometry.
//
//     source geometry --walk--> vertex numbers per element --source_columns--> values
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

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_math.h>
#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_span.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_source_columns.h>

namespace morva::osg {

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
    target_fields(const ::osg::GeometryPtr& target, const source_columns& source, bool write_ids,
                  std::size_t vertices);

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

/// Appends one element of these source vertices at row `first`.
/// move      to the world; null: values stay as they are
/// write_ids the source's own ID if its first corner has one, else `id` for all corners
void appendElement(target_fields& target, const source_columns& source, const to_world_move* move,
                   span<const std::size_t> vertices, std::size_t first, bool write_ids, int id);

/// Makes the one primitive of a core, of `type` and empty, if there is none.
void makePrimitive(const ::osg::GeoPTypesPtr& types, const ::osg::GeoPLengthsPtr& lengths,
                   ::osg::UInt8 type);

/// Counts `more` vertices in the one primitive. Cannot fail.
void countVertices(const ::osg::GeoPLengthsPtr& lengths, std::uint64_t more);

/// Makes the length of a core's one primitive that of the vertices in use. Extraction counts what
/// sources claim by their lengths, which may be more than it kept, or less; so this comes before
/// anything walks the core. What is not one unindexed run stays, and so does a null core.
void settleLength(const ::osg::GeometryPtr& core, std::uint64_t vertices);

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

/// Appends all elements that `walk` finds, or none: what can fail comes before the counts.
/// Exceptions leave the geoset's elements as before.
template <typename Geoset, typename Walk>
void appendElements(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source, Geoset& geoset,
                    const element_offer& offer, const Walk& walk, bool to_world, bool search,
                    bool write_ids) {
    constexpr unsigned int corners = Geoset::corners;
    const ::osg::GeometryPtr core = geoset.geometry.get();
    if (!reserveRows(geoset, corners * offer.room))
        return;

    const open_edit edit(core);
    const source_columns from(source);
    target_fields target(core, from, write_ids, geoset.vertex_capacity);
    adoptMaterial(core, node, source, search);
    write_ids = write_ids || target.ids != ::osg::NullFC;
    // Both kinds are stored as GL_LINES.
    makePrimitive(target.types.get(), target.lengths.get(), 1);
    const int id = vertexId(node, source, to_world, write_ids);
    const to_world_move move(node);
    std::uint64_t row = geoset.vertex_count;
    const std::size_t room = target.room();
    walk(source, from.vertices, [&](span<const std::size_t> vertices) {
        if (row + corners > room) // only where a field could not grow
            return;
        appendElement(target, from, to_world ? &move : nullptr, vertices, row, write_ids, id);
        row += corners;
    });
    target.store(core, write_ids);
    countVertices(target.lengths.get(), corners * offer.counted);
    geoset.vertex_count = row;
}

/// The frame of both extractions: checks, handlers, set-up. Returns 0 always.
///
/// messages  start of the messages, as "Morva_osg_line_geoset_tools"
/// walk      calls its last argument with the vertex numbers of each element
template <typename Geoset, typename Walk>
unsigned int extractElements(const ::osg::NodePtr& node, Geoset& geoset, const char* messages,
                             const Walk& walk, bool to_world, bool search, bool write_ids,
                             bool run_setup) {
    const ::osg::GeometryPtr source = extractable(node, messages);
    if (source == ::osg::NullFC)
        return 0;
    if (geoset.geometry == ::osg::NullFC) {
        std::cout << "Morva_osg_geoset_tools::Extract: No Geometry in geoset!" << std::endl;
        return 0;
    }
    const element_offer offer = offerOf(source, Geoset::corners);
    if (offer.room == 0)
        return 0;
    try {
        appendElements(node, source, geoset, offer, walk, to_world, search, write_ids);
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
