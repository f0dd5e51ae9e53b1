#pragma once

// The fields of a geoset as rows of plain values: nine of triangles, and of lines and points the
// five without coordinate units.
//
//     fields.follow(core);                    cheap while the properties are the same
//     Value* rows = fields.normals.data();    null if absent, empty or not in the usual form
//     fields.normals.put(row, value);         any form, rows within size() only
//
// A slot remembers a property and where its stored values are kept, not the values themselves:
// data() is read anew after whatever may resize the property. Slots hold a reference, so a
// remembered property cannot be mistaken for a later one at the same address. One thread.

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <type_traits>
#include <utility>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_huge_pages.h>
#include <morva/core/morva_osg_geometry_columns.h>

namespace morva::osg {

/// One property with its usual stored form `Concrete`, read and written as `Value`.
template <typename Concrete, typename Role, typename Value> class field_slot {
  public:
    using stored_field = std::remove_reference_t<
        decltype(std::declval<Concrete&>()->editField())>; ///< a multi-field of `stored_value`
    using stored_value = std::decay_t<decltype(std::declval<stored_field&>()[0])>;
    using value_type = Value;

    /// Turns to a property, null included; true if it is another one than before.
    bool follow(const Role& current) {
        const void* address = current == ::osg::NullFC ? nullptr : &*current;
        if (address == seen_)
            return false;
        property_ = current;
        seen_ = address;
        stored_ = nullptr;
        if (address == nullptr)
            return true;
        const Concrete usual = Concrete::dcast(current);
        if (usual != ::osg::NullFC)
            stored_ = &usual->editField();
        return true;
    }

    /// Makes a property of the usual form with `rows` rows of zero and turns to it. Room for
    /// `later` rows spares a copy when it grows, but may be lacking.
    void make(std::size_t rows, std::size_t later) {
        follow(Concrete::StoredObjectType::create()); // held from here on, whatever fails
        std::size_t room = std::max(rows, later);
        try {
            stored_->reserve(room);
        } catch (const std::bad_alloc&) {
            room = rows;
            stored_->reserve(room);
        }
        if (rows == 0)
            return;
        stored_->resize(1); // the room has an address now
        wish_huge_pages(&(*stored_)[0], room * sizeof(stored_value));
        stored_->resize(rows);
    }

    bool present() const { return seen_ != nullptr; }
    Role get() const { return property_.get(); }
    std::size_t size() const {
        if (stored_ != nullptr)
            return stored_->size();
        return present() ? property_->size() : 0;
    }

    /// First row, or null; until the property is resized.
    stored_value* data() const {
        return stored_ == nullptr || stored_->size() == 0 ? nullptr : &(*stored_)[0];
    }

    Value value(std::size_t row) const {
        if (stored_ == nullptr)
            return property_->getValue(static_cast<::osg::UInt32>(row));
        if constexpr (std::is_same_v<stored_value, Value>) {
            return (*stored_)[row];
        } else {
            return Value((*stored_)[row], stored_value());
        }
    }
    void put(std::size_t row, const Value& value) {
        if (stored_ == nullptr) {
            property_->setValue(value, static_cast<::osg::UInt32>(row));
        } else if constexpr (std::is_same_v<stored_value, Value>) {
            (*stored_)[row] = value;
        } else {
            (*stored_)[row] = value[0];
        }
    }

    /// Writes one value to all rows.
    void fill(const Value& value) {
        if constexpr (std::is_same_v<stored_value, Value>) {
            if (stored_ != nullptr) {
                std::fill(stored_->begin(), stored_->end(), value);
                return;
            }
        }
        for (std::size_t row = 0; row < size(); ++row)
            put(row, value);
    }

    /// Whether there are rows for the three vertices of a triangle.
    bool holds(std::size_t triangle) const { return size() / 3 > triangle; }

  private:
    ::osg::RefPtr<Role> property_;
    const void* seen_ = nullptr; ///< the property's copy in the aspect that looked
    stored_field* stored_ = nullptr;
};

using positions_slot = field_slot<::osg::GeoPositions3fPtr, ::osg::GeoPositionsPtr, ::osg::Pnt3f>;
using normals_slot = field_slot<::osg::GeoNormals3fPtr, ::osg::GeoNormalsPtr, ::osg::Vec3f>;
using colors_slot = field_slot<::osg::GeoColors3fPtr, ::osg::GeoColorsPtr, ::osg::Color3f>;
using texcoords_slot = field_slot<::osg::GeoTexCoords2fPtr, ::osg::GeoTexCoordsPtr, ::osg::Vec2f>;
using ids_slot = field_slot<::osg::GeoTexCoords1fPtr, ::osg::GeoTexCoordsPtr, ::osg::Vec2f>;

/// What a row reads that no source wrote: normals up, colours white, all else zero.
template <typename Value> Value defaultValue() {
    if constexpr (std::is_same_v<Value, ::osg::Vec3f>)
        return Value(0.0F, 1.0F, 0.0F);
    else if constexpr (std::is_same_v<Value, ::osg::Color3f>)
        return Value(1.0F, 1.0F, 1.0F);
    else
        return Value();
}

/// All fields of a geoset's core.
struct geoset_fields {
    explicit geoset_fields(unsigned corners = 3) : units(corners == 3 ? 4 : 0) {}

    positions_slot positions;
    normals_slot normals;
    colors_slot colors, secondary;
    std::array<texcoords_slot, 4> texcoords; ///< units 0 to 3
    ids_slot ids;                            ///< unit 7
    std::size_t units;                       ///< of `texcoords`, those that are looked at: all or 0

    /// Vertices from 0 on whose normals are known to be those of their own triangle alone. None
    /// once positions or normals are another property.
    std::size_t flat_normals = 0;

    /// Turns to the properties that a core has now; a null core has none.
    void follow(const ::osg::GeometryPtr& core) {
        if (core == ::osg::NullFC) {
            *this = geoset_fields(units == 0 ? 1 : 3);
            return;
        }
        const bool moved = positions.follow(core->getPositions());
        if (normals.follow(core->getNormals()) || moved)
            flat_normals = 0;
        colors.follow(core->getColors());
        secondary.follow(core->getSecondaryColors());
        if (units > 0) {
            texcoords[0].follow(core->getTexCoords());
            texcoords[1].follow(core->getTexCoords1());
            texcoords[2].follow(core->getTexCoords2());
            texcoords[3].follow(core->getTexCoords3());
        }
        ids.follow(core->getTexCoords7());
    }

    /// The triangle at this vertex is another one now, or its normals are.
    void changedFrom(std::size_t vertex) { flat_normals = std::min(flat_normals, vertex); }

    /// Calls `use` with each slot and its property, in the order in which fields are resized.
    template <typename Use> void forEach(const Use& use) {
        use(positions, vertex_property::position);
        use(normals, vertex_property::normal);
        use(colors, vertex_property::color);
        use(secondary, vertex_property::secondary_color);
        for (std::size_t i = 0; i < units; ++i)
            use(texcoords[i], textureUnit(i));
        use(ids, vertex_property::texcoords7);
    }
    /// Calls `use` with each slot that holds a property, in the same order.
    template <typename Use> void forEachPresent(const Use& use) {
        forEach([&use](auto& slot, vertex_property) {
            if (slot.present())
                use(slot);
        });
    }
};

/// The fields of a geoset's core as it is now.
template <typename Geoset> geoset_fields fieldsOf(const Geoset& geoset) {
    geoset_fields fields(Geoset::corners);
    fields.follow(geoset.geometry.get());
    return fields;
}

} // namespace morva::osg
