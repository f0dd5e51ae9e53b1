#pragma once

// FieldDataTraits<T> tells a field how its elements are named, printed, parsed and transported.
// A payload type of an application specialises it, deriving from FieldTraitsRecurseBase.

#include "OSGBinaryDataHandler.h"
#include "OSGFieldContainerPtr.h"
#include "OSGTypeBase.h"

#include <cstring>
#include <string>
#include <type_traits>

OSG_BEGIN_NAMESPACE

template <class T> struct FieldDataTraits;

/// Whether T is a container pointer.
template <class T>
inline constexpr bool osgIsContainerPtr = std::is_base_of_v<FieldContainerPtrBase, T>;

/// The pointer in a field element; null for elements that are none.
template <class T> FieldContainerPtr osgPointerOf(const T& value, UInt32 index) {
    if constexpr (osgIsContainerPtr<T>) {
        return index == 0 ? FieldContainerPtr::dcast(value) : FieldContainerPtr();
    } else {
        return (void)value, (void)index, FieldContainerPtr();
    }
}

/// What most specialisations share: the array forms call the element forms; an element without a
/// binary form of its own travels as text.
template <class T> struct FieldTraitsRecurseBase {
    typedef const T& ArgumentType;
    enum { ToStringConvertable = 1, FromStringConvertable = 2 };

    static T getDefault() { return T(); }

    static UInt32 getBinSize(const T& value) {
        return static_cast<UInt32>(textOf(value).size() + 1 + sizeof(UInt32));
    }
    static UInt32 getBinSize(const T* values, UInt32 count) {
        UInt32 bytes = 0;
        for (UInt32 i = 0; i < count; ++i)
            bytes += FieldDataTraits<T>::getBinSize(values[i]);
        return bytes;
    }
    static void copyToBin(BinaryDataHandler& out, const T& value) { out.putValue(textOf(value)); }
    static void copyToBin(BinaryDataHandler& out, const T* values, UInt32 count) {
        for (UInt32 i = 0; i < count; ++i)
            FieldDataTraits<T>::copyToBin(out, values[i]);
    }
    static void copyFromBin(BinaryDataHandler& in, T& value) {
        std::string text;
        in.getValue(text);
        const Char8* begin = text.c_str();
        FieldDataTraits<T>::getFromString(value, begin);
    }
    static void copyFromBin(BinaryDataHandler& in, T* values, UInt32 count) {
        for (UInt32 i = 0; i < count; ++i)
            FieldDataTraits<T>::copyFromBin(in, values[i]);
    }

  private:
    static std::string textOf(const T& value) {
        std::string text;
        FieldDataTraits<T>::putToString(value, text);
        return text;
    }
};

/// For elements that are plain memory (numbers, points, colours, matrices): one block copy.
template <class T> struct FieldTraitsPlainBase : public FieldTraitsRecurseBase<T> {
    static UInt32 getBinSize(const T&) { return sizeof(T); }
    static UInt32 getBinSize(const T*, UInt32 count) { return count * UInt32(sizeof(T)); }
    static void copyToBin(BinaryDataHandler& out, const T& value) { out.put(&value, sizeof(T)); }
    static void copyToBin(BinaryDataHandler& out, const T* values, UInt32 count) {
        for (UInt32 done = 0; done < count; done += portionOf(count - done))
            out.put(values + done, portionOf(count - done) * UInt32(sizeof(T)));
    }
    static void copyFromBin(BinaryDataHandler& in, T& value) { in.get(&value, sizeof(T)); }
    static void copyFromBin(BinaryDataHandler& in, T* values, UInt32 count) {
        for (UInt32 done = 0; done < count; done += portionOf(count - done))
            in.get(values + done, portionOf(count - done) * UInt32(sizeof(T)));
    }

  private:
    /// What one call can take: bytes are counted in 32 bits.
    static UInt32 portionOf(UInt32 count) { return count < (1u << 24) ? count : 1u << 24; }
};

/// Whether T travels and is compared as plain memory.
template <class T>
inline constexpr bool osgIsPlainElement =
    std::is_base_of_v<FieldTraitsPlainBase<T>, FieldDataTraits<T>>;

/// Exact equality of field elements. Vectors, colours and matrices have a tolerant ==, so plain
/// memory is compared by its bytes; an application's own element by its ==.
template <class T> bool osgSameValue(const T& a, const T& b) {
    if constexpr (osgIsPlainElement<T>) {
        return std::memcmp(static_cast<const void*>(&a), static_cast<const void*>(&b), sizeof(T)) ==
               0;
    } else {
        return a == b;
    }
}

OSG_END_NAMESPACE
