#include "OpenSG/OSGFieldContainerType.h"

#include "OpenSG/OSGFieldContainerFactory.h"

#include <cstring>

OSG_BEGIN_NAMESPACE

FieldContainerType::FieldContainerType(const Char8* name, const Char8* parentName,
                                       const Char8* groupName, PrototypeCreateF create,
                                       InitContainerF init, FieldDescription** descs,
                                       UInt32 descByteCount, bool)
    : TypeBase("container", name, parentName), _create(create) {
    _parent = parentName ? FieldContainerFactory::the()->findType(parentName) : nullptr;
    if (_parent != nullptr)
        _descs = _parent->_descs;
    if (descs != nullptr) {
        _descs.insert(_descs.end(), descs, descs + descByteCount / sizeof(FieldDescription*));
    }
    if (init != nullptr)
        init();
    enter(groupName);
}

FieldContainerType::FieldContainerType(const Char8* name, FieldContainerType* parent,
                                       const Char8* groupName, PrototypeCreateF create,
                                       std::initializer_list<FieldDescription*> descs)
    : TypeBase("container", name, parent ? parent->getCName() : nullptr), _parent(parent),
      _create(create), _owned(descs) {
    if (_parent != nullptr)
        _descs = _parent->_descs;
    _descs.insert(_descs.end(), _owned.begin(), _owned.end());
    enter(groupName);
}

FieldContainerType::~FieldContainerType() {
    for (FieldDescription* desc : _owned)
        delete desc;
}

void FieldContainerType::enter(const Char8* groupName) {
    _groupId = FieldContainerFactory::the()->enterGroup(groupName ? groupName : getCName());
    FieldContainerFactory::the()->enterType(*this);
}

bool FieldContainerType::isBelow(const Char8* typeName) const {
    for (const FieldContainerType* type = this; type != nullptr; type = type->_parent) {
        if (std::strcmp(type->getCName(), typeName) == 0)
            return true;
    }
    return false;
}

bool FieldContainerType::isDerivedFrom(const TypeBase& other) const {
    for (const FieldContainerType* type = this; type != nullptr; type = type->_parent) {
        if (static_cast<const TypeBase&>(*type) == other)
            return true;
    }
    return false;
}

bool FieldContainerType::isDerivedFrom(const FieldContainerType& other) const {
    return isDerivedFrom(static_cast<const TypeBase&>(other));
}

FieldDescription* FieldContainerType::getFieldDescription(UInt32 fieldId) const {
    for (FieldDescription* desc : _descs) {
        if (desc->getFieldId() == fieldId)
            return desc;
    }
    return nullptr;
}

FieldDescription* FieldContainerType::findFieldDescription(const Char8* fieldName) const {
    if (fieldName == nullptr)
        return nullptr;
    for (FieldDescription* desc : _descs) {
        if (std::strcmp(desc->getCName(), fieldName) == 0)
            return desc;
    }
    return nullptr;
}

FieldContainerPtr FieldContainerType::getPrototype() const {
    if (_prototype == NullFC && _create != nullptr) {
        _prototype = _create();
        addRefCP(_prototype);
    }
    return _prototype;
}

bool FieldContainerType::setPrototype(FieldContainerPtr prototype) {
    setRefdCP(_prototype, prototype);
    return true;
}

FieldContainerPtr FieldContainerType::createFieldContainer() const {
    // A type whose prototype was never asked for makes its containers directly.
    if (_prototype != NullFC)
        return _prototype->shallowCopy();
    return _create != nullptr ? _create() : FieldContainerPtr();
}

OSG_END_NAMESPACE
