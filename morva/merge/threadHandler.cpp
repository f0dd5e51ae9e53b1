#include <morva/merge/threadHandler.h>

#include <algorithm>
#include <cassert>
#include <new>
#include <thread>
#include <utility>

#include <OpenSG/OSGChangeList.h>
#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGThreadManager.h>

namespace morva::osg {

namespace {

/// The thread of that name, or null if the name stands for another kind of thread.
::osg::Thread* threadOf(const std::string& name) {
    return dynamic_cast<::osg::Thread*>(
        ::osg::ThreadManager::the()->getThread(name.c_str(), "OSGThread"));
}

/// Holds a lock for the length of a scope.
class held_lock {
  public:
    explicit held_lock(::osg::Lock* lock) : lock_(lock) { lock_->aquire(); }
    held_lock(const held_lock&) = delete;
    held_lock& operator=(const held_lock&) = delete;
    ~held_lock() { lock_->release(); }

  private:
    ::osg::Lock* lock_;
};

void terminate(const std::string& name) {
    ::osg::Thread* thread = threadOf(name);
    if (thread != nullptr)
        thread->terminate();
}

} // namespace

threadHandler::threadHandler(std::string start_of_names, unsigned int limit)
    : name(std::move(start_of_names)), maxThreads(std::max(limit, 1U)),
      lock(::osg::Lock::get(name.c_str())),
      waitLock(::osg::Lock::get((name + "_WAITLOCK").c_str())),
      waitBarrier(::osg::Barrier::get((name + "_WAITBARRIER").c_str())),
      unlockBarrier(::osg::Barrier::get((name + "_WAITBARRIER_UNLOCK").c_str())) {}

threadHandler::~threadHandler() {
    // A worker that was let go by its barrier may not have left it yet.
    while (workersInside() != 0)
        std::this_thread::yield();
    assert(running == 0 && !waiting);
    for (const std::string& thread_name : threadNames)
        terminate(thread_name);
}

void threadHandler::endThread(unsigned int index) { terminate(threadNames[index]); }

std::string threadHandler::createThreadName(unsigned int index) {
    threadNames.push_back(name + "_Thread_" + std::to_string(index));
    return threadNames.back();
}

std::string threadHandler::createBarrierName(unsigned int index) const {
    return name + "_Barrier_" + std::to_string(index);
}

bool threadHandler::start(void (*worker)(void*), void* record, unsigned int index) {
    ::osg::Thread* thread = threadOf(createThreadName(index));
    if (thread == nullptr)
        return false;
    // Made here, so that the worker finds it and needs no memory for its end.
    ::osg::Barrier::get(createBarrierName(index).c_str());

    lock->aquire();
    ++running;
    lock->release();
    inside_.fetch_add(1, std::memory_order_relaxed);
    const bool started = thread->runFunction(worker, 0, record);

    lock->aquire();
    if (!started) {
        --running;
        inside_.fetch_sub(1, std::memory_order_relaxed);
    }
    if (running < maxThreads) {
        lock->release();
        return started;
    }
    // The worker that ends next sees this and holds the lock through both barriers, so that no
    // other one can come in between.
    waiting = true;
    lock->release();
    waitBarrier->enter(2);
    waiting = false;
    unlockBarrier->enter(2);
    return started;
}

void threadHandler::join(const std::string& barrierName) {
    ::osg::Barrier::get(barrierName.c_str())->enter(2);
}

void threadHandler::takeChanges(unsigned int index) {
    ::osg::Thread* thread = threadOf(threadNames[index]);
    if (thread != nullptr)
        ::osg::Thread::getCurrentChangeList()->merge(*thread->getChangeList());
}

void threadHandler::noMoreTasks() {
    const held_lock guard(lock);
    all_started_ = true;
}

/// The lowest number that no helper has, with a place under the limit.
std::optional<unsigned int> threadHandler::takePlace() {
    const held_lock guard(lock);
    if (!all_started_ || running >= maxThreads)
        return std::nullopt;
    const auto unused = std::find(helpers_.begin(), helpers_.end(), false);
    const auto number = static_cast<unsigned int>(unused - helpers_.begin());
    if (unused == helpers_.end())
        helpers_.push_back(true);
    else
        *unused = true;
    ++running;
    return number;
}

void threadHandler::leavePlace(unsigned int number) {
    const held_lock guard(lock);
    --running;
    helpers_[number] = false;
}

std::string threadHandler::helperName(unsigned int number) const {
    return name + "_Helper_" + std::to_string(number);
}

std::optional<unsigned int> threadHandler::startHelper(void (*helper)(void*), void* argument,
                                                       bool& failed) {
    const std::optional<unsigned int> number = takePlace();
    if (!number)
        return std::nullopt;
    try {
        ::osg::Thread* thread = threadOf(helperName(*number));
        if (thread != nullptr && thread->runFunction(helper, 0, argument))
            return number;
    } catch (const std::bad_alloc&) {
        // As if there were no thread.
    }
    leavePlace(*number);
    failed = true;
    return std::nullopt;
}

void threadHandler::joinHelper(unsigned int number) {
    ::osg::Thread* thread = threadOf(helperName(number));
    ::osg::BaseThread::join(thread);
    try {
        ::osg::Thread::getCurrentChangeList()->merge(*thread->getChangeList());
    } catch (const std::bad_alloc&) {
        // No room for lines in the list: this aspect is right, others learn of it later.
    }
    leavePlace(number);
}

bool threadHandler::hasFinished(const bool& finished) const {
    lock->aquire();
    const bool has = finished;
    lock->release();
    return has;
}

void threadHandler::leave(const std::string& barrierName, bool& finished) {
    ::osg::Barrier* own = ::osg::Barrier::get(barrierName.c_str());
    lock->aquire();
    assert(running > 0);
    --running;
    finished = true;
    if (waiting) {
        waitBarrier->enter(2);
        unlockBarrier->enter(2);
    }
    lock->release();
    own->enter(2);
    inside_.fetch_sub(1, std::memory_order_release); // the handler may be gone after this
}

} // namespace morva::osg
