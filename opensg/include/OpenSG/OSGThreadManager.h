#pragma once

#include "OSGBarrier.h"
#include "OSGLock.h"
#include "OSGThread.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

OSG_BEGIN_NAMESPACE

/// Keeps the named threads, locks and barriers, each kind with names of its own. They live until
/// the process ends. Safe to use from any thread.
class OSG_BASE_DLLMAPPING ThreadManager {
  public:
    static ThreadManager* the();
    static BaseThread* getAppThread();
    static UInt32 getNumAspects();
    /// Before the first container is made; 1 at least.
    static void setNumAspects(UInt32 count);

    /// Finds or makes. Types: "OSGThread", "OSGBaseThread", "OSGExternalThread"; null for others.
    BaseThread* getThread(const Char8* name, const Char8* type = "OSGThread");
    Lock* getLock(const Char8* name, const Char8* type = "OSGLock");
    LockPool* getLockPool(const Char8* name, const Char8* type = "OSGLockPool");
    Barrier* getBarrier(const Char8* name, const Char8* type = "OSGBarrier");

    BaseThread* findThread(const Char8* name);
    Lock* findLock(const Char8* name);
    LockPool* findLockPool(const Char8* name);
    Barrier* findBarrier(const Char8* name);

    /// Waits for every function that still runs.
    void joinAll();

  private:
    template <class T> using Named = std::map<std::string, std::unique_ptr<T>, std::less<>>;

    ThreadManager() = default;

    std::mutex _mutex;
    Named<BaseThread> _threads;
    Named<Lock> _locks;
    Named<LockPool> _lockPools;
    Named<Barrier> _barriers;
};

OSG_END_NAMESPACE
