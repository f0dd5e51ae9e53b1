// From a node's geometry to the flat rows of a geoset. Triangles go through in portions that stay
// in the cache: their corners are collected by vertex number, the positions tell which triangles
// are kept, then each attribute is written in one loop.

#include <morva/geosets/morva_osg_geoset_tools.h>

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iostream>
#include <limits>
#include <new>
#include <type_traits>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_tools.h>
#include <morva/geosets/morva_osg_element_offer.h>
#include <morva/geosets/morva_osg_flat_elements.h>
#include <morva/geosets/morva_osg_geoset_fields.h>
#include <morva/geosets/morva_osg_source_columns.h>
#include <morva/geosets/morva_osg_triangle_walk.h>

namespace morva::osg {

namespace {

constexpr const char* message_source = "Morva_osg_geoset_tools";
const ::osg::Color3f white(1.0F, 1.0F, 1.0F);
const ::osg::Vec3f upward(0.0F, 1.0F, 0.0F);
/// Triangles that go through at a time.
constexpr std::size_t portion = 1024;

/// Length of new properties, and the one that they will grow to.
struct target_rows {
    std::size_t now;
    std::size_t later;
};

/// Turns a slot to the core's own property, or to a new one of `rows` zeros if the source has
/// values that the core has no place for; then true.
template <typename Slot, typename Role>
bool takeOrMake(Slot& slot, const Role& own, bool wanted, const target_rows& rows) {
    if (own != ::osg::NullFC) {
        slot.follow(own);
        return false;
    }
    if (wanted)
        slot.make(rows.now, rows.later);
    return wanted;
}

/// The same for primitive types and lengths, which every core needs and which start empty.
template <typename Concrete, typename Role>::osg::RefPtr<Role> ownOrNew(const Role& own) {
    if (own != ::osg::NullFC)
        return ::osg::RefPtr<Role>(own);
    return ::osg::RefPtr<Role>(Concrete::StoredObjectType::create());
}

/// The properties of a core while triangles are appended. New ones are the core's only after
/// store(); until then they go with this record.
struct target_columns {
    target_columns(const ::osg::GeometryPtr& core, const source_columns& from, bool write_ids,
                   const target_rows& rows)
        : types(ownOrNew<::osg::GeoPTypesUI8Ptr>(core->getTypes())),
          lengths(ownOrNew<::osg::GeoPLengthsUI32Ptr>(core->getLengths())) {
        takeOrMake(fields.positions, core->getPositions(), from.positions.present(), rows);
        if (takeOrMake(fields.normals, core->getNormals(), from.normals.present(), rows))
            fillFCwithValue(fields.normals.get(), upward);
        if (takeOrMake(fields.colors, core->getColors(), from.colors.present(), rows))
            fillFCwithValue(fields.colors.get(), white);
        if (takeOrMake(fields.secondary, core->getSecondaryColors(), from.secondary.present(),
                       rows))
            fillFCwithValue(fields.secondary.get(), white);
        const ::osg::GeoTexCoordsPtr units[4] = {core->getTexCoords(), core->getTexCoords1(),
                                                 core->getTexCoords2(), core->getTexCoords3()};
        for (int i = 0; i < 4; ++i)
            takeOrMake(fields.texcoords[i], units[i], from.texcoords[i].present(), rows);
        takeOrMake(fields.ids, core->getTexCoords7(), write_ids || from.ids.present(), rows);
    }

    /// Rows that all of them have.
    std::size_t room() {
        std::size_t rows = std::numeric_limits<std::size_t>::max();
        fields.forEachPresent([&rows](auto& slot) { rows = std::min(rows, slot.size()); });
        return rows;
    }

    void store(const ::osg::GeometryPtr& core, bool with_ids) const {
        core->setTypes(types.get());
        core->setLengths(lengths.get());
        core->setPositions(fields.positions.get());
        core->setNormals(fields.normals.get());
        core->setColors(fields.colors.get());
        core->setSecondaryColors(fields.secondary.get());
        core->setTexCoords(fields.texcoords[0].get());
        core->setTexCoords1(fields.texcoords[1].get());
        core->setTexCoords2(fields.texcoords[2].get());
        core->setTexCoords3(fields.texcoords[3].get());
        if (with_ids)
            core->setTexCoords7(fields.ids.get());
    }

    ::osg::RefPtr<::osg::GeoPTypesPtr> types;
    ::osg::RefPtr<::osg::GeoPLengthsPtr> lengths;
    geoset_fields fields;
};

/// Writes rows `first` on with what `make` gives for each of `count` vertices.
template <typename Slot, typename Make>
void writeRows(Slot& slot, std::size_t first, std::size_t count, const Make& make) {
    auto* rows = slot.data();
    if (rows == nullptr) {
        for (std::size_t i = 0; i < count; ++i)
            slot.put(first + i, make(i));
    } else if constexpr (std::is_same_v<typename Slot::value_type, typename Slot::stored_value>) {
        for (std::size_t i = 0; i < count; ++i)
            rows[first + i] = make(i);
    } else {
        for (std::size_t i = 0; i < count; ++i)
            rows[first + i] = make(i)[0];
    }
}

/// Takes triangles by vertex number and appends those that are to be kept.
class triangle_intake {
  public:
    triangle_intake(const source_columns& from, geoset_fields& to, std::size_t first_row,
                    std::size_t room, unsigned int& left_out)
        : source(from), target(to), row(first_row), rows(room), rogue(left_out) {}

    bool write_ids = false;
    int id = 0;                                ///< for vertices that bring none
    const to_world_move* move_point = nullptr; ///< for positions, null: they stay
    const to_world_move* move_normal = nullptr;

    void take(std::size_t a, std::size_t b, std::size_t c) {
        corner[pending++] = static_cast<::osg::UInt32>(a);
        corner[pending++] = static_cast<::osg::UInt32>(b);
        corner[pending++] = static_cast<::osg::UInt32>(c);
        if (pending == 3 * portion)
            flush();
    }

    /// Writes what is pending.
    void flush() {
        keepSound();
        if (pending > 0) {
            if (write_ids)
                writeIds();
            writeAttributes();
            row += pending;
        }
        pending = 0;
    }

    /// First row behind the last triangle.
    std::size_t nextRow() const { return row; }

  private:
    /// Writes the positions and closes the gaps of triangles that are left out.
    void keepSound() {
        ::osg::Pnt3f* rows_of_positions = target.positions.data();
        std::size_t kept = 0;
        for (std::size_t i = 0; i < pending; i += 3) {
            ::osg::Pnt3f p[3];
            if (!readTriangle(&corner[i], p) || is_rogue(p[0], p[1], p[2])) {
                ++rogue;
                continue;
            }
            if (row + kept + 3 > rows) // only where a field could not grow
                break;
            for (std::size_t k = 0; k < 3; ++k) {
                corner[kept + k] = corner[i + k];
                if (rows_of_positions != nullptr) {
                    rows_of_positions[row + kept + k] = p[k];
                } else {
                    target.positions.put(row + kept + k, p[k]);
                }
            }
            kept += 3;
        }
        pending = kept;
    }

    bool readTriangle(const ::osg::UInt32* vertex, ::osg::Pnt3f* p) const {
        for (int k = 0; k < 3; ++k) {
            const ::osg::Pnt3f* found = source.positions.find(vertex[k]);
            if (found == nullptr)
                return false;
            p[k] = move_point != nullptr ? (*move_point)(*found) : *found;
        }
        return true;
    }

    /// The first corner tells whether a triangle brings IDs; further ones that lead nowhere are 0.
    void writeIds() {
        const ::osg::Vec2f own(static_cast<float>(id), 0.0F);
        if (source.ids.present()) {
            bool brings = false;
            writeRows(target.ids, row, pending, [&](std::size_t i) {
                if (i % 3 == 0)
                    brings = source.ids.hasIndex(corner[i]);
                return brings ? source.ids.at(corner[i]) : own;
            });
        } else {
            writeRows(target.ids, row, pending, [&own](std::size_t) { return own; });
        }
    }

    void writeAttributes() {
        const auto as_is = [](const auto& value) { return value; };
        if (target.normals.present() && move_normal != nullptr) {
            writeColumn(target.normals, source.normals, upward, *move_normal);
        } else if (target.normals.present()) {
            writeColumn(target.normals, source.normals, upward, as_is);
        }
        if (target.colors.present())
            writeColumn(target.colors, source.colors, white, as_is);
        if (target.secondary.present())
            writeColumn(target.secondary, source.secondary, white, as_is);
        for (int i = 0; i < 4; ++i) {
            if (target.texcoords[i].present())
                writeColumn(target.texcoords[i], source.texcoords[i], ::osg::Vec2f(), as_is);
        }
    }

    template <typename Slot, typename Value, typename Change>
    void writeColumn(Slot& slot, const source_column<Value>& column, const Value& fill,
                     const Change& change) {
        if (column.present()) {
            writeRows(slot, row, pending,
                      [&](std::size_t i) { return change(column.at(corner[i])); });
        } else {
            writeRows(slot, row, pending, [&](std::size_t) { return fill; });
        }
    }

    const source_columns& source;
    geoset_fields& target;
    std::size_t row;  ///< next row to write
    std::size_t rows; ///< rows that every target property has
    unsigned int& rogue;
    std::size_t pending = 0;
    ::osg::UInt32 corner[3 * portion]; ///< vertex numbers, `pending` of them
};

/// Moves all values of a column at once where corners share them; false, and nothing happens,
/// where there are not many more corners than values.
template <typename Value>
bool moveAhead(source_column<Value>& column, const to_world_move& move, std::uint64_t corners) {
    if (2 * column.size() > corners)
        return false;
    column.changeAll(move);
    return true;
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

/// Writes a value to all rows of a property, `Concrete` in its usual form. Takes no reference:
/// nobody may hold the property yet.
template <typename Concrete, typename Role, typename Value>
void fillRows(const Role& property, const Value& value) {
    if (property == ::osg::NullFC)
        return;
    const Concrete usual = Concrete::dcast(property);
    if (usual != ::osg::NullFC) {
        std::fill(usual->editField().begin(), usual->editField().end(), value);
        return;
    }
    for (::osg::UInt32 i = 0; i < property->size(); ++i)
        property->setValue(value, i);
}

} // namespace

/// Whether some field has fewer rows than that.
bool osg_geoset::shorterThan(std::uint64_t vertices) const {
    bool shorter = false;
    fields().forEachPresent([&](const auto& slot) { shorter |= slot.size() < vertices; });
    return shorter;
}

/// Makes room for `needed` vertices, or returns false after a line of output. The budget says how
/// long fields are to be; they may be shorter where it was set from outside or setup() has run.
bool osg_geoset::makeRoom(std::uint64_t needed) {
    if (needed > std::numeric_limits<unsigned int>::max())
        throw std::bad_alloc();
    if (lean) {
        vertex_capacity = std::max(vertex_capacity, needed);
        return !shorterThan(needed) || resizeRows(needed);
    }
    if (vertex_capacity >= needed && !shorterThan(needed))
        return true;
    vertex_capacity = std::max(vertex_capacity, needed);
    return resizeFieldContainers(static_cast<unsigned int>(needed));
}

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

/// All triangles of a node, or none if memory runs out: what can fail comes before the counts.
void osg_geoset::appendTriangles(const ::osg::NodePtr& node, const ::osg::GeometryPtr& source,
                                 const element_offer& offer, bool toWorld, bool searchMaterial,
                                 bool writeIds, unsigned int& rogue) {
    const ::osg::GeometryPtr core = geometry.get();
    const std::uint64_t offered = corners * offer.room;
    if (!makeRoom(vertex_count + offered))
        return;

    const open_edit edit(core);
    source_columns from(source); // after room was made: a property may be source and target
    // setup() makes a filled field three times as long, unless it is lean.
    const target_rows rows = lean ? target_rows{vertex_count + offered, vertex_capacity}
                                  : target_rows{vertex_capacity, 3 * vertex_capacity};
    target_columns target(core, from, writeIds, rows);
    adoptMaterial(core, node, source, searchMaterial);
    writeIds = writeIds || target.fields.ids.present();
    makePrimitive(target.types.get(), target.lengths.get(), 4);
    const int id = vertexId(node, source, toWorld, writeIds);
    triangle_intake intake(from, target.fields, vertex_count, target.room(), rogue);
    intake.write_ids = writeIds;
    intake.id = id;
    const to_world_move move(node);
    if (toWorld) {
        intake.move_point = moveAhead(from.positions, move, offered) ? nullptr : &move;
        intake.move_normal = moveAhead(from.normals, move, offered) ? nullptr : &move;
    }
    walkTriangles(source, from.vertices,
                  [&intake](std::size_t a, std::size_t b, std::size_t c) { intake.take(a, b, c); });
    intake.flush();
    target.store(core, writeIds);
    if (!from.normals.present() && target.fields.normals.present())
        flattenNormals(intake.nextRow());
    countVertices(target.lengths.get(), corners * offer.counted);
    vertex_count = intake.nextRow();
}

unsigned int extract(const ::osg::NodePtr& node, osg_geoset& geoset, bool toWorld,
                     bool searchMaterial, bool writeIds, bool runSetup, bool cleanTexCoords) {
    const ::osg::GeometryPtr source = extractable(node, message_source);
    if (source == ::osg::NullFC)
        return 0;
    if (geoset.geometry == ::osg::NullFC) {
        std::cout << "Morva_osg_geoset_tools::Extract: No Geometry in geoset!" << std::endl;
        return 0;
    }
    const element_offer offer = offerOf(source, osg_geoset::corners);
    if (offer.room == 0)
        return 0;
    bool transparent = false, blends = false;
    // A source without coordinates is not even edited: it may be read by other threads.
    if (cleanTexCoords && hasTexCoords(source) &&
        getImage(node, transparent, blends) == ::osg::NullFC)
        dropTexCoords(source);

    unsigned int rogue = 0;
    try {
        geoset.appendTriangles(node, source, offer, toWorld, searchMaterial, writeIds, rogue);
    } catch (const std::bad_alloc& error) {
        std::cerr << "bad_alloc caught in Extract geometry in osg_geoset: " << error.what()
                  << std::endl;
    } catch (const std::exception& error) {
        std::cerr << "Standard exception in Extract geometry in osg_geoset: " << error.what()
                  << std::endl;
    } catch (...) {
        std::cerr << "Error occured in Extract geometry in osg_geoset." << std::endl;
    }
    if (runSetup)
        geoset.setup();
    return rogue;
}

bool hasTexCoords(const ::osg::GeometryPtr& geometry) {
    return geometry->getTexCoords() != ::osg::NullFC ||
           geometry->getTexCoords1() != ::osg::NullFC ||
           geometry->getTexCoords2() != ::osg::NullFC || geometry->getTexCoords3() != ::osg::NullFC;
}

void dropTexCoords(const ::osg::GeometryPtr& geometry) {
    const geometry_edit edit(geometry);
    geometry->setTexCoords(::osg::NullFC);
    geometry->setTexCoords1(::osg::NullFC);
    geometry->setTexCoords2(::osg::NullFC);
    geometry->setTexCoords3(::osg::NullFC);
}

void fillFCwithValue(const ::osg::GeoColorsPtr& property, const ::osg::Color3f& value) {
    fillRows<::osg::GeoColors3fPtr>(property, value);
}

void fillFCwithValue(const ::osg::GeoTexCoordsPtr& property, const ::osg::Vec2f& value) {
    fillRows<::osg::GeoTexCoords2fPtr>(property, value);
}

void fillFCwithValue(const ::osg::GeoNormalsPtr& property, const ::osg::Vec3f& value) {
    fillRows<::osg::GeoNormals3fPtr>(property, value);
}

} // namespace morva::osg
