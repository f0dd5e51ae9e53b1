#include <morva/draworder/morva_osg_draw_elements.h>

#include <algorithm>
#include <limits>

#include <morva/core/morva_osg_geometry_tools.h>

namespace morva::osg {

namespace {

/// Without coordinate set 0.
constexpr vertex_property line_properties[] = {vertex_property::position, vertex_property::normal,
                                               vertex_property::color, vertex_property::texcoords7};

/// Points the table to the geometry's own index; false if it does not serve as it is.
bool useOwnIndex(draw_elements& elements) {
    const geometry_columns& columns = elements.columns;
    const std::size_t used =
        plainRun(columns, elements.corners == 3 ? GL_TRIANGLES : GL_LINES, elements.corners);
    if (!columns.indexed() || !columns[vertex_property::position].present || used == no_run)
        return false;
    elements.width = columns.stride();
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        const property_column& column = elements.column(i);
        if (column.present && column.slot < 0)
            return false;
        elements.offset[i] = column.present ? column.slot : draw_elements::absent;
    }
    elements.count = used / elements.corners;
    elements.cells = columns.indices().subspan(0, used * elements.width);
    // Indices that lead nowhere have to be replaced.
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (!elements.has(i))
            continue;
        std::uint32_t largest = 0;
        for (std::size_t c = 0; c < used; ++c)
            largest = std::max(largest, elements.index(c, i));
        if (used != 0 && largest >= elements.sizeOf(i))
            return false;
    }
    return true;
}

/// Fills a table of the elements that the scene graph's iterators deliver.
template <unsigned Corners> void walkElements(draw_elements& elements) {
    const geometry_columns& columns = elements.columns;
    elements.width = 0;
    elements.count = 0;
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        const bool listed = i == 0 || elements.column(i).present;
        elements.offset[i] = listed ? static_cast<int>(elements.width++) : draw_elements::absent;
    }
    if (!columns[vertex_property::position].present)
        return; // no element has a place
    const auto enter = [&](auto... corners) {
        for (const std::size_t corner : {corners...}) {
            columns.forEachPresent([&](vertex_property, const property_column& column) {
                elements.own_cells.push_back(
                    std::min(column.row(corner), static_cast<std::uint32_t>(column.rows)));
            });
        }
        ++elements.count;
    };
    if constexpr (Corners == 3)
        forEachTriangle(columns, rest_rule::continued, enter);
    else
        forEachLine(columns, rest_rule::continued, enter);
    elements.cells = elements.own_cells;
}

/// Whether an element must not be drawn.
bool isDropped(const draw_elements& elements, std::size_t element, bool drop_rogues) {
    const auto positions = elements.column(0).as<::osg::Pnt3f>();
    ::osg::Pnt3f p[3];
    for (unsigned k = 0; k < elements.corners; ++k) {
        const std::size_t index = elements.index(element * elements.corners + k, 0);
        if (index >= positions.size())
            return true;
        p[k] = positions[index];
    }
    return drop_rogues && is_rogue(p[0], p[1], p[2]);
}

/// Takes the elements out that must not be drawn; the rest get numbers.
void dropElements(bool drop_rogues, draw_elements& elements) {
    const std::size_t line = elements.corners * elements.width;
    std::vector<std::uint32_t> kept_cells;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < elements.count; ++i) {
        const bool dropped = isDropped(elements, i, drop_rogues);
        if (dropped && elements.numbers.empty() && kept == i) { // the first one
            elements.numbers.resize(i);
            for (std::size_t j = 0; j < i; ++j)
                elements.numbers[j] = static_cast<std::uint32_t>(j);
            kept_cells.assign(elements.cells.begin(), elements.cells.begin() + i * line);
        }
        if (dropped)
            continue;
        ++kept;
        if (kept == i + 1)
            continue;
        elements.numbers.push_back(static_cast<std::uint32_t>(i));
        kept_cells.insert(kept_cells.end(), elements.cells.begin() + i * line,
                          elements.cells.begin() + (i + 1) * line);
    }
    if (kept == elements.count)
        return;
    elements.count = kept;
    elements.own_cells = std::move(kept_cells);
    elements.cells = elements.own_cells;
}

/// Replaces a property's values by those at `rows`.
template <typename Property>
void pickValues(const property_column& source, const std::vector<std::uint32_t>& rows,
                const Property& target) {
    target->editField().resize(rows.size());
    const auto values = editSpan(target);
    using value = typename decltype(values)::value_type;
    const span<const value> from = source.as<value>();
    for (std::size_t i = 0; i < rows.size(); ++i)
        values[i] = rows[i] < from.size() ? from[rows[i]] : value();
}

/// Gives a geometry a property of its own with the values at `rows`.
void giveValues(const draw_elements& source, std::size_t property,
                const std::vector<std::uint32_t>& rows, const ::osg::GeometryPtr& to) {
    withProperty(to, to, basic_properties[property], [&](const auto& role, const auto& take) {
        using form = usual_form<decltype(role)>;
        const ::osg::RefPtr<form> made(form::StoredObjectType::create());
        pickValues(source.column(property), rows, made.get());
        take(made.get());
    });
}

} // namespace

template <unsigned Corners>
draw_elements readElements(const ::osg::GeometryPtr& geometry, bool drop_rogues) {
    span<const vertex_property> chosen = basic_properties;
    if (Corners == 2)
        chosen = line_properties;
    draw_elements elements{geometry_columns(geometry, chosen), Corners};
    if (!useOwnIndex(elements))
        walkElements<Corners>(elements);
    dropElements(drop_rogues, elements);
    return elements;
}

template draw_elements readElements<2>(const ::osg::GeometryPtr&, bool);
template draw_elements readElements<3>(const ::osg::GeometryPtr&, bool);

std::vector<std::uint32_t> numberCorners(const draw_elements& elements, std::size_t& distinct) {
    const std::size_t corners = elements.count * elements.corners;
    std::vector<std::uint32_t> number(corners, 0);
    std::vector<std::uint32_t> by_number(corners), start;
    distinct = corners == 0 ? 0 : 1;
    for (std::size_t property = 0; property < draw_elements::properties; ++property) {
        if (!elements.has(property))
            continue;
        // Corners of one number so far lie together, and get a number per index.
        start.assign(distinct + 1, 0);
        for (const std::uint32_t n : number)
            ++start[n + 1];
        for (std::size_t n = 0; n < distinct; ++n)
            start[n + 1] += start[n];
        for (std::size_t c = 0; c < corners; ++c)
            by_number[start[number[c]]++] = static_cast<std::uint32_t>(c);
        constexpr std::uint32_t none = std::numeric_limits<std::uint32_t>::max();
        std::vector<std::uint32_t> group_of(elements.sizeOf(property) + 1, none);
        std::vector<std::uint32_t> number_of(group_of.size());
        std::uint32_t next = 0;
        for (std::size_t i = 0; i < corners; ++i) {
            const std::size_t corner = by_number[i];
            const std::uint32_t group = number[corner];
            const std::uint32_t index = elements.index(corner, property);
            if (group_of[index] != group) {
                group_of[index] = group;
                number_of[index] = next++;
            }
            number[corner] = number_of[index];
        }
        distinct = next;
    }
    return number;
}

piece_writer::piece_writer(const draw_elements& source,
                           const std::vector<std::uint32_t>& draw_order)
    : source_(source), order_(draw_order) {
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (!source.has(i))
            continue;
        number_of_[i].resize(source.sizeOf(i) + 1, 0);
        ++width_;
    }
}

/// Writes one column of the index, and returns which values of the source it leads to.
std::vector<std::uint32_t> piece_writer::numberColumn(std::size_t property, std::size_t first,
                                                      std::size_t end, std::uint32_t* cells) {
    std::vector<std::uint32_t> rows;
    std::vector<std::uint32_t>& number_of = number_of_[property];
    const std::uint32_t before = numbered_[property];
    for (std::size_t i = first; i < end; ++i) {
        const std::size_t corner = std::size_t(order_[i]) * source_.corners;
        for (unsigned k = 0; k < source_.corners; ++k, cells += width_) {
            const std::uint32_t row = source_.index(corner + k, property);
            if (number_of[row] <= before) { // numbered for an earlier piece, or never
                rows.push_back(row);
                number_of[row] = before + static_cast<std::uint32_t>(rows.size());
            }
            *cells = number_of[row] - before - 1;
        }
    }
    numbered_[property] += static_cast<std::uint32_t>(rows.size());
    return rows;
}

/// Writes all columns of the index, and returns which values of each property it leads to.
std::array<std::vector<std::uint32_t>, draw_elements::properties>
piece_writer::numberColumns(std::size_t first, std::size_t end, span<std::uint32_t> cells) {
    std::array<std::vector<std::uint32_t>, draw_elements::properties> rows;
    if (cells.empty())
        return rows;
    std::size_t column = 0, column_of[draw_elements::properties] = {};
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (!source_.has(i))
            continue;
        std::size_t same = 0; // a property that shares the index, at the latest itself
        while (source_.offset[same] != source_.offset[i])
            ++same;
        column_of[i] = column;
        std::uint32_t* const to = cells.data() + column++;
        if (same == i) {
            rows[i] = numberColumn(i, first, end, to);
            continue;
        }
        rows[i] = rows[same];
        for (std::size_t c = 0; c < cells.size(); c += width_)
            to[c] = cells[c + column_of[same]];
    }
    return rows;
}

void piece_writer::write(std::size_t first, std::size_t end, const ::osg::GeometryPtr& geometry) {
    const std::size_t corners = (end - first) * source_.corners;
    geometry->getLengths()->addValue(static_cast<::osg::UInt32>(corners));
    const ::osg::RefPtr<::osg::GeoIndicesUI32Ptr> index(::osg::GeoIndicesUI32::create());
    index->editField().resize(corners * width_);
    const span<::osg::UInt32> cells = editSpan(index.get());

    const auto rows = numberColumns(first, end, cells);
    for (const std::size_t property : {3, 2, 1, 4}) {
        if (source_.has(property))
            giveValues(source_, property, rows[property], geometry);
    }
    pickValues(source_.column(0), rows[0],
               ::osg::GeoPositions3fPtr::dcast(geometry->getPositions()));
    geometry->setIndices(index.get());
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (source_.has(i))
            geometry->editMFIndexMapping()->push_back(mappingBit(basic_properties[i]));
    }
}

} // namespace morva::osg
