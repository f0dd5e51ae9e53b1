#include <morva/geosets/morva_osg_element_index.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>
#include <vector>

#include <morva/core/morva_osg_value_hash.h>
#include <morva/core/morva_span.h>
#include <morva/geosets/morva_osg_source_columns.h>
#include <morva/geosets/morva_osg_texcoord_sets.h>

namespace morva::osg {

namespace {

/// One property as rows of `width` floats.
struct column {
    float* rows = nullptr;
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

::osg::UInt32 hashRow(span<const column> columns, std::size_t row) {
    std::uint64_t hash = 0;
    for (const column& c : columns) {
        for (std::size_t i = 0; i < c.width; ++i) {
            hash = (hash ^ bitsOf(c.rows[row * c.width + i])) * 0x9e3779b97f4a7c15U;
            hash ^= hash >> 32;
        }
    }
    return hashOfSum(hash);
}

/// Only numbers, never hash order, come out.
numbering numberRows(span<const column> columns, std::size_t vertices) {
    numbering result;
    result.number_of.resize(vertices);
    number_table known(vertices);
    ::osg::UInt32 hashes[batch_size];
    for (std::size_t start = 0; start < vertices; start += batch_size) {
        const std::size_t end = std::min(start + batch_size, vertices);
        for (std::size_t v = start; v < end; ++v) {
            hashes[v - start] = hashRow(columns, v);
            known.fetch(hashes[v - start]);
        }
        for (std::size_t v = start; v < end; ++v) {
            const auto next = static_cast<::osg::UInt32>(result.first.size());
            ::osg::UInt32 number = next;
            if (equalRows(columns, v, v)) { // a NaN is not entered: nothing can find it
                number = known.findOrEnter(hashes[v - start], next, [&](::osg::UInt32 other) {
                    return equalRows(columns, result.first[other], v);
                });
            }
            if (number == next)
                result.first.push_back(static_cast<::osg::UInt32>(v));
            result.number_of[v] = number;
        }
    }
    return result;
}

/// Where a column has a -0, gives all its equal rows the values of the first: rows are compared
/// together with other columns, and of 0 and -0 each column keeps the one that it meets first.
void unifyZeros(const column& c, std::size_t vertices) {
    const auto negative_zero = [](float value) { return value == 0.0F && std::signbit(value); };
    if (std::none_of(c.rows, c.rows + vertices * c.width, negative_zero))
        return;
    const numbering alone = numberRows(span<const column>(&c, 1), vertices);
    for (std::size_t v = 0; v < vertices; ++v)
        std::copy_n(c.rows + alone.first[alone.number_of[v]] * c.width, c.width,
                    c.rows + v * c.width);
}

/// Calls `use(property, mapping bit)` for the stored forms of the properties that are there.
template <typename Use> void forEachProperty(const ::osg::GeometryPtr& geometry, const Use& use) {
    const auto offer = [&](const auto& property, ::osg::UInt16 bit) {
        if (property != ::osg::NullFC && !property->editField().empty())
            use(property, bit);
    };
    using ::osg::Geometry;
    offer(::osg::GeoPositions3fPtr::dcast(geometry->getPositions()), Geometry::MapPosition);
    offer(::osg::GeoNormals3fPtr::dcast(geometry->getNormals()), Geometry::MapNormal);
    offer(::osg::GeoColors3fPtr::dcast(geometry->getColors()), Geometry::MapColor);
    forEachTexCoords(geometry, geometry, [&](const auto& set, ::osg::UInt16 bit, const auto&) {
        offer(::osg::GeoTexCoords2fPtr::dcast(set), bit);
        offer(::osg::GeoTexCoords1fPtr::dcast(set), bit);
    });
    offer(::osg::GeoColors3fPtr::dcast(geometry->getSecondaryColors()),
          Geometry::MapSecondaryColor);
}

template <typename Property> column columnOf(const Property& property, ::osg::UInt16 bit) {
    auto& field = property->editField();
    return {reinterpret_cast<float*>(&field[0]), sizeof(field[0]) / sizeof(float), bit};
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

/// Gives every vertex a row of its own in a new property, handed over by `take`.
template <typename Concrete, typename Role, typename Take>
void spreadRows(const Role& property, const vertex_stream& vertices, ::osg::UInt16 bit,
                const Take& take) {
    if (property == ::osg::NullFC)
        return;
    const Concrete made = Concrete::StoredObjectType::create();
    const ::osg::RefPtr<Concrete> held(made);
    using value = std::decay_t<decltype(made->editField()[0])>;
    const source_column<value> from(property, vertices, bit);
    made->editField().resize(vertices.size());
    for (std::size_t v = 0; v < vertices.size(); ++v)
        made->editField()[v] = from.at(v);
    take(made);
}

} // namespace

void unindexVertices(const ::osg::GeometryPtr& geometry) {
    using ::osg::Geometry;
    const bool indexed = geometry->getIndices() != ::osg::NullFC;
    const vertex_stream vertices(geometry);
    if (indexed) {
        spreadRows<::osg::GeoPositions3fPtr>(
            geometry->getPositions(), vertices, Geometry::MapPosition,
            [&](const auto& made) { geometry->setPositions(made); });
        spreadRows<::osg::GeoNormals3fPtr>(geometry->getNormals(), vertices, Geometry::MapNormal,
                                           [&](const auto& made) { geometry->setNormals(made); });
        spreadRows<::osg::GeoColors3fPtr>(geometry->getColors(), vertices, Geometry::MapColor,
                                          [&](const auto& made) { geometry->setColors(made); });
        spreadRows<::osg::GeoColors3fPtr>(
            geometry->getSecondaryColors(), vertices, Geometry::MapSecondaryColor,
            [&](const auto& made) { geometry->setSecondaryColors(made); });
    }
    forEachTexCoords(geometry, geometry, [&](const auto& set, ::osg::UInt16 bit, const auto& take) {
        if (indexed || ::osg::GeoTexCoords2fPtr::dcast(set) == ::osg::NullFC)
            spreadRows<::osg::GeoTexCoords2fPtr>(set, vertices, bit, take);
    });
    geometry->setIndices(::osg::NullFC);
    geometry->editMFIndexMapping()->clear();
}

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
        for (const column& c : columns)
            unifyZeros(c, vertices);
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
