#pragma once

#include "OSGField.h"
#include "OSGFieldDataType.h"

OSG_BEGIN_NAMESPACE

/// A field of one value.
template <class T> class SField : public Field {
  public:
    typedef T StoredType;

    SField() = default;
    explicit SField(const T& value) : _value(value) {}

    T& getValue() { return _value; }
    const T& getValue() const { return _value; }
    void setValue(const T& value) { _value = value; }
    void setValue(const SField& other) { _value = other._value; }

    static const FieldType& getClassType() {
        static const FieldType& type =
            *new FieldType(FieldDataTraits<T>::getSName(), "Field", FieldDataTraits<T>::getType(),
                           &SField::create, FieldType::SINGLE_FIELD);
        return type;
    }
    static Field* create() { return new SField; }

    const FieldType& getType() const override { return getClassType(); }
    UInt32 getSize() const override { return 1; }
    bool isEmpty() const override { return false; }

    void setAbstrValue(const Field& other) override {
        if (const auto* same = dynamic_cast<const SField*>(&other))
            _value = same->_value;
    }
    bool hasValuesOf(const Field& other) const override {
        const auto* same = dynamic_cast<const SField*>(&other);
        return same != nullptr && osgSameValue(_value, same->_value);
    }
    void syncWith(const SField& other) { _value = other._value; }

    void pushValueByStr(const Char8* text) override {
        static_assert(FieldDataTraits<T>::StringConvertable >= 0, "the traits must tell");
        FieldDataTraits<T>::getFromString(_value, text);
    }
    std::string& getValueByStr(std::string& text) const override {
        text.clear();
        FieldDataTraits<T>::putToString(_value, text);
        return text;
    }
    std::string& getValueByStr(std::string& text, UInt32 index) const override {
        return index == 0 ? getValueByStr(text) : text;
    }

    UInt32 getBinSize() const override { return FieldDataTraits<T>::getBinSize(_value); }
    void copyToBin(BinaryDataHandler& out) const override {
        FieldDataTraits<T>::copyToBin(out, _value);
    }
    void copyFromBin(BinaryDataHandler& in) override {
        FieldDataTraits<T>::copyFromBin(in, _value);
    }

    bool holdsPointers() const override { return osgIsContainerPtr<T>; }
    FieldContainerPtr pointerAt(UInt32 index) const override { return osgPointerOf(_value, index); }

  protected:
    T _value{};
};

/// Makes sure that an application's field type exists once, with its code in one place.
#define OSG_DLLEXPORT_SFIELD_DEF1(T, EXPORT) template class SField<T>

OSG_END_NAMESPACE
