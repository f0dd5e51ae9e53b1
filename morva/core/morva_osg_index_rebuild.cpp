// createSharedIndex and createSingleIndex.
//
// The corners of all triangles are the lines of a table with one column per property. A column
// starts as row numbers of the source and ends as numbers of distinct values, by first use:
//
//     corner   rows      numbers     values of the column
//     0        7         0           0: value of row 7
//     1        3         1           1: value of row 3
//     2        9         0           (row 9 holds what row 7 holds)
//
// Columns are worked on one after the other, so that one hash table at a time is in the cache.

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>

#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_property_blocks.h>

namespace morva::osg {

namespace {

using ::osg::UInt32;

constexpr UInt32 no_number = std::numeric_limits<UInt32>::max();
constexpr std::size_t batch_size = 32; ///< corners whose table places are fetched ahead together

/// Folds one more pair of words into a running hash.
std::uint64_t folded(std::uint64_t hash, std::uint64_t words) {
    hash = (hash ^ words) * 0x9E3779B97F4A7C15ULL;
    return hash ^ (hash >> 32);
}

/// Open addressing over numbers that are given from 0 up; at most two thirds full. What equal
/// means is told by the caller, who keeps what the numbers stand for. The hash beside a number
/// spares most looks at the values, and all of them when the table grows.
class number_table {
  public:
    /// Does not grow while a fifth of the corners or fewer are distinct.
    explicit number_table(std::size_t corners) {
        std::size_t size = 64;
        while (size < corners / 3)
            size *= 2;
        slots.resize(size);
    }

    void fetch(UInt32 hash) const { __builtin_prefetch(&slots[hash & (slots.size() - 1)]); }

    /// The number entered for an equal value before, or else `next`, which is entered now.
    template <typename Equal> UInt32 findOrEnter(UInt32 hash, UInt32 next, const Equal& equal) {
        if ((next + 1ULL) * 3 > slots.size() * 2)
            grow();
        std::size_t at = hash & (slots.size() - 1);
        for (; slots[at].number != no_number; at = (at + 1) & (slots.size() - 1)) {
            if (slots[at].hash == hash && equal(slots[at].number))
                return slots[at].number;
        }
        slots[at] = {next, hash};
        return next;
    }

  private:
    struct slot {
        UInt32 number = no_number;
        UInt32 hash = 0;
    };

    void grow() {
        std::vector<slot> old(slots.size() * 2);
        old.swap(slots);
        for (const slot& entry : old) {
            if (entry.number == no_number)
                continue;
            std::size_t at = entry.hash & (slots.size() - 1);
            while (slots[at].number != no_number)
                at = (at + 1) & (slots.size() - 1);
            slots[at] = entry;
        }
    }

    std::vector<slot> slots;
};

/// The bits of a component; of 0 for -0, which counts as equal.
std::uint64_t bitsOf(float component) {
    if (component == 0.0F)
        return 0;
    UInt32 bits = 0;
    std::memcpy(&bits, &component, sizeof(bits));
    return bits;
}

template <typename Value> UInt32 hashOf(const Value& value) {
    constexpr bool has_third = sizeof(Value) == 3 * sizeof(float);
    std::uint64_t hash = folded(0, bitsOf(value[0]) | bitsOf(value[1]) << 32);
    if constexpr (has_third)
        hash = folded(hash, bitsOf(value[2]));
    return static_cast<UInt32>(hash >> 32);
}

/// Whether no component is greater or smaller than the other's; never so for a NaN.
template <typename Value> bool isEqual(const Value& a, const Value& b) {
    bool equal = a[0] == b[0] && a[1] == b[1];
    if constexpr (sizeof(Value) == 3 * sizeof(float))
        equal = equal && a[2] == b[2];
    return equal;
}

/// The table of corners: `width` columns, line after line.
struct corner_table {
    span<UInt32> cells;
    std::size_t width = 0;
    std::size_t corners = 0;
    bool running = false; ///< the rows are the corner numbers and are not in `cells`

    UInt32& cell(std::size_t corner, std::size_t column) const {
        return cells[corner * width + column];
    }
    UInt32 row(std::size_t corner, std::size_t column) const {
        return running ? static_cast<UInt32>(corner) : cell(corner, column);
    }
};

/// Turns the rows of one column into numbers, and gathers the values that the numbers stand for.
template <typename Value> class column_numbering {
  public:
    column_numbering(const property_block<Value>& block, const corner_table& all,
                     std::size_t number_of_column)
        : source(block.view()), table(all), column(number_of_column), known(all.corners) {
        if (!table.running)
            seen.resize(source.size(), no_number);
    }

    std::vector<Value> run() {
        for (std::size_t first = 0; first < table.corners; first += batch_size) {
            const std::size_t count = std::min(batch_size, table.corners - first);
            fetch(first, count);
            number(first, count);
        }
        return std::move(values);
    }

  private:
    /// A row that leads nowhere reads as zero.
    Value valueAt(UInt32 row) const { return row < source.size() ? source[row] : Value(); }

    void fetch(std::size_t first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = hashOf(valueAt(table.row(first + i, column)));
            known.fetch(hashes[i]);
        }
    }

    void number(std::size_t first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const UInt32 row = table.row(first + i, column);
            table.cell(first + i, column) = numberOf(row, hashes[i]);
        }
    }

    UInt32 numberOf(UInt32 row, UInt32 hash) {
        // The same row gives the same number again, but for a NaN, which never does.
        if (row < seen.size() && seen[row] != no_number)
            return seen[row];
        const Value value = valueAt(row);
        if (!values.empty() && isEqual(values[last], value))
            return last;
        const auto next = static_cast<UInt32>(values.size());
        const bool is_number = isEqual(value, value);
        last = is_number
                   ? known.findOrEnter(hash, next,
                                       [&](UInt32 other) { return isEqual(values[other], value); })
                   : next;
        if (last == next)
            values.push_back(value);
        if (row < seen.size() && is_number)
            seen[row] = last;
        return last;
    }

    span<const Value> source;
    const corner_table& table;
    std::size_t column;
    number_table known;
    std::vector<UInt32> seen; ///< per source row: its number once it has one
    std::vector<Value> values;
    UInt32 last = 0; ///< number of the corner before
    UInt32 hashes[batch_size] = {};
};

/// New properties, held until a geometry has them.
struct made_properties {
    ::osg::RefPtr<::osg::GeoPositions3fPtr> positions;
    ::osg::RefPtr<::osg::GeoNormals3fPtr> normals;
    ::osg::RefPtr<::osg::GeoColors3fPtr> colors;
    ::osg::RefPtr<::osg::GeoTexCoords2fPtr> texcoords, texcoords7;
};

/// The five properties that are rebuilt, in their one order, and what becomes of them.
struct five_properties {
    explicit five_properties(const ::osg::GeometryPtr& g)
        : geometry(g), present{g->getPositions() != ::osg::NullFC, g->getNormals() != ::osg::NullFC,
                               g->getColors() != ::osg::NullFC, g->getTexCoords() != ::osg::NullFC,
                               g->getTexCoords7() != ::osg::NullFC} {
        for (std::size_t i = 0; i < 5; ++i) {
            column[i] = width;
            width += present[i] ? 1 : 0;
        }
    }

    ::osg::GeometryPtr geometry;
    bool present[5];
    std::size_t column[5] = {}; ///< of each property that is present
    std::size_t width = 0;
    std::vector<::osg::Pnt3f> positions;
    std::vector<::osg::Vec3f> normals;
    std::vector<::osg::Color3f> colors;
    std::vector<::osg::Vec2f> texcoords, texcoords7;

    /// Replaces the rows in the table by numbers and gathers the values.
    void number(const corner_table& table) {
        if (present[0])
            positions = numbered(readBlock(geometry->getPositions()), table, column[0]);
        if (present[1])
            normals = numbered(readBlock(geometry->getNormals()), table, column[1]);
        if (present[2])
            colors = numbered(readBlock(geometry->getColors()), table, column[2]);
        if (present[3])
            texcoords = numbered(readBlock(geometry->getTexCoords()), table, column[3]);
        if (present[4])
            texcoords7 = numbered(readBlock(geometry->getTexCoords7()), table, column[4]);
    }

    /// Makes the properties that exist, each of pick(values, column).
    template <typename Pick> made_properties make(const Pick& pick) const {
        made_properties made;
        if (present[0])
            made.positions = propertyOf<::osg::GeoPositions3f>(pick(positions, column[0]));
        if (present[1])
            made.normals = propertyOf<::osg::GeoNormals3f>(pick(normals, column[1]));
        if (present[2])
            made.colors = propertyOf<::osg::GeoColors3f>(pick(colors, column[2]));
        if (present[3])
            made.texcoords = propertyOf<::osg::GeoTexCoords2f>(pick(texcoords, column[3]));
        if (present[4])
            made.texcoords7 = propertyOf<::osg::GeoTexCoords2f>(pick(texcoords7, column[4]));
        return made;
    }

    /// Replaces the properties that exist, in their order.
    void set(const made_properties& made) const {
        if (present[0])
            geometry->setPositions(made.positions.get());
        if (present[1])
            geometry->setNormals(made.normals.get());
        if (present[2])
            geometry->setColors(made.colors.get());
        if (present[3])
            geometry->setTexCoords(made.texcoords.get());
        if (present[4])
            geometry->setTexCoords7(made.texcoords7.get());
    }

  private:
    template <typename Value>
    static std::vector<Value> numbered(const property_block<Value>& block,
                                       const corner_table& table, std::size_t column) {
        return column_numbering<Value>(block, table, column).run();
    }

    template <typename Property, typename Value>
    static ::osg::RefPtr<typename Property::PtrType> propertyOf(const std::vector<Value>& values) {
        const ::osg::RefPtr<typename Property::PtrType> property(Property::create());
        property->editField().resize(values.size());
        std::copy(values.begin(), values.end(), editSpan(property.get()).begin());
        return property;
    }
};

/// Whether the corners are simply the vertices in running order: unindexed triangles, none
/// incomplete and none beyond the data.
bool isSoup(const ::osg::GeometryPtr& geometry, std::size_t& corners) {
    if (geometry->getIndices() != ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return false;
    const auto types = readBlock(geometry->getTypes());
    const auto lengths = readBlock(geometry->getLengths());
    if (types.size() != lengths.size())
        return false;
    corners = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] != 4 || lengths[i] % 3 != 0)
            return false;
        corners += lengths[i];
    }
    return corners <= geometry->getPositions()->size();
}

std::size_t countCorners(const ::osg::GeometryPtr& geometry) {
    std::size_t corners = 0;
    for (::osg::TriangleIterator it = geometry->beginTriangles(); !it.isAtEnd(); ++it)
        corners += 3;
    return corners;
}

/// Fills the table with the row that each corner takes in each property.
void readRows(const five_properties& properties, const corner_table& table) {
    UInt32* to = table.cells.data();
    const bool* present = properties.present;
    for (::osg::TriangleIterator it = properties.geometry->beginTriangles(); !it.isAtEnd(); ++it) {
        for (int corner = 0; corner < 3; ++corner) {
            if (present[0])
                *to++ = static_cast<UInt32>(it.getPositionIndex(corner));
            if (present[1])
                *to++ = static_cast<UInt32>(it.getNormalIndex(corner));
            if (present[2])
                *to++ = static_cast<UInt32>(it.getColorIndex(corner));
            if (present[3])
                *to++ = static_cast<UInt32>(it.getTexCoordsIndex(corner));
            if (present[4])
                *to++ = static_cast<UInt32>(it.getTexCoordsIndex7(corner));
        }
    }
}

/// Numbers every corner of a geometry. `storage` has resize() and operator[], and receives the
/// cells of the table.
template <typename Storage>
corner_table numberCorners(five_properties& properties, Storage& storage) {
    corner_table table;
    table.width = properties.width;
    table.running = isSoup(properties.geometry, table.corners);
    if (!table.running)
        table.corners = countCorners(properties.geometry);
    const std::size_t cells = table.corners * table.width;
    storage.resize(cells);
    if (cells == 0)
        return table;
    table.cells = span<UInt32>(&storage[0], cells);
    if (!table.running)
        readRows(properties, table);
    properties.number(table);
    return table;
}

/// One run of triangles of this many corners.
void setTriangleRun(const ::osg::GeometryPtr& geometry, std::size_t corners) {
    const ::osg::GeoPTypesUI8Ptr types = ::osg::GeoPTypesUI8::create();
    types->addValue(4);
    geometry->setTypes(types);
    const ::osg::GeoPLengthsUI32Ptr lengths = ::osg::GeoPLengthsUI32::create();
    lengths->addValue(static_cast<UInt32>(corners));
    geometry->setLengths(lengths);
}

UInt32 hashOfLine(const UInt32* line, std::size_t width) {
    std::uint64_t hash = 0;
    for (std::size_t i = 0; i < width; ++i)
        hash = folded(hash, line[i]);
    return static_cast<UInt32>(hash >> 32);
}

/// Numbers the distinct lines of the table by first use.
///
/// numbers  out, one per corner: the number of its line
/// returns  per number the first corner that has it
std::vector<UInt32> numberLines(const corner_table& table, span<UInt32> numbers) {
    std::vector<UInt32> first_corner;
    if (table.width == 0) { // nothing tells the corners apart
        std::fill(numbers.begin(), numbers.end(), 0);
        first_corner.resize(numbers.empty() ? 0 : 1, 0);
        return first_corner;
    }
    number_table known(table.corners);
    const std::size_t width = table.width;
    UInt32 hashes[batch_size];
    for (std::size_t first = 0; first < table.corners; first += batch_size) {
        const std::size_t count = std::min(batch_size, table.corners - first);
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = hashOfLine(&table.cell(first + i, 0), width);
            known.fetch(hashes[i]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const UInt32* line = &table.cell(first + i, 0);
            const auto next = static_cast<UInt32>(first_corner.size());
            numbers[first + i] = known.findOrEnter(hashes[i], next, [&](UInt32 other) {
                return std::equal(line, line + width, &table.cell(first_corner[other], 0));
            });
            if (numbers[first + i] == next)
                first_corner.push_back(static_cast<UInt32>(first + i));
        }
    }
    return first_corner;
}

} // namespace

void createSharedIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    five_properties properties(geometry);
    const corner_table table = numberCorners(properties, indices->editField());

    // Everything is made before the geometry changes: without memory it stays as it was.
    const made_properties made =
        properties.make([](const auto& values, std::size_t) -> const auto& { return values; });

    const ::osg::UInt16 bits[5] = {::osg::Geometry::MapPosition, ::osg::Geometry::MapNormal,
                                   ::osg::Geometry::MapColor, ::osg::Geometry::MapTexCoords,
                                   ::osg::Geometry::MapTexCoords7};
    geometry->editMFIndexMapping()->clear();
    for (std::size_t i = 0; i < 5; ++i) {
        if (properties.present[i])
            geometry->editMFIndexMapping()->push_back(bits[i]);
    }
    properties.set(made);
    geometry->setIndices(indices.get());
    setTriangleRun(geometry, table.corners);
}

void createSingleIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    five_properties properties(geometry);
    std::vector<UInt32> cells;
    const corner_table table = numberCorners(properties, cells);
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(table.corners);
    const std::vector<UInt32> first_corner = numberLines(table, editSpan(indices.get()));
    const made_properties made = properties.make([&](const auto& values, std::size_t column) {
        std::decay_t<decltype(values)> picked;
        picked.reserve(first_corner.size());
        for (const UInt32 corner : first_corner)
            picked.push_back(values[table.cell(corner, column)]);
        return picked;
    });

    geometry->editMFIndexMapping()->clear();
    geometry->setIndices(indices.get());
    properties.set(made);
    setTriangleRun(geometry, table.corners);
}

} // namespace morva::osg
