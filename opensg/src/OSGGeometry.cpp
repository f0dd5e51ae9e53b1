#include "OpenSG/OSGGeometry.h"

#include "OSGSearch.h"
#include "OpenSG/OSGBoxVolume.h"
#include "OpenSG/OSGLineIterator.h"
#include "OpenSG/OSGPrimitiveIterator.h"
#include "OpenSG/OSGTriangleIterator.h"

OSG_BEGIN_NAMESPACE

OSG_CONTAINER_DEF_ABSTRACT(Drawable, nullptr, )
OSG_CONTAINER_DEF_ABSTRACT(MaterialDrawable, nullptr,
                           OSG_FIELD_DESC(MaterialDrawable, _sfMaterial, "material", Material,
                                          false))

#define OSG_GEOMETRY_FIELD(NAME, TEXT) OSG_FIELD_DESC(Geometry, _sf##NAME, TEXT, NAME, false)
OSG_CONTAINER_DEF(
    Geometry, nullptr, OSG_GEOMETRY_FIELD(Types, "types"), OSG_GEOMETRY_FIELD(Lengths, "lengths"),
    OSG_GEOMETRY_FIELD(Positions, "positions"), OSG_GEOMETRY_FIELD(Normals, "normals"),
    OSG_GEOMETRY_FIELD(Colors, "colors"), OSG_GEOMETRY_FIELD(SecondaryColors, "secondaryColors"),
    OSG_GEOMETRY_FIELD(TexCoords, "texCoords"), OSG_GEOMETRY_FIELD(TexCoords1, "texCoords1"),
    OSG_GEOMETRY_FIELD(TexCoords2, "texCoords2"), OSG_GEOMETRY_FIELD(TexCoords3, "texCoords3"),
    OSG_GEOMETRY_FIELD(TexCoords4, "texCoords4"), OSG_GEOMETRY_FIELD(TexCoords5, "texCoords5"),
    OSG_GEOMETRY_FIELD(TexCoords6, "texCoords6"), OSG_GEOMETRY_FIELD(TexCoords7, "texCoords7"),
    OSG_GEOMETRY_FIELD(Indices, "indices"),
    OSG_FIELD_DESC(Geometry, _mfIndexMapping, "indexMapping", IndexMapping, false),
    OSG_FIELD_DESC(Geometry, _sfDlistCache, "dlistCache", DlistCache, false))

const UInt16 Geometry::MapPosition = 1, Geometry::MapNormal = 2, Geometry::MapColor = 4,
             Geometry::MapSecondaryColor = 8, Geometry::MapTexCoords = 16,
             Geometry::MapTexCoords1 = 32, Geometry::MapTexCoords2 = 64,
             Geometry::MapTexCoords3 = 128, Geometry::MapTexCoords4 = 256,
             Geometry::MapTexCoords5 = 512, Geometry::MapTexCoords6 = 1024,
             Geometry::MapTexCoords7 = 2048, Geometry::MapEmpty = 4096;

namespace {

/// The fields that tell which positions primitives use.
BitVector fieldsOfTheVolume() {
    return Geometry::TypesFieldMask | Geometry::LengthsFieldMask | Geometry::PositionsFieldMask |
           Geometry::IndicesFieldMask | Geometry::IndexMappingFieldMask;
}

/// Parent entry of a geometry that holds a property in this field.
FieldContainerPtr parentEntry(const FieldContainerPtr& geometry, UInt32 fieldId) {
    FieldContainerPtr entry = geometry;
    entry.setParentFieldPos(static_cast<UInt16>(fieldId));
    return entry;
}

/// Takes the entry of exactly this field away: one property may stand in several fields.
void dropParentEntry(Attachment& property, const FieldContainerPtr& geometry, UInt32 fieldId) {
    osgEraseFromBothEnds(property.getParents(), [&](const FieldContainerPtr& parent) {
        return parent == geometry && parent.getParentFieldPos() == fieldId;
    });
}

template <class Ptr> Attachment& copyInAspect(const Ptr& property, UInt32 aspect) {
    return *reinterpret_cast<Attachment*>(property.getAspectCPtr(aspect));
}

/// The comparisons of a box volume, without a call per point.
struct point_bounds {
    Pnt3f low, high;
    bool empty = true;

    void extendBy(const Pnt3f& point) {
        if (empty)
            low = high = point;
        empty = false;
        for (UInt32 i = 0; i < 3; ++i) {
            if (point[i] < low[i])
                low[i] = point[i];
            if (point[i] > high[i])
                high[i] = point[i];
        }
    }
};

/// Calls `visit` with the position index of every vertex of every primitive, if below `count`.
template <class Visit>
void forUsedPositions(const Geometry& geometry, UInt32 count, const Visit& visit) {
    for (PrimitiveIterator it = geometry.beginPrimitives(); !it.isAtEnd(); ++it) {
        for (UInt32 i = 0; i < it.getLength(); ++i) {
            const UInt32 index = static_cast<UInt32>(it.getPositionIndex(static_cast<Int32>(i)));
            if (index < count)
                visit(index);
        }
    }
}

} // namespace

template <class Visit> void Geometry::forEachProperty(Visit visit) {
    visit(_sfTypes, TypesFieldId);
    visit(_sfLengths, LengthsFieldId);
    visit(_sfPositions, PositionsFieldId);
    visit(_sfNormals, NormalsFieldId);
    visit(_sfColors, ColorsFieldId);
    visit(_sfSecondaryColors, SecondaryColorsFieldId);
    visit(_sfTexCoords, TexCoordsFieldId);
    visit(_sfTexCoords1, TexCoords1FieldId);
    visit(_sfTexCoords2, TexCoords2FieldId);
    visit(_sfTexCoords3, TexCoords3FieldId);
    visit(_sfTexCoords4, TexCoords4FieldId);
    visit(_sfTexCoords5, TexCoords5FieldId);
    visit(_sfTexCoords6, TexCoords6FieldId);
    visit(_sfTexCoords7, TexCoords7FieldId);
    visit(_sfIndices, IndicesFieldId);
}

template <class PropertyField, class PropertyPtr>
void Geometry::setProperty(PropertyField& field, const PropertyPtr& added, UInt32 fieldId) {
    const PropertyPtr property = added; // the argument may be this very field's value
    const FieldContainerPtr self = getUntypedPtr();
    if (property != NullFC) {
        property->addParent(parentEntry(self, fieldId));
        endEditNotChangedCP(property, Attachment::ParentsFieldMask);
    }
    if (field.getValue() != NullFC) {
        dropParentEntry(*field.getValue(), self, fieldId);
        endEditNotChangedCP(field.getValue(), Attachment::ParentsFieldMask);
    }
    field.set(property);
    if ((fieldsOfTheVolume() & osgFieldMasks.of[fieldId]) != 0)
        invalidateVolume();
}

// The setters stand in the header and are compiled into other libraries.
#define OSG_GEOMETRY_SET_PROPERTY(TYPE)                                                            \
    template OSG_SYSTEMLIB_DLLMAPPING void Geometry::setProperty(OwnedSField<TYPE##Ptr>&,          \
                                                                 const TYPE##Ptr&, UInt32);
OSG_GEOMETRY_SET_PROPERTY(GeoPTypes)
OSG_GEOMETRY_SET_PROPERTY(GeoPLengths)
OSG_GEOMETRY_SET_PROPERTY(GeoPositions)
OSG_GEOMETRY_SET_PROPERTY(GeoNormals)
OSG_GEOMETRY_SET_PROPERTY(GeoColors)
OSG_GEOMETRY_SET_PROPERTY(GeoTexCoords)
OSG_GEOMETRY_SET_PROPERTY(GeoIndices)
#undef OSG_GEOMETRY_SET_PROPERTY

Geometry::Geometry(const Geometry& other)
    : MaterialDrawable(other), _sfTypes(other._sfTypes), _sfLengths(other._sfLengths),
      _sfPositions(other._sfPositions), _sfNormals(other._sfNormals), _sfColors(other._sfColors),
      _sfSecondaryColors(other._sfSecondaryColors), _sfTexCoords(other._sfTexCoords),
      _sfTexCoords1(other._sfTexCoords1), _sfTexCoords2(other._sfTexCoords2),
      _sfTexCoords3(other._sfTexCoords3), _sfTexCoords4(other._sfTexCoords4),
      _sfTexCoords5(other._sfTexCoords5), _sfTexCoords6(other._sfTexCoords6),
      _sfTexCoords7(other._sfTexCoords7), _sfIndices(other._sfIndices),
      _mfIndexMapping(other._mfIndexMapping), _sfDlistCache(other._sfDlistCache) {
    const FieldContainerPtr self = getUntypedPtr();
    forEachProperty([&](auto& field, UInt32 fieldId) {
        if (field.getValue() == NullFC)
            return;
        copyInAspect(field.getValue(), getAspectIndex()).addParent(parentEntry(self, fieldId));
    });
}

Geometry::~Geometry() {
    const FieldContainerPtr self = getUntypedPtr();
    forEachProperty([&](auto& field, UInt32 fieldId) {
        if (field.getValue() == NullFC)
            return;
        dropParentEntry(copyInAspect(field.getValue(), getAspectIndex()), self, fieldId);
    });
}

Int16 Geometry::calcMappingIndex(UInt16 bit) const {
    for (UInt32 entry = _mfIndexMapping.getSize(); entry-- > 0;) {
        if ((_mfIndexMapping[entry] & bit) != 0)
            return static_cast<Int16>(entry);
    }
    return -1;
}

GeoPropertyArrayInterface* Geometry::getProperty(Int32 mapBit) const {
    GeoPropertyArrayInterface* found = nullptr;
    const auto offer = [&](Int32 bit, const auto& field) {
        if (bit == mapBit && field.getValue() != NullFC)
            found = &*field.getValue();
    };
    offer(MapPosition, _sfPositions);
    offer(MapNormal, _sfNormals);
    offer(MapColor, _sfColors);
    offer(MapSecondaryColor, _sfSecondaryColors);
    offer(MapTexCoords, _sfTexCoords);
    offer(MapTexCoords1, _sfTexCoords1);
    offer(MapTexCoords2, _sfTexCoords2);
    offer(MapTexCoords3, _sfTexCoords3);
    offer(MapTexCoords4, _sfTexCoords4);
    offer(MapTexCoords5, _sfTexCoords5);
    offer(MapTexCoords6, _sfTexCoords6);
    offer(MapTexCoords7, _sfTexCoords7);
    return found;
}

GeometryPtr Geometry::clone() const {
    return filledIn(create(), [this](const GeometryPtr& copy) {
        copy->setMaterial(getMaterial());
        copy->_mfIndexMapping = _mfIndexMapping;
        copy->_sfDlistCache.setValue(getDlistCache());
        std::vector<FieldContainerPtr> sources;
        const_cast<Geometry*>(this)->forEachProperty(
            [&sources](auto& field, UInt32) { sources.push_back(field.getValue()); });
        std::size_t next = 0;
        copy->forEachProperty([&](auto& field, UInt32 fieldId) {
            typedef typename std::decay_t<decltype(field)>::StoredType PropertyPtr;
            const PropertyPtr source = PropertyPtr::ofKnownClass(sources[next++]);
            if (source == NullFC)
                return;
            filledIn(PropertyPtr(source->clone()), [&](const PropertyPtr& property) {
                copy->setProperty(field, property, fieldId);
            });
        });
    });
}

void Geometry::unshareProperties() {
    forEachProperty([this](auto& field, UInt32 fieldId) {
        if (field.getValue() == NullFC || field.getValue()->getParents().size() < 2)
            return;
        setProperty(field, field.getValue()->clone(), fieldId);
    });
}

namespace {

template <class Iterator> Iterator atBegin(const GeometryPtr& geometry) {
    Iterator begin(geometry);
    begin.setToBegin();
    return begin;
}

template <class Iterator> Iterator atEnd(const GeometryPtr& geometry) {
    Iterator end(geometry);
    end.setToEnd();
    return end;
}

} // namespace

PrimitiveIterator Geometry::beginPrimitives() const { return PrimitiveIterator(getPtr()); }
PrimitiveIterator Geometry::endPrimitives() const { return atEnd<PrimitiveIterator>(getPtr()); }
TriangleIterator Geometry::beginTriangles() const { return atBegin<TriangleIterator>(getPtr()); }
TriangleIterator Geometry::endTriangles() const { return atEnd<TriangleIterator>(getPtr()); }
LineIterator Geometry::beginLines() const { return atBegin<LineIterator>(getPtr()); }
LineIterator Geometry::endLines() const { return atEnd<LineIterator>(getPtr()); }

void Geometry::adjustVolume(Volume& volume) {
    auto* dynamic = dynamic_cast<DynamicVolume*>(&volume);
    if (dynamic != nullptr) {
        adjustVolume(dynamic->getInstance());
        dynamic->instanceChanged();
        return;
    }
    const GeoPositionsPtr positions = getPositions();
    if (positions == NullFC)
        return;
    const GeoPositions3fPtr plain = GeoPositions3fPtr::dcast(positions);
    if (plain == NullFC || dynamic_cast<BoxVolume*>(&volume) == nullptr) {
        forUsedPositions(*this, positions->getSize(),
                         [&](UInt32 index) { volume.extendBy(positions->getValue(index)); });
        return;
    }
    // A box is the same whether it meets the points one by one or their bounds.
    const Pnt3f* points = plain->getField().getValues().data();
    point_bounds bounds;
    forUsedPositions(*this, plain->getSize(),
                     [&](UInt32 index) { bounds.extendBy(points[index]); });
    if (!bounds.empty) {
        volume.extendBy(bounds.low);
        volume.extendBy(bounds.high);
    }
}

void Geometry::changed(BitVector which, UInt32 origin) {
    if ((which & fieldsOfTheVolume()) != 0)
        invalidateVolume();
    MaterialDrawable::changed(which, origin);
}

OSG_END_NAMESPACE
