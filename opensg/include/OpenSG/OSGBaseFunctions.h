#pragma once

#include "OSGBaseTypes.h"

#include <cmath>
#include <limits>
#include <type_traits>

OSG_BEGIN_NAMESPACE

inline constexpr Real32 Eps = 1e-6f;
inline constexpr Real64 Pi = 3.14159265358979323846;
inline constexpr Real32 Inf = 1e30f; ///< finite, but beyond every scene
inline constexpr Real32 NegInf = -1e30f;

/// Starts the scene graph. Containers work before it too; a later call changes nothing.
OSG_BASE_DLLMAPPING bool osgInit(Int32 argc, Char8** argv, UInt16 major = 1, UInt16 minor = 8,
                                 UInt16 release = 0, bool debug = false, bool dll = true,
                                 bool mt = true);
/// Whether osgInit has been called.
OSG_BASE_DLLMAPPING bool osgIsInitialized();
/// Ends it. Named threads that still run are waited for.
OSG_BASE_DLLMAPPING bool osgExit();

template <class T> inline const T& osgMin(const T& a, const T& b) { return b < a ? b : a; }
template <class T> inline const T& osgMax(const T& a, const T& b) { return a < b ? b : a; }
/// The number as a C: cut off behind the point, held within what an integer C can hold; 0 for NaN.
template <class C> inline C osgLimitedCast(Real64 value) {
    if constexpr (std::is_integral_v<C>) {
        typedef std::numeric_limits<C> limits;
        if (!(value > static_cast<Real64>(limits::min())))
            return value == value ? limits::min() : C(0);
        if (value >= static_cast<Real64>(limits::max()))
            return limits::max();
    }
    return static_cast<C>(value);
}

template <class T> inline T osgabs(T a) { return a < T(0) ? -a : a; }
template <class T> inline T osgsqrt(T a) { return std::sqrt(a); }
inline Real32 osgdegree2rad(Real32 degrees) { return degrees * Real32(Pi / 180.0); }
inline Real32 osgrad2degree(Real32 radians) { return radians * Real32(180.0 / Pi); }
inline bool osgispower2(UInt32 n) { return n != 0 && (n & (n - 1)) == 0; }
/// The lowest power of two that is at least n; 1 for 0.
inline UInt32 osgnextpower2(UInt32 n) {
    UInt32 power = 1;
    while (power < n && power != 0x80000000u)
        power *= 2;
    return power;
}

OSG_END_NAMESPACE
