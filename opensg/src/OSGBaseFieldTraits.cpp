#include "OpenSG/OSGBaseFieldTraits.h"

#include "OpenSG/OSGFieldContainerFactory.h"
#include "OpenSG/OSGMField.h"
#include "OpenSG/OSGQuaternion.h"

#include <algorithm>
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

namespace {

bool isSeparator(Char8 c) { return std::isspace(static_cast<unsigned char>(c)) != 0 || c == ','; }

/// To the next word; false behind the last one.
bool nextWord(const Char8*& text) {
    while (text != nullptr && isSeparator(*text))
        ++text;
    return text != nullptr && *text != '\0';
}

void passWord(const Char8*& text) {
    while (*text != '\0' && !isSeparator(*text))
        ++text;
}

/// Whether the text goes on with `word`, in capitals or not.
bool startsWith(const Char8* text, const Char8* word) {
    while (*word != '\0' && std::tolower(static_cast<unsigned char>(*text)) == *word)
        ++text, ++word;
    return *word == '\0';
}

} // namespace

UInt32 osgGetReals(Real64* values, UInt32 count, const Char8*& text) {
    UInt32 found = 0;
    std::fill_n(values, count, 0.);
    for (; found < count && nextWord(text); ++found) {
        values[found] = std::strtod(text, nullptr); // 0 for a word that starts with no number
        passWord(text);
    }
    return found;
}

UInt64 osgGetInteger(const Char8*& text) {
    if (!nextWord(text))
        return 0;
    const UInt64 value = *text == '-' ? static_cast<UInt64>(std::strtoll(text, nullptr, 10))
                                      : std::strtoull(text, nullptr, 10);
    passWord(text);
    return value;
}

const DataType& FieldDataTraits<bool>::getType() {
    static const DataType& type = *new DataType("bool", "Root");
    return type;
}

bool FieldDataTraits<bool>::getFromString(bool& out, const Char8*& text) {
    if (!nextWord(text) || !(startsWith(text, "true") || startsWith(text, "false")))
        return false;
    out = startsWith(text, "true");
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
    out = text;
    text += out.size();
    return true;
}

void FieldDataTraits<std::string>::putToString(const std::string& value, std::string& text) {
    text = '"' + value + '"';
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

const DataType& FieldDataTraits<Matrix>::getType() {
    static const DataType& type = *new DataType("Matrix", "Root");
    return type;
}

bool FieldDataTraits<Matrix>::getFromString(Matrix& out, const Char8*& text) {
    Matrix rows;
    FieldTraitsNumbersBase<Matrix, Real32, 16>::getFromString(rows, text);
    return rows.transposed(out);
}

void FieldDataTraits<Matrix>::putToString(const Matrix& value, std::string& text) {
    Matrix rows;
    value.transposed(rows);
    putNumbers(rows, " ", text);
}

const DataType& FieldDataTraits<Quaternion>::getType() {
    static const DataType& type = *new DataType("Quaternion", "Root");
    return type;
}

bool FieldDataTraits<Quaternion>::getFromString(Quaternion& out, const Char8*& text) {
    Vec4f axis;
    FieldDataTraits<Vec4f>::getFromString(axis, text);
    out.setValueAsAxisRad(axis[0], axis[1], axis[2], axis[3]);
    return true;
}

void FieldDataTraits<Quaternion>::putToString(const Quaternion& value, std::string& text) {
    Quaternion axis; // its four places, filled with axis and angle
    value.getValueAsAxisRad(axis[0], axis[1], axis[2], axis[3]);
    putNumbers(axis, " ", text);
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
