#pragma once

#include "OSGTypeBase.h"

#include <string>

OSG_BEGIN_NAMESPACE

class BinaryDataHandler;
class FieldContainerPtr;

/// A typed value or list of values inside a field container, seen without its element type.
class OSG_BASE_DLLMAPPING Field {
  public:
    virtual ~Field();

    virtual const FieldType& getType() const = 0;
    const DataType& getContentType() const { return getType().getContentType(); }
    FieldType::Cardinality getCardinality() const { return getType().getCardinality(); }

    virtual UInt32 getSize() const = 0;
    virtual bool isEmpty() const = 0;

    /// Takes over the value of a field of the same type; another type changes nothing.
    virtual void setAbstrValue(const Field& other) = 0;
    /// The same between two aspects' copies of one field: references are not counted, since a
    /// change list repeats the counting.
    virtual void syncFrom(const Field& other) { setAbstrValue(other); }
    /// Exact equality of type, count and values. Pointers are equal if they are one container.
    virtual bool hasValuesOf(const Field& other) const = 0;

    virtual void pushValueByStr(const Char8* text) = 0;
    virtual std::string& getValueByStr(std::string& text) const = 0;
    virtual std::string& getValueByStr(std::string& text, UInt32 index) const = 0;

    virtual UInt32 getBinSize() const = 0;
    virtual void copyToBin(BinaryDataHandler& out) const = 0;
    virtual void copyFromBin(BinaryDataHandler& in) = 0;

    /// True if the elements are container pointers; then pointerAt gives element `index`.
    virtual bool holdsPointers() const { return false; }
    virtual FieldContainerPtr pointerAt(UInt32 index) const;

    /// For eyes; a single value prints nothing.
    virtual void dump() const {}

  protected:
    Field() = default;
    Field(const Field&) = default;
    Field& operator=(const Field&) = default;
};

OSG_END_NAMESPACE
