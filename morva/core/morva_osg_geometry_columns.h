#pragma once

// The one way to read a geometry: its properties as columns of floats, and for each corner the row
// that it takes in every column.
//
//     corners     0    1    2    3   ...         vertices as the primitives take them, end to end
//     indices     7 2  3 0  9 2  3 1 ...         some numbers for each, or none: corner 3, row 3
//     columns     positions x y z x y z ...      which of the numbers leads here, and the values
//
//     const geometry_columns columns(geometry, basic_properties);
//     const property_column& positions = columns[vertex_property::position];
//     forEachTriangle(columns, rest_rule::left_out, [&](std::size_t a, std::size_t b,
//                                                       std::size_t c) {
//         const ::osg::Pnt3f* p = positions.find<::osg::Pnt3f>(a); // null: leads nowhere
//     });
//
//     triangles   0 1 2, 3 4 5, ...              lines    0 1, 2 3, ...
//     strips      0 1 2, 2 1 3, 2 3 4, ...       strips   0 1, 1 2, ...
//     fans        0 1 2, 0 2 3, ...              loops    0 1, 1 2, ..., and last to first
//     quads       0 1 2, 0 2 3, 4 5 6, 4 6 7     quad strips as strips, polygons as fans
//
// Triangles of a strip are in the order of the scene graph's iterator; from the second on one with
// two equal position indices is passed over. Lengths are input: a primitive that claims more
// corners than there are ends where they end, and those behind it are empty.
//
// Values in the usual forms (GeoPositions3f, GeoNormals3f, GeoColors3f, GeoTexCoords2f, indices of
// 32 bits) are not copied; others are converted once. Columns hold what they read, as long as
// nobody resizes it. One thread makes them, any number may read.

#include <algorithm>
#include <array>
#include <cassert>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <type_traits>

#include <OpenSG/OSGGL.h>
#include <OpenSG/OSGGeometry.h>
#include <OpenSG/OSGRefPtr.h>

#include <morva/core/morva_export.h>
#include <morva/core/morva_osg_property_blocks.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

/// The vertex properties, in the order of their mapping bits.
enum class vertex_property : std::uint8_t {
    position,
    normal,
    color,
    secondary_color,
    texcoords, ///< coordinate set 0; the further ones follow
    texcoords1,
    texcoords2,
    texcoords3,
    texcoords4,
    texcoords5,
    texcoords6,
    texcoords7,
};

constexpr std::size_t vertex_properties = 12;

/// Bit of a property in an index mapping: Geometry::MapPosition, ...
constexpr ::osg::UInt16 mappingBit(vertex_property property) {
    return static_cast<::osg::UInt16>(1U << static_cast<unsigned>(property));
}

/// Coordinate set `unit`, 0 to 7.
constexpr vertex_property textureUnit(std::size_t unit) {
    return static_cast<vertex_property>(static_cast<std::size_t>(vertex_property::texcoords) +
                                        unit);
}

/// What index rebuilding and draw orders work on; indices per property come in this order.
inline constexpr vertex_property basic_properties[] = {
    vertex_property::position, vertex_property::normal, vertex_property::color,
    vertex_property::texcoords, vertex_property::texcoords7};

inline constexpr vertex_property all_properties[] = {
    vertex_property::position,        vertex_property::normal,     vertex_property::color,
    vertex_property::secondary_color, vertex_property::texcoords,  vertex_property::texcoords1,
    vertex_property::texcoords2,      vertex_property::texcoords3, vertex_property::texcoords4,
    vertex_property::texcoords5,      vertex_property::texcoords6, vertex_property::texcoords7};

/// The row of a corner that has none. No property has so many rows.
inline constexpr ::osg::UInt32 no_row = std::numeric_limits<::osg::UInt32>::max();

/// Which row each corner takes.
struct corner_rows {
    /// Of corner 0; null: rows run with corners. Where no index leads here, `no_row` for all.
    const ::osg::UInt32* index = &no_row;
    std::size_t step = 0; ///< from one corner's index to the next

    /// Row of a corner below geometry_columns::corners(); may lead nowhere.
    ::osg::UInt32 row(std::size_t corner) const {
        return index == nullptr ? static_cast<::osg::UInt32>(corner) : index[corner * step];
    }
};

/// One property as rows of floats, and the way there from a corner.
struct property_column : corner_rows {
    const float* values = nullptr; ///< `rows * width` floats; null without rows
    std::size_t rows = 0;
    unsigned width = 0; ///< floats of a row: 2 for coordinates, else 3, or 4 for colours with alpha
    bool present = false; ///< the geometry has the property, be it without rows
    int slot = -1;        ///< which of a corner's indices leads here; -1: none of them
    ::osg::RefPtr<::osg::AttachmentPtr> property; ///< that holds `values`, or null and
    std::shared_ptr<const void> converted;        ///< this does

    const float* at(std::size_t row) const { return values + row * width; }

    /// The rows as Pnt3f, Vec3f, Color3f, Vec2f, ..., whichever has `width` floats.
    template <typename Value> span<const Value> as() const {
        static_assert(sizeof(Value) % sizeof(float) == 0);
        assert(rows == 0 || sizeof(Value) == width * sizeof(float));
        return {reinterpret_cast<const Value*>(values), rows};
    }
    /// Value of a corner, or null where its index leads nowhere.
    template <typename Value> const Value* find(std::size_t corner) const {
        const std::size_t found = row(corner);
        return found < rows ? reinterpret_cast<const Value*>(values) + found : nullptr;
    }
    /// The same, zero for nowhere.
    template <typename Value> Value valueOf(std::size_t corner) const {
        const Value* value = find<Value>(corner);
        return value != nullptr ? *value : Value();
    }
};

/// What becomes of corners at the end of a primitive that fill no triangle, quad or line, and of
/// primitives without lengths.
enum class rest_rule : std::uint8_t {
    left_out, ///< without lengths the first primitive has all corners
    /// As with the scene graph's iterators: the rest makes one more element of what follows behind
    /// the primitive, if there is enough. Without lengths every primitive has all corners.
    continued,
};

/// A primitive over corners that exist.
struct primitive_run {
    ::osg::UInt32 type = 0; ///< OpenGL mode, 0 to 9 or anything else
    std::size_t first = 0;  ///< first corner
    std::size_t length = 0; ///< corners
    std::size_t reach = 0;  ///< corners from `first` on that a rest may continue into; 0: none
};

/// What becomes of colours with four components: as all others, or with their alpha.
enum class color_form : std::uint8_t { rgb, rgba_where_stored };

/// Columns of chosen properties; those that are not chosen are absent. Copies share what they read.
class MORVA_API geometry_columns {
  public:
    /// geometry  not null
    /// chosen    with the positions if triangles are to be walked; kept, not copied
    /// errors    std::bad_alloc
    geometry_columns(const ::osg::GeometryPtr& geometry, span<const vertex_property> chosen,
                     color_form colors = color_form::rgb);

    const property_column& operator[](vertex_property property) const {
        return columns_[static_cast<std::size_t>(property)];
    }
    ::osg::UInt32 row(std::size_t corner, vertex_property property) const {
        return (*this)[property].row(corner);
    }
    /// Corners that there is data for, whatever the lengths claim.
    std::size_t corners() const { return corner_count_; }
    bool indexed() const { return has_indices_; }
    /// All indices, also those behind the last whole corner; empty if there are none.
    span<const ::osg::UInt32> indices() const { return index_block_.view(); }
    /// Indices of one corner, at least 1.
    std::size_t stride() const { return index_stride_; }
    const ::osg::GeometryPtr& geometry() const { return source_; }

    /// Rows that tell which triangles of a strip are passed over: those of the positions. Where no
    /// index leads to these, the scene graph's iterators take a number from further in front.
    corner_rows stripRows(const primitive_run& run, rest_rule rest) const {
        const property_column& positions = (*this)[vertex_property::position];
        if (rest == rest_rule::left_out || !positions.present || positions.slot >= 0)
            return positions;
        return {index_block_.data() + run.first * (index_stride_ - 1), 1};
    }

    /// Calls `use` with property and column of those that are present, in the order of choice.
    template <typename Use> void forEachPresent(const Use& use) const {
        for (const vertex_property property : choice_) {
            if ((*this)[property].present)
                use(property, (*this)[property]);
        }
    }

  private:
    void read(vertex_property property, color_form colors);

    ::osg::GeometryPtr source_;
    span<const vertex_property> choice_;
    std::array<property_column, vertex_properties> columns_;
    property_block<::osg::UInt32> index_block_;
    std::size_t index_stride_ = 1;
    std::size_t corner_count_ = 0;
    bool has_indices_ = false;
};

/// Indices that each corner has, in a geometry with indices.
MORVA_API std::size_t indicesPerCorner(const ::osg::GeometryPtr& geometry);

/// Corners that there is data for.
MORVA_API std::size_t cornersOf(const ::osg::GeometryPtr& geometry);

/// Calls `use` with each primitive_run of a geometry, the empty ones in between included. Missing
/// types or indices without entries: none.
///
/// corners  those that there is data for
template <typename Use>
void forEachPrimitive(const ::osg::GeometryPtr& geometry, std::size_t corners, rest_rule rest,
                      const Use& use) {
    const ::osg::GeoPTypesPtr types = geometry->getTypes();
    const ::osg::GeoPLengthsPtr lengths = geometry->getLengths();
    if (types == ::osg::NullFC)
        return;
    const bool listed = lengths != ::osg::NullFC;
    const bool repeated = !listed && rest == rest_rule::continued;
    const ::osg::UInt32 count = listed ? std::min(types->size(), lengths->size()) : types->size();
    std::size_t first = 0;
    for (::osg::UInt32 i = 0; i < count && first < corners; ++i) {
        const std::size_t claimed = listed ? lengths->getValue(i) : corners;
        const std::size_t left = corners - first;
        use(primitive_run{types->getValue(i), first, std::min(claimed, left),
                          rest == rest_rule::continued ? left : 0});
        first += repeated ? 0 : claimed;
    }
}

/// Calls `use` with the three corners of each triangle of a primitive.
template <typename Use>
void forEachTriangle(const primitive_run& run, const corner_rows& positions, const Use& use) {
    const std::size_t first = run.first, length = run.length;
    std::size_t v = 0;
    if (length < 3)
        return;
    switch (run.type) {
    case GL_TRIANGLES:
        for (; v + 3 <= length; v += 3)
            use(first + v, first + v + 1, first + v + 2);
        if (v < length && v + 3 <= run.reach)
            use(first + v, first + v + 1, first + v + 2);
        break;
    case GL_TRIANGLE_STRIP:
    case GL_QUAD_STRIP:
        for (; v + 3 <= length; ++v) {
            const std::size_t odd = v & 1;
            const std::size_t a = first + v + odd, b = first + v + 1 - odd, c = first + v + 2;
            const ::osg::UInt32 pa = positions.row(a), pb = positions.row(b), pc = positions.row(c);
            if (v == 0 || (pa != pb && pb != pc && pc != pa))
                use(a, b, c);
        }
        break;
    case GL_TRIANGLE_FAN:
    case GL_POLYGON:
        for (v = 2; v < length; ++v)
            use(first, first + v - 1, first + v);
        break;
    case GL_QUADS:
        for (; v + 4 <= length; v += 4) {
            use(first + v, first + v + 1, first + v + 2);
            use(first + v, first + v + 2, first + v + 3);
        }
        if (v < length && v + 3 <= run.reach)
            use(first + v, first + v + 1, first + v + 2);
        break;
    default:
        break;
    }
}

/// Calls `use` with the two corners of each line of a primitive.
template <typename Use> void forEachLine(const primitive_run& run, const Use& use) {
    if (run.length < 2 || run.type < GL_LINES || run.type > GL_LINE_STRIP)
        return;
    const std::size_t end = run.first + run.length, step = run.type == GL_LINES ? 2 : 1;
    std::size_t v = run.first;
    for (; v + 2 <= end; v += step)
        use(v, v + 1);
    if (step == 2 && v < end && v + 2 <= run.first + run.reach)
        use(v, v + 1);
    if (run.type == GL_LINE_LOOP)
        use(end - 1, run.first);
}

/// Calls `use` with the three corners of each triangle of a geometry, in the order of the
/// primitives.
template <typename Use>
void forEachTriangle(const geometry_columns& columns, rest_rule rest, const Use& use) {
    forEachPrimitive(columns.geometry(), columns.corners(), rest, [&](const primitive_run& run) {
        forEachTriangle(run, columns.stripRows(run, rest), use);
    });
}

/// Calls `use` with the places of the three corners of each triangle, as the scene graph's iterator
/// has them: null for a corner that leads nowhere.
template <typename Use>
void forEachPlacedTriangle(const geometry_columns& columns, const Use& use) {
    const property_column& positions = columns[vertex_property::position];
    forEachTriangle(columns, rest_rule::continued,
                    [&](std::size_t first, std::size_t second, std::size_t third) {
                        use(positions.find<::osg::Pnt3f>(first),
                            positions.find<::osg::Pnt3f>(second),
                            positions.find<::osg::Pnt3f>(third));
                    });
}

/// Calls `use` with the two corners of each line.
template <typename Use>
void forEachLine(const geometry_columns& columns, rest_rule rest, const Use& use) {
    forEachPrimitive(columns.geometry(), columns.corners(), rest,
                     [&](const primitive_run& run) { forEachLine(run, use); });
}

/// Calls `use` with each corner of the primitives of a type: GL_POINTS, ...
template <typename Use>
void forEachCorner(const geometry_columns& columns, ::osg::UInt32 type, const Use& use) {
    forEachPrimitive(columns.geometry(), columns.corners(), rest_rule::left_out,
                     [&](const primitive_run& run) {
                         for (std::size_t v = 0; run.type == type && v < run.length; ++v)
                             use(run.first + v);
                     });
}

/// Corners of a geometry whose primitives are one run of whole elements, all of `type` and within
/// the data, so that corners come in running order; `no_run` for any other.
///
/// element  corners of one element: 3 for GL_TRIANGLES, 2 for GL_LINES
MORVA_API std::size_t plainRun(const geometry_columns& columns, ::osg::UInt32 type,
                               std::size_t element);
inline constexpr std::size_t no_run = std::numeric_limits<std::size_t>::max();

/// Calls `use(property, take)` with one property of `from`, null included, by its role;
/// `take(made)` gives one of the same role to `to`, which may be `from`.
template <typename Use>
void withProperty(const ::osg::GeometryPtr& from, const ::osg::GeometryPtr& to,
                  vertex_property which, const Use& use) {
#define MORVA_PROPERTY(NAME, ROLE)                                                                 \
    case vertex_property::NAME:                                                                    \
        return use(from->get##ROLE(), [&to](const auto& made) { to->set##ROLE(made); });
    switch (which) {
        MORVA_PROPERTY(position, Positions)
        MORVA_PROPERTY(normal, Normals)
        MORVA_PROPERTY(color, Colors)
        MORVA_PROPERTY(secondary_color, SecondaryColors)
        MORVA_PROPERTY(texcoords, TexCoords)
        MORVA_PROPERTY(texcoords1, TexCoords1)
        MORVA_PROPERTY(texcoords2, TexCoords2)
        MORVA_PROPERTY(texcoords3, TexCoords3)
        MORVA_PROPERTY(texcoords4, TexCoords4)
        MORVA_PROPERTY(texcoords5, TexCoords5)
        MORVA_PROPERTY(texcoords6, TexCoords6)
        MORVA_PROPERTY(texcoords7, TexCoords7)
    }
#undef MORVA_PROPERTY
}

/// The usual form of a role, as a pointer: GeoPositions3fPtr for GeoPositionsPtr, ...
template <typename Role> struct usual_form_of;
template <> struct usual_form_of<::osg::GeoPositionsPtr> { using type = ::osg::GeoPositions3fPtr; };
template <> struct usual_form_of<::osg::GeoNormalsPtr> { using type = ::osg::GeoNormals3fPtr; };
template <> struct usual_form_of<::osg::GeoColorsPtr> { using type = ::osg::GeoColors3fPtr; };
template <> struct usual_form_of<::osg::GeoTexCoordsPtr> { using type = ::osg::GeoTexCoords2fPtr; };
template <typename Role> using usual_form = typename usual_form_of<std::decay_t<Role>>::type;

/// Rows of floats as a property of the usual form, for setProperty(). The geometry stays as it is.
///
/// values  2 floats for each row of coordinates, else 3
/// errors  std::bad_alloc
MORVA_API ::osg::RefPtr<::osg::AttachmentPtr> makeProperty(const ::osg::GeometryPtr& geometry,
                                                           vertex_property property,
                                                           span<const float> values);

/// Gives a geometry another property, or null, whose role is known to fit.
MORVA_API void setProperty(const ::osg::GeometryPtr& geometry, vertex_property property,
                           const ::osg::AttachmentPtr& made);

} // namespace morva::osg
