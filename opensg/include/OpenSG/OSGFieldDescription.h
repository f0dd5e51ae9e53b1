#pragma once

#include "OSGField.h"
#include "OSGIDString.h"

OSG_BEGIN_NAMESPACE

class FieldContainer;
/// Access by member function, the form in which applications describe their own fields.
typedef Field* (FieldContainer::*FieldAccessMethod)();
/// Access by free function, the form in which the layer describes its fields.
typedef Field* (*FieldAccessFunction)(FieldContainer&);

/// Name, number and access of one field of a container type.
class OSG_BASE_DLLMAPPING FieldDescription {
  public:
    FieldDescription(const FieldType& type, const Char8* name, UInt32 id, BitVector mask,
                     bool internal, FieldAccessMethod access, const Char8* defaultValue = nullptr);
    FieldDescription(const FieldType& type, const Char8* name, UInt32 id, BitVector mask,
                     bool internal, FieldAccessFunction access);

    const Char8* getCName() const { return _name.str(); }
    const IDString& getName() const { return _name; }
    UInt32 getFieldId() const { return _id; }
    BitVector getFieldMask() const { return _mask; }
    /// Internal fields are bookkeeping: not written to files, not compared.
    bool isInternal() const { return _internal; }
    UInt32 getTypeId() const { return _type.getId(); }
    const FieldType& getType() const { return _type; }

    Field* getField(FieldContainer& container) const;

  private:
    const FieldType& _type;
    IDString _name;
    UInt32 _id;
    BitVector _mask;
    bool _internal;
    FieldAccessMethod _method = nullptr; ///< exactly one of the two is set
    FieldAccessFunction _function = nullptr;
};

OSG_END_NAMESPACE
