#include "OpenSG/OSGGeoProperty.h"

OSG_BEGIN_NAMESPACE

GeoPropertyArrayInterface::~GeoPropertyArrayInterface() = default;

/// Tells the geometries that hold this property, each in the field in which it does.
template <class RoleDesc>
void AbstractGeoProperty<RoleDesc>::changed(BitVector which, UInt32 origin) {
    for (const FieldContainerPtr& parent : this->getParents()) {
        if (parent.getParentFieldPos() == FieldContainerPtrBase::InvalidParentPos)
            continue;
        parent->changed(BitVector(1) << parent.getParentFieldPos(), ChangedOrigin::Child);
    }
    Attachment::changed(which, origin);
}

#define OSG_GEO_ROLE_TYPE(ROLE)                                                                    \
    template <> FieldContainerType& ROLE::getClassType() {                                         \
        static FieldContainerType& type =                                                          \
            *new FieldContainerType(#ROLE, &Attachment::getClassType(), #ROLE, nullptr, {});       \
        return type;                                                                               \
    }                                                                                              \
    template class AbstractGeoProperty<ROLE##PropertyDesc>;                                        \
    static const FieldContainerType& registered##ROLE = ROLE::getClassType();

OSG_GEO_ROLE_TYPE(GeoPositions)
OSG_GEO_ROLE_TYPE(GeoNormals)
OSG_GEO_ROLE_TYPE(GeoColors)
OSG_GEO_ROLE_TYPE(GeoTexCoords)
OSG_GEO_ROLE_TYPE(GeoIndices)
OSG_GEO_ROLE_TYPE(GeoPTypes)
OSG_GEO_ROLE_TYPE(GeoPLengths)

// Forms belong to the group of their role, so that a container can carry one form of it.
#define OSG_GEO_FORM_TYPE(NAME, ROLE, STORED, FORMAT, DIMENSION, ...)                              \
    template <> FieldContainerType& NAME::getClassType() {                                         \
        static FieldContainerType& type = *new FieldContainerType(                                 \
            #NAME, &ROLE::getClassType(), #ROLE, &NAME::createUntyped,                             \
            {new FieldDescription(NAME::StoredFieldType::getClassType(), "geoPropData",            \
                                  NAME::GeoPropDataFieldId, NAME::GeoPropDataFieldMask, false,     \
                                  FieldAccessFunction([](FieldContainer& container) -> Field* {    \
                                      return static_cast<NAME&>(container).getFieldPtr();          \
                                  }))});                                                           \
        return type;                                                                               \
    }                                                                                              \
    template class GeoProperty<NAME##PropertyDesc>;                                                \
    static const FieldContainerType& registered##NAME = NAME::getClassType();

OSG_GEO_ALL_FORMS(OSG_GEO_FORM_TYPE)

OSG_END_NAMESPACE
