#include "glb_values.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <utility>

#include <OpenSG/OSGGL.h>

#include "core_layout.h"
#include "glb_json.h"
#include "parallel.h"

namespace morva::host {

namespace {

using ::osg::UInt16;
using ::osg::UInt32;

constexpr std::size_t portion_bytes = std::size_t{64} << 10;

/// Reads some values of an accessor that lie apart, and packs them.
void readApart(const gltf_document& document, const gltf_accessor& from, std::size_t first,
               std::size_t count, void* to) {
    std::uint8_t rows[portion_bytes];
    const std::size_t size = from.valueBytes();
    document.read({from.first + first * from.stride, (count - 1) * from.stride + size}, rows);
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(static_cast<std::uint8_t*>(to) + i * size, rows + i * from.stride, size);
}

/// Calls `take(first, count)` for all values in portions that fit the cache.
template <typename Take>
void inPortions(const gltf_accessor& from, std::size_t bytes, const Take& take) {
    const std::size_t most = portion_bytes / std::max(from.stride, bytes);
    for (std::size_t done = 0; done < from.count;) {
        const std::size_t count = std::min(from.count - done, most);
        take(done, count);
        done += count;
    }
}

void readPortion(const gltf_document& document, const gltf_accessor& from, std::size_t first,
                 std::size_t count, void* to) {
    if (from.isPacked())
        document.read({from.first + first * from.stride, count * from.stride}, to);
    else
        readApart(document, from, first, count, to);
}

/// Appends all values of an accessor, which have the layout of the field's, and hands each portion
/// to `check`.
template <typename Field, typename Check>
void append(const gltf_document& document, const gltf_accessor& from, Field& field,
            const Check& check) {
    field.reserve(from.count);
    inPortions(from, sizeof(typename Field::value_type), [&](std::size_t first, std::size_t count) {
        field.resize(first + count);
        readPortion(document, from, first, count, &field[first]);
        check(&field[first], count);
    });
}

void requireFinite(const ::osg::Pnt3f* points, std::size_t count) {
    bool finite = true;
    for (std::size_t i = 0; i < count; ++i) {
        for (unsigned axis = 0; axis < 3; ++axis)
            finite &= std::isfinite(points[i][axis]);
    }
    requirePlain(finite);
}

/// Files count from the top row of an image, the scene from the bottom.
void flip(::osg::Vec2f* coordinates, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i)
        coordinates[i][1] = 1.f - coordinates[i][1];
}

template <typename Index>
void requireBelow(std::size_t vertices, const Index* indices, std::size_t count) {
    Index highest = 0;
    for (std::size_t i = 0; i < count; ++i)
        highest = std::max(highest, indices[i]);
    requirePlain(highest < vertices);
}

template <typename Stored, typename Field>
void appendIndices(const gltf_document& document, const gltf_accessor& from, std::size_t vertices,
                   Field& field) {
    using index = typename Field::value_type;
    if constexpr (std::is_same_v<Stored, index>) {
        append(document, from, field, [&](const index* indices, std::size_t count) {
            requireBelow(vertices, indices, count);
        });
    } else {
        field.reserve(from.count);
        inPortions(from, sizeof(index), [&](std::size_t first, std::size_t count) {
            Stored stored[portion_bytes / sizeof(Stored)];
            readPortion(document, from, first, count, stored);
            requireBelow(vertices, stored, count);
            field.insert(field.end(), stored, stored + count);
        });
    }
}

template <typename Field>
void fillIndices(const gltf_document& document, const glb_primitive& from, Field& field) {
    const std::size_t vertices = from.positions.count;
    if (!from.indices) {
        field.resize(vertices);
        std::iota(field.begin(), field.end(), typename Field::value_type{0});
    } else if (from.indices->componentBytes() == 1) {
        appendIndices<std::uint8_t>(document, *from.indices, vertices, field);
    } else if (from.indices->componentBytes() == 2) {
        appendIndices<UInt16>(document, *from.indices, vertices, field);
    } else {
        appendIndices<UInt32>(document, *from.indices, vertices, field);
    }
}

template <typename Stored>
void readColors(const gltf_document& document, const gltf_accessor& from, float scale,
                std::vector<float>& rgba) {
    // What is not told is 0, as the import library has it: alpha, too.
    inPortions(from, from.valueBytes(), [&](std::size_t first, std::size_t count) {
        Stored stored[portion_bytes / sizeof(Stored)];
        readPortion(document, from, first, count, stored);
        for (std::size_t i = 0; i < count; ++i) {
            for (std::size_t c = 0; c < from.components; ++c)
                rgba[4 * (first + i) + c] =
                    static_cast<float>(stored[i * from.components + c]) / scale;
        }
    });
}

template <typename Property> typename Property::PtrType single(UInt32 value) {
    const typename Property::PtrType property = Property::create();
    beginEditCP(property);
    property->addValue(value);
    endEditCP(property);
    return property;
}

} // namespace

glb_values::glb_values(const gltf_document& document, const std::vector<glb_primitive>& primitives)
    : document_(document), primitives_(primitives) {}

/// A new property that fill() fills.
template <typename Property>
typename Property::PtrType
glb_values::later(std::function<void(typename Property::StoredFieldType&)> fill) {
    const typename Property::PtrType property = Property::create();
    jobs_.emplace_back([field = property->getFieldPtr(), work = std::move(fill)] { work(*field); });
    return property;
}

::osg::GeometryPtr glb_values::coreOf(unsigned mesh, unsigned coordinate_set) {
    const glb_primitive& from = primitives_[mesh];
    const ::osg::GeometryPtr core = ::osg::Geometry::create();
    beginEditCP(core);
    core->setPositions(later<::osg::GeoPositions3f>(
        [this, &from](auto& field) { append(document_, from.positions, field, &requireFinite); }));
    if (from.normals)
        core->setNormals(later<::osg::GeoNormals3f>([this, &from](auto& field) {
            append(document_, *from.normals, field, [](auto*, std::size_t) {});
        }));
    if (from.colors)
        core->setColors(colors(*from.colors));
    coordinate_channels channels;
    for (std::size_t i = 0; i < channels.size(); ++i) {
        if (from.coordinates[i])
            channels[i] = coordinates(*from.coordinates[i]);
    }
    setCoordinates(core, channels, coordinate_set);
    core->setTypes(single<::osg::GeoPTypesUI8>(from.mode));
    core->setLengths(single<::osg::GeoPLengthsUI32>(static_cast<UInt32>(from.cornerCount())));
    core->setIndices(indices(from));
    endEditCP(core);
    return core;
}

/// Which kind of property it is tells only the last of them, so that they are read at once.
::osg::GeoColorsPtr glb_values::colors(const gltf_accessor& from) const {
    std::vector<float> rgba(4 * from.count);
    if (from.componentBytes() == 1)
        readColors<std::uint8_t>(document_, from, 255.f, rgba);
    else if (from.componentBytes() == 2)
        readColors<UInt16>(document_, from, 65535.f, rgba);
    else
        readColors<float>(document_, from, 1.f, rgba);
    return colorsOf(rgba.data(), from.count);
}

::osg::GeoTexCoordsPtr glb_values::coordinates(const gltf_accessor& from) {
    return later<::osg::GeoTexCoords2f>(
        [this, &from](auto& field) { append(document_, from, field, &flip); });
}

::osg::GeoIndicesPtr glb_values::indices(const glb_primitive& from) {
    const auto fill = [this, &from](auto& field) { fillIndices(document_, from, field); };
    if (hasNarrowIndices(from.positions.count))
        return later<::osg::GeoIndicesUI16>(fill);
    return later<::osg::GeoIndicesUI32>(fill);
}

void glb_values::fill() {
    runParallel(jobs_.size(), [this](std::size_t i) { jobs_[i](); });
    jobs_.clear();
}

} // namespace morva::host
