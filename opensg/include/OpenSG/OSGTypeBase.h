#pragma once

// Run-time types. Every data, field and container type has a name and a number; the registry
// (TypeFactory) interns by name, so that a type which two shared objects both define is one type.

#include "OSGBaseTypes.h"
#include "OSGConfig.h"
#include "OSGIDString.h"

OSG_BEGIN_NAMESPACE

/// What all run-time types share: a number (from 1, by registration) and two names.
class OSG_BASE_DLLMAPPING TypeBase {
  public:
    TypeBase(const Char8* kind, const Char8* name, const Char8* parentName);
    virtual ~TypeBase();
    TypeBase(const TypeBase&) = delete;
    TypeBase& operator=(const TypeBase&) = delete;

    UInt32 getId() const { return _id; }
    const IDString& getName() const { return _name; }
    const Char8* getCName() const { return _name.str(); }
    const IDString& getParentName() const { return _parentName; }
    const Char8* getCParentName() const { return _parentName.str(); }
    bool isInitialized() const { return _id != 0; }
    bool operator==(const TypeBase& other) const { return _id == other._id; }
    bool operator!=(const TypeBase& other) const { return _id != other._id; }
    bool operator<(const TypeBase& other) const { return _id < other._id; }

  protected:
    UInt32 _id;
    IDString _name;
    IDString _parentName;
};

/// Type of a field's elements.
class OSG_BASE_DLLMAPPING DataType : public TypeBase {
  public:
    explicit DataType(const Char8* name, const Char8* parentName = nullptr, UInt32 nameSpace = 0);
};

class Field;
typedef Field* (*CreateFieldMethod)();

/// Type of a field: its element type and whether it holds one element or many.
class OSG_BASE_DLLMAPPING FieldType : public TypeBase {
  public:
    enum Cardinality { SINGLE_FIELD, MULTI_FIELD };

    FieldType(const Char8* name, const Char8* parentName, const DataType& contentType,
              CreateFieldMethod create, Cardinality cardinality);

    const DataType& getContentType() const { return _contentType; }
    Cardinality getCardinality() const { return _cardinality; }
    /// A new empty field on the heap; null when the type has no way to make one.
    Field* createField() const { return _create ? _create() : nullptr; }

  private:
    const DataType& _contentType;
    CreateFieldMethod _create;
    Cardinality _cardinality;
};

OSG_END_NAMESPACE
