#pragma once

#include "OSGBaseTypes.h"

#include <string>
#include <type_traits>

OSG_BEGIN_NAMESPACE

/// A place in memory.
typedef UInt8* MemoryHandle;

/// Carries values as bytes, in the machine's byte order. A text is its length including a
/// terminating zero, then the bytes and the zero. Where the bytes go is told by a derived class.
class OSG_BASE_DLLMAPPING BinaryDataHandler {
  public:
    virtual ~BinaryDataHandler();

    void put(const void* source, UInt32 bytes) {
        write(static_cast<MemoryHandle>(const_cast<void*>(source)), bytes);
    }
    void get(void* target, UInt32 bytes) { read(static_cast<MemoryHandle>(target), bytes); }

    template <class T> void putValue(const T& value) {
        static_assert(std::is_arithmetic_v<T>, "numbers only");
        put(&value, sizeof(T));
    }
    template <class T> void getValue(T& value) {
        static_assert(std::is_arithmetic_v<T>, "numbers only");
        get(&value, sizeof(T));
    }
    template <class T> void putValues(const T* values, UInt32 count) {
        for (UInt32 i = 0; i < count; ++i)
            putValue(values[i]);
    }
    template <class T> void getValues(T* values, UInt32 count) {
        for (UInt32 i = 0; i < count; ++i)
            getValue(values[i]);
    }
    void putValue(const std::string& text);
    void getValue(std::string& text);

  protected:
    /// Must leave the source as it is.
    virtual void write(MemoryHandle source, UInt32 bytes) = 0;
    /// Throws when fewer bytes are left.
    virtual void read(MemoryHandle target, UInt32 bytes) = 0;
};

OSG_END_NAMESPACE
