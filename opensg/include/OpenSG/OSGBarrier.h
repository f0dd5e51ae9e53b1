#pragma once

#include "OSGBaseTypes.h"

#include <condition_variable>
#include <mutex>

OSG_BEGIN_NAMESPACE

/// Holds threads back until as many as it waits for have entered; reusable for further rounds.
class OSG_BASE_DLLMAPPING PThreadBarrierBase {
  public:
    /// With a count of 1 or less (the start) returns at once.
    void enter();
    /// Sets the count, for this and later rounds, then enters.
    void enter(UInt32 numWaitFor);

  private:
    void wait(std::unique_lock<std::mutex>& guard);

    std::mutex _mutex;
    std::condition_variable _opened;
    UInt32 _count = 1;  ///< threads that open the barrier
    UInt32 _inside = 0; ///< threads that wait in this round
    UInt64 _round = 0;
};

/// A named barrier; the same name gives the same barrier.
class OSG_BASE_DLLMAPPING Barrier : public PThreadBarrierBase {
  public:
    static Barrier* get(const Char8* name);
    static Barrier* find(const Char8* name);
    static Barrier* create() { return new Barrier; }
};

OSG_END_NAMESPACE
