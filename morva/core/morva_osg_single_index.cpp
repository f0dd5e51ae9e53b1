// createSingleIndex: distinct corners are found by the values of all their properties at once.
//
// A corner is new if no corner before has equal values throughout. The values of new corners, in
// their order, are the new properties. 0 and -0 are equal, and of the two every column keeps the
// one that it meets first; that only ever matters among new corners, since a value that is new to
// its column makes its corner new.

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>
#include <cmath>

#include <morva/core/morva_osg_corner_table.h>
#include <morva/core/morva_osg_value_hash.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

/// The values of all corners, each column by itself.
class corner_values {
  public:
    corner_values(const ::osg::GeometryPtr& geometry, const five_columns& of, corner_table of_rows)
        : columns(of), rows(of_rows), blocks(geometry) {}

    UInt32 hash(std::size_t corner) const {
        std::uint64_t sum = 0;
        forEachColumn([&](const auto& block, std::size_t column) {
            sum = hashFrom(sum, valueAt(block.view(), rows.row(corner, column)));
        });
        return static_cast<UInt32>(sum >> 32);
    }

    bool equal(std::size_t a, std::size_t b) const {
        bool all = true;
        forEachColumn([&](const auto& block, std::size_t column) {
            all = all && isEqual(valueAt(block.view(), rows.row(a, column)),
                                 valueAt(block.view(), rows.row(b, column)));
        });
        return all;
    }

    /// The values of some corners, of -0 and 0 the one that came first.
    five_results pick(const std::vector<UInt32>& corners) const {
        five_results results;
        if (columns.present[0])
            results.positions = picked(blocks.positions, corners, columns.column[0]);
        if (columns.present[1])
            results.normals = picked(blocks.normals, corners, columns.column[1]);
        if (columns.present[2])
            results.colors = picked(blocks.colors, corners, columns.column[2]);
        if (columns.present[3])
            results.texcoords = picked(blocks.texcoords, corners, columns.column[3]);
        if (columns.present[4])
            results.texcoords7 = picked(blocks.texcoords7, corners, columns.column[4]);
        return results;
    }

  private:
    /// Calls `use` with the block and the column number of every property that is present.
    template <typename Use> void forEachColumn(const Use& use) const {
        if (columns.present[0])
            use(blocks.positions, columns.column[0]);
        if (columns.present[1])
            use(blocks.normals, columns.column[1]);
        if (columns.present[2])
            use(blocks.colors, columns.column[2]);
        if (columns.present[3])
            use(blocks.texcoords, columns.column[3]);
        if (columns.present[4])
            use(blocks.texcoords7, columns.column[4]);
    }

    template <typename Value>
    std::vector<Value> picked(const property_block<Value>& block,
                              const std::vector<UInt32>& corners, std::size_t column) const {
        std::vector<Value> values;
        values.reserve(corners.size());
        bool signed_zero = false;
        for (const UInt32 corner : corners) {
            values.push_back(valueAt(block.view(), rows.row(corner, column)));
            signed_zero = signed_zero || hasNegativeZero(values.back());
        }
        if (signed_zero)
            unifyZeros(values);
        return values;
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

    const five_columns& columns;
    corner_table rows;
    five_blocks blocks;
};

/// Numbers the distinct corners by first use.
///
/// numbers  out, one per corner
/// returns  per number the first corner that has it
std::vector<UInt32> numberCorners(const corner_values& values, span<UInt32> numbers) {
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

} // namespace

void createSingleIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    const five_columns columns(geometry);
    corner_table table = tableOf(geometry, columns);
    std::vector<UInt32> cells;
    if (!table.running) {
        cells.resize(table.corners * table.width);
        table.cells = span<UInt32>(cells);
        readRows(geometry, columns, table);
    }
    const corner_values values(geometry, columns, table);
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(table.corners);
    const std::vector<UInt32> first_corner = numberCorners(values, editSpan(indices.get()));
    replaceAll(geometry, columns, values.pick(first_corner), indices, {}, table.corners);
}

} // namespace morva::osg
