#pragma once

#include "OSGField.h"
#include "OSGFieldDataType.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

OSG_BEGIN_NAMESPACE

OSG_BASE_DLLMAPPING void osgDumpText(const std::string& text);

/// A field of many values: a vector with the abstract field interface.
template <class T> class MField : public Field {
  public:
    typedef T StoredType;
    typedef std::vector<T> StorageType;
    typedef typename StorageType::value_type value_type;
    typedef typename StorageType::iterator iterator;
    typedef typename StorageType::const_iterator const_iterator;
    typedef typename StorageType::reverse_iterator reverse_iterator;
    typedef typename StorageType::const_reverse_iterator const_reverse_iterator;
    typedef typename StorageType::reference reference;
    typedef typename StorageType::const_reference const_reference;

    MField() = default;
    explicit MField(UInt32 count) : _values(count) {}

    iterator begin() { return _values.begin(); }
    iterator end() { return _values.end(); }
    const_iterator begin() const { return _values.begin(); }
    const_iterator end() const { return _values.end(); }
    reverse_iterator rbegin() { return _values.rbegin(); }
    reverse_iterator rend() { return _values.rend(); }
    const_reverse_iterator rbegin() const { return _values.rbegin(); }
    const_reverse_iterator rend() const { return _values.rend(); }
    reference front() { return _values.front(); }
    const_reference front() const { return _values.front(); }
    reference back() { return _values.back(); }
    const_reference back() const { return _values.back(); }
    reference operator[](std::size_t index) { return _values[index]; }
    const_reference operator[](std::size_t index) const { return _values[index]; }

    std::size_t size() const { return _values.size(); }
    std::size_t capacity() const { return _values.capacity(); }
    bool empty() const { return _values.empty(); }
    void clear() { _values.clear(); }
    void reserve(std::size_t count) { _values.reserve(count); }
    void shrink_to_fit() { _values.shrink_to_fit(); }
    void resize(std::size_t count) { _values.resize(count); }
    void resize(std::size_t count, const T& value) { _values.resize(count, value); }
    void swap(MField& other) { _values.swap(other._values); }

    void push_back(const T& value) { _values.push_back(value); }
    void pop_back() { _values.pop_back(); }
    void addValue(const T& value) { _values.push_back(value); }
    iterator insert(const_iterator place, const T& value) { return _values.insert(place, value); }
    template <class It> void insert(const_iterator place, It first, It last) {
        _values.insert(place, first, last);
    }
    iterator erase(const_iterator place) { return _values.erase(place); }
    iterator erase(const_iterator first, const_iterator last) { return _values.erase(first, last); }

    reference getValue(UInt32 index) { return _values[index]; }
    const_reference getValue(UInt32 index) const { return _values[index]; }
    void setValue(const T& value, UInt32 index) { _values[index] = value; }
    StorageType& getValues() { return _values; }
    const StorageType& getValues() const { return _values; }
    void setValues(const StorageType& values) { _values = values; }

    iterator find(const T& value) { return std::find(_values.begin(), _values.end(), value); }
    const_iterator find(const T& value) const {
        return std::find(_values.begin(), _values.end(), value);
    }
    iterator find(iterator from, const T& value) { return std::find(from, _values.end(), value); }

    static const FieldType& getClassType() {
        static const FieldType& type =
            *new FieldType(FieldDataTraits<T>::getMName(), "Field", FieldDataTraits<T>::getType(),
                           &MField::create, FieldType::MULTI_FIELD);
        return type;
    }
    static Field* create() { return new MField; }

    const FieldType& getType() const override { return getClassType(); }
    UInt32 getSize() const override { return static_cast<UInt32>(_values.size()); }
    bool isEmpty() const override { return _values.empty(); }

    void setAbstrValue(const Field& other) override {
        if (const auto* same = dynamic_cast<const MField*>(&other))
            _values = same->_values;
    }
    bool hasValuesOf(const Field& other) const override {
        const auto* same = dynamic_cast<const MField*>(&other);
        return same != nullptr && _values.size() == same->_values.size() &&
               std::equal(_values.begin(), _values.end(), same->_values.begin(),
                          [](const T& a, const T& b) { return osgSameValue(a, b); });
    }
    void syncWith(const MField& other) { _values = other._values; }

    void pushValueByStr(const Char8* text) override {
        static_assert(FieldDataTraits<T>::StringConvertable >= 0, "the traits must tell");
        T value{};
        FieldDataTraits<T>::getFromString(value, text);
        _values.push_back(value);
    }
    std::string& getValueByStr(std::string& text) const override {
        for (std::size_t i = 0; i < _values.size(); ++i) {
            if (i != 0)
                text += ", ";
            std::string element;
            FieldDataTraits<T>::putToString(_values[i], element);
            text += element;
        }
        return text;
    }
    std::string& getValueByStr(std::string& text, UInt32 index) const override {
        if (index < _values.size())
            FieldDataTraits<T>::putToString(_values[index], text);
        return text;
    }

    UInt32 getBinSize() const override {
        return UInt32(sizeof(UInt32)) + FieldDataTraits<T>::getBinSize(_values.data(), getSize());
    }
    void copyToBin(BinaryDataHandler& out) const override {
        out.putValue(getSize());
        FieldDataTraits<T>::copyToBin(out, _values.data(), getSize());
    }
    void copyFromBin(BinaryDataHandler& in) override {
        UInt32 count = 0;
        in.getValue(count);
        _values.clear();
        // In portions: a count that the data does not hold must not ask for all its memory.
        for (UInt32 done = 0; done < count;) {
            const UInt32 portion = std::min<UInt32>(count - done, 1u << 20);
            _values.resize(std::size_t(done) + portion);
            FieldDataTraits<T>::copyFromBin(in, _values.data() + done, portion);
            done += portion;
        }
    }

    /// On the standard output stream. Elements of an application print nothing.
    void dump() const override {
        std::string text;
        if constexpr (osgIsPlainElement<T> || std::is_same_v<T, std::string>)
            getValueByStr(text);
        osgDumpText("STMFST : \n" + text + "\n");
    }

    bool holdsPointers() const override { return osgIsContainerPtr<T>; }
    FieldContainerPtr pointerAt(UInt32 index) const override {
        return index < _values.size() ? osgPointerOf(_values[index], 0) : FieldContainerPtr();
    }

  protected:
    StorageType _values;
};

#define OSG_DLLEXPORT_MFIELD_DEF1(T, EXPORT) template class MField<T>

OSG_END_NAMESPACE
