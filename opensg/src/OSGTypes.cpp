#include "OpenSG/OSGTypeBase.h"

#include "OpenSG/OSGField.h"
#include "OpenSG/OSGFieldContainer.h"
#include "OpenSG/OSGFieldDescription.h"
#include "OpenSG/OSGTypeFactory.h"

OSG_BEGIN_NAMESPACE

TypeFactory* TypeFactory::the() {
    static TypeFactory* factory = new TypeFactory;
    return factory;
}

UInt32 TypeFactory::registerType(const Char8* kind, const Char8* name) {
    const std::lock_guard<std::mutex> guard(_mutex);
    const UInt32 next = static_cast<UInt32>(_ids.size()) + 1;
    return _ids.emplace(std::string(kind) + ":" + name, next).first->second;
}

TypeBase::TypeBase(const Char8* kind, const Char8* name, const Char8* parentName)
    : _id(TypeFactory::the()->registerType(kind, name)), _name(name), _parentName(parentName) {}
TypeBase::~TypeBase() = default;

DataType::DataType(const Char8* name, const Char8* parentName, UInt32)
    : TypeBase("data", name, parentName) {}

FieldType::FieldType(const Char8* name, const Char8* parentName, const DataType& contentType,
                     CreateFieldMethod create, Cardinality cardinality)
    : TypeBase("field", name, parentName), _contentType(contentType), _create(create),
      _cardinality(cardinality) {}

Field::~Field() = default;

FieldContainerPtr Field::pointerAt(UInt32) const { return FieldContainerPtr(); }

FieldDescription::FieldDescription(const FieldType& type, const Char8* name, UInt32 id,
                                   BitVector mask, bool internal, FieldAccessMethod access,
                                   const Char8*)
    : _type(type), _name(name), _id(id), _mask(mask), _internal(internal), _method(access) {}

FieldDescription::FieldDescription(const FieldType& type, const Char8* name, UInt32 id,
                                   BitVector mask, bool internal, FieldAccessFunction access)
    : _type(type), _name(name), _id(id), _mask(mask), _internal(internal), _function(access) {}

Field* FieldDescription::getField(FieldContainer& container) const {
    return _function != nullptr ? _function(container) : (container.*_method)();
}

OSG_END_NAMESPACE
