#include "OpenSG/OSGThreadManager.h"

#include "OpenSG/OSGBaseFunctions.h"
#include "OpenSG/OSGChangeList.h"
#include "OpenSG/OSGLog.h"

#include <atomic>
#include <cstring>
#include <exception>
#include <string_view>

OSG_BEGIN_NAMESPACE

__thread UInt32 osgCurrentAspect = 0;

namespace {

std::atomic<UInt32> numAspects{2};

/// The list that the calling thread records in; null until it asks for one.
thread_local ChangeList* currentList = nullptr;
// Whether this thread's own list is gone: static objects may still drop references after it.
thread_local bool listIsGone = false;

/// The change list of a thread that has no named one, for as long as the thread lives.
struct thread_changes {
    ChangeList* list = newThreadChangeList(osgCurrentAspect);
    ~thread_changes();
};

thread_changes::~thread_changes() {
    deleteThreadChangeList(list);
    currentList = nullptr;
    listIsGone = true;
}

ChangeList* ownList() {
    if (listIsGone) {
        static ChangeList& last = *newThreadChangeList(0);
        return &last;
    }
    thread_local thread_changes changes;
    return changes.list;
}

} // namespace

ChangeList* Thread::getCurrentChangeList() {
    if (currentList == nullptr)
        currentList = ownList();
    return currentList;
}

Thread::Thread(const Char8* name) : BaseThread(name), _changes(newThreadChangeList(0)) {}

Thread::~Thread() {
    join(this); // its function may still record
    deleteThreadChangeList(_changes);
}

BaseThread::~BaseThread() { join(this); }

BaseThread* BaseThread::get(const Char8* name) { return ThreadManager::the()->getThread(name); }
BaseThread* BaseThread::find(const Char8* name) { return ThreadManager::the()->findThread(name); }

void BaseThread::join(BaseThread* thread) {
    if (thread == nullptr)
        return;
    std::thread running;
    {
        const std::lock_guard<std::mutex> guard(thread->_mutex);
        // A thread that asks for its own end is at its end.
        if (thread->_thread.get_id() == std::this_thread::get_id())
            return;
        running.swap(thread->_thread);
    }
    if (running.joinable())
        running.join();
}

bool BaseThread::exists() {
    const std::lock_guard<std::mutex> guard(_mutex);
    return _thread.joinable();
}

bool BaseThread::start(ThreadFunction function, UInt32 aspect, void* argument,
                       ChangeList* changes) {
    join(this);
    const std::lock_guard<std::mutex> guard(_mutex);
    if (changes != nullptr)
        *changes = ChangeList(aspect);
    try {
        _thread = std::thread([function, aspect, argument, changes] {
            osgCurrentAspect = aspect;
            currentList = changes;
            Thread::getCurrentChangeList()->setAspect(aspect);
            function(argument);
        });
    } catch (const std::exception& error) {
        SFATAL << "BaseThread: can't start " << _name << ": " << error.what() << endLog;
        return false;
    }
    return true;
}

Thread* Thread::get(const Char8* name) {
    return dynamic_cast<Thread*>(ThreadManager::the()->getThread(name));
}

Thread* Thread::find(const Char8* name) {
    return dynamic_cast<Thread*>(ThreadManager::the()->findThread(name));
}

bool Thread::runFunction(ThreadFunction function, UInt32 aspect, void* argument) {
    if (aspect >= ThreadManager::getNumAspects()) {
        SFATAL << "Thread::runFunction: no aspect " << aspect << endLog;
        return false;
    }
    return start(function, aspect, argument, _changes);
}

void ExternalThread::initialize(UInt32 aspect) {
    osgCurrentAspect = aspect < ThreadManager::getNumAspects() ? aspect : 0;
    currentList = getChangeList();
    currentList->setAspect(osgCurrentAspect);
}

ThreadManager* ThreadManager::the() {
    static ThreadManager& manager = *new ThreadManager;
    return &manager;
}

BaseThread* ThreadManager::getAppThread() { return the()->getThread("OSGAppThread"); }
UInt32 ThreadManager::getNumAspects() { return numAspects; }
void ThreadManager::setNumAspects(UInt32 count) { numAspects = osgMax(count, 1u); }

namespace {

// A look-up of what is known allocates nothing, so that it can't fail.
template <class Map> auto* findNamed(std::mutex& mutex, Map& map, const Char8* name) {
    const std::lock_guard<std::mutex> guard(mutex);
    const auto found = map.find(std::string_view(name ? name : ""));
    return found == map.end() ? nullptr : found->second.get();
}

template <class Map, class Make>
auto* findOrMake(std::mutex& mutex, Map& map, const Char8* name, Make make) {
    if (auto* known = findNamed(mutex, map, name))
        return known;
    const std::lock_guard<std::mutex> guard(mutex);
    auto& place = map[name ? name : ""];
    if (place == nullptr)
        place.reset(make());
    return place.get();
}

bool isType(const Char8* type, const Char8* known) { return type && !std::strcmp(type, known); }

} // namespace

BaseThread* ThreadManager::getThread(const Char8* name, const Char8* type) {
    if (BaseThread* known = findThread(name))
        return known;
    if (!isType(type, "OSGThread") && !isType(type, "OSGBaseThread") &&
        !isType(type, "OSGExternalThread")) {
        SWARNING << "ThreadManager::getThread: no thread type " << (type ? type : "") << endLog;
        return nullptr;
    }
    return findOrMake(_mutex, _threads, name, [name, type]() -> BaseThread* {
        if (isType(type, "OSGBaseThread"))
            return new BaseThread(name);
        if (isType(type, "OSGExternalThread"))
            return new ExternalThread(name);
        return new Thread(name);
    });
}

Lock* ThreadManager::getLock(const Char8* name, const Char8*) {
    return findOrMake(_mutex, _locks, name, [] { return new Lock; });
}
LockPool* ThreadManager::getLockPool(const Char8* name, const Char8*) {
    return findOrMake(_mutex, _lockPools, name, [] { return new LockPool; });
}
Barrier* ThreadManager::getBarrier(const Char8* name, const Char8*) {
    return findOrMake(_mutex, _barriers, name, [] { return new Barrier; });
}

BaseThread* ThreadManager::findThread(const Char8* name) {
    return findNamed(_mutex, _threads, name);
}
Lock* ThreadManager::findLock(const Char8* name) { return findNamed(_mutex, _locks, name); }
LockPool* ThreadManager::findLockPool(const Char8* name) {
    return findNamed(_mutex, _lockPools, name);
}
Barrier* ThreadManager::findBarrier(const Char8* name) {
    return findNamed(_mutex, _barriers, name);
}

void ThreadManager::joinAll() {
    std::vector<BaseThread*> threads;
    {
        const std::lock_guard<std::mutex> guard(_mutex);
        for (const auto& entry : _threads)
            threads.push_back(entry.second.get());
    }
    for (BaseThread* thread : threads)
        BaseThread::join(thread);
}

Lock* Lock::get(const Char8* name) { return ThreadManager::the()->getLock(name); }
Lock* Lock::find(const Char8* name) { return ThreadManager::the()->findLock(name); }
LockPool* LockPool::get(const Char8* name) { return ThreadManager::the()->getLockPool(name); }
LockPool* LockPool::find(const Char8* name) { return ThreadManager::the()->findLockPool(name); }
Barrier* Barrier::get(const Char8* name) { return ThreadManager::the()->getBarrier(name); }
Barrier* Barrier::find(const Char8* name) { return ThreadManager::the()->findBarrier(name); }

void PThreadBarrierBase::enter() {
    std::unique_lock<std::mutex> guard(_mutex);
    wait(guard);
}

void PThreadBarrierBase::enter(UInt32 numWaitFor) {
    std::unique_lock<std::mutex> guard(_mutex);
    _count = numWaitFor;
    wait(guard);
}

void PThreadBarrierBase::wait(std::unique_lock<std::mutex>& guard) {
    if (++_inside >= _count) {
        _inside = 0;
        ++_round;
        _opened.notify_all();
        return;
    }
    const UInt64 round = _round;
    _opened.wait(guard, [this, round] { return _round != round; });
}

namespace {

std::atomic<bool> isInitialized{false};

} // namespace

bool osgInit(Int32, Char8**, UInt16, UInt16, UInt16, bool, bool, bool) {
    ThreadManager::getAppThread();
    isInitialized = true;
    return true;
}

bool osgIsInitialized() { return isInitialized; }

bool osgExit() {
    ThreadManager::the()->joinAll();
    return true;
}

OSG_END_NAMESPACE
