#pragma once

// From the columns of a source to the flat rows of a geoset, for elements of 3, 2 or 1 corners.
//
//     target_columns target(core, columns, Corners, write_ids, rows);
//     element_intake<Corners> intake(columns, target.fields, first_row, target.room());
//     walkElements<Corners>(columns, [&](auto... corner) { intake.take(corner...); });
//     intake.flush();
//     target.store(core, write_ids);
//
// Elements go through in portions that stay in the cache: their corners are collected, the
// positions tell which triangles are kept, then each attribute is written in one loop. One thread.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGMatrix.h>
#include <OpenSG/OSGNode.h>
#include <OpenSG/OSGQuaternion.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/geosets/morva_osg_geoset_fields.h>

namespace morva::osg {

/// What extraction reads.
inline constexpr vertex_property extracted_properties[] = {
    vertex_property::position,        vertex_property::normal,     vertex_property::color,
    vertex_property::secondary_color, vertex_property::texcoords,  vertex_property::texcoords1,
    vertex_property::texcoords2,      vertex_property::texcoords3, vertex_property::texcoords7};

/// Whether a source brings an attribute: one without values is as good as none.
inline bool brings(const geometry_columns& from, vertex_property property) {
    const property_column& column = from[property];
    return column.present && (column.rows > 0 || property == vertex_property::position ||
                              property == vertex_property::texcoords7);
}

/// Calls `use` with the corners of each element. Points are the corners of GL_LINES.
template <unsigned Corners, typename Use>
void walkElements(const geometry_columns& from, const Use& use) {
    if constexpr (Corners == 3)
        forEachTriangle(from, rest_rule::left_out, use);
    else if constexpr (Corners == 2)
        forEachLine(from, rest_rule::left_out, use);
    else
        forEachCorner(from, GL_LINES, use);
}

/// The way from a node's space to the world.
class to_world_move {
  public:
    explicit to_world_move(const ::osg::NodePtr& node) {
        const ::osg::Matrix matrix = node->getToWorld();
        for (::osg::UInt32 column = 0; column < 4; ++column) {
            for (::osg::UInt32 row = 0; row < 3; ++row)
                matrix_[column][row] = matrix[column][row];
        }
        ::osg::Vec3f translation, scale;
        ::osg::Quaternion scale_orientation;
        matrix.getTransform(translation, rotation_, scale, scale_orientation);
    }

    ::osg::Pnt3f operator()(const ::osg::Pnt3f& p) const {
        ::osg::Pnt3f moved;
        for (::osg::UInt32 row = 0; row < 3; ++row)
            moved[row] = matrix_[0][row] * p[0] + matrix_[1][row] * p[1] + matrix_[2][row] * p[2] +
                         matrix_[3][row];
        return moved;
    }
    /// Normals are turned, not scaled.
    ::osg::Vec3f operator()(const ::osg::Vec3f& n) const {
        ::osg::Vec3f turned;
        rotation_.multVec(n, turned);
        const float length = turned.length();
        return length < shortest_normal ? turned : turned * (1.0F / length);
    }

  private:
    /// Vectors shorter than this are not scaled to length 1.
    static constexpr float shortest_normal = 1e-6F;

    float matrix_[4][3];
    ::osg::Quaternion rotation_;
};

/// Length of new properties, and the one that they will grow to.
struct target_rows {
    std::size_t now;
    std::size_t later;
};

/// The properties of a core while elements are appended. New ones are the core's only after
/// store(); until then they go with this record.
struct target_columns {
    /// Takes the properties that `core` has, and makes those that the source brings and it lacks,
    /// or that IDs need, with rows of the default.
    target_columns(const ::osg::GeometryPtr& core, const geometry_columns& from, unsigned corners,
                   bool write_ids, const target_rows& rows)
        : types(core->getTypes()), lengths(core->getLengths()), fields(corners) {
        if (types == ::osg::NullFC)
            types = ::osg::GeoPTypesUI8::create();
        if (lengths == ::osg::NullFC)
            lengths = ::osg::GeoPLengthsUI32::create();
        fields.follow(core);
        fields.forEach([&](auto& slot, vertex_property property) {
            const bool is_id = property == vertex_property::texcoords7;
            if (slot.present() || !(brings(from, property) || (is_id && write_ids)))
                return;
            slot.make(rows.now, rows.later);
            using value = typename std::decay_t<decltype(slot)>::value_type;
            if (const value fill = defaultValue<value>(); fill != value())
                slot.fill(fill);
        });
    }

    /// Rows that all of them have.
    std::size_t room() {
        std::size_t rows = std::numeric_limits<std::size_t>::max();
        fields.forEachPresent([&rows](auto& slot) { rows = std::min(rows, slot.size()); });
        return rows;
    }

    /// Hands all properties to the core; the IDs only `with_ids`.
    void store(const ::osg::GeometryPtr& core, bool with_ids) {
        core->setTypes(types.get());
        core->setLengths(lengths.get());
        fields.forEach([&](auto& slot, vertex_property property) {
            if (with_ids || property != vertex_property::texcoords7)
                setProperty(core, property, slot.get());
        });
    }

    ::osg::RefPtr<::osg::GeoPTypesPtr> types;
    ::osg::RefPtr<::osg::GeoPLengthsPtr> lengths;
    geoset_fields fields;
};

/// Writes rows `first` on with what `make` gives for each of `count` corners.
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

/// Takes elements by their corners and appends those that are to be kept.
template <unsigned Corners> class element_intake {
  public:
    element_intake(const geometry_columns& from, geoset_fields& to, std::size_t first_row,
                   std::size_t room, unsigned int& left_out)
        : source_(from), positions_(from[vertex_property::position]),
          normals_(from[vertex_property::normal]), target_(to), row_(first_row), rows_(room),
          rogue_(left_out) {}

    bool write_ids = false;
    int id = 0; ///< for elements that bring none

    /// From here on values go to the world: all at once, where corners share them, and else one
    /// by one. Corners of lines and points that lead nowhere are moved, too.
    void moveBy(const to_world_move& to_world, std::uint64_t corners) {
        move_point_ = moveAhead(positions_, moved_points_, to_world, corners) ? nullptr : &to_world;
        move_normal_ = moveAhead(normals_, moved_normals_, to_world, corners) ? nullptr : &to_world;
    }

    template <typename... Corner> void take(Corner... corners) {
        static_assert(sizeof...(corners) == Corners);
        ((corner_[pending_++] = static_cast<::osg::UInt32>(corners)), ...);
        if (pending_ == Corners * portion)
            flush();
    }

    /// Writes what is pending.
    void flush() {
        keepSound();
        if (pending_ > 0) {
            if (write_ids)
                writeIds();
            writeAttributes();
            row_ += pending_;
        }
        pending_ = 0;
    }

    /// First row behind the last element.
    std::size_t nextRow() const { return row_; }

  private:
    /// Elements that go through at a time.
    static constexpr std::size_t portion = 1024;

    /// False, and nothing happens, where there are not many more corners than values.
    template <typename Value>
    static bool moveAhead(property_column& column, std::vector<Value>& moved,
                          const to_world_move& move, std::uint64_t corners) {
        if (Corners < 3 || 2 * column.rows > corners)
            return false;
        moved.reserve(column.rows);
        for (const Value& value : column.as<Value>())
            moved.push_back(move(value));
        column.values = moved.empty() ? nullptr : &moved[0][0];
        return true;
    }

    /// Writes the positions and closes the gaps of triangles that are left out.
    void keepSound() {
        ::osg::Pnt3f* rows_of_positions = target_.positions.data();
        std::size_t kept = 0;
        for (std::size_t i = 0; i < pending_; i += Corners) {
            ::osg::Pnt3f p[Corners];
            if (!readElement(&corner_[i], p)) {
                ++rogue_;
                continue;
            }
            if (row_ + kept + Corners > rows_) // only where a field could not grow
                break;
            for (std::size_t k = 0; k < Corners; ++k) {
                corner_[kept + k] = corner_[i + k];
                if (rows_of_positions != nullptr) {
                    rows_of_positions[row_ + kept + k] = p[k];
                } else if (target_.positions.present()) {
                    target_.positions.put(row_ + kept + k, p[k]);
                }
            }
            kept += Corners;
        }
        pending_ = kept;
    }

    /// The corners in their places; false for a triangle that must not be kept.
    bool readElement(const ::osg::UInt32* corners, ::osg::Pnt3f* p) const {
        for (unsigned k = 0; k < Corners; ++k) {
            const auto* found = positions_.template find<::osg::Pnt3f>(corners[k]);
            if (Corners == 3 && found == nullptr)
                return false;
            p[k] = found != nullptr ? *found : ::osg::Pnt3f();
            if (move_point_ != nullptr)
                p[k] = (*move_point_)(p[k]);
        }
        if constexpr (Corners == 3)
            return !is_rogue(p[0], p[1], p[2]);
        return true;
    }

    /// The first corner tells whether an element brings IDs; further ones that lead nowhere are 0.
    void writeIds() {
        const property_column& ids = source_[vertex_property::texcoords7];
        const ::osg::Vec2f own(static_cast<float>(id), 0.0F);
        bool brought = false;
        writeRows(target_.ids, row_, pending_, [&](std::size_t i) {
            if (i % Corners == 0)
                brought = ids.row(corner_[i]) != no_row;
            return brought ? ids.valueOf<::osg::Vec2f>(corner_[i]) : own;
        });
    }

    void writeAttributes() {
        const auto as_is = [](const auto& value) { return value; };
        target_.forEach([&](auto& slot, vertex_property property) {
            if (!slot.present() || property == vertex_property::position ||
                property == vertex_property::texcoords7)
                return;
            using value = typename std::decay_t<decltype(slot)>::value_type;
            if constexpr (std::is_same_v<value, ::osg::Vec3f>) {
                if (move_normal_ != nullptr)
                    return writeColumn(slot, property, normals_, *move_normal_);
                return writeColumn(slot, property, normals_, as_is);
            } else {
                return writeColumn(slot, property, source_[property], as_is);
            }
        });
    }

    template <typename Slot, typename Change>
    void writeColumn(Slot& slot, vertex_property property, const property_column& column,
                     const Change& change) {
        using value = typename Slot::value_type;
        if (brings(source_, property)) {
            writeRows(slot, row_, pending_, [&](std::size_t i) {
                return change(column.template valueOf<value>(corner_[i]));
            });
        } else {
            const value fill = defaultValue<value>();
            writeRows(slot, row_, pending_, [&](std::size_t) { return fill; });
        }
    }

    const geometry_columns& source_;
    property_column positions_, normals_; ///< of the source, their values moved or not
    std::vector<::osg::Pnt3f> moved_points_;
    std::vector<::osg::Vec3f> moved_normals_;
    const to_world_move* move_point_ = nullptr;  ///< for each position; null: they stay
    const to_world_move* move_normal_ = nullptr; ///< for each normal; null: they stay
    geoset_fields& target_;
    std::size_t row_;     ///< next row to write
    std::size_t rows_;    ///< rows that every target property has
    unsigned int& rogue_; ///< counts triangles that are left out
    std::size_t pending_ = 0;
    ::osg::UInt32 corner_[Corners * portion]; ///< `pending_` of them
};

} // namespace morva::osg
