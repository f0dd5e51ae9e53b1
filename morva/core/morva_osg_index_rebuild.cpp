// Index rebuilding: the rows of a table of corners become numbers of distinct values, by first use.
//
//     corner   positions   normals   texcoords        numbers of the positions
//     0        7           7         2                0: value of row 7
//     1        3           3         0                1: value of row 3
//     2        9           7         2                0  (row 9 holds what row 7 holds)
//
// Per property: each column by itself, one after the other, so that one hash table at a time is in
// the cache. Common: a corner is new if no corner before has equal values throughout, and the
// values of new corners, in their order, are the new properties. 0 and -0 are equal, and of the two
// every column keeps the one that it meets first; that only ever matters among new corners, since a
// value that is new to its column makes its corner new.

#include <morva/core/morva_osg_index_rebuild.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include <morva/core/morva_osg_edits.h>
#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_value_hash.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

using two_floats = ::osg::Vec2f;
using three_floats = ::osg::Vec3f;
using made_property = ::osg::RefPtr<::osg::AttachmentPtr>;

/// A row that leads nowhere reads as zero.
template <typename Value> Value valueAt(const span<const Value>& values, UInt32 row) {
    return row < values.size() ? values[row] : Value();
}

template <typename Value> span<const float> floatsOf(const std::vector<Value>& values) {
    return {values.empty() ? nullptr : &values[0][0],
            values.size() * sizeof(Value) / sizeof(float)};
}

/// The corners of all triangles, and their rows in the properties that there are.
struct corner_table {
    explicit corner_table(const ::osg::GeometryPtr& geometry) : source(geometry, basic_properties) {
        source.forEachPresent([this](vertex_property property, const property_column& column) {
            properties[width] = property;
            columns[width++] = column;
        });
        corners = source.indexed() ? no_run : plainRun(source, GL_TRIANGLES, 3);
        running = corners != no_run;
        if (running)
            return;
        corners = 0;
        forEachTriangle(source, rest_rule::continued,
                        [this](std::size_t, std::size_t, std::size_t) { corners += 3; });
    }

    /// Fills `cells`, which must have `corners * width` entries, unless there is no need to.
    void readRows() {
        UInt32* to = cells.data();
        const auto put = [&](std::size_t corner) {
            for (std::size_t i = 0; i < width; ++i)
                *to++ = columns[i].row(corner);
        };
        if (running)
            return;
        forEachTriangle(source, rest_rule::continued,
                        [&put](std::size_t a, std::size_t b, std::size_t c) {
                            put(a);
                            put(b);
                            put(c);
                        });
    }

    UInt32& cell(std::size_t corner, std::size_t column) const {
        return cells[corner * width + column];
    }
    UInt32 row(std::size_t corner, std::size_t column) const {
        return running ? static_cast<UInt32>(corner) : cell(corner, column);
    }

    geometry_columns source;
    vertex_property properties[std::size(basic_properties)] = {};
    property_column columns[std::size(basic_properties)]; ///< of `properties`, `width` of them
    std::size_t width = 0;
    std::size_t corners = 0;
    bool running = false; ///< the rows are the corner numbers and are not in `cells`
    span<UInt32> cells;   ///< `width` rows, corner after corner
};

/// Makes a geometry one run of triangles with these indices, this mapping, and new properties in
/// place of those of the table. What can fail comes before it changes.
void replaceAll(const ::osg::GeometryPtr& geometry, const corner_table& table,
                const made_property* made, const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr>& indices,
                const std::vector<::osg::UInt16>& mapping) {
    const ::osg::RefPtr<::osg::GeoPTypesUI8Ptr> types(::osg::GeoPTypesUI8::create());
    types->addValue(GL_TRIANGLES);
    const ::osg::RefPtr<::osg::GeoPLengthsUI32Ptr> lengths(::osg::GeoPLengthsUI32::create());
    lengths->addValue(static_cast<UInt32>(table.corners));
    const geometry_edit edit(geometry);
    geometry->editMFIndexMapping()->reserve(mapping.size());

    geometry->editMFIndexMapping()->clear();
    for (const ::osg::UInt16 bits : mapping)
        geometry->editMFIndexMapping()->push_back(bits);
    for (std::size_t i = 0; i < table.width; ++i)
        setProperty(geometry, table.properties[i], made[i].get());
    geometry->setIndices(indices.get());
    geometry->setTypes(types.get());
    geometry->setLengths(lengths.get());
}

/// Turns the rows of one column into numbers, and gathers the values that the numbers stand for.
template <typename Value> class column_numbering {
  public:
    column_numbering(const corner_table& all, std::size_t number_of_column)
        : source_(all.columns[number_of_column].as<Value>()), table_(all),
          column_(number_of_column), known_(all.corners) {
        if (!table_.running)
            seen_.resize(source_.size(), no_number);
    }

    /// Out of line: with both kinds of values in one function it takes 8 % more instructions.
    [[gnu::noinline]] std::vector<Value> run() {
        for (std::size_t first = 0; first < table_.corners; first += batch_size) {
            const std::size_t count = std::min(batch_size, table_.corners - first);
            fetch(first, count);
            number(first, count);
        }
        return std::move(values_);
    }

  private:
    void fetch(std::size_t first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            hashes_[i] = hashOf(valueAt(source_, table_.row(first + i, column_)));
            known_.fetch(hashes_[i]);
        }
    }

    void number(std::size_t first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            const UInt32 row = table_.row(first + i, column_);
            table_.cell(first + i, column_) = numberOf(row, hashes_[i]);
        }
    }

    UInt32 numberOf(UInt32 row, UInt32 hash) {
        // The same row gives the same number again, but for a NaN, which never does.
        if (row < seen_.size() && seen_[row] != no_number)
            return seen_[row];
        const Value value = valueAt(source_, row);
        if (!values_.empty() && isEqual(values_[last_], value))
            return last_;
        const auto next = static_cast<UInt32>(values_.size());
        const bool is_number = isEqual(value, value);
        last_ = is_number
                    ? known_.findOrEnter(
                          hash, next, [&](UInt32 other) { return isEqual(values_[other], value); })
                    : next;
        if (last_ == next)
            values_.push_back(value);
        if (row < seen_.size() && is_number)
            seen_[row] = last_;
        return last_;
    }

    span<const Value> source_;
    const corner_table& table_;
    std::size_t column_;
    number_table known_;
    std::vector<UInt32> seen_; ///< per source row: its number once it has one
    std::vector<Value> values_;
    UInt32 last_ = 0; ///< number of the corner before
    UInt32 hashes_[batch_size] = {};
};

/// The values of all corners, each column by itself.
template <bool Running> class corner_values {
  public:
    explicit corner_values(const corner_table& of) : table_(of) {}

    UInt32 hash(std::size_t corner) const {
        std::uint64_t sum = 0;
        for (std::size_t i = 0; i < table_.width; ++i) {
            sum += table_.columns[i].width == 2 ? hashShare(value<two_floats>(corner, i), i)
                                                : hashShare(value<three_floats>(corner, i), i);
        }
        return hashOfSum(sum);
    }

    bool equal(std::size_t a, std::size_t b) const {
        bool all = true;
        for (std::size_t i = 0; i < table_.width; ++i) {
            all = all && (table_.columns[i].width == 2
                              ? isEqual(value<two_floats>(a, i), value<two_floats>(b, i))
                              : isEqual(value<three_floats>(a, i), value<three_floats>(b, i)));
        }
        return all;
    }

    /// The values of some corners in a column, of -0 and 0 the one that came first.
    template <typename Value>
    std::vector<Value> pick(const std::vector<UInt32>& corners, std::size_t column) const {
        std::vector<Value> values;
        values.reserve(corners.size());
        bool signed_zero = false;
        for (const UInt32 corner : corners) {
            values.push_back(value<Value>(corner, column));
            signed_zero = signed_zero || hasNegativeZero(values.back());
        }
        if (signed_zero)
            unifyZeros(values);
        return values;
    }

  private:
    template <typename Value> Value value(std::size_t corner, std::size_t column) const {
        const span<const Value> values = table_.columns[column].template as<Value>();
        if constexpr (Running)
            return values.data()[corner];
        else
            return valueAt(values, table_.row(corner, column));
    }

    template <typename Value> static bool hasNegativeZero(const Value& value) {
        bool found = false;
        for (std::size_t i = 0; i < sizeof(Value) / sizeof(float); ++i)
            found = found || (value[i] == 0.0F && std::signbit(value[i]));
        return found;
    }

    /// Replaces every value by the first one that is equal.
    template <typename Value> static void unifyZeros(std::vector<Value>& values) {
        number_table known(values.size());
        std::vector<UInt32> first;
        for (UInt32 i = 0; i < values.size(); ++i) {
            if (!isEqual(values[i], values[i]))
                continue;
            const auto next = static_cast<UInt32>(first.size());
            const UInt32 number = known.findOrEnter(hashOf(values[i]), next, [&](UInt32 other) {
                return isEqual(values[first[other]], values[i]);
            });
            if (number == next)
                first.push_back(i);
            else
                values[i] = values[first[number]];
        }
    }

    const corner_table& table_;
};

/// Numbers the distinct corners by first use.
///
/// numbers  out, one per corner
/// returns  per number the first corner that has it
template <bool Running>
std::vector<UInt32> numberCorners(const corner_values<Running>& values, span<UInt32> numbers) {
    std::vector<UInt32> first_corner;
    number_table known(numbers.size());
    UInt32 hashes[batch_size];
    for (std::size_t first = 0; first < numbers.size(); first += batch_size) {
        const std::size_t count = std::min(batch_size, numbers.size() - first);
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = values.hash(first + i);
            known.fetch(hashes[i]);
        }
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t corner = first + i;
            const auto next = static_cast<UInt32>(first_corner.size());
            // A NaN equals nothing, itself neither.
            UInt32 number = next;
            if (values.equal(corner, corner)) {
                number = known.findOrEnter(hashes[i], next, [&](UInt32 other) {
                    return values.equal(corner, first_corner[other]);
                });
            }
            if (number == next)
                first_corner.push_back(static_cast<UInt32>(corner));
            numbers[corner] = number;
        }
    }
    return first_corner;
}

template <bool Running>
void makeCommon(const ::osg::GeometryPtr& geometry, const corner_table& table) {
    const corner_values<Running> values(table);
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(table.corners);
    const std::vector<UInt32> corners = numberCorners(values, editSpan(indices.get()));
    made_property made[std::size(basic_properties)];
    for (std::size_t i = 0; i < table.width; ++i) {
        made[i] = table.columns[i].width == 2
                      ? makeProperty(geometry, table.properties[i],
                                     floatsOf(values.template pick<two_floats>(corners, i)))
                      : makeProperty(geometry, table.properties[i],
                                     floatsOf(values.template pick<three_floats>(corners, i)));
    }
    replaceAll(geometry, table, made, indices, {});
}

void makeCommon(const ::osg::GeometryPtr& geometry, corner_table& table) {
    const bool reaches_all = std::all_of(
        table.columns, table.columns + table.width,
        [&table](const property_column& column) { return column.rows >= table.corners; });
    if (table.running && reaches_all)
        return makeCommon<true>(geometry, table);
    std::vector<UInt32> cells(table.running ? 0 : table.corners * table.width);
    table.cells = cells;
    table.readRows();
    makeCommon<false>(geometry, table);
}

void makePerProperty(const ::osg::GeometryPtr& geometry, corner_table& table) {
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(table.corners * table.width);
    table.cells = editSpan(indices.get());
    table.readRows();
    made_property made[std::size(basic_properties)];
    std::vector<::osg::UInt16> mapping;
    for (std::size_t i = 0; i < table.width; ++i) {
        const vertex_property property = table.properties[i];
        made[i] = table.columns[i].width == 2
                      ? makeProperty(geometry, property,
                                     floatsOf(column_numbering<two_floats>(table, i).run()))
                      : makeProperty(geometry, property,
                                     floatsOf(column_numbering<three_floats>(table, i).run()));
        mapping.push_back(mappingBit(property));
    }
    replaceAll(geometry, table, made, indices, mapping);
}

} // namespace

void rebuildAsTriangles(const ::osg::GeometryPtr& geometry, triangle_index form) {
    if (geometry == ::osg::NullFC)
        return;
    corner_table table(geometry);
    if (form == triangle_index::common)
        makeCommon(geometry, table);
    else
        makePerProperty(geometry, table);
}

void createSharedIndex(::osg::GeometryPtr geometry) {
    rebuildAsTriangles(geometry, triangle_index::per_property);
}

void createSingleIndex(::osg::GeometryPtr geometry) {
    rebuildAsTriangles(geometry, triangle_index::common);
}

} // namespace morva::osg
