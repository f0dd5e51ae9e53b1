#include <morva/draworder/morva_osg_draw_elements.h>

#include <algorithm>
#include <limits>

#include <OpenSG/OSGLineIterator.h>
#include <OpenSG/OSGTriangleIterator.h>

#include <morva/core/morva_osg_geometry_tools.h>
#include <morva/core/morva_osg_property_index.h>

namespace morva::osg {

namespace {

const ::osg::UInt16 mapping_bits[draw_elements::properties] = {
    ::osg::Geometry::MapPosition, ::osg::Geometry::MapNormal, ::osg::Geometry::MapColor,
    ::osg::Geometry::MapTexCoords, ::osg::Geometry::MapTexCoords7};

template <unsigned Corners> struct element_kind;
template <> struct element_kind<3> {
    static constexpr ::osg::UInt32 plain_type = 4;
    using iterator = ::osg::TriangleIterator;
    static iterator begin(const ::osg::GeometryPtr& g) { return g->beginTriangles(); }
};
template <> struct element_kind<2> {
    static constexpr ::osg::UInt32 plain_type = 1;
    using iterator = ::osg::LineIterator;
    static iterator begin(const ::osg::GeometryPtr& g) { return g->beginLines(); }
};

void readProperties(const ::osg::GeometryPtr& geometry, bool with_slot_0, draw_elements& elements) {
    elements.positions = readBlock(geometry->getPositions());
    elements.normals = readBlock(geometry->getNormals());
    elements.colors = readBlock(geometry->getColors());
    if (with_slot_0)
        elements.texcoords = readBlock(geometry->getTexCoords());
    elements.texcoords7 = readBlock(geometry->getTexCoords7());
}

/// Which properties get a column. Positions always do.
std::array<bool, draw_elements::properties> presentIn(const ::osg::GeometryPtr& geometry,
                                                      bool with_slot_0) {
    return {true, geometry->getNormals() != ::osg::NullFC, geometry->getColors() != ::osg::NullFC,
            with_slot_0 && geometry->getTexCoords() != ::osg::NullFC,
            geometry->getTexCoords7() != ::osg::NullFC};
}

/// Whether the primitives are one run of elements, whole and within the data.
bool isPlainRun(const ::osg::GeometryPtr& geometry, ::osg::UInt32 type, unsigned corners,
                std::size_t vertices, std::size_t& used) {
    const auto types = readBlock(geometry->getTypes());
    const auto lengths = readBlock(geometry->getLengths());
    if (types.size() != lengths.size())
        return false;
    used = 0;
    for (std::size_t i = 0; i < types.size(); ++i) {
        if (types[i] != type || lengths[i] % corners != 0)
            return false;
        used += lengths[i];
    }
    return used <= vertices;
}

/// Points the table to the geometry's own index; false if it does not serve as it is.
bool useOwnIndex(const ::osg::GeometryPtr& geometry,
                 const std::array<bool, draw_elements::properties>& present, ::osg::UInt32 type,
                 draw_elements& elements) {
    if (geometry->getIndices() == ::osg::NullFC || geometry->getPositions() == ::osg::NullFC)
        return false;
    const std::size_t mappings = geometry->getMFIndexMapping()->size();
    elements.width = std::max<std::size_t>(mappings, 1);
    elements.indices = readBlock(geometry->getIndices());
    std::size_t used = 0;
    if (!isPlainRun(geometry, type, elements.corners, elements.indices.size() / elements.width,
                    used))
        return false;
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        elements.offset[i] = draw_elements::absent;
        if (!present[i])
            continue;
        const int slot = mappings == 0 ? 0 : geometry->calcMappingIndex(mapping_bits[i]);
        if (slot < 0)
            return false;
        elements.offset[i] = slot;
    }
    elements.count = used / elements.corners;
    elements.cells = elements.indices.view().subspan(0, used * elements.width);
    // Indices that lead nowhere have to be replaced.
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (!elements.has(i))
            continue;
        const std::size_t size = elements.sizeOf(i);
        std::uint32_t largest = 0;
        for (std::size_t c = 0; c < used; ++c)
            largest = std::max(largest, elements.index(c, i));
        if (used != 0 && largest >= size)
            return false;
    }
    return true;
}

/// Fills a table of the elements that the scene graph's iterator delivers.
template <unsigned Corners>
void walkElements(const ::osg::GeometryPtr& geometry,
                  const std::array<bool, draw_elements::properties>& present,
                  draw_elements& elements) {
    elements.width = 0;
    for (std::size_t i = 0; i < draw_elements::properties; ++i)
        elements.offset[i] = present[i] ? static_cast<int>(elements.width++) : -1;
    std::uint32_t size[draw_elements::properties];
    bool indexed[draw_elements::properties];
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        size[i] = static_cast<std::uint32_t>(elements.sizeOf(i));
        indexed[i] = present[i] && hasIndex(geometry, mapping_bits[i]);
    }

    if (geometry->getPositions() == ::osg::NullFC)
        return; // no element has a place
    constexpr ::osg::Int32 none = -1;
    for (auto it = element_kind<Corners>::begin(geometry); !it.isAtEnd(); ++it) {
        for (unsigned k = 0; k < Corners; ++k) {
            const auto corner = static_cast<::osg::Int32>(k);
            const ::osg::Int32 index[draw_elements::properties] = {
                indexed[0] ? it.getPositionIndex(corner) : none,
                indexed[1] ? it.getNormalIndex(corner) : none,
                indexed[2] ? it.getColorIndex(corner) : none,
                indexed[3] ? it.getTexCoordsIndex(corner) : none,
                indexed[4] ? it.getTexCoordsIndex7(corner) : none};
            // What leads nowhere becomes the size, negative ones included.
            for (std::size_t i = 0; i < draw_elements::properties; ++i) {
                if (present[i])
                    elements.own_cells.push_back(
                        std::min(static_cast<std::uint32_t>(index[i]), size[i]));
            }
        }
        ++elements.count;
    }
    elements.cells = elements.own_cells;
}

/// Whether an element must not be drawn.
bool isDropped(const draw_elements& elements, std::size_t element, bool drop_rogues) {
    const ::osg::Pnt3f* p[3] = {};
    for (unsigned k = 0; k < elements.corners; ++k) {
        const std::size_t index = elements.index(element * elements.corners + k, 0);
        if (index >= elements.positions.size())
            return true;
        p[k] = &elements.positions[index];
    }
    return drop_rogues && is_rogue(*p[0], *p[1], *p[2]);
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
template <typename Concrete, typename Value>
void pickValues(const property_block<Value>& source, const std::vector<std::uint32_t>& rows,
                const Concrete& target) {
    auto& field = target->editField();
    field.resize(rows.size());
    const auto values = editSpan(target);
    for (std::size_t i = 0; i < rows.size(); ++i)
        values[i] = rows[i] < source.size() ? source[rows[i]] : Value();
}

/// A new property with the values at `rows`.
template <typename Property, typename Value>
::osg::RefPtr<typename Property::PtrType> made(const property_block<Value>& source,
                                               const std::vector<std::uint32_t>& rows) {
    const ::osg::RefPtr<typename Property::PtrType> property(Property::create());
    pickValues(source, rows, property.get());
    return property;
}

} // namespace

std::size_t draw_elements::sizeOf(std::size_t property) const {
    const std::size_t sizes[properties] = {positions.size(), normals.size(), colors.size(),
                                           texcoords.size(), texcoords7.size()};
    return sizes[property];
}

template <unsigned Corners>
draw_elements readElements(const ::osg::GeometryPtr& geometry, bool drop_rogues, bool with_slot_0) {
    draw_elements elements;
    elements.corners = Corners;
    readProperties(geometry, with_slot_0, elements);
    const auto present = presentIn(geometry, with_slot_0);
    if (!useOwnIndex(geometry, present, element_kind<Corners>::plain_type, elements)) {
        elements.count = 0;
        walkElements<Corners>(geometry, present, elements);
    }
    dropElements(drop_rogues, elements);
    return elements;
}

template draw_elements readElements<2>(const ::osg::GeometryPtr&, bool, bool);
template draw_elements readElements<3>(const ::osg::GeometryPtr&, bool, bool);

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
    if (source_.has(3))
        geometry->setTexCoords(made<::osg::GeoTexCoords2f>(source_.texcoords, rows[3]).get());
    if (source_.has(2))
        geometry->setColors(made<::osg::GeoColors3f>(source_.colors, rows[2]).get());
    if (source_.has(1))
        geometry->setNormals(made<::osg::GeoNormals3f>(source_.normals, rows[1]).get());
    if (source_.has(4))
        geometry->setTexCoords7(made<::osg::GeoTexCoords2f>(source_.texcoords7, rows[4]).get());
    pickValues(source_.positions, rows[0],
               ::osg::GeoPositions3fPtr::dcast(geometry->getPositions()));
    geometry->setIndices(index.get());
    for (std::size_t i = 0; i < draw_elements::properties; ++i) {
        if (source_.has(i))
            geometry->editMFIndexMapping()->push_back(mapping_bits[i]);
    }
}

} // namespace morva::osg
