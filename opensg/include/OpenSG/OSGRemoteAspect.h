#pragma once

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
