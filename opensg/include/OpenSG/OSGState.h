#pragma once

#include "OSGBaseTypes.h"
#include "OSGConfig.h"

OSG_BEGIN_NAMESPACE

/// The names under which chunk materials ask for a slot.
class OSG_BASE_DLLMAPPING State {
  public:
    static constexpr Int32 AutoSlot = -1;        ///< the next free slot
    static constexpr Int32 AutoSlotReplace = -2; ///< the first slot, in place of what is there
};

OSG_END_NAMESPACE
