#pragma once

#include "OSGBaseTypes.h"

OSG_BEGIN_NAMESPACE

/// Aspect of the calling thread; 0 for a thread that nobody gave one. The library is loaded with
/// the program, so the access is one load relative to the thread pointer.
extern OSG_BASE_DLLMAPPING __thread UInt32 osgCurrentAspect
    __attribute__((tls_model("initial-exec")));

inline UInt32 osgThreadAspect() { return osgCurrentAspect; }

OSG_END_NAMESPACE
