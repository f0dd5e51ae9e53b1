#pragma once

#include "OSGAspect.h"
#include "OSGBaseThread.h"

OSG_BEGIN_NAMESPACE

class ChangeList;

/// A thread that runs in an aspect and has a change list. Threads that nobody named run in aspect
/// 0 with a list of their own.
class OSG_BASE_DLLMAPPING Thread : public BaseThread {
  public:
    using BaseThread::BaseThread;
    using BaseThread::runFunction;

    static Thread* get(const Char8* name);
    static Thread* find(const Char8* name);

    /// False, and nothing runs, for an aspect that does not exist.
    bool runFunction(ThreadFunction function, UInt32 aspect, void* argument);

    /// Of the calling thread.
    static UInt32 getAspect() { return osgThreadAspect(); }
    static ChangeList* getCurrentChangeList();
};
typedef Thread PThreadBase;
typedef Thread ThreadCommonBase;
typedef Thread ThreadBase;

/// Gives a thread of the application an aspect.
class OSG_BASE_DLLMAPPING ExternalThread : public Thread {
  public:
    using Thread::Thread;
    /// Binds the calling thread.
    void initialize(UInt32 aspect);
};

OSG_END_NAMESPACE
