#pragma once

// Counts the scene containers that live now, so that a test can see what a pass leaves behind:
//
//     const unsigned int before = liveContainers();
//     { node_ref root(build()); pass(root); }
//     EXPECT_EQ(liveContainers(), before);
//
// or, for all tests of a suite: class MyPass : public no_strays {};
//
// Walks all container numbers given out so far: for tests only. No other thread may create or
// destroy containers meanwhile.

#include <OpenSG/OSGFieldContainerFactory.h>
#include <OpenSG/OSGNode.h>
#include <gtest/gtest.h>

namespace morva_test {

/// Containers that live now. Numbers are never given twice, and a fresh node has the highest.
inline unsigned int liveContainers() {
    ::osg::NodePtr probe = ::osg::Node::create();
    const ::osg::UInt32 newest = probe.getFieldContainerId();
    ::osg::addRefCP(probe);
    ::osg::subRefCP(probe);
    unsigned int count = 0;
    for (::osg::UInt32 id = 1; id < newest; ++id) {
        if (::osg::FieldContainerFactory::the()->getContainer(id) != ::osg::NullFC)
            ++count;
    }
    return count;
}

/// A suite whose tests must leave no container behind.
class no_strays : public testing::Test {
  protected:
    void TearDown() override { EXPECT_EQ(liveContainers(), at_start); }

  private:
    unsigned int at_start = liveContainers();
};

} // namespace morva_test
