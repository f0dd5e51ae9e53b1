#include "OpenSG/OSGGeoFunctions.h"
#include "OpenSG/OSGPrimitiveIterator.h"

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

UInt64 mixed(UInt64 hash, UInt64 word) {
    hash = (hash ^ word) * 0x9E3779B97F4A7C15u;
    return hash ^ (hash >> 29);
}

/// An open-addressing table of numbers; what equal means is told by the caller.
class number_table {
  public:
    explicit number_table(std::size_t entries) {
        std::size_t size = 16;
        while (size < entries * 2)
            size *= 2;
        slots.assign(size, Free);
    }
    /// The number that is equal, or `number` itself, which is then entered.
    template <class Equal> UInt32 findOrEnter(UInt64 hash, UInt32 number, Equal equal) {
        for (std::size_t i = hash & (slots.size() - 1);; i = (i + 1) & (slots.size() - 1)) {
            if (slots[i] == Free)
                return slots[i] = number;
            if (equal(slots[i]))
                return slots[i];
        }
    }

  private:
    enum : UInt32 { Free = 0xFFFFFFFFu };
    std::vector<UInt32> slots;
};

UInt64 hashElement(const std::vector<element_bytes>& properties, UInt32 index) {
    UInt64 hash = 0;
    for (const element_bytes& property : properties) {
        if (index >= property.count)
            continue;
        const UInt8* element = property.data + std::size_t(index) * property.bytes;
        for (UInt32 done = 0; done < property.bytes; done += 4) {
            UInt32 word = 0;
            std::memcpy(&word, element + done, osgMin(property.bytes - done, 4u));
            hash = mixed(hash, word);
        }
    }
    return hash;
}

bool sameElement(const std::vector<element_bytes>& properties, UInt32 a, UInt32 b) {
    for (const element_bytes& property : properties) {
        if (a >= property.count || b >= property.count)
            return false;
        if (std::memcmp(property.data + std::size_t(a) * property.bytes,
                        property.data + std::size_t(b) * property.bytes, property.bytes) != 0) {
            return false;
        }
    }
    return true;
}

void makeMissingIndex(const GeometryPtr& geometry) {
    if (geometry->getIndices() != NullFC || geometry->getPositions() == NullFC)
        return;
    const GeoIndicesUI32Ptr indices = GeoIndicesUI32::create();
    std::vector<UInt32>& values = indices->editField().getValues();
    values.resize(geometry->getPositions()->getSize());
    for (UInt32 i = 0; i < values.size(); ++i)
        values[i] = i;
    geometry->setIndices(indices);
}

/// Shares equal elements of the properties `bits`, whose index is every `stride`-th from `slot`.
Int32 shareIndices(const GeometryPtr& geometry, UInt16 bits, UInt32 slot, UInt32 stride) {
    const std::vector<element_bytes> properties = propertiesOf(geometry, bits);
    if (properties.empty())
        return 0;
    const GeoIndicesPtr indices = geometry->getIndices();
    number_table known(indices->getSize() / stride);
    Int32 changed = 0;
    for (UInt32 place = slot; place < indices->getSize(); place += stride) {
        const UInt32 index = indices->getValue(place);
        const UInt32 first =
            known.findOrEnter(hashElement(properties, index), index, [&](UInt32 other) {
                return other == index || sameElement(properties, index, other);
            });
        if (first == index)
            continue;
        indices->setValue(first, place);
        ++changed;
    }
    return changed;
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
    if (geometry == NullFC)
        return -1;
    makeMissingIndex(geometry);
    if (geometry->getIndices() == NullFC)
        return 0;
    const MFUInt16& mapping = *geometry->getMFIndexMapping();
    if (mapping.empty())
        return shareIndices(geometry, 0x0FFF, 0, 1);
    Int32 changed = 0;
    for (UInt32 entry = 0; entry < mapping.getSize(); ++entry) {
        changed += shareIndices(geometry, mapping[entry], entry, mapping.getSize());
    }
    return changed;
}

Int32 createSingleIndex(GeometryPtr geometry) {
    if (geometry == NullFC)
        return -1;
    const UInt32 stride = geometry->getMFIndexMapping()->getSize();
    if (stride == 0) {
        makeMissingIndex(geometry);
        return 0;
    }
    if (geometry->getIndices() == NullFC)
        return 0;
    geometry->unshareProperties();

    const GeoNumbers old = GeoNumbers::of(geometry->getIndices());
    const UInt32 vertices = old.size / stride;
    const GeoIndicesUI32Ptr indices = GeoIndicesUI32::create();
    std::vector<UInt32>& values = indices->editField().getValues();
    std::vector<UInt32> first_vertex; // of each number
    number_table known(vertices);
    for (UInt32 v = 0; v < vertices; ++v) {
        UInt64 hash = 0;
        for (UInt32 i = 0; i < stride; ++i)
            hash = mixed(hash, old[v * stride + i]);
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
    geometry->setIndices(indices);
    return static_cast<Int32>(first_vertex.size());
}

OSG_END_NAMESPACE
