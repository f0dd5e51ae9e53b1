// createSharedIndex: the rows of the corner table become numbers of distinct values, by first use.
//
//     corner   rows      numbers     values of the column
//     0        7         0           0: value of row 7
//     1        3         1           1: value of row 3
//     2        9         0           (row 9 holds what row 7 holds)
//
// Columns are worked on one after the other, so that one hash table at a time is in the cache.

#include <morva/core/morva_osg_geometry_tools.h>

#include <algorithm>

#include <morva/core/morva_osg_corner_table.h>
#include <morva/core/morva_osg_value_hash.h>

namespace morva::osg {

using ::osg::UInt32;

namespace {

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
    void fetch(std::size_t first, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            hashes[i] = hashOf(valueAt(source, table.row(first + i, column)));
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
        const Value value = valueAt(source, row);
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

template <typename Value>
std::vector<Value> numbered(const property_block<Value>& block, const corner_table& table,
                            std::size_t column) {
    return column_numbering<Value>(block, table, column).run();
}

five_results numberColumns(const ::osg::GeometryPtr& geometry, const five_columns& columns,
                           const corner_table& table) {
    const five_blocks blocks(geometry);
    five_results results;
    if (columns.present[0])
        results.positions = numbered(blocks.positions, table, columns.column[0]);
    if (columns.present[1])
        results.normals = numbered(blocks.normals, table, columns.column[1]);
    if (columns.present[2])
        results.colors = numbered(blocks.colors, table, columns.column[2]);
    if (columns.present[3])
        results.texcoords = numbered(blocks.texcoords, table, columns.column[3]);
    if (columns.present[4])
        results.texcoords7 = numbered(blocks.texcoords7, table, columns.column[4]);
    return results;
}

} // namespace

void createSharedIndex(::osg::GeometryPtr geometry) {
    if (geometry == ::osg::NullFC)
        return;
    const five_columns columns(geometry);
    corner_table table = tableOf(geometry, columns);
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> indices(::osg::GeoIndicesUI32::create());
    indices->editField().resize(table.corners * table.width);
    table.cells = editSpan(indices.get());
    if (!table.running)
        readRows(geometry, columns, table);
    const five_results results = numberColumns(geometry, columns, table);

    const ::osg::UInt16 bits[5] = {::osg::Geometry::MapPosition, ::osg::Geometry::MapNormal,
                                   ::osg::Geometry::MapColor, ::osg::Geometry::MapTexCoords,
                                   ::osg::Geometry::MapTexCoords7};
    std::vector<::osg::UInt16> mapping;
    for (std::size_t i = 0; i < 5; ++i) {
        if (columns.present[i])
            mapping.push_back(bits[i]);
    }
    replaceAll(geometry, columns, results, indices, mapping, table.corners);
}

} // namespace morva::osg
