#pragma once

// The platform's header of this name ends with C++14: what includes it must not ask for more.
#if __cplusplus > 201402L && !defined(morva_scene_EXPORTS)
#error "OSGRemoteAspect.h can't be compiled as C++17: include it in a file of C++14 of its own"
#endif

#include "OSGBaseTypes.h"
#include "OSGConfig.h"

OSG_BEGIN_NAMESPACE

/// The table of fields that do not travel to other machines.
class OSG_BASE_DLLMAPPING RemoteAspect {
  public:
    static void addFieldFilter(UInt32 typeId, BitVector mask);
    static void subFieldFilter(UInt32 typeId, BitVector mask);
    /// Fields of this type that are kept back.
    static BitVector getFieldFilter(UInt32 typeId);
};

OSG_END_NAMESPACE
