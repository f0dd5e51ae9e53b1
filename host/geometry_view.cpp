#include "geometry_view.h"

#include <algorithm>
#include <limits>

namespace morva::host {

namespace {

constexpr std::uint32_t no_number = std::numeric_limits<std::uint32_t>::max();

using morva::osg::corner_rows;

} // namespace

geometry_view::geometry_view(const ::osg::GeometryPtr& geometry)
    : columns(geometry, morva::osg::all_properties, morva::osg::color_form::rgba_where_stored),
      wide_indices(::osg::GeoIndicesUI32Ptr::dcast(geometry->getIndices()) != ::osg::NullFC) {
    std::size_t next = 0;
    forEachColumn(*this, [&](property_column& column) {
        const property_column& read = columns[morva::osg::all_properties[next++]];
        if (read.rows == 0 || read.slot < 0)
            return; // nothing there, or no index leads to it: as good as absent
        column = read;
        one_index_per_corner = one_index_per_corner && column.slot == positions.slot;
    });
    forEachPrimitive(geometry, columns.corners(), morva::osg::rest_rule::left_out,
                     [&](const primitive_run& run) {
                         if (run.length != 0)
                             runs.push_back(run);
                     });
    checkRanges();
}

/// Corners that point outside a column make the core undrawable; one other than the positions that
/// is too short goes alone.
void geometry_view::checkRanges() {
    if (runs.empty())
        return;
    const std::size_t stride = columns.stride();
    std::vector<std::uint32_t> highest(stride, static_cast<std::uint32_t>(usedCorners() - 1));
    if (columns.indexed()) {
        highest.assign(stride, 0);
        const std::uint32_t* const indices = columns.indices().data();
        const std::size_t entries = usedCorners() * stride;
        if (stride == 1) {
            std::uint32_t most = 0; // of its own: in the list it would be stored at each step
            for (std::size_t i = 0; i < entries; ++i)
                most = std::max(most, indices[i]);
            highest[0] = most;
        } else {
            equal_indices = true;
            for (std::size_t first = 0; first < entries; first += stride) {
                for (std::size_t slot = 0; slot < stride; ++slot) {
                    const std::uint32_t index = indices[first + slot];
                    highest[slot] = std::max(highest[slot], index);
                    equal_indices = equal_indices && index == indices[first];
                }
            }
        }
    }
    const auto leadsOut = [&](const property_column& column) {
        return highest[static_cast<std::size_t>(column.slot)] >= column.rows;
    };
    faulty = !positions.present || leadsOut(positions);
    if (faulty)
        runs.clear();
    forEachColumn(*this, [&](property_column& column) {
        if (column.present && leadsOut(column))
            column = property_column();
    });
}

namespace {

/// Numbers of vertices by the rows that their corners take: an open table, exact.
class corner_table {
  public:
    corner_table(const geometry_view& view, std::size_t corners) {
        forEachColumn(view, [&](const property_column& column) {
            const auto same_index = [&](const corner_rows& rows) {
                return rows.index == column.index;
            };
            if (column.present && std::none_of(rows_.begin(), rows_.end(), same_index))
                rows_.push_back(column);
        });
        std::size_t size = 16;
        while (size < 2 * corners)
            size *= 2;
        table_.assign(size, no_number);
    }

    /// The place for the vertex of `corner`: holds its number, or `no_number` if it is new.
    std::uint32_t& find(std::size_t corner, const std::vector<std::uint32_t>& first_corner) {
        std::size_t place = hash(corner) & (table_.size() - 1);
        while (table_[place] != no_number && !same(first_corner[table_[place]], corner))
            place = (place + 1) & (table_.size() - 1);
        return table_[place];
    }

  private:
    std::size_t hash(std::size_t corner) const {
        std::uint64_t value = 0;
        for (const corner_rows& rows : rows_)
            value = (value ^ rows.row(corner)) * 0x9E3779B97F4A7C15ull;
        return static_cast<std::size_t>(value >> 20);
    }
    bool same(std::size_t one, std::size_t other) const {
        return std::all_of(rows_.begin(), rows_.end(), [&](const corner_rows& rows) {
            return rows.row(one) == rows.row(other);
        });
    }

    std::vector<corner_rows> rows_; ///< one of each index
    std::vector<std::uint32_t> table_;
};

} // namespace

vertex_numbering numberVertices(const geometry_view& view) {
    vertex_numbering result;
    const std::size_t end = view.usedCorners();
    result.of_corner.resize(end);
    const auto numberOf = [&](std::uint32_t& place, std::size_t corner) {
        if (place == no_number) {
            place = static_cast<std::uint32_t>(result.first_corner.size());
            result.first_corner.push_back(static_cast<std::uint32_t>(corner));
        }
        result.of_corner[corner] = place;
    };
    if (view.one_index_per_corner || view.equal_indices) {
        std::vector<std::uint32_t> number(view.positions.rows, no_number);
        for (std::size_t corner = 0; corner < end; ++corner)
            numberOf(number[view.positions.row(corner)], corner);
    } else {
        corner_table table(view, end);
        for (std::size_t corner = 0; corner < end; ++corner)
            numberOf(table.find(corner, result.first_corner), corner);
    }
    return result;
}

} // namespace morva::host
