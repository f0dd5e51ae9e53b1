#pragma once

#include "OSGAspect.h"
#include "OSGBaseThread.h"

OSG_BEGIN_NAMESPACE

/// A thread that runs in an aspect and has a change list, which starts empty with each function
/// and stays readable after its end. Threads that nobody named run in aspect 0 with a list of
/// their own.
class OSG_BASE_DLLMAPPING Thread : public BaseThread {
  public:
    explicit Thread(const Char8* name);
    ~Thread() override;
    using BaseThread::runFunction;

    static Thread* get(const Char8* name);
    static Thread* find(const Char8* name);

    /// False, and nothing runs, for an aspect that does not exist or if the system gives no thread.
    bool runFunction(ThreadFunction function, UInt32 aspect, void* argument);
    /// What the functions of this thread record in.
    ChangeList* getChangeList() { return _changes; }

    /// Of the calling thread.
    static UInt32 getAspect() { return osgThreadAspect(); }
    static ChangeList* getCurrentChangeList();

  private:
    ChangeList* _changes;
};
typedef Thread PThreadBase;
typedef Thread ThreadCommonBase;
typedef Thread ThreadBase;

/// Gives a thread of the application an aspect and this object's change list.
class OSG_BASE_DLLMAPPING ExternalThread : public Thread {
  public:
    using Thread::Thread;
    /// Binds the calling thread.
    void initialize(UInt32 aspect);
};

OSG_END_NAMESPACE
