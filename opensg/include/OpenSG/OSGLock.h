#pragma once

#include "OSGBaseTypes.h"

#include <mutex>

OSG_BEGIN_NAMESPACE

/// A named lock; the same name gives the same lock. The owning thread may take it again and
/// releases it as often.
class OSG_BASE_DLLMAPPING Lock {
  public:
    static Lock* get(const Char8* name);
    /// Null if nobody asked for this name yet.
    static Lock* find(const Char8* name);
    /// Without a name; the caller's own.
    static Lock* create() { return new Lock; }

    void aquire() { _mutex.lock(); }
    void release() { _mutex.unlock(); }
    /// Takes the lock if it is free or the thread's own already.
    bool request() { return _mutex.try_lock(); }

  private:
    std::recursive_mutex _mutex;
};

/// 32 locks, picked by address.
class OSG_BASE_DLLMAPPING LockPool {
  public:
    static LockPool* get(const Char8* name);
    static LockPool* find(const Char8* name);
    static LockPool* create() { return new LockPool; }

    void aquire(const void* key) { lockOf(key).aquire(); }
    void release(const void* key) { lockOf(key).release(); }
    bool request(const void* key) { return lockOf(key).request(); }

  private:
    Lock& lockOf(const void* key) {
        return _locks[(reinterpret_cast<std::uintptr_t>(key) >> 7) % 32];
    }

    Lock _locks[32];
};

OSG_END_NAMESPACE
