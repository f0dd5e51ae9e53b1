#include "OSGScenePacked.h"

#include "OpenSG/OSGGeoProperty.h"

#include <vector>

OSG_BEGIN_NAMESPACE

namespace {

UInt32 littleParts(const UInt8* number, UInt32 resolution) {
    if (resolution == 1)
        return number[0];
    const UInt32 low = UInt32(number[0]) << 8 | number[1];
    return resolution == 2 ? low : low + (UInt32(number[2]) << 16);
}

/// Least and greatest number, how many vectors, and one whole number per component between them.
template <class Property> FieldContainerRefPtr readVectors(byte_cursor& data) {
    const UInt32 resolution = data.number<UInt8>();
    const Real32 least = data.number<Real32>();
    const Real32 greatest = data.number<Real32>();
    const UInt64 vectors = data.number<UInt32>();
    constexpr UInt32 dimension = Property::PropertyDesc::dimension;
    data.require(resolution >= 1 && resolution <= 3, "rounded vectors have an unknown resolution");
    data.require(vectors * dimension * resolution == data.left(),
                 "rounded vectors do not fill their field");

    const typename Property::PtrType property = Property::create();
    const FieldContainerRefPtr holds(property);
    property->resize(static_cast<std::size_t>(vectors));
    // Step by step in single precision, as they were rounded.
    const Real32 step = 1.f / static_cast<Real32>((1u << 8 * resolution) - 1);
    const Real32 range = greatest - least;
    for (UInt64 i = 0; i < vectors; ++i) {
        for (UInt32 c = 0; c < dimension; ++c) {
            const UInt32 whole = littleParts(data.take(resolution), resolution);
            const Real32 part = static_cast<Real32>(whole) * step;
            property->getFieldPtr()->getValues()[i][c] = part * range + least;
        }
    }
    return holds;
}

UInt32 bitsOf(UInt32 greatest) {
    UInt32 bits = 1;
    while (bits < 32 && ((UInt64(1) << bits) - 1) < greatest)
        ++bits;
    return bits;
}

FieldContainerRefPtr readIndices(byte_cursor& data) {
    const UInt32 bits = bitsOf(data.number<UInt32>());
    const UInt64 count = data.number<UInt32>();
    const UInt64 bytes = data.number<UInt32>();
    data.require(bytes == data.left() && bytes == (count * bits + 7) / 8,
                 "packed indices do not fill their field");
    const GeoIndicesUI32Ptr property = GeoIndicesUI32::create();
    const FieldContainerRefPtr holds(property);
    property->resize(static_cast<std::size_t>(count));
    UInt64 window = 0; // the lowest `held` bits are still to be used
    UInt32 held = 0;
    for (UInt32& index : property->getFieldPtr()->getValues()) {
        for (; held < bits; held += 8)
            window = window << 8 | data.number<UInt8>();
        held -= bits;
        index = static_cast<UInt32>(window >> held & ((UInt64(1) << bits) - 1));
    }
    return holds;
}

struct packed_field {
    const Char8* name;
    const Char8* type;
    const Char8* standsFor;
    FieldContainerRefPtr (*read)(byte_cursor& data);
};

constexpr packed_field packedFields[] = {
    {"qpositions", "QMFUInt83f", "positions", &readVectors<GeoPositions3f>},
    {"qnormals", "QMFUInt83f", "normals", &readVectors<GeoNormals3f>},
    {"qtexCoords", "QMFUInt82f", "texCoords", &readVectors<GeoTexCoords2f>},
    {"pindices", "PMFUInt8", "indices", &readIndices}};

} // namespace

FieldContainerRefPtr osgReadPacked(std::string_view name, std::string_view type, byte_cursor data,
                                   const Char8*& geometryField) {
    for (const packed_field& field : packedFields) {
        if (name != field.name || type != field.type)
            continue;
        geometryField = field.standsFor;
        return field.read(data);
    }
    return FieldContainerRefPtr();
}

OSG_END_NAMESPACE
