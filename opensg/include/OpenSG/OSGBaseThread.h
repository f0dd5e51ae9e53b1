#pragma once

#include "OSGBaseTypes.h"

#include <mutex>
#include <string>
#include <thread>

OSG_BEGIN_NAMESPACE

class ChangeList;

/// A named thread that can run one function after the other.
class OSG_BASE_DLLMAPPING BaseThread {
  public:
    typedef void (*ThreadFunction)(void*);

    explicit BaseThread(const Char8* name) : _name(name ? name : "") {}
    virtual ~BaseThread();
    BaseThread(const BaseThread&) = delete;
    BaseThread& operator=(const BaseThread&) = delete;

    static BaseThread* get(const Char8* name);
    static BaseThread* find(const Char8* name);
    /// Waits for the function that runs on `thread`; null and an idle thread are fine.
    static void join(BaseThread* thread);

    const Char8* getCName() const { return _name.c_str(); }
    /// Starts the function in aspect 0, after the one that still runs, if any, has ended. False,
    /// and nothing runs, if the system gives no thread.
    bool runFunction(ThreadFunction function, void* argument) {
        return start(function, 0, argument, nullptr);
    }
    /// Waits for the running function to end; nothing is cut short. The thread can run again.
    void terminate() { join(this); }
    /// Whether a function was started and nobody waited for its end yet.
    bool exists();

  protected:
    /// The function records in `changes`, which starts empty; null: in a list of the thread's own.
    bool start(ThreadFunction function, UInt32 aspect, void* argument, ChangeList* changes);

  private:
    std::string _name;
    std::mutex _mutex; ///< guards _thread
    std::thread _thread;
};

OSG_END_NAMESPACE
