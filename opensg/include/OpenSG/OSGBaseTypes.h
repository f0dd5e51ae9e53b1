#pragma once

#include "OSGConfig.h"
#include "OSGReal16.h"

#include <cstddef>
#include <cstdint>

OSG_BEGIN_NAMESPACE

typedef char Char8;
typedef unsigned char UChar8;
typedef std::int8_t Int8;
typedef std::uint8_t UInt8;
typedef std::int16_t Int16;
typedef std::uint16_t UInt16;
typedef std::int32_t Int32;
typedef std::uint32_t UInt32;
typedef std::int64_t Int64;
typedef std::uint64_t UInt64;
typedef float Real32;
typedef double Real64;
typedef double Time;      ///< seconds
typedef UInt64 BitVector; ///< one bit per field of a container

OSG_END_NAMESPACE
