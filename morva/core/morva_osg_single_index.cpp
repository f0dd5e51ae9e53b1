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

/// Where a corner finds its value in a column: at its own number, where every column has one.
struct running_rows {
    template <typename Value>
    Value value(const property_block<Value>& block, std::size_t corner, std::size_t) const {
        return block.data()[corner];
    }
};

/// Where a corner finds its value in a column: at the row that the table tells.
struct listed_rows {
    corner_table table;

    template <typename Value>
    Value value(const property_block<Value>& block, std::size_t corner, std::size_t column) const {
        return valueAt(block.view(), table.row(corner, column));
    }
};

/// The values of all corners, each column by itself.
template <typename Rows> class corner_values {
  public:
    corner_values(const five_blocks& of, const five_columns& present, const Rows& at)
        : blocks(of), columns(present), rows(at) {}

    UInt32 hash(std::size_t corner) const {
        std::uint64_t sum = 0;
        forEachColumn([&](const auto& block, std::size_t column) {
            sum += hashShare(rows.value(block, corner, column), column);
        });
        return hashOfSum(sum);
    }

    bool equal(std::size_t a, std::size_t b) const {
        bool all = true;
        forEachColumn([&](const auto& block, std::size_t column) {
            all = all && isEqual(rows.value(block, a, column), rows.value(block, b, column));
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
            values.push_back(rows.value(block, corner, column));
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

    const five_blocks& blocks;
    const five_columns& columns;
    Rows rows;
};

/// Numbers the distinct corners by first use.
///
/// numbers  out, one per corner
/// returns  per number the first corner that has it
template <typename Rows>
std::vector<UInt32> numberCorners(const corner_values<Rows>& values, span<UInt32> numbers) {
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

/// Whether corner numbers are rows of every column.
bool reachesAll(const five_blocks& blocks, const five_columns& columns, std::size_t corners) {
    const std::size_t sizes[5] = {blocks.positions.size(), blocks.normals.size(),
                                  blocks.colors.size(), blocks.texcoords.size(),
                                  blocks.texcoords7.size()};
    for (std::size_t i = 0; i < 5; ++i) {
        if (columns.present[i] && sizes[i] < corners)
            return false;
    }
    return true;
}

template <typename Rows>
void rebuild(const ::osg::GeometryPtr& geometry, const five_columns& columns,
             const corner_values<Rows>& values, std::size_t corners) {
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(corners);
    const std::vector<UInt32> first_corner = numberCorners(values, editSpan(indices.get()));
    replaceAll(geometry, columns, values.pick(first_corner), indices, {}, corners);
}

} // namespace

void createSingleIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    const five_columns columns(geometry);
    const five_blocks blocks(geometry);
    corner_table table = tableOf(geometry, columns);
    if (table.running && reachesAll(blocks, columns, table.corners)) {
        const corner_values<running_rows> values(blocks, columns, running_rows());
        rebuild(geometry, columns, values, table.corners);
        return;
    }
    std::vector<UInt32> cells;
    if (!table.running) {
        cells.resize(table.corners * table.width);
        table.cells = span<UInt32>(cells);
        readRows(geometry, columns, table);
    }
    const corner_values<listed_rows> values(blocks, columns, listed_rows{table});
    rebuild(geometry, columns, values, table.corners);
}

} // namespace morva::osg
