#include <morva/geosets/morva_osg_element_index.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include <morva/core/morva_span.h>

namespace morva::osg {

namespace {

/// One property as rows of `width` floats.
struct column {
    const float* rows = nullptr;
    std::size_t width = 0; ///< floats of one row
    ::osg::UInt16 mapping = 0;
};

/// Vertices and their numbers by first use.
struct numbering {
    std::vector<::osg::UInt32> number_of; ///< one per vertex
    std::vector<::osg::UInt32> first;     ///< vertex that each number was given to; ascending
};

bool equalRows(span<const column> columns, std::size_t a, std::size_t b) {
    for (const column& c : columns) {
        for (std::size_t i = 0; i < c.width; ++i) {
            // By value: 0.0 meets -0.0, and a NaN nothing.
            if (!(c.rows[a * c.width + i] == c.rows[b * c.width + i]))
                return false;
        }
    }
    return true;
}

std::uint64_t hashRow(span<const column> columns, std::size_t row) {
    std::uint64_t hash = 0;
    for (const column& c : columns) {
        for (std::size_t i = 0; i < c.width; ++i) {
            const float value = c.rows[row * c.width + i];
            std::uint32_t bits = 0;
            if (value != 0.0F)
                std::memcpy(&bits, &value, sizeof bits); // one hash for both zeros
            hash = (hash ^ bits) * 0x9e3779b97f4a7c15U;
            hash ^= hash >> 32;
        }
    }
    return hash;
}

/// True if a component of the row is a NaN: the row then equals none, itself included.
bool isUnequalToAll(span<const column> columns, std::size_t row) {
    return !equalRows(columns, row, row);
}

/// Open addressing over the numbers given so far; only numbers, never hash order, come out.
numbering numberRows(span<const column> columns, std::size_t vertices) {
    numbering result;
    result.number_of.resize(vertices);
    std::size_t slots = 16;
    while (slots < 2 * vertices)
        slots *= 2;
    constexpr ::osg::UInt32 none = 0xffffffffU;
    std::vector<::osg::UInt32> table(slots, none);
    const auto newNumber = [&](std::size_t v) {
        result.first.push_back(static_cast<::osg::UInt32>(v));
        return static_cast<::osg::UInt32>(result.first.size() - 1);
    };
    for (std::size_t v = 0; v < vertices; ++v) {
        if (isUnequalToAll(columns, v)) { // not entered: nothing can find it
            result.number_of[v] = newNumber(v);
            continue;
        }
        std::size_t slot = hashRow(columns, v) & (slots - 1);
        while (table[slot] != none && !equalRows(columns, result.first[table[slot]], v)) {
            slot = (slot + 1) & (slots - 1);
        }
        if (table[slot] == none)
            table[slot] = newNumber(v);
        result.number_of[v] = table[slot];
    }
    return result;
}

/// Calls `use(property, mapping bit)` for the stored forms of the properties that are there.
template <typename Use> void forEachProperty(const ::osg::GeometryPtr& geometry, const Use& use) {
    const auto offer = [&](const auto& property, ::osg::UInt16 bit) {
        if (property != ::osg::NullFC && !property->editField().empty())
            use(property, bit);
    };
    offer(::osg::GeoPositions3fPtr::dcast(geometry->getPositions()), ::osg::Geometry::MapPosition);
    offer(::osg::GeoNormals3fPtr::dcast(geometry->getNormals()), ::osg::Geometry::MapNormal);
    offer(::osg::GeoColors3fPtr::dcast(geometry->getColors()), ::osg::Geometry::MapColor);
    offer(::osg::GeoColors3fPtr::dcast(geometry->getSecondaryColors()),
          ::osg::Geometry::MapSecondaryColor);
    offer(::osg::GeoTexCoords1fPtr::dcast(geometry->getTexCoords7()),
          ::osg::Geometry::MapTexCoords7);
}

template <typename Property> column columnOf(const Property& property, ::osg::UInt16 bit) {
    auto& field = property->editField();
    return {reinterpret_cast<const float*>(&field[0]), sizeof(field[0]) / sizeof(float), bit};
}

/// Keeps the rows of the numbered vertices, in order of number.
template <typename Property>
void closeUp(const Property& property, const std::vector<::osg::UInt32>& first) {
    auto& field = property->editField();
    // Numbers go by first use, so no row is overwritten before it was moved.
    for (std::size_t number = 0; number < first.size(); ++number) {
        field[number] = field[first[number]];
    }
    field.resize(first.size());
}

} // namespace

void indexVertices(const ::osg::GeometryPtr& geometry, bool per_property) {
    std::vector<column> columns;
    forEachProperty(geometry, [&](const auto& property, ::osg::UInt16 bit) {
        columns.push_back(columnOf(property, bit));
    });
    const std::size_t vertices =
        geometry->getPositions() == ::osg::NullFC ? 0 : geometry->getPositions()->size();
    std::vector<numbering> numberings;
    if (per_property) {
        for (const column& c : columns) {
            numberings.push_back(numberRows(span<const column>(&c, 1), vertices));
        }
    } else {
        numberings.push_back(numberRows(columns, vertices));
    }

    const ::osg::GeoIndicesUI32Ptr indices = ::osg::GeoIndicesUI32::create();
    geometry->setIndices(indices);
    auto& entries = indices->editField();
    entries.reserve(vertices * numberings.size());
    for (std::size_t v = 0; v < vertices; ++v) {
        for (const numbering& n : numberings)
            entries.push_back(n.number_of[v]);
    }
    geometry->editMFIndexMapping()->clear();
    std::size_t k = 0;
    forEachProperty(geometry, [&](const auto& property, ::osg::UInt16 bit) {
        closeUp(property, numberings[per_property ? k++ : 0].first);
        if (per_property)
            geometry->editMFIndexMapping()->push_back(bit);
    });
}

} // namespace morva::osg
