#include "OpenSG/OSGBaseFieldTraits.h"

#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGMField.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <mutex>
#include <set>

OSG_BEGIN_NAMESPACE

void osgDumpText(const std::string& text) { std::cout << text << std::flush; }

void osgPutReals(const Real64* values, UInt32 count, const Char8* separator, std::string& text) {
    text.clear();
    for (UInt32 i = 0; i < count; ++i) {
        Char8 number[40];
        std::snprintf(number, sizeof(number), "%e", values[i]);
        if (i != 0)
            text += separator;
        text += number;
    }
}

UInt32 osgGetReals(Real64* values, UInt32 count, const Char8*& text) {
    UInt32 found = 0;
    while (found < count && text != nullptr && *text != '\0') {
        Char8* end = nullptr;
        const Real64 value = std::strtod(text, &end);
        if (end == text) {
            ++text;
            continue;
        }
        values[found++] = value;
        text = end;
    }
    return found;
}

const DataType& FieldDataTraits<bool>::getType() {
    static const DataType& type = *new DataType("bool", "Root");
    return type;
}

bool FieldDataTraits<bool>::getFromString(bool& out, const Char8*& text) {
    if (text == nullptr)
        return false;
    while (std::isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    out = std::toupper(static_cast<unsigned char>(*text)) == 'T' || *text == '1';
    return true;
}

void FieldDataTraits<bool>::putToString(const bool& value, std::string& text) {
    text = value ? "TRUE" : "FALSE";
}

void FieldDataTraits<bool>::copyToBin(BinaryDataHandler& out, const bool& value) {
    out.putValue(static_cast<UInt8>(value ? 1 : 0));
}

void FieldDataTraits<bool>::copyFromBin(BinaryDataHandler& in, bool& value) {
    UInt8 byte = 0;
    in.getValue(byte);
    value = byte != 0;
}

const DataType& FieldDataTraits<std::string>::getType() {
    static const DataType& type = *new DataType("string", "Root");
    return type;
}

bool FieldDataTraits<std::string>::getFromString(std::string& out, const Char8*& text) {
    if (text == nullptr)
        return false;
    out.clear();
    if (*text != '"') {
        out = text;
        text += out.size();
        return true;
    }
    for (++text; *text != '\0' && *text != '"'; ++text) {
        if (*text == '\\' && text[1] != '\0')
            ++text;
        out += *text;
    }
    if (*text == '"')
        ++text;
    return true;
}

void FieldDataTraits<std::string>::putToString(const std::string& value, std::string& text) {
    text = '"';
    for (const Char8 c : value) {
        if (c == '"' || c == '\\')
            text += '\\';
        text += c;
    }
    text += '"';
}

UInt32 FieldDataTraits<std::string>::getBinSize(const std::string& value) {
    return static_cast<UInt32>(value.size() + 1 + sizeof(UInt32));
}

void FieldDataTraits<std::string>::copyToBin(BinaryDataHandler& out, const std::string& value) {
    out.putValue(value);
}

void FieldDataTraits<std::string>::copyFromBin(BinaryDataHandler& in, std::string& value) {
    in.getValue(value);
}

const DataType& FieldDataTraits<DynamicVolume>::getType() {
    static const DataType& type = *new DataType("DynamicVolume", "Root");
    return type;
}

bool FieldDataTraits<DynamicVolume>::getFromString(DynamicVolume& out, const Char8*& text) {
    Real64 numbers[6];
    if (osgGetReals(numbers, 6, text) != 6)
        return false;
    Real32 corners[6];
    for (int i = 0; i < 6; ++i)
        corners[i] = static_cast<Real32>(numbers[i]);
    out = DynamicVolume();
    out.extendBy(Pnt3f(corners[0], corners[1], corners[2]));
    out.extendBy(Pnt3f(corners[3], corners[4], corners[5]));
    return true;
}

void FieldDataTraits<DynamicVolume>::putToString(const DynamicVolume& value, std::string& text) {
    text.clear();
    if (value.isEmpty())
        return;
    Pnt3f low, high;
    value.getBounds(low, high);
    Real64 numbers[6];
    for (UInt32 i = 0; i < 3; ++i) {
        numbers[i] = static_cast<Real64>(low[i]);
        numbers[i + 3] = static_cast<Real64>(high[i]);
    }
    osgPutReals(numbers, 6, " ", text);
}

FieldContainerPtr osgContainerOfId(UInt32 id) {
    return FieldContainerFactory::the()->getContainer(id);
}

const Char8* osgInternName(const std::string& name) {
    static std::mutex mutex;
    static std::set<std::string>& names = *new std::set<std::string>;
    const std::lock_guard<std::mutex> guard(mutex);
    return names.insert(name).first->c_str();
}

const DataType& FieldDataTraits<FieldContainerPtr>::getType() {
    static const DataType& type = *new DataType("FieldContainerPtr", "Root");
    return type;
}

OSG_END_NAMESPACE
