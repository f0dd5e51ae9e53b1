// From a node's geometry to the flat rows of a geoset, for triangles, lines and points.

#include <morva/geosets/morva_osg_extract_options.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_sink.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_element_intake.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_geoset_tools.h>
#include <morva/geosets/morva_osg_line_geoset_tools.h>
#include <morva/geosets/morva_osg_point_geoset_tools.h>

namespace morva::osg {

namespace {

/// What extraction into a kind of geoset says.
struct extract_texts {
    const char* source; ///< start of what it says of a node
    caught_texts caught;
};
constexpr extract_texts triangle_texts{"Morva_osg_geoset_tools",
                                       {"bad_alloc caught in Extract geometry in osg_geoset: ",
                                        "Standard exception in Extract geometry in osg_geoset: ",
                                        "Error occured in Extract geometry in osg_geoset."}};
constexpr caught_texts line_or_point{
    "bad_alloc caught in Extract geometry in morva::osg_line_geoset: ",
    "Standard exception in Extract geometry in morva::osg_line_geoset: ",
    "Error occured in Extract geometry in morva::osg_line_geoset."};
constexpr extract_texts line_texts{"Morva_osg_line_geoset_tools", line_or_point};
constexpr extract_texts point_texts{"Morva_osg_point_geoset_tools", line_or_point};

/// The geometry of a node that elements can be read from, or null after a message.
::osg::GeometryPtr extractable(const ::osg::NodePtr& node, const char* messages) {
    if (node == ::osg::NullFC) {
        say({messages, "::Extract: No Node"});
        return ::osg::NullFC;
    }
    const ::osg::NodeCorePtr core = node->getCore();
    if (core == ::osg::NullFC) {
        say({messages, "::Extract: No Core"});
        return ::osg::NullFC;
    }
    if (!core->getType().isDerivedFrom(::osg::Geometry::getClassType())) {
        say({messages, "::Extract: No GeometryCore"});
        return ::osg::NullFC;
    }
    const ::osg::GeometryPtr geometry = ::osg::GeometryPtr::dcast(core);
    if (geometry == ::osg::NullFC) {
        say({"No Geo."});
        return ::osg::NullFC;
    }
    return canBeExtracted(geometry) ? geometry : ::osg::GeometryPtr(::osg::NullFC);
}

/// Writes the normals of the triangles at vertices `begin` to `end`, from their corners alone.
void flatNormals(geoset_fields& fields, std::size_t begin, std::size_t end) {
    ::osg::Vec3f normal;
    if (begin > 0)
        normal = fields.normals.value(begin - 1);
    for (std::size_t v = begin; v < end; v += 3) {
        const ::osg::Pnt3f a = fields.positions.value(v);
        ::osg::Vec3f across =
            (fields.positions.value(v + 1) - a).cross(fields.positions.value(v + 2) - a);
        if (across[0] != 0.0F || across[1] != 0.0F || across[2] != 0.0F) {
            across.normalize();
            normal = across;
        }
        for (std::size_t k = 0; k < 3; ++k)
            fields.normals.put(v + k, normal);
    }
}

/// Writes a value to all rows of a property. Takes no reference: nobody may hold it yet.
template <typename Role, typename Value> void fillRows(const Role& property, const Value& value) {
    if (property == ::osg::NullFC)
        return;
    const auto usual = usual_form<Role>::dcast(property);
    if (usual != ::osg::NullFC) {
        std::fill(usual->editField().begin(), usual->editField().end(), value);
        return;
    }
    for (::osg::UInt32 i = 0; i < property->size(); ++i)
        property->setValue(value, i);
}

} // namespace

/// The way into a geoset for all kinds: to what is its own, too.
struct element_appender {
    /// Makes room for `needed` vertices, or returns false after a line of output. The budget says
    /// how long fields are to be; they may be shorter where it was set from outside or setup() has
    /// run.
    template <typename Geoset> static bool makeRoom(Geoset& geoset, std::uint64_t needed) {
        if (needed > std::numeric_limits<unsigned int>::max())
            throw std::bad_alloc();
        bool shorter = false;
        fieldsOf(geoset).forEachPresent([&](const auto& slot) { shorter |= slot.size() < needed; });
        const bool within = geoset.vertex_capacity >= needed && !shorter;
        geoset.vertex_capacity = std::max(geoset.vertex_capacity, needed);
        if constexpr (Geoset::corners == 3) {
            if (geoset.lean)
                return !shorter || geoset.resizeRows(needed);
        }
        return within || geoset.resizeFieldContainers(static_cast<unsigned int>(needed));
    }

    /// Length of new fields. setup() makes a filled one of triangles three times as long, unless
    /// the geoset is lean.
    template <typename Geoset>
    static target_rows newRows(const Geoset& geoset, std::uint64_t needed) {
        if constexpr (Geoset::corners == 3)
            return geoset.lean ? target_rows{needed, geoset.vertex_capacity}
                               : target_rows{geoset.vertex_capacity, 3 * geoset.vertex_capacity};
        return {geoset.vertex_capacity, geoset.vertex_capacity};
    }

    /// All elements of a node, or none if memory runs out: what can fail comes before the counts.
    ///
    /// left_out  counts triangles that must not be kept
    template <typename Geoset>
    static void append(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source, Geoset& geoset,
                       const element_offer& offer, const extract_options& options,
                       unsigned int& left_out) {
        constexpr unsigned int corners = Geoset::corners;
        const ::osg::GeometryPtr core = geoset.geometry.get();
        const std::uint64_t offered = corners * offer.room;
        if (!makeRoom(geoset, geoset.vertex_count + offered))
            return;

        const open_edit edit(core);
        // After room was made: a property may be source and target.
        const geometry_columns from(source, extracted_properties);
        target_columns target(core, from, corners, options.write_ids,
                              newRows(geoset, geoset.vertex_count + offered));
        adoptMaterial(core, node, source, options.search_material);
        bool write_ids = options.write_ids || target.fields.ids.present();
        // Lines and points are both stored as GL_LINES.
        makePrimitive(target.types.get(), target.lengths.get(),
                      corners == 3 ? GL_TRIANGLES : GL_LINES);
        element_intake<corners> intake(from, target.fields, geoset.vertex_count, target.room(),
                                       left_out);
        intake.id =
            options.known_ids_only ? 0 : vertexId(node, source, options.to_world, write_ids);
        intake.write_ids = write_ids;
        const to_world_move move(node);
        if (options.to_world)
            intake.moveBy(move, offered);
        walkElements<corners>(from, [&intake](auto... corner) { intake.take(corner...); });
        intake.flush();
        target.store(core, write_ids);
        if constexpr (corners == 3) {
            if (!brings(from, vertex_property::normal) && target.fields.normals.present())
                geoset.flattenNormals(intake.nextRow());
        }
        countVertices(target.lengths.get(), corners * offer.counted);
        geoset.vertex_count = intake.nextRow();
    }
};

namespace {

/// The frame of all extractions: checks, handlers, set-up.
template <typename Geoset>
unsigned int extractElements(const ::osg::NodePtr& node, Geoset& geoset,
                             const extract_options& options, const extract_texts& texts) {
    const ::osg::GeometryPtr source = extractable(node, texts.source);
    if (source == ::osg::NullFC)
        return 0;
    if (geoset.geometry == ::osg::NullFC) {
        say({"Morva_osg_geoset_tools::Extract: No Geometry in geoset!"});
        return 0;
    }
    const element_offer offer = offerOf(source, Geoset::corners);
    if (offer.room == 0)
        return 0;
    // A source without coordinates is not even edited: it may be read by other threads.
    if (Geoset::corners == 3 && options.clean_texcoords && hasTexCoords(source) &&
        getImage(node) == ::osg::NullFC)
        dropTexCoords(source);

    unsigned int rogue = 0;
    try {
        element_appender::append(node, source, geoset, offer, options, rogue);
    } catch (...) {
        print_caught(texts.caught);
    }
    if (options.run_setup)
        geoset.setup();
    return rogue;
}

} // namespace

/// Gives every triangle of the first vertices the normal of its own plane at its three corners; one
/// without area takes that of the triangle before it. This is what calcCreaseNormals() comes to on
/// an unindexed core, whatever the angle: no two triangles have a vertex in common. So triangles
/// that were done before need not be done again, and many nodes without normals cost no more than
/// one.
void osg_geoset::flattenNormals(std::uint64_t vertices) {
    geoset_fields& present = fields();
    if (!present.positions.present() || !present.normals.present())
        return;
    if (present.normals.size() != present.positions.size())
        present.normals.get()->resize(present.positions.size());
    const std::size_t end = std::min<std::size_t>(vertices, present.positions.size()) / 3 * 3;
    const std::size_t begin = std::min(present.flat_normals, end);
    flatNormals(present, begin, end);
    present.flat_normals = end;
}

unsigned int extract(const ::osg::NodePtr& node, osg_geoset& geoset,
                     const extract_options& options) {
    return extractElements(node, geoset, options, triangle_texts);
}

unsigned int extract(const ::osg::NodePtr& node, osg_line_geoset& geoset,
                     const extract_options& options) {
    return extractElements(node, geoset, options, line_texts);
}

unsigned int extract(const ::osg::NodePtr& node, osg_point_geoset& geoset,
                     const extract_options& options) {
    return extractElements(node, geoset, options, point_texts);
}

unsigned int extract(const ::osg::NodePtr& node, osg_geoset& geoset, bool toWorld,
                     bool searchMaterial, bool writeIds, bool runSetup, bool cleanTexCoords) {
    return extract(node, geoset,
                   {toWorld, searchMaterial, writeIds, runSetup, cleanTexCoords, false});
}

unsigned int extract(const ::osg::NodePtr& node, osg_line_geoset& geoset, bool toWorld,
                     bool searchMaterial, bool writeIds, bool runSetup) {
    return extract(node, geoset, {toWorld, searchMaterial, writeIds, runSetup, false, false});
}

unsigned int extract(const ::osg::NodePtr& node, osg_point_geoset& geoset, bool toWorld,
                     bool searchMaterial, bool writeIds, bool runSetup) {
    return extract(node, geoset, {toWorld, searchMaterial, writeIds, runSetup, false, false});
}

bool hasTexCoords(const ::osg::GeometryPtr& geometry) {
    bool has = false;
    for (std::size_t unit = 0; unit < 4; ++unit)
        has = has || geometry->getProperty(mappingBit(textureUnit(unit))) != nullptr;
    return has;
}

void dropTexCoords(const ::osg::GeometryPtr& geometry) {
    const geometry_edit edit(geometry);
    for (std::size_t unit = 0; unit < 4; ++unit)
        setProperty(geometry, textureUnit(unit), ::osg::NullFC);
}

void fillFCwithValue(const ::osg::GeoColorsPtr& property, const ::osg::Color3f& value) {
    fillRows(property, value);
}

void fillFCwithValue(const ::osg::GeoTexCoordsPtr& property, const ::osg::Vec2f& value) {
    fillRows(property, value);
}

void fillFCwithValue(const ::osg::GeoNormalsPtr& property, const ::osg::Vec3f& value) {
    fillRows(property, value);
}

} // namespace morva::osg
