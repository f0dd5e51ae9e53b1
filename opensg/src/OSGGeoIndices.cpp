#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGLog.h"
#include "OpenSG/OSGPrimitiveIterator.h"

#include "OSGNumberTable.h"

#include <cstring>

OSG_BEGIN_NAMESPACE

namespace {

/// The bytes of one property's elements.
struct element_bytes {
    const UInt8* data;
    UInt32 bytes; ///< of one element
    UInt32 count;
};

std::vector<element_bytes> propertiesOf(const GeometryPtr& geometry, UInt16 bits) {
    std::vector<element_bytes> properties;
    for (UInt32 i = 0; i < 12; ++i) {
        const UInt16 bit = static_cast<UInt16>(1u << i);
        const GeoPropertyArrayInterface* property = geometry->getProperty(bit);
        if ((bits & bit) == 0 || property == nullptr)
            continue;
        properties.push_back({property->getData(),
                              property->getDimension() * property->getFormatSize(),
                              property->getSize()});
    }
    return properties;
}

UInt64 hashElement(const std::vector<element_bytes>& properties, UInt32 index) {
    UInt64 hash = 0;
    bool hashed = false;
    for (const element_bytes& property : properties) {
        if (index >= property.count)
            continue;
        hashed = true;
        const UInt8* element = property.data + std::size_t(index) * property.bytes;
        for (UInt32 done = 0; done < property.bytes; done += 4) {
            UInt32 word = 0;
            std::memcpy(&word, element + done, osgMin(property.bytes - done, 4u));
            hash = osgMixHash(hash, word);
        }
    }
    return hashed ? hash : osgMixHash(0, index);
}

/// Whether two elements have the same bytes in every property. A property too short for both says
/// nothing; elements that none has are different.
bool sameElement(const std::vector<element_bytes>& properties, UInt32 a, UInt32 b) {
    bool compared = false;
    for (const element_bytes& property : properties) {
        if (a >= property.count && b >= property.count)
            continue;
        if (a >= property.count || b >= property.count)
            return false;
        if (std::memcmp(property.data + std::size_t(a) * property.bytes,
                        property.data + std::size_t(b) * property.bytes, property.bytes) != 0) {
            return false;
        }
        compared = true;
    }
    return compared;
}

/// Makes the index 0, 1, 2, ..., one for all properties: a mapping, without meaning until now,
/// goes.
void makeMissingIndex(const GeometryPtr& geometry) {
    if (geometry->getIndices() != NullFC || geometry->getPositions() == NullFC)
        return;
    geometry->editMFIndexMapping()->clear();
    const RefPtr<GeoIndicesUI32Ptr> indices(GeoIndicesUI32::create());
    std::vector<UInt32>& values = indices->editField().getValues();
    values.resize(geometry->getPositions()->getSize());
    for (UInt32 i = 0; i < values.size(); ++i)
        values[i] = i;
    geometry->setIndices(indices.get());
}

/// Shares equal elements of the properties `bits`, whose index is every `stride`-th from `slot`.
Int32 shareIndices(std::vector<UInt32>& indices, const std::vector<element_bytes>& properties,
                   UInt32 slot, UInt32 stride) {
    if (properties.empty())
        return 0;
    NumberTable known(indices.size() / stride);
    UInt32 elements = 0;
    for (const element_bytes& property : properties)
        elements = osgMax(elements, property.count);
    // Most elements are used several times and looked up once. An index is never the largest
    // number: elements are fewer.
    const UInt32 unknown = 0xFFFFFFFFu;
    std::vector<UInt32> first_of(elements, unknown);
    Int32 changed = 0;
    for (std::size_t place = slot; place < indices.size(); place += stride) {
        const UInt32 index = indices[place];
        UInt32 first = index < elements ? first_of[index] : unknown;
        if (first == unknown) {
            first = known.findOrEnter(hashElement(properties, index), index, [&](UInt32 other) {
                return other == index || sameElement(properties, index, other);
            });
            if (index < elements)
                first_of[index] = first;
        }
        if (first == index)
            continue;
        indices[place] = first;
        ++changed;
    }
    return changed;
}

std::vector<UInt32> valuesOf(const GeoIndicesPtr& indices) {
    const GeoNumbers numbers = GeoNumbers::of(indices);
    std::vector<UInt32> values(numbers.size);
    for (UInt32 i = 0; i < numbers.size; ++i)
        values[i] = numbers[i];
    return values;
}

/// Writes as many values as there are; an index property of other geometries too is left to them.
void writeIndices(const GeometryPtr& geometry, const std::vector<UInt32>& values) {
    if (geometry->getIndices()->getParents().size() > 1)
        geometry->setIndices(geometry->getIndices()->clone());
    const GeoIndicesPtr indices = geometry->getIndices();
    const GeoIndicesUI32Ptr plain = GeoIndicesUI32Ptr::dcast(indices);
    if (plain != NullFC) {
        plain->editField().setValues(values);
        return;
    }
    for (UInt32 i = 0; i < values.size(); ++i)
        indices->setValue(values[i], i);
}

/// Rewrites a property to the elements `picked`, in this order; a missing element is zero.
void pickElements(GeoPropertyArrayInterface& property, const std::vector<UInt32>& picked) {
    const UInt32 bytes = property.getDimension() * property.getFormatSize();
    const UInt32 count = property.getSize();
    std::vector<UInt8> old(property.getData(), property.getData() + std::size_t(count) * bytes);
    property.clear();
    property.resize(picked.size());
    UInt8* target = property.editData();
    for (const UInt32 index : picked) {
        if (index < count)
            std::memcpy(target, old.data() + std::size_t(index) * bytes, bytes);
        target += bytes;
    }
}

} // namespace

Int32 createSharedIndex(GeometryPtr geometry) {
    if (geometry == NullFC) {
        SFATAL << "createSharedIndex: no geometry" << endLog;
        return -1;
    }
    makeMissingIndex(geometry);
    if (geometry->getIndices() == NullFC)
        return 0;
    const MFUInt16& mapping = *geometry->getMFIndexMapping();
    std::vector<UInt32> indices = valuesOf(geometry->getIndices());
    Int32 changed = 0;
    bool any = false;
    const UInt32 entries = osgMax(mapping.getSize(), 1u);
    for (UInt32 entry = 0; entry < entries; ++entry) {
        const UInt16 bits = mapping.empty() ? UInt16(0x0FFF) : mapping[entry];
        changed = shareIndices(indices, propertiesOf(geometry, bits), entry, entries);
        any = any || changed != 0;
    }
    if (any)
        writeIndices(geometry, indices);
    return changed;
}

Int32 createSingleIndex(GeometryPtr geometry) {
    if (geometry == NullFC) {
        SFATAL << "createSingleIndex: no geometry" << endLog;
        return -1;
    }
    geometry->unshareProperties();
    makeMissingIndex(geometry);
    const UInt32 stride = geometry->getMFIndexMapping()->getSize();
    if (stride == 0 || geometry->getIndices() == NullFC)
        return 0;
    if (geometry->getIndices()->getSize() == 0) {
        SWARNING << "createSingleIndex: a mapping without indices" << endLog;
        return 0;
    }

    const GeoNumbers old = GeoNumbers::of(geometry->getIndices());
    const UInt32 vertices = old.size / stride;
    const RefPtr<GeoIndicesUI32Ptr> indices(GeoIndicesUI32::create());
    std::vector<UInt32>& values = indices->editField().getValues();
    std::vector<UInt32> first_vertex; // of each number
    NumberTable known(vertices);
    for (UInt32 v = 0; v < vertices; ++v) {
        UInt64 hash = 0;
        for (UInt32 i = 0; i < stride; ++i)
            hash = osgMixHash(hash, old[v * stride + i]);
        const UInt32 fresh = static_cast<UInt32>(first_vertex.size());
        const UInt32 number = known.findOrEnter(hash, fresh, [&](UInt32 other) {
            const UInt32 w = first_vertex[other];
            for (UInt32 i = 0; i < stride; ++i) {
                if (old[v * stride + i] != old[w * stride + i])
                    return false;
            }
            return true;
        });
        if (number == fresh)
            first_vertex.push_back(v);
        values.push_back(number);
    }

    UInt16 all_bits = 0;
    for (UInt32 property = 0; property < 12; ++property) {
        const UInt16 bit = static_cast<UInt16>(1u << property);
        const Int16 slot = geometry->calcMappingIndex(bit);
        GeoPropertyArrayInterface* elements = geometry->getProperty(bit);
        if (slot < 0)
            continue;
        all_bits = static_cast<UInt16>(all_bits | bit);
        if (elements == nullptr)
            continue;
        std::vector<UInt32> picked;
        picked.reserve(first_vertex.size());
        for (const UInt32 v : first_vertex) {
            picked.push_back(old[v * stride + static_cast<UInt32>(slot)]);
        }
        pickElements(*elements, picked);
    }
    geometry->editMFIndexMapping()->setValues({all_bits});
    geometry->setIndices(indices.get());
    return static_cast<Int32>(first_vertex.size());
}

UInt32 calcPrimitiveCount(GeometryPtr geometry, UInt32& triangle, UInt32& line, UInt32& point) {
    triangle = line = point = 0;
    if (geometry == NullFC)
        return 0;
    for (PrimitiveIterator it(geometry); !it.isAtEnd(); ++it) {
        const UInt32 length = it.getLength();
        switch (it.getType()) {
        case GL_POINTS:
            point += length;
            break;
        case GL_LINES:
            line += length / 2;
            break;
        case GL_LINE_STRIP:
            line += osgMax(length, 1u) - 1;
            break;
        case GL_LINE_LOOP:
            line += length;
            break;
        case GL_TRIANGLES:
            triangle += length / 3;
            break;
        case GL_QUADS:
            triangle += length / 2;
            break;
        case GL_TRIANGLE_STRIP:
        case GL_TRIANGLE_FAN:
        case GL_QUAD_STRIP:
        case GL_POLYGON:
            triangle += osgMax(length, 2u) - 2;
            break;
        default:
            break;
        }
    }
    return triangle + line + point;
}

OSG_END_NAMESPACE
