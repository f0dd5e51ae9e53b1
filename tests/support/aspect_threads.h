#pragma once

// Work on named threads, each in the aspect that it is given.

#include <functional>

#include <OpenSG/OSGThread.h>
#include <OpenSG/OSGThreadManager.h>

#include <gtest/gtest.h>

namespace morva_test {

inline ::osg::Thread* threadOf(const char* name) {
    return dynamic_cast<::osg::Thread*>(::osg::ThreadManager::the()->getThread(name, "OSGThread"));
}

/// Does the work in that aspect, and waits for its end.
inline void runIn(::osg::Thread* thread, ::osg::UInt32 aspect, const std::function<void()>& work) {
    std::function<void()> copy = work;
    ASSERT_TRUE(thread->runFunction([](void* f) { (*static_cast<std::function<void()>*>(f))(); },
                                    aspect, &copy));
    ::osg::BaseThread::join(thread);
}

} // namespace morva_test
