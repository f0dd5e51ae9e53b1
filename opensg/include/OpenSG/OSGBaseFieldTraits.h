#pragma once

// FieldDataTraits of the layer's own element types: numbers, text, points, vectors, colours,
// matrices, quaternions, volumes and container pointers.

#include "OSGColor.h"
#include "OSGDynamicVolume.h"
#include "OSGFieldContainerPtr.h"
#include "OSGFieldDataType.h"
#include "OSGMatrix.h"
#include "OSGQuaternionBase.h"
#include "OSGVector.h"

#include <string>

OSG_BEGIN_NAMESPACE

// Text of numbers and back; defined in OSGBaseFieldTraits.cpp.
OSG_BASE_DLLMAPPING void osgPutReals(const Real64* values, UInt32 count, const Char8* separator,
                                     std::string& text);
/// Reads `count` numbers, a word each, between blanks and commas. A word that starts with no number
/// is 0, a missing one too. Returns how many words there were.
OSG_BASE_DLLMAPPING UInt32 osgGetReals(Real64* values, UInt32 count, const Char8*& text);
/// A word as a whole number, negative ones as their complement; 0 for none.
OSG_BASE_DLLMAPPING UInt64 osgGetInteger(const Char8*& text);

/// Elements made of N numbers of type C, side by side.
template <class T, class C, UInt32 N>
struct FieldTraitsNumbersBase : public FieldTraitsPlainBase<T> {
    static bool getFromString(T& out, const Char8*& text) {
        Real64 numbers[N];
        const UInt32 found = osgGetReals(numbers, N, text);
        C* components = reinterpret_cast<C*>(&out);
        for (UInt32 i = 0; i < N; ++i)
            components[i] = osgLimitedCast<C>(numbers[i]);
        return found == N;
    }
    static void putNumbers(const T& value, const Char8* separator, std::string& text) {
        const C* components = reinterpret_cast<const C*>(&value);
        Real64 numbers[N];
        for (UInt32 i = 0; i < N; ++i)
            numbers[i] = static_cast<Real64>(components[i]);
        osgPutReals(numbers, N, separator, text);
    }
};

/// Names of the fields of an element that becomes text and is read from it.
#define OSG_TRAITS_NAMES(NAME)                                                                     \
    static const Char8* getSName() { return "SF" NAME; }                                           \
    static const Char8* getMName() { return "MF" NAME; }                                           \
    enum { StringConvertable = ToStringConvertable | FromStringConvertable };

#define OSG_NUMBERS_TRAITS(TYPE, COMPONENT, COUNT, NAME, SEPARATOR)                                \
    template <>                                                                                    \
    struct FieldDataTraits<TYPE> : public FieldTraitsNumbersBase<TYPE, COMPONENT, COUNT> {         \
        static const DataType& getType() {                                                         \
            static const DataType& type = *new DataType(NAME, "Root");                             \
            return type;                                                                           \
        }                                                                                          \
        OSG_TRAITS_NAMES(NAME)                                                                     \
        static void putToString(const TYPE& value, std::string& text) {                            \
            putNumbers(value, SEPARATOR, text);                                                    \
        }                                                                                          \
    };

OSG_NUMBERS_TRAITS(Real32, Real32, 1, "Real32", "")
OSG_NUMBERS_TRAITS(Real64, Real64, 1, "Real64", "")
OSG_NUMBERS_TRAITS(Vec2f, Real32, 2, "Vec2f", "  ")
OSG_NUMBERS_TRAITS(Vec3f, Real32, 3, "Vec3f", "  ")
OSG_NUMBERS_TRAITS(Vec4f, Real32, 4, "Vec4f", "  ")
OSG_NUMBERS_TRAITS(Vec3b, Int8, 3, "Vec3b", "  ")
OSG_NUMBERS_TRAITS(Vec3s, Int16, 3, "Vec3s", "  ")
OSG_NUMBERS_TRAITS(Vec2d, Real64, 2, "Vec2d", "  ")
OSG_NUMBERS_TRAITS(Vec3d, Real64, 3, "Vec3d", "  ")
OSG_NUMBERS_TRAITS(Vec4d, Real64, 4, "Vec4d", "  ")
OSG_NUMBERS_TRAITS(Pnt2f, Real32, 2, "Pnt2f", "  ")
OSG_NUMBERS_TRAITS(Pnt3f, Real32, 3, "Pnt3f", "  ")
OSG_NUMBERS_TRAITS(Pnt4f, Real32, 4, "Pnt4f", "  ")
OSG_NUMBERS_TRAITS(Pnt2d, Real64, 2, "Pnt2d", "  ")
OSG_NUMBERS_TRAITS(Pnt3d, Real64, 3, "Pnt3d", "  ")
OSG_NUMBERS_TRAITS(Pnt4d, Real64, 4, "Pnt4d", "  ")
OSG_NUMBERS_TRAITS(Pnt2s, Int16, 2, "Pnt2s", "  ")
OSG_NUMBERS_TRAITS(Pnt3s, Int16, 3, "Pnt3s", "  ")
OSG_NUMBERS_TRAITS(Pnt4s, Int16, 4, "Pnt4s", "  ")
OSG_NUMBERS_TRAITS(Color3f, Real32, 3, "Color3f", " ")
OSG_NUMBERS_TRAITS(Color4f, Real32, 4, "Color4f", " ")
OSG_NUMBERS_TRAITS(Color3ub, UInt8, 3, "Color3ub", " ")
OSG_NUMBERS_TRAITS(Color4ub, UInt8, 4, "Color4ub", " ")
#undef OSG_NUMBERS_TRAITS

#define OSG_INTEGER_TRAITS(TYPE, NAME)                                                             \
    template <> struct FieldDataTraits<TYPE> : public FieldTraitsPlainBase<TYPE> {                 \
        static const DataType& getType() {                                                         \
            static const DataType& type = *new DataType(NAME, "Root");                             \
            return type;                                                                           \
        }                                                                                          \
        OSG_TRAITS_NAMES(NAME)                                                                     \
        static bool getFromString(TYPE& out, const Char8*& text) {                                 \
            out = static_cast<TYPE>(osgGetInteger(text)); /* wraps */                              \
            return true;                                                                           \
        }                                                                                          \
        static void putToString(const TYPE& value, std::string& text) {                            \
            text = std::to_string(value);                                                          \
        }                                                                                          \
    };

OSG_INTEGER_TRAITS(Int8, "Int8")
OSG_INTEGER_TRAITS(UInt8, "UInt8")
OSG_INTEGER_TRAITS(Int16, "Int16")
OSG_INTEGER_TRAITS(UInt16, "UInt16")
OSG_INTEGER_TRAITS(Int32, "Int32")
OSG_INTEGER_TRAITS(UInt32, "UInt32")
OSG_INTEGER_TRAITS(Int64, "Int64")
OSG_INTEGER_TRAITS(UInt64, "UInt64")
#undef OSG_INTEGER_TRAITS

/// Row by row, so that the translation is every fourth number; in memory column by column.
template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<Matrix>
    : public FieldTraitsNumbersBase<Matrix, Real32, 16> {
    static const DataType& getType();
    OSG_TRAITS_NAMES("Matrix")
    static bool getFromString(Matrix& out, const Char8*& text);
    static void putToString(const Matrix& value, std::string& text);
};

/// As axis and angle in radians.
template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<QuaternionBase<Real32>>
    : public FieldTraitsNumbersBase<QuaternionBase<Real32>, Real32, 4> {
    static const DataType& getType();
    OSG_TRAITS_NAMES("Quaternion")
    static bool getFromString(QuaternionBase<Real32>& out, const Char8*& text);
    static void putToString(const QuaternionBase<Real32>& value, std::string& text);
};

template <> struct OSG_BASE_DLLMAPPING FieldDataTraits<bool> : public FieldTraitsRecurseBase<bool> {
    static const DataType& getType();
    OSG_TRAITS_NAMES("Bool")
    /// True or false, in capitals or not; the value stays as it is for anything else.
    static bool getFromString(bool& out, const Char8*& text);
    static void putToString(const bool& value, std::string& text);
    static UInt32 getBinSize(const bool&) { return 1; }
    static void copyToBin(BinaryDataHandler& out, const bool& value);
    static void copyFromBin(BinaryDataHandler& in, bool& value);
};

template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<std::string>
    : public FieldTraitsRecurseBase<std::string> {
    static const DataType& getType();
    OSG_TRAITS_NAMES("String")
    /// Written in double quotes, with nothing escaped; read as it stands, quotes included.
    static bool getFromString(std::string& out, const Char8*& text);
    static void putToString(const std::string& value, std::string& text);
    static UInt32 getBinSize(const std::string& value);
    static UInt32 getBinSize(const std::string* values, UInt32 count) {
        return FieldTraitsRecurseBase<std::string>::getBinSize(values, count);
    }
    static void copyToBin(BinaryDataHandler& out, const std::string& value);
    static void copyToBin(BinaryDataHandler& out, const std::string* values, UInt32 count) {
        FieldTraitsRecurseBase<std::string>::copyToBin(out, values, count);
    }
    static void copyFromBin(BinaryDataHandler& in, std::string& value);
    static void copyFromBin(BinaryDataHandler& in, std::string* values, UInt32 count) {
        FieldTraitsRecurseBase<std::string>::copyFromBin(in, values, count);
    }
};

template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<DynamicVolume>
    : public FieldTraitsRecurseBase<DynamicVolume> {
    static const DataType& getType();
    OSG_TRAITS_NAMES("DynamicVolume")
    static bool getFromString(DynamicVolume& out, const Char8*& text);
    static void putToString(const DynamicVolume& value, std::string& text);
};

/// Container pointers: named after the class they point to. Their binary form is the number of
/// the container; reading it back gives the container of that number if its class fits.
OSG_BASE_DLLMAPPING FieldContainerPtr osgContainerOfId(UInt32 id);
OSG_BASE_DLLMAPPING const Char8* osgInternName(const std::string& name);

template <class Pointer> struct FieldTraitsPointerBase : public FieldTraitsRecurseBase<Pointer> {
    typedef FieldTraitsRecurseBase<Pointer> Base;

    enum { StringConvertable = Base::ToStringConvertable };
    static bool getFromString(Pointer&, const Char8*&) { return false; }
    static void putToString(const Pointer& value, std::string& text) {
        text = std::to_string(osgIdOrZero(value));
    }
    static UInt32 getBinSize(const Pointer&) { return sizeof(UInt32); }
    static UInt32 getBinSize(const Pointer*, UInt32 count) {
        return count * UInt32(sizeof(UInt32));
    }
    static void copyToBin(BinaryDataHandler& out, const Pointer& value) {
        out.putValue(osgIdOrZero(value));
    }
    static void copyToBin(BinaryDataHandler& out, const Pointer* values, UInt32 count) {
        Base::copyToBin(out, values, count);
    }
    static void copyFromBin(BinaryDataHandler& in, Pointer& value) {
        UInt32 id = 0;
        in.getValue(id);
        value = Pointer::dcast(osgContainerOfId(id));
    }
    static void copyFromBin(BinaryDataHandler& in, Pointer* values, UInt32 count) {
        Base::copyFromBin(in, values, count);
    }
};

template <class BasePtr, class FC>
struct FieldDataTraits<FCPtr<BasePtr, FC>> : public FieldTraitsPointerBase<FCPtr<BasePtr, FC>> {
    static std::string baseName() { return std::string(FC::getClassName()) + "Ptr"; }
    static const DataType& getType() {
        static const DataType& type = *new DataType(osgInternName(baseName()), "FieldContainerPtr");
        return type;
    }
    static const Char8* getSName() { return osgInternName("SF" + baseName()); }
    static const Char8* getMName() { return osgInternName("MF" + baseName()); }
};

template <>
struct OSG_BASE_DLLMAPPING FieldDataTraits<FieldContainerPtr>
    : public FieldTraitsPointerBase<FieldContainerPtr> {
    static const DataType& getType();
    static const Char8* getSName() { return "SFFieldContainerPtr"; }
    static const Char8* getMName() { return "MFFieldContainerPtr"; }
};

#undef OSG_TRAITS_NAMES

OSG_END_NAMESPACE
