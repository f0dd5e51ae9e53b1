#include <morva/geosets/morva_osg_element_index.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <type_traits>
#include <vector>

#include <morva/core/morva_osg_geometry_columns.h>
#include <morva/core/morva_osg_value_hash.h>
#include <morva/core/morva_span.h>

namespace morva::osg {

namespace {

/// The properties in the order of their indices: the further ones come behind those that index
/// rebuilding handles.
constexpr vertex_property index_order[] = {
    vertex_property::position,   vertex_property::normal,     vertex_property::color,
    vertex_property::texcoords,  vertex_property::texcoords7, vertex_property::texcoords1,
    vertex_property::texcoords2, vertex_property::texcoords3, vertex_property::texcoords4,
    vertex_property::texcoords5, vertex_property::texcoords6, vertex_property::secondary_color};

/// One property as rows of `width` floats, to be changed in place.
struct column {
    ::osg::GeoPropertyArrayInterface* property = nullptr;
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

/// The properties that have values, which are floats.
std::vector<column> columnsOf(const ::osg::GeometryPtr& geometry) {
    std::vector<column> columns;
    for (const vertex_property which : index_order) {
        ::osg::GeoPropertyArrayInterface* property = geometry->getProperty(mappingBit(which));
        if (property != nullptr && property->getSize() > 0) {
            columns.push_back({property, reinterpret_cast<float*>(property->getData()),
                               property->getDimension(), mappingBit(which)});
        }
    }
    return columns;
}

/// Keeps the rows of the numbered vertices, in order of number.
void closeUp(const column& c, const std::vector<::osg::UInt32>& first) {
    // Numbers go by first use, so no row is overwritten before it was moved.
    for (std::size_t number = 0; number < first.size(); ++number) {
        if (first[number] != number)
            std::copy_n(c.rows + first[number] * c.width, c.width, c.rows + number * c.width);
    }
    c.property->resize(first.size());
}

} // namespace

bool hasFurtherProperties(const ::osg::GeometryPtr& geometry) {
    const auto left_out = [&geometry](vertex_property which) {
        return geometry->getProperty(mappingBit(which)) != nullptr &&
               std::find(std::begin(basic_properties), std::end(basic_properties), which) ==
                   std::end(basic_properties);
    };
    return std::any_of(std::begin(all_properties), std::end(all_properties), left_out);
}

void unindexVertices(const ::osg::GeometryPtr& geometry) {
    const geometry_columns columns(geometry, all_properties);
    columns.forEachPresent([&](vertex_property which, const property_column& from) {
        const bool other_form = which >= vertex_property::texcoords && from.converted != nullptr;
        if (!columns.indexed() && !other_form)
            return;
        withProperty(geometry, geometry, which, [&](const auto& property, const auto& take) {
            using concrete = usual_form<decltype(property)>;
            const ::osg::RefPtr<concrete> made(concrete::StoredObjectType::create());
            auto& rows = made->editField();
            using value = std::decay_t<decltype(rows[0])>;
            rows.resize(columns.corners());
            for (std::size_t v = 0; v < columns.corners(); ++v)
                rows[v] = from.valueOf<value>(v);
            take(made.get());
        });
    });
    geometry->setIndices(::osg::NullFC);
    geometry->editMFIndexMapping()->clear();
}

void indexVertices(const ::osg::GeometryPtr& geometry, bool per_property) {
    const std::vector<column> columns = columnsOf(geometry);
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
    for (std::size_t i = 0; i < columns.size(); ++i) {
        closeUp(columns[i], numberings[per_property ? i : 0].first);
        if (per_property)
            geometry->editMFIndexMapping()->push_back(columns[i].mapping);
    }
}

} // namespace morva::osg
