#pragma once

// Counts the scene containers that live now. Every test program sees to it that no test leaves
// more of them than it met (test_main.cpp); a test that looks in between counts by itself.
//
// Walks all container numbers given out so far: for tests only. No other thread may create or
// destroy containers meanwhile.

#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGNode.h>
#include <gtest/gtest.h>

namespace morva_test {

inline bool isAlive(::osg::UInt32 id) {
    return ::osg::FieldContainerFactory::the()->getContainer(id) != ::osg::NullFC;
}

/// Containers that live now. Numbers are never given twice, and a fresh node has the highest.
inline unsigned int liveContainers() {
    ::osg::NodePtr probe = ::osg::Node::create();
    const ::osg::UInt32 newest = probe.getFieldContainerId();
    ::osg::addRefCP(probe);
    ::osg::subRefCP(probe);
    unsigned int count = 0;
    for (::osg::UInt32 id = 1; id < newest; ++id)
        count += isAlive(id) ? 1 : 0;
    return count;
}

/// Set by a test that leaves containers behind on purpose; false again for the next one.
inline bool strays_expected = false;

} // namespace morva_test
